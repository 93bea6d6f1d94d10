// Captured 802.11 frames as the camera's Wi-Fi driver delivers them, built by the tests
// themselves (radio-tap header of the driver's layout, then the 802.11 header), a classic pcap
// file writer for the simulated capture to replay, and the tests' own reading of what the
// sniffer must keep of a frame. None of it uses the library's code.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace clitest
{

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;

// Frame-control bytes of the management frames the tests send.
constexpr uint8_t kFcProbeRequest = 0x40; // type 0 (management), subtype 4
constexpr uint8_t kFcBeacon = 0x80;       // subtype 8
constexpr uint8_t kFcProbeResponse = 0x50;

// A frame of `on_air` bytes: a radio-tap header whose length field says `radiotap_field` (its low
// byte is where the 802.11 header starts for the camera; libpcap's filter uses the whole field),
// with the TSFT at 8 and the signal at 22 as the driver writes them, and a management frame with
// frame control `fc` and transmitter `station` at `header_at` (the low byte unless said).
struct FrameShape {
    uint16_t radiotap_field = 26;
    uint32_t on_air = 80;
    uint8_t fc = kFcProbeRequest;
    Mac station = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    int8_t signal = -42;
    uint64_t tsft = 0x0011223344556677ull;
    // Frame control where libpcap's filter looks (the whole length field), when a header of 256
    // bytes or more puts it elsewhere than where the camera looks; 0: the same as `fc`.
    uint8_t fc_for_filter = 0;
};

inline Bytes make_frame(const FrameShape &shape)
{
    Bytes frame(shape.on_air, 0);
    auto put = [&](size_t at, uint8_t value) {
        if (at < frame.size())
            frame[at] = value;
    };
    put(0, 0);                           // radio-tap version
    put(2, shape.radiotap_field & 0xFF); // length, little-endian
    put(3, shape.radiotap_field >> 8);
    put(4, 0x2F); // present: TSFT, flags, rate, channel, signal
    for (int i = 0; i < 8; ++i)
        put(8 + static_cast<size_t>(i), static_cast<uint8_t>(shape.tsft >> (8 * i)));
    put(22, static_cast<uint8_t>(shape.signal));
    // The camera reads the 802.11 header at the low byte of the length; libpcap's filter at the
    // whole length. For a header below 256 bytes both are the same place.
    for (size_t at :
         {static_cast<size_t>(shape.radiotap_field), static_cast<size_t>(shape.radiotap_field & 0xFF)}) {
        const bool for_filter = at == shape.radiotap_field && shape.radiotap_field > 0xFF;
        put(at, for_filter && shape.fc_for_filter != 0 ? shape.fc_for_filter : shape.fc);
        for (size_t i = 0; i < 6; ++i) {
            put(at + 4 + i, 0xFF);              // address 1: broadcast
            put(at + 10 + i, shape.station[i]); // address 2: the station
            put(at + 16 + i, 0xFF);             // address 3: broadcast
        }
    }
    return frame;
}

// The probe record the sniffer must keep of `frame` as the camera reads it: address 2 behind the
// frame control at the low byte of the radio-tap length, the byte at 22, the 8 bytes at 8.
inline Bytes expected_record(const Bytes &frame)
{
    const size_t rt = frame[2];
    Bytes record(frame.begin() + static_cast<long>(rt + 10), frame.begin() + static_cast<long>(rt + 16));
    record.push_back(frame[22]);
    record.insert(record.end(), frame.begin() + 8, frame.begin() + 16);
    return record;
}

// One record of a capture file: the bytes captured and the length on the air.
struct Packet {
    double at_seconds = 0; // arrival, from the file's first packet
    Bytes captured;
    uint32_t on_air = 0; // 0: as many as captured
};

// A classic little-endian pcap file of radio-tap frames (link type 127).
inline bool write_capture(const std::string &path, const std::vector<Packet> &packets)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    auto u32 = [&](uint32_t value) { fwrite(&value, 4, 1, file); };
    auto u16 = [&](uint16_t value) { fwrite(&value, 2, 1, file); };
    u32(0xA1B2C3D4);
    u16(2);
    u16(4);
    u32(0);     // time zone
    u32(0);     // accuracy
    u32(65535); // snapshot length of the file
    u32(127);   // IEEE 802.11 with radio-tap
    const uint32_t base = 1700000000;
    for (const Packet &packet : packets) {
        const auto micros = static_cast<uint64_t>(packet.at_seconds * 1e6 + 0.5);
        u32(base + static_cast<uint32_t>(micros / 1000000));
        u32(static_cast<uint32_t>(micros % 1000000));
        u32(static_cast<uint32_t>(packet.captured.size()));
        u32(packet.on_air != 0 ? packet.on_air : static_cast<uint32_t>(packet.captured.size()));
        fwrite(packet.captured.data(), 1, packet.captured.size(), file);
    }
    return fclose(file) == 0;
}

// "aa:bb:cc:dd:ee:ff", lower case, as the sniffer prints an address.
inline std::string mac_text(const uint8_t *mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

} // namespace clitest
