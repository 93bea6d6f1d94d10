// The peripheral hub at the far end of the camera's peripheral link (/dev/ttyC0 in hub mode).
//
// It reads hub frames (hub_frame.h) from what the product writes, keeps a record of every frame
// it heard, opens and closes device channels (commands 4 and 5), takes each channel's rate
// (command 6) and passes command-3 payloads to the device behind the port. What a device sends
// comes back to the product wrapped in hub frames from the device's port. Port 0x0005 is the
// hub's own peripheral box (box.h): every frame for it goes to the box as it stands, whatever its
// command, and what the box sends (hub frames of its own) goes on the line as it is.
//
// Its messages for the misbehaviour layer are the frames it sends of its own accord:
// acknowledgements, device data, what the box sends; frames put on the line with send_frame go
// out exactly as given. Besides the misbehaviour every peer has, it can spoil its n-th message
// with a bad head, a kind other than 0x01, another port, or cut it short.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "peripherals/hub_frame.h"
#include "peripherals/message_peer.h"

namespace sim
{

class HubPeer : public MessagePeer
{
  public:
    static const Framing kFraming;

    HubPeer();
    ~HubPeer() override;

    // A device behind `port`. It hears command-3 payloads for its port while its channel is
    // open; what it sends goes back to the product wrapped in frames from its port. The device on
    // kHubPortBox hears and sends whole frames instead.
    void add_device(uint16_t port, std::unique_ptr<Peer> device);
    Peer *device(uint16_t port);

    // Answers commands 4, 5 and 6 on device ports with a frame of the same command: from the port
    // addressed (or `port`), carrying `payload`, `delay` after the command arrived.
    void acknowledge(Nanos delay, std::vector<uint8_t> payload = {}, std::optional<uint16_t> port = {});
    // Device data is wrapped in frames of at most this many payload bytes.
    void set_max_payload(size_t bytes) { max_payload_ = bytes == 0 ? 1 : bytes; }
    // Spoils its `message_number`-th message (counted from 1, as bad_checksum counts).
    void add_fault(size_t message_number, HubFault fault, std::optional<int64_t> value = {});
    // Puts `frame` on the line at `when`, exactly as given.
    void send_frame(Nanos when, const HubFrame &frame);

    const std::vector<HeardFrame> &heard() const { return heard_; }
    // Bytes that were not part of any frame the hub could read.
    size_t skipped() const { return reader_.skipped(); }
    bool channel_open(uint16_t port) const;
    uint32_t channel_rate(uint16_t port) const; // 0 until told

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_action() override;
    void act(Nanos now) override;

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

    void handle(HeardFrame frame, Nanos now);
    void send_own(Nanos when, uint16_t port, uint8_t command, std::vector<uint8_t> payload);
    void put_message(Nanos when, std::vector<uint8_t> bytes);
    Device *find(uint16_t port);

    std::map<uint16_t, Device> devices_;
    std::map<uint16_t, bool> open_;
    std::map<uint16_t, uint32_t> rates_;
    HubFrameReader reader_;
    std::vector<HeardFrame> heard_;
    bool acknowledging_ = false;
    Nanos ack_delay_ = 0;
    std::vector<uint8_t> ack_payload_;
    std::optional<uint16_t> ack_port_;
    size_t max_payload_ = 1015;
    std::map<size_t, Fault> faults_;
    std::multimap<Nanos, std::vector<uint8_t>> scheduled_; // send_frame's frames, by time
    Nanos line_free_ = 0;                                  // the hub's UART sends one frame after the other
};

} // namespace sim
