#include "peripherals/zigbee.h"

#include <algorithm>

#include "zigbee_frame.h"

namespace sim
{

namespace
{

// Key states that make the key a preconfigured one, which a sensor out of its box holds.
constexpr uint8_t kZbKeyPreconfigured1 = 1;
constexpr uint8_t kZbKeyPreconfigured3 = 3;
// A frame the camera sends longer than this on the wire is not one it ever sends: dropped.
constexpr size_t kLongestFrame = 4096;

// The payload size each type the coordinator knows takes.
struct KnownType {
    uint16_t type;
    size_t payload;
};
constexpr KnownType kKnownTypes[] = {
    {kZbSetExtendedPanId, 8}, {kZbSetChannelMask, 4}, {kZbSetSecurity, 17},
    {kZbStartNetwork, 0},     {kZbPermitJoining, 4},  {kZbErasePersistent, 0},
};

uint64_t read_be(const std::vector<uint8_t> &bytes, size_t at, size_t count)
{
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[at + i];
    return value;
}

// The stuffed form of a frame's inside, between a start and an end byte.
std::vector<uint8_t> stuffed(const std::vector<uint8_t> &inside)
{
    std::vector<uint8_t> wire(2 * inside.size() + 2);
    const uint32_t length = cli_zigbee_stuff(inside.data(), static_cast<uint32_t>(inside.size()), wire.data(),
                                             static_cast<uint32_t>(wire.size()));
    wire.resize(length);
    return wire;
}

// A frame's inside: the unstuffed bytes between its start and end bytes, when `wire` is one whole
// frame that ends with its end byte and holds at least a header.
std::optional<std::vector<uint8_t>> inside_of(const std::vector<uint8_t> &wire)
{
    if (wire.size() < 2 || wire.front() != kZigbeeFrameStart || wire.back() != kZigbeeFrameEnd)
        return std::nullopt;
    std::vector<uint8_t> out(wire.size());
    uint32_t length = 0;
    if (cli_zigbee_unstuff(wire.data(), static_cast<uint32_t>(wire.size()), out.data(),
                           static_cast<uint32_t>(out.size()), &length) != CLI_ZB_UNSTUFFED_WHOLE ||
        length < kZigbeeFrameOverhead)
        return std::nullopt;
    return std::vector<uint8_t>(out.begin() + 1, out.begin() + length - 1);
}

// The same, only for a frame stuffed exactly as a coordinator stuffs: the hooks spoil such frames
// and leave anything else (raw bytes a scenario gives) as it is.
std::optional<std::vector<uint8_t>> canonical_inside_of(const std::vector<uint8_t> &wire)
{
    auto inside = inside_of(wire);
    if (!inside || stuffed(*inside) != wire)
        return std::nullopt;
    return inside;
}

// The XOR a frame's inside should carry at its checksum byte (inside offset 4).
uint8_t right_checksum(const std::vector<uint8_t> &inside)
{
    uint8_t sum = 0;
    for (size_t i = 0; i < inside.size(); ++i)
        if (i != kZigbeeOffChecksum - 1)
            sum ^= inside[i];
    return sum;
}

std::vector<uint8_t> encoded(uint16_t type, const std::vector<uint8_t> &payload)
{
    std::vector<uint8_t> wire(2 * (payload.size() + 5) + 2);
    const uint32_t length = cli_zigbee_encode(wire.data(), static_cast<uint32_t>(wire.size()), type,
                                              payload.data(), static_cast<uint32_t>(payload.size()));
    wire.resize(length);
    return wire;
}

} // namespace

const Framing ZigbeePeer::kFraming = {"the ZigBee coordinator", spoil_zigbee_checksum, claim_zigbee_oversize};

void spoil_zigbee_checksum(std::vector<uint8_t> &wire)
{
    auto inside = canonical_inside_of(wire);
    if (!inside)
        return;
    (*inside)[kZigbeeOffChecksum - 1] = static_cast<uint8_t>((*inside)[kZigbeeOffChecksum - 1] + 1);
    wire = stuffed(*inside);
}

void claim_zigbee_oversize(std::vector<uint8_t> &wire)
{
    auto inside = canonical_inside_of(wire);
    if (!inside)
        return;
    std::vector<uint8_t> &in = *inside;
    in[kZigbeeOffLength - 1] = 0xFF;
    in[kZigbeeOffLength] = 0xFF;
    // In a report, the sensor frame's own length too (decoded offsets 13 and 14).
    const size_t head = kZigbeeSensorAt - 1;
    if (((in[0] << 8) | in[1]) == kZbDataIndication && in.size() > head + kSensorOffLength + 1 &&
        in[head] == kSensorHead) {
        in[head + kSensorOffLength] = 0xFF;
        in[head + kSensorOffLength + 1] = 0xFF;
    }
    in[kZigbeeOffChecksum - 1] = right_checksum(in);
    wire = stuffed(in);
}

ZigbeeReport ZigbeeReport::climate(Nanos at, uint16_t temperature, uint16_t humidity)
{
    ZigbeeReport report;
    report.at = at;
    report.command = kSensorClimate;
    report.data = {static_cast<uint8_t>(temperature >> 8), static_cast<uint8_t>(temperature),
                   static_cast<uint8_t>(humidity >> 8), static_cast<uint8_t>(humidity)};
    return report;
}

ZigbeeReport ZigbeeReport::particulate(Nanos at, uint32_t value)
{
    ZigbeeReport report;
    report.at = at;
    report.command = kSensorParticulate;
    report.data = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                   static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    return report;
}

ZigbeeReport ZigbeeReport::version(Nanos at, const std::string &text)
{
    ZigbeeReport report;
    report.at = at;
    report.command = kSensorVersion;
    report.data.assign(text.begin(), text.end());
    return report;
}

ZigbeePeer::ZigbeePeer(ZigbeeSetup setup) : MessagePeer(kFraming), setup_(std::move(setup)) {}

void ZigbeePeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (const uint8_t byte : bytes) {
        if (byte == kZigbeeFrameStart) { // a start byte begins a frame, whatever came before
            if (in_frame_)
                skipped_ += partial_.size();
            partial_.assign(1, byte);
            in_frame_ = true;
            continue;
        }
        if (!in_frame_) {
            ++skipped_;
            continue;
        }
        partial_.push_back(byte);
        if (byte == kZigbeeFrameEnd) {
            in_frame_ = false;
            take_frame(std::move(partial_), now);
            partial_.clear();
        } else if (partial_.size() > kLongestFrame) {
            skipped_ += partial_.size();
            partial_.clear();
            in_frame_ = false;
        }
    }
}

