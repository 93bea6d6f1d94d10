#include "peripherals/scripted_peer.h"

#include <algorithm>

namespace sim
{

void ScriptedPeer::announce(Nanos when, std::vector<uint8_t> bytes)
{
    send_at_line_rate(when, bytes);
}

void ScriptedPeer::set_garbage(Nanos every, size_t chunk, uint32_t seed)
{
    mode_ = Mode::Garbage;
    garbage_every_ = std::max<Nanos>(every, 1);
    garbage_chunk_ = std::max<size_t>(chunk, 1);
    garbage_state_ = seed != 0 ? seed : 1;
}

void ScriptedPeer::receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    received_total_ += bytes.size();
    if (hang_up_after_ != 0 && received_total_ >= hang_up_after_) {
        hung_up_ = true;
        return;
    }
    heard_.insert(heard_.end(), bytes.begin(), bytes.end());
    if (mode_ == Mode::Silent || mode_ == Mode::Garbage)
        return;
    for (auto rule = rules_.begin(); rule != rules_.end();) {
        auto found = std::search(heard_.begin(), heard_.end(), rule->when.begin(), rule->when.end());
        if (rule->when.empty() || found == heard_.end()) {
            ++rule;
            continue;
        }
        heard_.erase(heard_.begin(), found + static_cast<long>(rule->when.size()));
        const Nanos start = now + rule->delay;
        if (mode_ == Mode::Trickle) {
            for (size_t i = 0; i < rule->answer.size(); ++i)
                send_at(start + trickle_gap_ * static_cast<Nanos>(i + 1), {rule->answer[i]});
        } else {
            send_at_line_rate(start, rule->answer);
        }
        if (rule->once)
            rules_.erase(rule);
        rule = rules_.begin(); // the rest of what was heard may hold another request
    }
}

Nanos ScriptedPeer::next_send()
{
    if (hung_up_)
        return kNever;
    Nanos next = std::min(QueuedPeer::next_send(), hang_up_at_);
    if (mode_ == Mode::Garbage)
        next = std::min(next, next_garbage_);
    return next;
}

std::vector<uint8_t> ScriptedPeer::take(Nanos now)
{
    if (now >= hang_up_at_) {
        hung_up_ = true;
        return {};
    }
    std::vector<uint8_t> due = QueuedPeer::take(now);
    while (mode_ == Mode::Garbage && next_garbage_ <= now) {
        for (size_t i = 0; i < garbage_chunk_; ++i) { // xorshift32: the same noise on every run
            garbage_state_ ^= garbage_state_ << 13;
            garbage_state_ ^= garbage_state_ >> 17;
            garbage_state_ ^= garbage_state_ << 5;
            due.push_back(static_cast<uint8_t>(garbage_state_));
        }
        next_garbage_ += garbage_every_;
    }
    return due;
}

} // namespace sim
