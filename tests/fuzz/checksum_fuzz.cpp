// The hub frame's checksum and the frame it guards. Whatever the bytes: CLI_GetCheckSum is their
// untruncated 32-bit sum, and a frame built around them (up to 1015 bytes, the rest cut off)
// passes the receive check exactly when its bytes add up to no more than 65535, and fails it with
// any other port, kind or checksum.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clidriver/clidriver.h"
#include "hub_frame.h"

namespace
{

[[noreturn]] void broken(const char *what)
{
    fprintf(stderr, "checksum_fuzz: %s\n", what);
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    uint32_t reference = 0;
    for (size_t i = 0; i < size; ++i)
        reference += data[i];
    if (static_cast<uint32_t>(CLI_GetCheckSum(data, static_cast<uint32_t>(size))) != reference)
        broken("CLI_GetCheckSum is not the byte sum");

    if (size < 3)
        return 0;
    const uint16_t port = static_cast<uint16_t>((data[0] << 8) | data[1]);
    const uint8_t command = data[2];
    const uint8_t *payload = data + 3;
    const uint32_t length = size - 3 > kHubMaxPayload ? kHubMaxPayload : static_cast<uint32_t>(size - 3);

    uint8_t *frame = static_cast<uint8_t *>(malloc(kHubBufferSize)); // exactly one frame's room
    const uint32_t built = cli_hub_frame_build(frame, kHubBufferSize, port, command, payload, length);
    if (built != length + kHubFrameOverhead || frame[0] != kHubHead || frame[kHubOffKind] != kHubKind ||
        memcmp(frame + kHubOffPayload, payload, length) != 0)
        broken("the frame does not carry its fields");
    const uint32_t sum =
        static_cast<uint32_t>(CLI_GetCheckSum(frame + kHubOffKind, length + kHubLengthOverhead));
    const CliHubVerdict verdict = cli_hub_frame_check(frame, built, port);
    if ((verdict == CLI_HUB_FRAME_OK) != (sum <= 0xFFFF))
        broken("a built frame is refused though its sum fits 16 bits, or taken though it does not");
    if (verdict != CLI_HUB_FRAME_OK && verdict != CLI_HUB_FRAME_CHECKSUM)
        broken("a built frame fails for another reason than its sum");
    if (cli_hub_frame_check(frame, built, static_cast<uint16_t>(port + 1)) != CLI_HUB_FRAME_PORT)
        broken("another port is taken");
    if (built > 9) {
        frame[built - 1] ^= 0x01;
        if (cli_hub_frame_check(frame, built, port) == CLI_HUB_FRAME_OK)
            broken("a spoilt checksum is taken");
    }
    frame[kHubOffKind] = 0x02;
    if (cli_hub_frame_check(frame, built, port) != CLI_HUB_FRAME_NOT_HUB)
        broken("another kind is taken");
    if (cli_hub_frame_check(frame, built - 1, port) != CLI_HUB_FRAME_LENGTH)
        broken("a frame one byte short is checked");
    free(frame);
    return 0;
}