void ZigbeePeer::take_frame(std::vector<uint8_t> wire, Nanos now)
{
    ZigbeeHeard frame;
    frame.time = now;
    frame.wire = std::move(wire);
    bool bare = false; // a byte below 0x10 inside the frame that was not escaped
    for (size_t i = 1; i + 1 < frame.wire.size(); ++i) {
        if (frame.wire[i] == kZigbeeEscape)
            ++i;
        else if (frame.wire[i] < kZigbeeStuffedBelow)
            bare = true;
    }
    const auto inside = inside_of(frame.wire);
    frame.unstuffed_ok = inside.has_value() && !bare;
    if (inside) {
        const std::vector<uint8_t> &in = *inside;
        frame.type = static_cast<uint16_t>((in[0] << 8) | in[1]);
        frame.length = static_cast<uint16_t>((in[2] << 8) | in[3]);
        frame.checksum = in[4];
        frame.payload.assign(in.begin() + 5, in.end());
        frame.length_ok = frame.length == frame.payload.size();
        frame.checksum_ok = frame.checksum == right_checksum(in);
        for (const KnownType &known : kKnownTypes)
            if (known.type == frame.type)
                frame.payload_ok = frame.payload.size() == known.payload;
    }
    if (frame.unstuffed_ok && frame.length_ok && frame.checksum_ok && frame.payload_ok)
        obey(frame, now);
    heard_.push_back(std::move(frame));
}

