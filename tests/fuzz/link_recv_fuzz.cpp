// What a peripheral sends is outside input: whatever bytes arrive on the link, CLI_ComRecv must
// end (no hang), write nothing beyond the caller's 1024 bytes, and hand back only a message that
// really stood in the stream in the shape it claims. Built once per receive shape (LINK_SHAPE):
// hub mode, and direct mode with the GPS receiver, the RFID reader or the ZigBee radio present.
//
// The first input byte chooses the link type (0..3, or 4 which must be refused); the rest is the
// byte stream, written into a pipe whose writer is then closed. Reads of a pipe never wait for
// the time-out: the stream's end reads as a line that has ended, which the receive must survive.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "hub_wire.h"

#ifndef LINK_SHAPE
#error "LINK_SHAPE selects the receive shape: 0 hub, 1 GPS, 2 RFID, 3 ZigBee"
#endif

namespace
{

constexpr size_t kBuffer = 1024;
constexpr uint32_t kUntouched = 0xA5A5A5A5u;
constexpr size_t kMaxStream = 60000; // below a pipe's capacity: the write never blocks
using clitest::kHubPortOf;

char g_line[2048];

[[noreturn]] void broken(const char *what)
{
    fprintf(stderr, "link_recv_fuzz: %s\n", what);
    abort();
}

void declare_shape()
{
    memset(&gastComCap, 0, sizeof gastComCap);
    gastComCap.pcDevPath = "/dev/ttyC0";
    switch (LINK_SHAPE) {
    case 0:
        gastComCap.astDev[COM_TYPE_HUB] = {1, 115200};
        break;
    case 1:
        gastComCap.astDev[COM_TYPE_GPS] = {1, 9600};
        break;
    case 2:
        gastComCap.astDev[COM_TYPE_RFID] = {1, 9600};
        break;
    default:
        gastComCap.astDev[COM_TYPE_ZIGBEE] = {1, 38400};
        break;
    }
}

// Whether `message` stood in `stream` at `at`.
bool stands_at(const uint8_t *stream, size_t size, size_t at, const uint8_t *message, size_t length)
{
    return at + length <= size && memcmp(stream + at, message, length) == 0;
}

// A hub frame from `port` carrying exactly `payload`, with its checksum right, somewhere in the
// stream.
bool hub_frame_in(const uint8_t *stream, size_t size, uint16_t port, const uint8_t *payload, uint32_t length)
{
    const uint32_t field = length + 4;
    for (size_t at = 0; at + length + 9 <= size; ++at) {
        const uint8_t *frame = stream + at;
        if (frame[0] != 0xFE || ((frame[1] << 8) | frame[2]) != static_cast<int>(field) || frame[3] != 0x01 ||
            ((frame[4] << 8) | frame[5]) != port || memcmp(frame + 7, payload, length) != 0)
            continue;
        uint32_t sum = 0;
        for (uint32_t i = 3; i < 7 + length; ++i)
            sum += frame[i];
        if (sum == static_cast<uint32_t>((frame[7 + length] << 8) | frame[8 + length]))
            return true;
    }
    return false;
}

// Where the direct shapes look for a frame: on a boundary of the two-byte reads.
bool on_pair_boundary_in(const uint8_t *stream, size_t size, const uint8_t *message, uint32_t length)
{
    for (size_t at = 0; at + length <= size; at += 2)
        if (stands_at(stream, size, at, message, length))
            return true;
    return false;
}

void check(uint32_t type, const uint8_t *stream, size_t size, uint32_t result, const uint8_t *out,
           uint32_t length)
{
    if (result > 1)
        broken("a result other than 0 or 1");
    if (type >= COM_TYPE_COUNT) {
        if (result != 1 || length != kUntouched)
            broken("a type above 3 was not refused");
        return;
    }
    if (length == kUntouched)
        return; // nothing found, or a failed read: nothing to check but the memory, which ASan does
    if (result != 0 || length > kBuffer)
        broken("a message stored with a failure, or longer than the buffer");
    switch (LINK_SHAPE) {
    case 0:
        if (length > 1015 || !hub_frame_in(stream, size, kHubPortOf[type], out, length))
            broken("a hub message that was not a good frame from the type's port");
        break;
    case 1:
        if (length != kBuffer || !stands_at(stream, size, 0, out, kBuffer))
            broken("a GPS block that is not the first 1024 bytes");
        break;
    case 2:
        if (length < 4 || out[0] != 0xFF || out[1] != 0x0C ||
            ((out[2] << 8) | out[3]) != static_cast<int>(length) ||
            !on_pair_boundary_in(stream, size, out, length))
            broken("an RFID frame that is not FF 0C with its own length, as sent");
        break;
    default:
        if (out[0] != 0xAA || length != out[2] + 4u || !on_pair_boundary_in(stream, size, out, length))
            broken("a ZigBee frame that is not AA with K + 4 bytes, as sent");
        break;
    }
}

} // namespace

// The platform's print sink: every diagnostic line is formatted in full, so a format whose
// arguments do not match would show under the sanitizers.
extern "C" int Cli_Common_Print(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(g_line, sizeof g_line, format, args);
    va_end(args);
    return n;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const uint32_t type = data[0] % (COM_TYPE_COUNT + 1);
    const uint8_t *stream = data + 1;
    const size_t length = size - 1 < kMaxStream ? size - 1 : kMaxStream;

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        broken("no pipe");
    if (length != 0 && write(ends[1], stream, length) != static_cast<ssize_t>(length))
        broken("the pipe took less than the stream");
    close(ends[1]);

    declare_shape();
    uint8_t *out = static_cast<uint8_t *>(malloc(kBuffer)); // exactly the caller's 1024 bytes
    uint32_t stored = kUntouched;
    const uint32_t result = CLI_ComRecv(ends[0], type, out, &stored);
    check(type, stream, length, result, out, stored);
    free(out);
    close(ends[0]);
    return 0;
}
