// The seven-byte frames on the console UART: the light sensor's reply as the camera judges it,
// any frame as the library checks it, and the simulated lamp unit's and light sensor's reader
// finding frames in whatever stream arrives, in whatever pieces. Every verdict is compared with a
// reading of this file's own: sync 0xFF, address 0x01, command 1 0x20, and a check byte that is the
// sum of bytes 1 to 5 modulo 256. The library's functions get exactly the bytes they are told they
// hold, in a buffer of that size, so a read past them is caught.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lamp_frame.h"
#include "peripherals/lamp_wire.h"

namespace
{

[[noreturn]] void broken(const char *what)
{
    fprintf(stderr, "lamp_frame_fuzz: %s\n", what);
    abort();
}

uint8_t own_check_byte(const uint8_t *frame)
{
    return static_cast<uint8_t>(frame[1] + frame[2] + frame[3] + frame[4] + frame[5]);
}

// The library's view of the first `held` bytes of `data`, from a buffer of exactly that size.
void judge_prefix(const uint8_t *data, size_t held)
{
    std::vector<uint8_t> copy(data, data + held);
    const uint8_t *bytes = held == 0 ? nullptr : copy.data();
    const auto size = static_cast<uint32_t>(held);

    const bool reply = held >= 7 && data[0] == 0xFF && data[1] == 0x01 && data[2] == 0x20 && data[3] == 0x5B;
    if (cli_light_reply_valid(bytes, size) != reply)
        broken("the light reply verdict differs from the first four bytes");

    const uint8_t check = held >= 7 ? own_check_byte(data) : 0;
    if (cli_lamp_check_byte(bytes, size) != check)
        broken("the check byte is not the sum of bytes 1 to 5");

    CliLampVerdict expected = CLI_LAMP_FRAME_OK;
    if (held < 7)
        expected = CLI_LAMP_FRAME_SHORT;
    else if (data[0] != 0xFF)
        expected = CLI_LAMP_FRAME_SYNC;
    else if (data[6] != check)
        expected = CLI_LAMP_FRAME_CHECK;
    if (cli_lamp_frame_check(bytes, size) != expected)
        broken("the frame verdict differs");
}

// A frame built from the input's fields into a buffer of `capacity` bytes, the rest guarded.
void build(uint8_t address, uint8_t command, uint16_t data, uint32_t capacity)
{
    constexpr uint8_t kGuard = 0xA5;
    std::vector<uint8_t> buffer(16, kGuard);
    const uint32_t built = cli_lamp_frame_build(buffer.data(), capacity, address, command, data);
    if (capacity < 7) {
        for (uint8_t byte : buffer)
            if (byte != kGuard)
                broken("a frame that does not fit was written");
        if (built != 0)
            broken("a frame that does not fit was reported built");
        return;
    }
    const uint8_t expected[7] = {
        0xFF,
        address,
        0x20,
        command,
        static_cast<uint8_t>(data >> 8),
        static_cast<uint8_t>(data),
        static_cast<uint8_t>(address + 0x20 + command + (data >> 8) + (data & 0xFF))};
    if (built != 7 || memcmp(buffer.data(), expected, 7) != 0)
        broken("a built frame is not sync, address, 0x20, command, data, check");
    for (size_t i = 7; i < buffer.size(); ++i)
        if (buffer[i] != kGuard)
            broken("building wrote past the frame");
    if (cli_lamp_frame_check(buffer.data(), 7) != CLI_LAMP_FRAME_OK)
        broken("a built frame is refused");
}

struct OwnFrame {
    std::vector<uint8_t> bytes;
    bool check_ok;
};

// What a receiver on the line must find in the whole stream: from each sync byte, seven bytes; a
// frame with the right check byte is taken whole, a wrong one costs only its sync byte.
std::vector<OwnFrame> own_frames(const std::vector<uint8_t> &stream, size_t &skipped)
{
    std::vector<OwnFrame> frames;
    size_t at = 0;
    skipped = 0;
    while (at < stream.size()) {
        if (stream[at] != 0xFF) {
            ++skipped;
            ++at;
            continue;
        }
        if (stream.size() - at < 7)
            break;
        const bool ok = stream[at + 6] == own_check_byte(&stream[at]);
        frames.push_back({std::vector<uint8_t>(stream.begin() + at, stream.begin() + at + 7), ok});
        if (ok) {
            at += 7;
        } else {
            ++skipped;
            ++at;
        }
    }
    return frames;
}

// The simulated units' reader, fed the stream in pieces whose sizes the input's first byte picks.
void read_in_pieces(const uint8_t *data, size_t size)
{
    if (size == 0)
        return;
    const unsigned piece_seed = data[0];
    const std::vector<uint8_t> stream(data + 1, data + size);
    sim::LampFrameReader reader;
    std::vector<sim::HeardLampFrame> heard;
    size_t at = 0;
    for (unsigned turn = 0; at < stream.size(); ++turn) {
        const size_t piece = 1 + (piece_seed + turn * 7u) % 9u;
        const size_t take = piece < stream.size() - at ? piece : stream.size() - at;
        const std::vector<uint8_t> bytes(stream.begin() + at, stream.begin() + at + take);
        for (auto &frame : reader.read(bytes, static_cast<sim::Nanos>(turn)))
            heard.push_back(std::move(frame));
        at += take;
    }
    size_t skipped = 0;
    const std::vector<OwnFrame> expected = own_frames(stream, skipped);
    if (heard.size() != expected.size())
        broken("the reader found another number of frames");
    for (size_t i = 0; i < heard.size(); ++i) {
        if (heard[i].bytes != expected[i].bytes || heard[i].check_ok != expected[i].check_ok)
            broken("the reader heard another frame");
    }
    if (reader.skipped() != skipped)
        broken("the reader skipped another number of bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (size_t held = 0; held <= size && held <= 8; ++held)
        judge_prefix(data, held);
    if (size > 8)
        judge_prefix(data, size);
    if (size >= 5)
        build(data[0], data[1], static_cast<uint16_t>((data[2] << 8) | data[3]), data[4] % 10u);
    read_in_pieces(data, size);
    return 0;
}
