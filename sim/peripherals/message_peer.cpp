#include "peripherals/message_peer.h"

#include <algorithm>

#include "core/clock.h"

namespace sim
{

namespace
{

bool listed(const std::vector<size_t> &numbers, size_t number)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

} // namespace

MessagePeer::MessagePeer(const Framing &framing)
    : framing_(framing), made_(clock().now()), noise_(how_.garbage_seed), next_noise_(made_)
{
}

void MessagePeer::misbehave(const Misbehaviour &how)
{
    how_ = how;
    how_.garbage_chunk = std::max<size_t>(how_.garbage_chunk, 1);
    noise_ = SeededRandom(how_.garbage_seed);
    next_noise_ = made_;
}

Nanos MessagePeer::byte_time(unsigned baud)
{
    return baud == 0 ? 0 : 10 * kSecond / baud;
}

unsigned MessagePeer::uart_baud() const
{
    return line_ != nullptr ? line_->baud() : kDefaultBaud;
}

bool MessagePeer::drops_messages() const
{
    return hung_up_ || how_.mode == Mode::Silent || how_.mode == Mode::Garbage;
}

void MessagePeer::receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    if (hung_up_)
        return;
    heard_ += bytes.size();
    if (how_.hang_up_after != 0 && heard_ >= how_.hang_up_after) {
        hang_up();
        return;
    }
    on_receive(bytes, now);
}

Nanos MessagePeer::next_send()
{
    if (hung_up_)
        return kNever;
    Nanos next = std::min(how_.hang_up_at, next_action());
    if (!queue_.empty())
        next = std::min(next, queue_.front().when);
    if (how_.mode == Mode::Garbage)
        next = std::min(next, next_noise_);
    return next;
}

std::vector<uint8_t> MessagePeer::take(Nanos now)
{
    std::vector<uint8_t> due;
    for (const std::vector<uint8_t> &piece : take_pieces(now))
        due.insert(due.end(), piece.begin(), piece.end());
    return due;
}

std::vector<std::vector<uint8_t>> MessagePeer::take_pieces(Nanos now)
{
    std::vector<std::vector<uint8_t>> due;
    if (hung_up_)
        return due;
    if (now >= how_.hang_up_at) {
        hang_up();
        return due;
    }
    act(now);
    while (!queue_.empty() && queue_.front().when <= now) {
        due.push_back(std::move(queue_.front().bytes));
        queue_.pop_front();
    }
    while (how_.mode == Mode::Garbage && next_noise_ <= now) {
        std::vector<uint8_t> noise(how_.garbage_chunk);
        for (uint8_t &byte : noise)
            byte = noise_.byte();
        due.push_back(std::move(noise));
        next_noise_ += noise_interval();
    }
    for (std::vector<uint8_t> &piece : due)
        on_the_wire(piece);
    return due;
}

// Noise comes at the pace asked for, or back to back at the peer's own speed (9600 baud while the
// speed is not known, so that it never floods the line at no time at all).
Nanos MessagePeer::noise_interval() const
{
    if (how_.garbage_every)
        return std::max<Nanos>(*how_.garbage_every, 1);
    const unsigned baud = uart_baud();
    return static_cast<Nanos>(how_.garbage_chunk) * byte_time(baud != 0 ? baud : kDefaultBaud);
}

void MessagePeer::hang_up()
{
    hung_up_ = true;
    queue_.clear();
}

std::vector<uint8_t> MessagePeer::pass_message(std::vector<uint8_t> message)
{
    const size_t number = ++messages_;
    if (drops_messages())
        return {};
    if (framing_.claim_oversize != nullptr && listed(how_.oversize, number))
        framing_.claim_oversize(message);
    if (framing_.spoil_check != nullptr && listed(how_.bad_checksum, number))
        framing_.spoil_check(message);
    return message;
}

Nanos MessagePeer::send_message(Nanos start, std::vector<uint8_t> message, size_t chunk)
{
    message = pass_message(std::move(message));
    if (message.empty())
        return start;
    if (how_.mode == Mode::Trickle)
        return trickle(start, message);
    return queue_at_line_rate(start, message, chunk);
}

void MessagePeer::send_bytes(Nanos when, std::vector<uint8_t> bytes)
{
    if (drops_messages() || bytes.empty())
        return;
    if (how_.mode == Mode::Trickle)
        trickle(when, bytes);
    else
        queue(when, std::move(bytes));
}

Nanos MessagePeer::send_raw(Nanos start, const std::vector<uint8_t> &bytes, size_t chunk)
{
    if (hung_up_)
        return start;
    return queue_at_line_rate(start, bytes, chunk);
}

// A trickle sends each byte on its own, a gap after the one before and never before the peer
// meant to send it.
Nanos MessagePeer::trickle(Nanos start, const std::vector<uint8_t> &bytes)
{
    for (const uint8_t byte : bytes) {
        trickle_free_ = std::max(start, trickle_free_) + how_.trickle_gap;
        queue(trickle_free_, {byte});
    }
    return trickle_free_;
}

void MessagePeer::queue(Nanos when, std::vector<uint8_t> bytes)
{
    auto at = std::upper_bound(queue_.begin(), queue_.end(), when,
                               [](Nanos t, const Pending &pending) { return t < pending.when; });
    queue_.insert(at, Pending{when, std::move(bytes)});
}

// Ten bits a byte at the peer's speed, handed over `chunk` bytes at a time as a UART's receive
// interrupts would.
Nanos MessagePeer::queue_at_line_rate(Nanos start, const std::vector<uint8_t> &bytes, size_t chunk)
{
    const Nanos per_byte = byte_time(uart_baud());
    chunk = std::max<size_t>(chunk, 1);
    Nanos when = start;
    for (size_t offset = 0; offset < bytes.size(); offset += chunk) {
        const size_t n = std::min(chunk, bytes.size() - offset);
        when += per_byte * static_cast<Nanos>(n);
        queue(when, std::vector<uint8_t>(bytes.begin() + static_cast<long>(offset),
                                         bytes.begin() + static_cast<long>(offset + n)));
    }
    return when;
}

} // namespace sim
