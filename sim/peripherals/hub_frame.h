// The frames of the peripheral hub's link, as the simulated hub and the peripheral box speak
// them: head 0xFE, 16-bit length (payload + 4), kind 0x01, 16-bit port, command, payload, and
// the low 16 bits of the byte sum from the kind to the end of the payload, every field high byte
// first. Building (with any field wrong on purpose), reading out of a byte stream, and the hooks
// the misbehaviour layer uses to spoil a frame's checksum or length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/time.h"
#include "peripherals/misbehaviour.h"

namespace sim
{

// Ports behind the hub.
constexpr uint16_t kHubPortBox = 0x0005;    // the hub's own peripheral box (heater, temperature)
constexpr uint16_t kHubPortGps = 0x005B;    // the GPS receiver
constexpr uint16_t kHubPortRfid = 0x005C;   // the RFID reader
constexpr uint16_t kHubPortZigbee = 0x005D; // the ZigBee coordinator

// Commands the hub understands on its device ports (port 0x0005 takes the box's, box.h).
constexpr uint8_t kHubPass = 3;    // payload for the device on the port
constexpr uint8_t kHubOpen = 4;    // open the device's channel
constexpr uint8_t kHubClose = 5;   // close it
constexpr uint8_t kHubSetRate = 6; // the device's rate, 4 bytes high first

constexpr uint8_t kHubHead = 0xFE;
constexpr uint8_t kHubKind = 0x01;
constexpr size_t kHubLengthOverhead = 4; // kind, port and command are counted in the length
constexpr size_t kHubFrameOverhead = 9;  // head, length, kind, port, command, checksum
// A length the camera cannot hold: L + 5 bytes must fit its 1024-byte buffer.
constexpr uint16_t kHubOversizeLength = 1020;

// A frame as it goes on the line. Every field can be set wrong on purpose.
struct HubFrame {
    uint8_t head = kHubHead;
    std::optional<uint16_t> length; // default: payload size + 4
    uint8_t kind = kHubKind;
    uint16_t port = 0;
    uint8_t command = kHubPass;
    std::vector<uint8_t> payload;
    std::optional<uint16_t> checksum; // default: the low 16 bits of the byte sum of kind .. payload
    std::optional<size_t> truncate;   // send only this many bytes of the frame

    // A right frame from `port`.
    static HubFrame of(uint16_t port, uint8_t command, std::vector<uint8_t> payload = {});
    std::vector<uint8_t> bytes() const;
};

// One frame read off the line.
struct HeardFrame {
    Nanos time = 0;
    uint16_t port = 0;
    uint8_t command = 0;
    std::vector<uint8_t> payload;
    bool kind_ok = true;     // kind byte was 0x01
    bool checksum_ok = true; // checksum field equals the byte sum's low 16 bits
    bool delivered = false;  // the hub passed it on to a device
};

// Reads whole frames out of what arrives, whole or in pieces. Anything before a head byte, and a
// head whose length cannot describe a frame, is skipped; a frame not yet complete waits for the
// rest.
class HubFrameReader
{
  public:
    // Adds `bytes` (arrived at `now`) and returns the frames now complete, in order.
    std::vector<HeardFrame> read(const std::vector<uint8_t> &bytes, Nanos now);
    // Bytes that were not part of any frame.
    size_t skipped() const { return skipped_; }

  private:
    std::vector<uint8_t> pending_;
    size_t skipped_ = 0;
};

// What the hub does wrong to one of its frames, on top of the misbehaviour every peer has.
enum class HubFault {
    BadHead,   // head byte `value` (default 0xFD)
    BadKind,   // kind byte `value` (default 0x02)
    WrongPort, // port `value` (default the right port + 1)
    Truncate,  // only `value` bytes of the frame (default all but the checksum)
};

// Applies `fault` to the whole frame `frame`; a checksum that was right is kept right, so that
// only the field named is wrong. A piece too short to be a frame is left as it is.
void spoil_hub_frame(std::vector<uint8_t> &frame, HubFault fault, std::optional<int64_t> value);

// The checksum field (the last two bytes) off by one.
void spoil_hub_checksum(std::vector<uint8_t> &frame);
// The length field claims kHubOversizeLength; the checksum does not cover it.
void claim_hub_oversize(std::vector<uint8_t> &frame);

} // namespace sim
