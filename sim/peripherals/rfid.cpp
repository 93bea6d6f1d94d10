#include "peripherals/rfid.h"

#include <algorithm>

namespace sim
{
namespace
{

constexpr uint8_t kStart = 0xFF;
constexpr uint8_t kFromReader = 0x0C;
constexpr uint8_t kToReader = 0x0A;
constexpr uint8_t kTagReport = 0xF1;
constexpr uint8_t kStartInventory = 0x10;
constexpr size_t kHeader = 4; // FF, type, 16-bit total length
constexpr size_t kCrcBytes = 2;
constexpr size_t kShortestCommand = 7; // header, command byte, CRC
constexpr size_t kLongestFrame = 1024; // what a reader takes in at once
constexpr uint16_t kOversize = 1025;   // one byte more than the camera's buffer
constexpr Nanos kShortestEvery = kMillisecond;

// The total length field and the CRC after the body, the frame's bytes up to the CRC given.
std::vector<uint8_t> finished(std::vector<uint8_t> frame)
{
    const size_t total = frame.size() + kCrcBytes;
    frame[2] = static_cast<uint8_t>(total >> 8);
    frame[3] = static_cast<uint8_t>(total);
    const uint16_t crc = RfidPeer::crc16(frame.data(), frame.size());
    frame.push_back(static_cast<uint8_t>(crc >> 8));
    frame.push_back(static_cast<uint8_t>(crc));
    return frame;
}

void put_crc(std::vector<uint8_t> &frame, uint16_t crc)
{
    frame[frame.size() - 2] = static_cast<uint8_t>(crc >> 8);
    frame[frame.size() - 1] = static_cast<uint8_t>(crc);
}

} // namespace

const Framing RfidPeer::kFraming = {"the RFID reader", spoil_rfid_crc, claim_rfid_oversize};

void spoil_rfid_crc(std::vector<uint8_t> &frame)
{
    if (frame.size() < kHeader + kCrcBytes)
        return;
    const uint16_t crc = static_cast<uint16_t>((frame[frame.size() - 2] << 8) | frame[frame.size() - 1]);
    put_crc(frame, static_cast<uint16_t>(crc + 1));
}

void claim_rfid_oversize(std::vector<uint8_t> &frame)
{
    if (frame.size() < kHeader + kCrcBytes)
        return;
    frame[2] = static_cast<uint8_t>(kOversize >> 8);
    frame[3] = static_cast<uint8_t>(kOversize & 0xFF);
    put_crc(frame, RfidPeer::crc16(frame.data(), frame.size() - kCrcBytes));
}

RfidPeer::RfidPeer(RfidSetup setup) : MessagePeer(kFraming), setup_(std::move(setup))
{
    for (RfidTag &tag : setup_.tags)
        tag.every = std::max(tag.every, kShortestEvery);
    std::stable_sort(setup_.frames.begin(), setup_.frames.end(),
                     [](const RfidFrameAt &a, const RfidFrameAt &b) { return a.at < b.at; });
}

uint16_t RfidPeer::crc16(const uint8_t *data, size_t size)
{
    uint16_t crc = 0;
    for (size_t i = 0; i < size; ++i) {
        crc = static_cast<uint16_t>(crc ^ (data[i] << 8));
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

std::vector<uint8_t> RfidPeer::tag_report(const std::array<uint8_t, 4> &id, uint8_t antenna)
{
    return finished({kStart, kFromReader, 0, 0, kTagReport, antenna, id[0], id[1], id[2], id[3]});
}

std::vector<uint8_t> RfidPeer::acknowledgement(uint8_t command, uint8_t status)
{
    return finished({kStart, kFromReader, 0, 0, command, status});
}

unsigned RfidPeer::uart_baud() const
{
    const unsigned baud = MessagePeer::uart_baud();
    return baud != 0 ? baud : kDefaultBaud;
}

bool RfidPeer::on_a_serial_line() const
{
    return line_ != nullptr && line_->path().rfind("/dev/", 0) == 0;
}

void RfidPeer::product_opened(Nanos now)
{
    const bool on_open = setup_.inventory == RfidInventory::OnOpen ||
                         (setup_.inventory == RfidInventory::Auto && on_a_serial_line());
    if (on_open)
        start_inventory(now);
}

void RfidPeer::product_closed(Nanos now)
{
    (void)now;
    started_.reset();
    tags_due_.clear();
    pending_.clear();
}

void RfidPeer::start_inventory(Nanos now)
{
    started_ = now;
    tags_due_.clear();
    for (const RfidTag &tag : setup_.tags)
        tags_due_.push_back(TagDue{now + tag.at, tag.repeat});
    next_frame_ = 0;
}

// Commands arrive as frames FF 0A <length> <command> ... <CRC>; anything else is line noise.
void RfidPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    for (;;) {
        size_t at = 0;
        while (at + 1 < pending_.size() && !(pending_[at] == kStart && pending_[at + 1] == kToReader))
            ++at;
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(at));
        if (pending_.size() < kHeader)
            return;
        const size_t total = (static_cast<size_t>(pending_[2]) << 8) | pending_[3];
        if (total < kShortestCommand || total > kLongestFrame) {
            pending_.erase(pending_.begin()); // not a frame after all: look past its FF
            continue;
        }
        if (pending_.size() < total)
            return;
        RfidCommand command{
            now, std::vector<uint8_t>(pending_.begin(), pending_.begin() + static_cast<long>(total))};
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(total));
        const uint16_t crc =
            static_cast<uint16_t>((command.bytes[total - 2] << 8) | command.bytes[total - 1]);
        command.crc_ok = crc == crc16(command.bytes.data(), total - kCrcBytes);
        const bool start = command.crc_ok && command.bytes[kHeader] == kStartInventory;
        heard_.push_back(command);
        if (!start)
            continue;
        if (setup_.acknowledge)
            send_frame(now, acknowledgement(kStartInventory));
        if (!started_)
            start_inventory(now);
    }
}

