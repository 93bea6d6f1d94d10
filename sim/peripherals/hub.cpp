#include "peripherals/hub.h"

#include <algorithm>
#include <cstdio>

namespace sim
{

const Framing HubPeer::kFraming = {"the peripheral hub", spoil_hub_checksum, claim_hub_oversize};

// What a device behind the hub sees of its line: the rate the hub was told for its channel, and
// whether the channel is open.
class HubPeer::DeviceLine final : public PortLine
{
  public:
    DeviceLine(const HubPeer &hub, uint16_t port) : hub_(hub), port_(port)
    {
        char name[32];
        snprintf(name, sizeof name, "hub port 0x%04X", port);
        path_ = name;
    }
    const std::string &path() const override { return path_; }
    unsigned baud() const override { return hub_.channel_rate(port_); }
    bool open_by_product() const override { return hub_.channel_open(port_); }

  private:
    const HubPeer &hub_;
    uint16_t port_;
    std::string path_;
};

HubPeer::HubPeer() : MessagePeer(kFraming) {}
HubPeer::~HubPeer() = default;

void HubPeer::add_device(uint16_t port, std::unique_ptr<Peer> device)
{
    Device &slot = devices_[port];
    slot.line = std::make_unique<DeviceLine>(*this, port);
    slot.peer = std::move(device);
    if (slot.peer)
        slot.peer->attach(slot.line.get());
}

Peer *HubPeer::device(uint16_t port)
{
    Device *found = find(port);
    return found != nullptr ? found->peer.get() : nullptr;
}

HubPeer::Device *HubPeer::find(uint16_t port)
{
    auto found = devices_.find(port);
    return found == devices_.end() || !found->second.peer ? nullptr : &found->second;
}

void HubPeer::acknowledge(Nanos delay, std::vector<uint8_t> payload, std::optional<uint16_t> port)
{
    acknowledging_ = true;
    ack_delay_ = delay;
    ack_payload_ = std::move(payload);
    ack_port_ = port;
}

void HubPeer::add_fault(size_t message_number, HubFault fault, std::optional<int64_t> value)
{
    faults_[message_number] = Fault{fault, value};
}

void HubPeer::send_frame(Nanos when, const HubFrame &frame)
{
    scheduled_.emplace(when, frame.bytes());
}

bool HubPeer::channel_open(uint16_t port) const
{
    auto found = open_.find(port);
    return found != open_.end() && found->second;
}

uint32_t HubPeer::channel_rate(uint16_t port) const
{
    auto found = rates_.find(port);
    return found == rates_.end() ? 0 : found->second;
}

void HubPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (HeardFrame &frame : reader_.read(bytes, now))
        handle(std::move(frame), now);
}

void HubPeer::handle(HeardFrame frame, Nanos now)
{
    if (!frame.kind_ok || !frame.checksum_ok) { // a hub drops what it cannot trust
        heard_.push_back(std::move(frame));
        return;
    }
    Device *device = find(frame.port);
    if (frame.port == kHubPortBox) {
        // The box is the hub's own: every command on its port is the box's, and it reads the
        // frame as it stands.
        if (device != nullptr) {
            device->peer->receive(HubFrame::of(frame.port, frame.command, frame.payload).bytes(), now);
            frame.delivered = true;
        }
        heard_.push_back(std::move(frame));
        return;
    }
    bool acknowledged = false;
    switch (frame.command) {
    case kHubOpen:
        open_[frame.port] = true;
        if (device != nullptr)
            device->peer->product_opened(now);
        acknowledged = true;
        break;
    case kHubClose:
        open_[frame.port] = false;
        if (device != nullptr)
            device->peer->product_closed(now);
        acknowledged = true;
        break;
    case kHubSetRate:
        if (frame.payload.size() == 4)
            rates_[frame.port] = (static_cast<uint32_t>(frame.payload[0]) << 24) |
                                 (static_cast<uint32_t>(frame.payload[1]) << 16) |
                                 (static_cast<uint32_t>(frame.payload[2]) << 8) | frame.payload[3];
        acknowledged = true;
        break;
    case kHubPass:
        if (device != nullptr && channel_open(frame.port)) {
            device->peer->receive(frame.payload, now);
            frame.delivered = true;
        }
        break;
    default:
        break;
    }
    if (acknowledged && acknowledging_)
        send_own(now + ack_delay_, ack_port_.value_or(frame.port), frame.command, ack_payload_);
    heard_.push_back(std::move(frame));
}

void HubPeer::send_own(Nanos when, uint16_t port, uint8_t command, std::vector<uint8_t> payload)
{
    put_message(when, HubFrame::of(port, command, std::move(payload)).bytes());
}

// One message of the hub: spoiled as its own faults say, then through the misbehaviour layer. The
// hub's UART sends one frame after the other at the line's speed.
void HubPeer::put_message(Nanos when, std::vector<uint8_t> bytes)
{
    auto fault = faults_.find(messages() + 1);
    if (fault != faults_.end())
        spoil_hub_frame(bytes, fault->second.fault, fault->second.value);
    line_free_ = send_message(std::max(when, line_free_), std::move(bytes));
}

Nanos HubPeer::next_action()
{
    Nanos next = scheduled_.empty() ? kNever : scheduled_.begin()->first;
    for (auto &[port, device] : devices_)
        if (device.peer)
            next = std::min(next, device.peer->next_send());
    return next;
}

void HubPeer::act(Nanos now)
{
    while (!scheduled_.empty() && scheduled_.begin()->first <= now) {
        line_free_ = send_raw(std::max(scheduled_.begin()->first, line_free_), scheduled_.begin()->second);
        scheduled_.erase(scheduled_.begin());
    }
    for (auto &[port, device] : devices_) {
        if (!device.peer || device.peer->next_send() > now)
            continue;
        if (port == kHubPortBox) { // the box's own frames, one by one as they come
            for (std::vector<uint8_t> &piece : device.peer->take_pieces(now))
                if (!piece.empty())
                    put_message(now, std::move(piece));
            continue;
        }
        std::vector<uint8_t> data = device.peer->take(now);
        if (data.empty())
            continue;
        if (!channel_open(port))
            continue; // a closed channel drops what its device sends
        for (size_t offset = 0; offset < data.size(); offset += max_payload_) {
            const size_t n = std::min(max_payload_, data.size() - offset);
            send_own(now, port, kHubPass,
                     std::vector<uint8_t>(data.begin() + static_cast<long>(offset),
                                          data.begin() + static_cast<long>(offset + n)));
        }
    }
}

} // namespace sim
