#include "peripherals/hub_frame.h"

#include <algorithm>

namespace sim
{

namespace
{

uint32_t byte_sum(std::vector<uint8_t>::const_iterator first, std::vector<uint8_t>::const_iterator last)
{
    uint32_t sum = 0;
    for (auto at = first; at != last; ++at)
        sum += *at;
    return sum;
}

uint16_t read16(const std::vector<uint8_t> &bytes, size_t at)
{
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

void write16(std::vector<uint8_t> &bytes, size_t at, uint16_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

// The sum a whole frame should carry: from the kind to the end of the payload.
uint16_t right_sum(const std::vector<uint8_t> &frame)
{
    return static_cast<uint16_t>(byte_sum(frame.begin() + 3, frame.end() - 2));
}

} // namespace

HubFrame HubFrame::of(uint16_t port, uint8_t command, std::vector<uint8_t> payload)
{
    HubFrame frame;
    frame.port = port;
    frame.command = command;
    frame.payload = std::move(payload);
    return frame;
}

std::vector<uint8_t> HubFrame::bytes() const
{
    const uint16_t field = length.value_or(static_cast<uint16_t>(payload.size() + kHubLengthOverhead));
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

std::vector<HeardFrame> HubFrameReader::read(const std::vector<uint8_t> &bytes, Nanos now)
{
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    std::vector<HeardFrame> frames;
    for (;;) {
        const auto head = std::find(pending_.begin(), pending_.end(), kHubHead);
        skipped_ += static_cast<size_t>(head - pending_.begin());
        pending_.erase(pending_.begin(), head);
        if (pending_.size() < 3)
            return frames;
        const size_t length = read16(pending_, 1);
        if (length < kHubLengthOverhead) {
            ++skipped_;
            pending_.erase(pending_.begin());
            continue;
        }
        if (pending_.size() < length + 5)
            return frames;
        HeardFrame frame;
        frame.time = now;
        frame.kind_ok = pending_[3] == kHubKind;
        frame.port = read16(pending_, 4);
        frame.command = pending_[6];
        frame.payload.assign(pending_.begin() + 7, pending_.begin() + static_cast<long>(length + 3));
        const uint32_t sum = byte_sum(pending_.begin() + 3, pending_.begin() + static_cast<long>(length + 3));
        frame.checksum_ok = (sum & 0xFFFF) == read16(pending_, length + 3);
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(length + 5));
        frames.push_back(std::move(frame));
    }
}

void spoil_hub_frame(std::vector<uint8_t> &frame, HubFault fault, std::optional<int64_t> value)
{
    if (frame.size() < kHubFrameOverhead)
        return;
    const bool sum_was_right = read16(frame, frame.size() - 2) == right_sum(frame);
    switch (fault) {
    case HubFault::BadHead:
        frame[0] = static_cast<uint8_t>(value.value_or(0xFD));
        break;
    case HubFault::BadKind:
        frame[3] = static_cast<uint8_t>(value.value_or(0x02));
        break;
    case HubFault::WrongPort:
        write16(frame, 4, static_cast<uint16_t>(value.value_or(read16(frame, 4) + 1)));
        break;
    case HubFault::Truncate:
        frame.resize(std::min(frame.size(),
                              static_cast<size_t>(value.value_or(static_cast<int64_t>(frame.size() - 2)))));
        return;
    }
    if (sum_was_right)
        write16(frame, frame.size() - 2, right_sum(frame));
}

void spoil_hub_checksum(std::vector<uint8_t> &frame)
{
    if (frame.size() < kHubFrameOverhead)
        return;
    write16(frame, frame.size() - 2, static_cast<uint16_t>(read16(frame, frame.size() - 2) + 1));
}

void claim_hub_oversize(std::vector<uint8_t> &frame)
{
    if (frame.size() < kHubFrameOverhead)
        return;
    write16(frame, 1, kHubOversizeLength);
}

} // namespace sim