Nanos RfidPeer::next_action()
{
    if (!started_)
        return kNever;
    Nanos next = next_frame_ < setup_.frames.size() ? *started_ + setup_.frames[next_frame_].at : kNever;
    for (size_t i = 0; i < tags_due_.size(); ++i)
        if (setup_.tags[i].repeat == 0 || tags_due_[i].left > 0)
            next = std::min(next, tags_due_[i].next);
    return next;
}

// Hands over, in time order, every report and scripted frame due by `now`; among those due at the
// same moment the scripted frames go first, then the tags in the order given.
void RfidPeer::act(Nanos now)
{
    while (started_) {
        const Nanos due = next_action();
        if (due > now)
            return;
        if (next_frame_ < setup_.frames.size() && *started_ + setup_.frames[next_frame_].at == due) {
            send_frame(due, setup_.frames[next_frame_].bytes);
            ++next_frame_;
            continue;
        }
        for (size_t i = 0; i < tags_due_.size(); ++i) {
            TagDue &tag = tags_due_[i];
            if (tag.next != due || (setup_.tags[i].repeat != 0 && tag.left == 0))
                continue;
            send_frame(due, tag_report(setup_.tags[i].id, setup_.antenna));
            ++reports_;
            if (tag.left > 0)
                --tag.left;
            // A reader cannot report faster than its line carries the reports.
            tag.next = std::max(due + setup_.tags[i].every, line_free_);
            break;
        }
    }
}

// One frame after the other at the line's speed, each handed over whole so that behind the hub
// it travels in a hub frame of its own.
void RfidPeer::send_frame(Nanos when, std::vector<uint8_t> frame)
{
    const size_t whole = std::max<size_t>(frame.size(), 1);
    line_free_ = send_message(std::max(when, line_free_), std::move(frame), whole);
}

} // namespace sim
