// The peripheral hub at the far end of the camera's peripheral link (/dev/ttyC0 in hub mode).
//
// It reads hub frames from what the product writes (head 0xFE, 16-bit length, kind 0x01, 16-bit
// port, command, payload, 16-bit checksum), keeps a record of every frame it heard, opens and
// closes device channels (commands 4 and 5), takes each channel's rate (command 6) and passes
// command-3 payloads to the device behind the port. What a device sends comes back to the product
// wrapped in hub frames from the device's port. The hub's own peripheral box sits on port 0x0005.
//
// It can acknowledge its commands or stay silent, and it can put frames on the line that are
// wrong on purpose: a bad head, a kind other than 0x01, another port, a bad checksum, a length
// above what the camera can hold, a frame cut short.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "peripherals/peer.h"

namespace sim
{

// Ports of the devices behind the hub.
constexpr uint16_t kHubPortBox = 0x0005;
constexpr uint16_t kHubPortZigbee = 0x005D;
constexpr uint16_t kHubPortGps = 0x005B;
constexpr uint16_t kHubPortRfid = 0x005C;

// Commands the hub understands.
constexpr uint8_t kHubPass = 3;       // payload for the device on the port
constexpr uint8_t kHubOpen = 4;       // open the device's channel
constexpr uint8_t kHubClose = 5;      // close it
constexpr uint8_t kHubSetRate = 6;    // the device's rate, 4 bytes big-endian (box: heater switch, 1 byte)
constexpr uint8_t kHubBoxRequest = 7; // the box's temperature request
constexpr uint8_t kHubBoxHeaterPrepare = 0xE1;

// A frame as the hub puts it on the line. Every field can be set wrong on purpose.
struct HubFrame {
    uint8_t head = 0xFE;
    std::optional<uint16_t> length; // default: payload size + 4
    uint8_t kind = 0x01;
    uint16_t port = 0;
    uint8_t command = kHubPass;
    std::vector<uint8_t> payload;
    std::optional<uint16_t> checksum; // default: the low 16 bits of the byte sum of kind .. payload
    std::optional<size_t> truncate;   // send only this many bytes of the frame

    std::vector<uint8_t> bytes() const;
};

// One frame the hub read from the product.
struct HeardFrame {
    Nanos time = 0;
    uint16_t port = 0;
    uint8_t command = 0;
    std::vector<uint8_t> payload;
    bool kind_ok = true;     // kind byte was 0x01
    bool checksum_ok = true; // checksum field equals the byte sum's low 16 bits
    bool delivered = false;  // a command-3 payload reached an open device channel
};

// What the hub does wrong to the n-th frame it sends of its own accord (acknowledgements, device
// data, box answers), counted from 1.
enum class HubFault {
    BadHead,     // head byte `value` (default 0xFD)
    BadKind,     // kind byte `value` (default 0x02)
    WrongPort,   // port `value` (default the right port + 1)
    BadChecksum, // checksum field off by one (or `value`)
    LongLength,  // length field `value` (default 1020): more than the camera can hold
    Truncate,    // only `value` bytes of the frame (default all but the checksum)
};

class HubPeer : public QueuedPeer
{
  public:
    HubPeer();
    ~HubPeer() override;

    // A device behind `port`. It hears command-3 payloads for its port while its channel is
    // open; what it sends goes back to the product wrapped in frames from its port.
    void add_device(uint16_t port, std::unique_ptr<Peer> device);
    Peer *device(uint16_t port);

    // Answers commands 4, 5 and 6 with a frame of the same command: from the port addressed (or
    // `port`), carrying `payload`, `delay` after the command arrived.
    void acknowledge(Nanos delay, std::vector<uint8_t> payload = {}, std::optional<uint16_t> port = {});
    // Hears everything and sends nothing of its own accord (no acknowledgement, no device data,
    // no box answer); frames given to send_frame still go out.
    void set_silent(bool silent) { silent_ = silent; }
    // The box's temperature answer to command 7 on port 5: one byte.
    void set_box_temperature(uint8_t value) { box_temperature_ = value; }
    // Device data is wrapped in frames of at most this many payload bytes.
    void set_max_payload(size_t bytes) { max_payload_ = bytes == 0 ? 1 : bytes; }
    void add_fault(size_t frame_number, HubFault fault, std::optional<int64_t> value = {});
    // Puts `frame` on the line at `when`, exactly as given.
    void send_frame(Nanos when, const HubFrame &frame);

    const std::vector<HeardFrame> &heard() const { return heard_; }
    // Bytes that were not part of any frame the hub could read.
    size_t skipped() const { return skipped_; }
    bool channel_open(uint16_t port) const;
    uint32_t channel_rate(uint16_t port) const; // 0 until told
    bool box_heater_on() const { return box_heater_on_; }

    void receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_send() override;
    std::vector<uint8_t> take(Nanos now) override;

  private:
    class DeviceLine;
    struct Device {
        std::unique_ptr<DeviceLine> line;
        std::unique_ptr<Peer> peer;
    };
    struct Fault {
        HubFault fault;
        std::optional<int64_t> value;
    };

    void parse(Nanos now);
    void handle(HeardFrame frame, Nanos now);
    void send_own(Nanos when, uint16_t port, uint8_t command, std::vector<uint8_t> payload);
    void put_on_line(Nanos when, const std::vector<uint8_t> &bytes);
    Device *find(uint16_t port);

    std::map<uint16_t, Device> devices_;
    std::map<uint16_t, bool> open_;
    std::map<uint16_t, uint32_t> rates_;
    std::vector<uint8_t> pending_; // bytes from the product not yet read as a frame
    std::vector<HeardFrame> heard_;
    size_t skipped_ = 0;
    bool silent_ = false;
    bool acknowledging_ = false;
    Nanos ack_delay_ = 0;
    std::vector<uint8_t> ack_payload_;
    std::optional<uint16_t> ack_port_;
    std::optional<uint8_t> box_temperature_;
    bool box_heater_on_ = false;
    size_t max_payload_ = 1015;
    std::map<size_t, Fault> faults_;
    size_t frames_sent_ = 0;
    std::multimap<Nanos, std::vector<uint8_t>> scheduled_; // send_frame's frames, by time
    Nanos line_free_ = 0;                                  // the hub's UART sends one frame after the other
};

} // namespace sim
