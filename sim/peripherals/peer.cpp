#include "peripherals/peer.h"

#include <algorithm>

namespace sim
{

Nanos QueuedPeer::next_send()
{
    return queue_.empty() ? kNever : queue_.front().when;
}

std::vector<uint8_t> QueuedPeer::take(Nanos now)
{
    std::vector<uint8_t> due;
    while (!queue_.empty() && queue_.front().when <= now) {
        due.insert(due.end(), queue_.front().bytes.begin(), queue_.front().bytes.end());
        queue_.pop_front();
    }
    return due;
}

void QueuedPeer::send_at(Nanos when, std::vector<uint8_t> bytes)
{
    auto at = std::upper_bound(queue_.begin(), queue_.end(), when,
                               [](Nanos t, const Pending &pending) { return t < pending.when; });
    queue_.insert(at, Pending{when, std::move(bytes)});
}

Nanos QueuedPeer::byte_time(unsigned baud)
{
    return baud == 0 ? 0 : 10 * kSecond / baud;
}

Nanos QueuedPeer::send_at_line_rate(Nanos start, const std::vector<uint8_t> &bytes, size_t chunk)
{
    const Nanos per_byte = byte_time(line_ != nullptr ? line_->baud() : 9600);
    Nanos when = start;
    for (size_t offset = 0; offset < bytes.size(); offset += chunk) {
        const size_t n = std::min(chunk, bytes.size() - offset);
        when += per_byte * static_cast<Nanos>(n);
        send_at(when, std::vector<uint8_t>(bytes.begin() + static_cast<long>(offset),
                                           bytes.begin() + static_cast<long>(offset + n)));
    }
    return when;
}

} // namespace sim