void ZigbeePeer::obey(ZigbeeHeard &frame, Nanos now)
{
    const auto refusal = std::find_if(setup_.refusals.begin(), setup_.refusals.end(),
                                      [&](const ZigbeeRefusal &r) { return r.type == frame.type; });
    if (refusal != setup_.refusals.end()) {
        frame.refused = true;
        if (refusal->status)
            answer(now, frame.type, *refusal->status);
        return;
    }
    const std::vector<uint8_t> &payload = frame.payload;
    switch (frame.type) {
    case kZbSetExtendedPanId:
        pan_id_ = read_be(payload, 0, 8);
        break;
    case kZbSetChannelMask:
        channel_mask_ = static_cast<uint32_t>(read_be(payload, 0, 4));
        break;
    case kZbSetSecurity: {
        key_state_ = payload[0];
        std::array<uint8_t, 16> key{};
        std::copy(payload.begin() + 1, payload.end(), key.begin());
        link_key_ = key;
        break;
    }
    case kZbStartNetwork:
        started_ = true;
        break;
    case kZbPermitJoining:
        joining_ = payload[2] != 0; // the duration; 0 closes joining
        break;
    case kZbErasePersistent:
        pan_id_.reset();
        channel_mask_ = kZbAllChannels;
        key_state_.reset();
        link_key_.reset();
        started_ = false;
        joining_ = false;
        due_.clear();
        ++erasures_;
        break;
    default:
        break;
    }
    frame.carried_out = true;
    if (setup_.status_replies)
        answer(now, frame.type, 0);
    if (frame.type == kZbStartNetwork || frame.type == kZbPermitJoining)
        try_join(now);
}

// The sensor joins a started network open for joining, on its channel, with its key; its
// reports then follow from now.
void ZigbeePeer::try_join(Nanos now)
{
    const bool on_channel = setup_.sensor_channel < 32 && (channel_mask_ >> setup_.sensor_channel & 1u) != 0;
    const bool has_key = key_state_ &&
                         (*key_state_ == kZbKeyPreconfigured1 || *key_state_ == kZbKeyPreconfigured3) &&
                         link_key_ && *link_key_ == setup_.sensor_key;
    if (!started_ || !joining_ || !on_channel || !has_key)
        return;
    joins_.push_back(now);
    due_.clear();
    for (const ZigbeeReport &report : setup_.reports)
        due_.emplace(now + report.at, &report);
}

void ZigbeePeer::answer(Nanos now, uint16_t type, uint8_t status)
{
    send_frame(now, encoded(kZbStatus, {status, sequence_++, static_cast<uint8_t>(type >> 8),
                                        static_cast<uint8_t>(type)}));
}

std::vector<uint8_t> ZigbeePeer::report_frame(const ZigbeeReport &report) const
{
    if (report.wire)
        return *report.wire;
    const uint16_t address = setup_.sensor_address;
    const uint16_t length =
        report.sensor_length.value_or(static_cast<uint16_t>(report.data.size() + kSensorLengthOverhead));
    std::vector<uint8_t> payload = {0x00, // status
                                    static_cast<uint8_t>(address >> 8),
                                    static_cast<uint8_t>(address),
                                    0x01, // endpoint
                                    0x00,
                                    0x00,
                                    report.head.value_or(kSensorHead),
                                    static_cast<uint8_t>(length >> 8),
                                    static_cast<uint8_t>(length),
                                    report.data_type.value_or(kSensorDataType),
                                    static_cast<uint8_t>(address >> 8),
                                    static_cast<uint8_t>(address),
                                    report.command};
    payload.insert(payload.end(), report.data.begin(), report.data.end());
    std::vector<uint8_t> wire = encoded(kZbDataIndication, payload);
    if (!report.closed && !wire.empty())
        wire.pop_back();
    return wire;
}

// One frame, handed over whole, so that behind the hub it stays one hub frame; the UART sends
// one after the other.
void ZigbeePeer::send_frame(Nanos when, std::vector<uint8_t> wire)
{
    if (wire.empty())
        return;
    const size_t whole = wire.size();
    line_free_ = send_message(std::max(when, line_free_), std::move(wire), whole);
}

Nanos ZigbeePeer::next_action()
{
    return due_.empty() ? kNever : due_.begin()->first;
}

void ZigbeePeer::act(Nanos now)
{
    while (!due_.empty() && due_.begin()->first <= now) {
        const auto [when, report] = *due_.begin();
        due_.erase(due_.begin());
        send_frame(when, report_frame(*report));
    }
}

} // namespace sim
