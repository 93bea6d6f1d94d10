// How the camera reads a ZigBee sensor report, written here from the reading rules alone, for the
// fuzz targets to work out what each decoder must do with any bytes: the result, what lands in
// the record and the count, and the lines it prints (level and text, without the final newline).
//
// Coordinator frames: the first byte must be 01; the rest is unstuffed (02 and the next byte XOR
// 0x10, which must come out below 0x10; the input must not end right after 02) up to and without
// the first 03, or to the end of the bytes the decoder may examine. The sensor frame's head is at
// 12 and its data type at 15, the command at 18, the data from 19. Older frames: AA F0, the count
// K (the frame is K + 4 bytes), the device byte at 4, the head at 5, data type 8, command 11, data
// from 12. Reads stay inside the frame; a version keeps what the length field minus 4 claims, at
// most what the frame holds and at most 31 characters.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace clitest
{

struct ZbModelRecord {
    int32_t state = 0;
    uint32_t temperature = 0;
    uint32_t humidity = 0;
    uint32_t particulate = 0;
    std::string version;
};

struct ZbOutcome {
    uint32_t result = 1;
    ZbModelRecord record;           // after the call, from the record before it
    uint32_t counted = 0;           // how much the count went up
    std::vector<std::string> lines; // "ERROR text" / " INFO text"
    bool console = false;           // an error line on standard error too
};

inline std::string zb_line(const char *level, const char *format, long long a = 0, long long b = 0,
                           long long c = 0)
{
    char text[160];
    snprintf(text, sizeof text, format, a, b, c);
    return std::string(level) + " " + text;
}

inline uint32_t zb_be(const std::vector<uint8_t> &frame, size_t at, size_t count)
{
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value << 8 | frame[at + i];
    return value;
}

// The sensor frame at `head` of `frame`; `outcome.record` already holds the record as before the
// call. Returns false for a refusal (with its line), leaving what was written. `old` picks the
// older decoder's words.
inline bool zb_model_sensor(const std::vector<uint8_t> &frame, size_t head, bool old, ZbOutcome &outcome)
{
    const size_t len = frame.size();
    if (len <= head + 6) {
        outcome.lines.push_back(zb_line("ERROR", "data len %lld too short", static_cast<long long>(len)));
        return false;
    }
    const uint8_t command = frame[head + 6];
    const size_t data = head + 7;
    const size_t have = len - data;
    if (command == 0x15) {
        if (have < 4) {
            outcome.lines.push_back(zb_line("ERROR", "data len %lld too short", static_cast<long long>(len)));
            return false;
        }
        outcome.record.temperature = zb_be(frame, data, 2);
        outcome.record.humidity = zb_be(frame, data + 2, 2);
        if (!old)
            outcome.lines.push_back(zb_line(" INFO", "hum info get, hum: %lld temp: %lld\n",
                                            static_cast<int32_t>(outcome.record.humidity),
                                            static_cast<int32_t>(outcome.record.temperature)));
    } else if (command == 0x16) {
        if (have < 4) {
            outcome.lines.push_back(zb_line("ERROR", "data len %lld too short", static_cast<long long>(len)));
            return false;
        }
        outcome.record.particulate = zb_be(frame, data, 4);
        if (!old)
            outcome.lines.push_back(
                zb_line(" INFO", "pm info get: %lld\n", static_cast<int32_t>(outcome.record.particulate)));
    } else if (command == 0xFE) {
        const int64_t claimed = static_cast<int64_t>(zb_be(frame, head + 1, 2)) - 4;
        uint64_t keep = claimed < 0 ? UINT32_MAX : static_cast<uint64_t>(claimed); // a claim below 0 wraps
        keep = std::min<uint64_t>(keep, have);
        keep = std::min<uint64_t>(keep, 31);
        if (static_cast<int64_t>(keep) != claimed)
            outcome.lines.push_back(zb_line("ERROR", "ver len %lld out of range, %lld kept", claimed,
                                            static_cast<long long>(keep)));
        outcome.record.version.assign(frame.begin() + static_cast<long>(data),
                                      frame.begin() + static_cast<long>(data + keep));
        const size_t zero = outcome.record.version.find('\0');
        if (zero != std::string::npos)
            outcome.record.version.resize(zero); // the text as C reads it
        if (!old)
            outcome.lines.push_back(" INFO ver info get\n");
    } else {
        outcome.lines.push_back(
            zb_line("ERROR", old ? "unknow Cmd type %llu" : "unknow Cmd type %lld", command));
        outcome.console = true;
        return false;
    }
    outcome.counted = 1;
    outcome.result = 0;
    return true;
}

// CLI_ZigBeeDataDealNew over the `size` bytes at `data`, on a record that holds `before`.
inline ZbOutcome zb_model_new(const uint8_t *data, size_t size, const ZbModelRecord &before)
{
    ZbOutcome outcome;
    outcome.record = before;
    if (size == 0) {
        outcome.lines.push_back("ERROR data len 0 too short");
        return outcome;
    }
    if (data[0] != 0x01) {
        outcome.lines.push_back(zb_line("ERROR", "first word[0x%llx] != 0x1", data[0]));
        return outcome;
    }
    std::vector<uint8_t> frame = {data[0]};
    for (size_t at = 1; at < size; ++at) {
        uint8_t byte = data[at];
        if (byte == 0x03)
            break;
        if (byte == 0x02) {
            if (at + 1 == size) {
                outcome.lines.push_back("ERROR data fomat err(tail)");
                return outcome;
            }
            byte = static_cast<uint8_t>(data[++at] ^ 0x10);
            if (byte > 0x0F)
                return outcome;
        }
        frame.push_back(byte);
    }
    if (frame.size() >= 16 && (frame[12] != 0xFE || frame[15] != 3)) {
        outcome.lines.push_back(zb_line(
            "ERROR",
            "sens data fomat err, data head[0x%llx] should be 0xfe, data type[0x%llx] should be 0x%llx",
            frame[12], frame[15], 3));
        return outcome;
    }
    if (frame.size() >= 16)
        outcome.record.state = 0;
    zb_model_sensor(frame, 12, false, outcome);
    return outcome;
}

// CLI_ZigBeeDataDeal over a frame of `size` bytes that is as long as its count says, when it
// starts AA F0.
inline ZbOutcome zb_model_old(const uint8_t *data, size_t size, const ZbModelRecord &before)
{
    ZbOutcome outcome;
    outcome.record = before;
    if (size < 2 || data[0] != 0xAA || data[1] != 0xF0) {
        outcome.lines.push_back("ERROR data head error");
        return outcome;
    }
    const std::vector<uint8_t> frame(data, data + size);
    if (size <= 8 || frame[5] != 0xFE || frame[8] != 3) {
        outcome.lines.push_back("ERROR data head error");
        return outcome;
    }
    outcome.record.state = frame[4];
    zb_model_sensor(frame, 5, true, outcome);
    return outcome;
}

} // namespace clitest
