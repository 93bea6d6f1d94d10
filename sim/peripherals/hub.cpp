#include "peripherals/hub.h"

#include <algorithm>
#include <cstdio>

namespace sim
{

namespace
{

constexpr uint8_t kHead = 0xFE;
constexpr uint8_t kKind = 0x01;
constexpr size_t kLengthOverhead = 4; // kind, port and command are counted in the length
constexpr size_t kFrameOverhead = 9;  // head, length, kind, port, command, checksum

uint32_t byte_sum(std::vector<uint8_t>::const_iterator first, std::vector<uint8_t>::const_iterator last)
{
    uint32_t sum = 0;
    for (auto at = first; at != last; ++at)
        sum += *at;
    return sum;
}

} // namespace

std::vector<uint8_t> HubFrame::bytes() const
{
    const uint16_t field = length.value_or(static_cast<uint16_t>(payload.size() + kLengthOverhead));
    std::vector<uint8_t> out = {head,   static_cast<uint8_t>(field >> 8), static_cast<uint8_t>(field),
                                kind,   static_cast<uint8_t>(port >> 8),  static_cast<uint8_t>(port),
                                command};
    out.insert(out.end(), payload.begin(), payload.end());
    const uint16_t sum = checksum.value_or(static_cast<uint16_t>(byte_sum(out.begin() + 3, out.end())));
    out.push_back(static_cast<uint8_t>(sum >> 8));
    out.push_back(static_cast<uint8_t>(sum));
    if (truncate && *truncate < out.size())
        out.resize(*truncate);
    return out;
}

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

HubPeer::HubPeer() = default;
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

void HubPeer::add_fault(size_t frame_number, HubFault fault, std::optional<int64_t> value)
{
    faults_[frame_number] = Fault{fault, value};
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

void HubPeer::receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    parse(now);
}

// Reads whole frames off the front of what the product wrote. Anything before a head byte, and a
// head whose length cannot describe a frame, is skipped; a frame not yet complete waits for the
// rest.
void HubPeer::parse(Nanos now)
{
    for (;;) {
        const auto head = std::find(pending_.begin(), pending_.end(), kHead);
        skipped_ += static_cast<size_t>(head - pending_.begin());
        pending_.erase(pending_.begin(), head);
        if (pending_.size() < 3)
            return;
        const size_t length = (static_cast<size_t>(pending_[1]) << 8) | pending_[2];
        if (length < kLengthOverhead) {
            ++skipped_;
            pending_.erase(pending_.begin());
            continue;
        }
        if (pending_.size() < length + 5)
            return;
        HeardFrame frame;
        frame.time = now;
        frame.kind_ok = pending_[3] == kKind;
        frame.port = static_cast<uint16_t>((pending_[4] << 8) | pending_[5]);
        frame.command = pending_[6];
        frame.payload.assign(pending_.begin() + 7, pending_.begin() + static_cast<long>(length + 3));
        const uint32_t sum = byte_sum(pending_.begin() + 3, pending_.begin() + static_cast<long>(length + 3));
        const uint32_t field = (static_cast<uint32_t>(pending_[length + 3]) << 8) | pending_[length + 4];
        frame.checksum_ok = (sum & 0xFFFF) == field;
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(length + 5));
        handle(std::move(frame), now);
    }
}

void HubPeer::handle(HeardFrame frame, Nanos now)
{
    if (!frame.kind_ok || !frame.checksum_ok) { // a hub drops what it cannot trust
        heard_.push_back(std::move(frame));
        return;
    }
    Device *device = find(frame.port);
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
        if (frame.port == kHubPortBox && frame.payload.size() == 1) {
            box_heater_on_ = frame.payload[0] == 1; // the box's heater switch shares the command
        } else if (frame.payload.size() == 4) {
            rates_[frame.port] = (static_cast<uint32_t>(frame.payload[0]) << 24) |
                                 (static_cast<uint32_t>(frame.payload[1]) << 16) |
                                 (static_cast<uint32_t>(frame.payload[2]) << 8) | frame.payload[3];
        }
        acknowledged = true;
        break;
    case kHubPass:
        if (device != nullptr && channel_open(frame.port)) {
            device->peer->receive(frame.payload, now);
            frame.delivered = true;
        }
        break;
    case kHubBoxRequest:
        if (frame.port == kHubPortBox && box_temperature_)
            send_own(now, kHubPortBox, kHubBoxRequest, {*box_temperature_});
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
    if (silent_)
        return;
    HubFrame frame;
    frame.port = port;
    frame.command = command;
    frame.payload = std::move(payload);
    auto fault = faults_.find(++frames_sent_);
    if (fault != faults_.end()) {
        const std::optional<int64_t> value = fault->second.value;
        switch (fault->second.fault) {
        case HubFault::BadHead:
            frame.head = static_cast<uint8_t>(value.value_or(0xFD));
            break;
        case HubFault::BadKind:
            frame.kind = static_cast<uint8_t>(value.value_or(0x02));
            break;
        case HubFault::WrongPort:
            frame.port = static_cast<uint16_t>(value.value_or(port + 1));
            break;
        case HubFault::BadChecksum: {
            const std::vector<uint8_t> right = frame.bytes();
            const uint16_t sum = static_cast<uint16_t>((right[right.size() - 2] << 8) | right.back());
            frame.checksum = static_cast<uint16_t>(value.value_or(static_cast<uint16_t>(sum + 1)));
            break;
        }
        case HubFault::LongLength:
            frame.length = static_cast<uint16_t>(value.value_or(1020));
            break;
        case HubFault::Truncate:
            frame.truncate = static_cast<size_t>(
                value.value_or(static_cast<int64_t>(frame.payload.size() + kFrameOverhead - 2)));
            break;
        }
    }
    put_on_line(when, frame.bytes());
}

// The hub's UART sends one frame after the other at the line's speed.
void HubPeer::put_on_line(Nanos when, const std::vector<uint8_t> &bytes)
{
    if (bytes.empty())
        return;
    line_free_ = send_at_line_rate(std::max(when, line_free_), bytes);
}

Nanos HubPeer::next_send()
{
    Nanos next = QueuedPeer::next_send();
    if (!scheduled_.empty())
        next = std::min(next, scheduled_.begin()->first);
    for (auto &[port, device] : devices_)
        if (device.peer)
            next = std::min(next, device.peer->next_send());
    return next;
}

std::vector<uint8_t> HubPeer::take(Nanos now)
{
    while (!scheduled_.empty() && scheduled_.begin()->first <= now) {
        put_on_line(scheduled_.begin()->first, scheduled_.begin()->second);
        scheduled_.erase(scheduled_.begin());
    }
    for (auto &[port, device] : devices_) {
        if (!device.peer || device.peer->next_send() > now)
            continue;
        const std::vector<uint8_t> data = device.peer->take(now);
        if (data.empty() || !channel_open(port))
            continue; // a closed channel drops what its device sends
        for (size_t offset = 0; offset < data.size(); offset += max_payload_) {
            const size_t n = std::min(max_payload_, data.size() - offset);
            send_own(now, port, kHubPass,
                     std::vector<uint8_t>(data.begin() + static_cast<long>(offset),
                                          data.begin() + static_cast<long>(offset + n)));
        }
    }
    return QueuedPeer::take(now);
}

} // namespace sim
