// ZigBee coordinator frames as the wire carries them, written and read for tests apart from the
// library and the simulated coordinator, so that a test's expected bytes and its reading of what
// the camera sent do not lean on the code they check.
//
// On the wire: 01, then type (2 bytes), length (2), checksum (XOR of those four and the payload),
// payload, each of those bytes below 0x10 sent as 02 and the byte XOR 0x10; then 03. A sensor
// report's payload is six bytes of the coordinator's, then the sensor's frame: FE, length (data
// type to end of data), 03, two bytes, command, data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace clitest
{

using ZbBytes = std::vector<uint8_t>;

// `inside` between 01 and 03, every byte below 0x10 escaped.
inline ZbBytes zb_stuff(const ZbBytes &inside)
{
    ZbBytes wire = {0x01};
    for (const uint8_t byte : inside) {
        if (byte < 0x10) {
            wire.push_back(0x02);
            wire.push_back(static_cast<uint8_t>(byte ^ 0x10));
        } else {
            wire.push_back(byte);
        }
    }
    wire.push_back(0x03);
    return wire;
}

// The frame's inside: type, length, checksum, payload, as they are before stuffing.
inline ZbBytes zb_inside(uint16_t type, const ZbBytes &payload)
{
    const size_t n = payload.size();
    ZbBytes inside = {static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type),
                      static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
    uint8_t sum = static_cast<uint8_t>(inside[0] ^ inside[1] ^ inside[2] ^ inside[3]);
    for (const uint8_t byte : payload)
        sum = static_cast<uint8_t>(sum ^ byte);
    inside.push_back(sum);
    for (const uint8_t byte : payload) // one by one: GCC 12 misjudges an insert of an empty range
        inside.push_back(byte);
    return inside;
}

// A whole frame on the wire.
inline ZbBytes zb_frame(uint16_t type, const ZbBytes &payload)
{
    return zb_stuff(zb_inside(type, payload));
}

// A frame read off the wire by the test: unstuffed and its fields taken apart.
struct ZbRead {
    bool whole = false; // 01 first, 03 last and only there, every escape gives a byte below 0x10
    uint16_t type = 0;
    uint16_t length = 0;
    uint8_t checksum = 0;
    uint8_t computed = 0; // XOR of type, length and payload as received
    ZbBytes payload;
    bool length_right() const { return length == payload.size(); }
    bool checksum_right() const { return checksum == computed; }
};

inline ZbRead zb_read(const ZbBytes &wire)
{
    ZbRead read;
    if (wire.size() < 2 || wire.front() != 0x01 || wire.back() != 0x03)
        return read;
    ZbBytes inside;
    for (size_t i = 1; i + 1 < wire.size(); ++i) {
        uint8_t byte = wire[i];
        if (byte == 0x01 || byte == 0x03)
            return read;
        if (byte == 0x02) {
            if (i + 2 >= wire.size())
                return read;
            byte = static_cast<uint8_t>(wire[++i] ^ 0x10);
            if (byte >= 0x10)
                return read;
        } else if (byte < 0x10) {
            return read; // a byte that should have travelled escaped
        }
        inside.push_back(byte);
    }
    if (inside.size() < 5)
        return read;
    read.whole = true;
    read.type = static_cast<uint16_t>((inside[0] << 8) | inside[1]);
    read.length = static_cast<uint16_t>((inside[2] << 8) | inside[3]);
    read.checksum = inside[4];
    read.payload.assign(inside.begin() + 5, inside.end());
    read.computed = static_cast<uint8_t>(inside[0] ^ inside[1] ^ inside[2] ^ inside[3]);
    for (const uint8_t byte : read.payload)
        read.computed = static_cast<uint8_t>(read.computed ^ byte);
    return read;
}

// A sensor's frame as the coordinator relays it in a report's payload, after its own six bytes.
struct ZbSensorFrame {
    uint8_t head = 0xFE;
    std::optional<uint16_t> length{}; // default: data + 4
    uint8_t data_type = 3;
    uint8_t command = 0x15;
    ZbBytes data{};
};

inline ZbBytes zb_report_payload(const ZbSensorFrame &sensor)
{
    const uint16_t length = sensor.length.value_or(static_cast<uint16_t>(sensor.data.size() + 4));
    ZbBytes payload = {0x00,
                       0x12,
                       0x34,
                       0x01,
                       0x00,
                       0x00, // the coordinator's six bytes
                       sensor.head,
                       static_cast<uint8_t>(length >> 8),
                       static_cast<uint8_t>(length),
                       sensor.data_type,
                       0x12,
                       0x34,
                       sensor.command};
    for (const uint8_t byte : sensor.data)
        payload.push_back(byte);
    return payload;
}

// A report on the wire, as a coordinator sends it (type 0x8002).
inline ZbBytes zb_report(const ZbSensorFrame &sensor)
{
    return zb_frame(0x8002, zb_report_payload(sensor));
}

inline ZbBytes zb_climate(uint16_t temperature, uint16_t humidity)
{
    return zb_report({.command = 0x15,
                      .data = {static_cast<uint8_t>(temperature >> 8), static_cast<uint8_t>(temperature),
                               static_cast<uint8_t>(humidity >> 8), static_cast<uint8_t>(humidity)}});
}

inline ZbBytes zb_particulate(uint32_t value)
{
    return zb_report({.command = 0x16,
                      .data = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                               static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}});
}

inline ZbBytes zb_version(const std::string &text, std::optional<uint16_t> length = {})
{
    return zb_report({.length = length, .command = 0xFE, .data = ZbBytes(text.begin(), text.end())});
}

// "01 02 10 ..." for failure messages.
inline std::string zb_hex(const ZbBytes &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty())
            text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

// Bytes written in hexadecimal, "01 02 10": the way the tables write wire bytes out.
inline ZbBytes zb_bytes(const std::string &hex)
{
    ZbBytes bytes;
    int high = -1;
    for (const char c : hex) {
        int value;
        if (c >= '0' && c <= '9')
            value = c - '0';
        else if (c >= 'a' && c <= 'f')
            value = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value = c - 'A' + 10;
        else
            continue;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

} // namespace clitest
