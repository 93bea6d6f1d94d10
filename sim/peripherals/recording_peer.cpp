#include "peripherals/recording_peer.h"

#include "core/journal.h"
#include "core/replay.h"

namespace sim
{

RecordingPeer::RecordingPeer(std::string path, PortLog log)
    : path_(std::move(path)), events_(std::move(log.events))
{
    skip_markers();
}

void RecordingPeer::skip_markers()
{
    while (next_ < events_.size() &&
           (events_[next_].kind == PortEvent::Kind::Open || events_[next_].kind == PortEvent::Kind::Close))
        ++next_;
}

void RecordingPeer::depart(const std::string &what)
{
    silent_ = true;
    replay().depart(path_, what);
}

void RecordingPeer::receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    (void)now;
    ++writes_seen_;
    if (silent_)
        return;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (next_ >= events_.size()) {
            depart("write " + std::to_string(writes_seen_) + " sends " + hex_bytes(bytes) +
                   "; the recording has nothing more on this port");
            return;
        }
        const PortEvent &event = events_[next_];
        if (event.kind != PortEvent::Kind::Wrote) {
            depart("write " + std::to_string(writes_seen_) + " sends " + hex_bytes(bytes) +
                   " where the recording has the camera read " + hex_bytes(event.bytes) + " first");
            return;
        }
        if (bytes[i] != event.bytes[written_]) {
            depart("write " + std::to_string(writes_seen_) + " sends " + hex_bytes(bytes) +
                   " where the recording has " + hex_bytes(event.bytes));
            return;
        }
        if (++written_ == event.bytes.size()) {
            written_ = 0;
            ++next_;
            skip_markers();
        }
    }
}

Nanos RecordingPeer::next_send()
{
    if (silent_ || next_ >= events_.size() || events_[next_].kind != PortEvent::Kind::Read)
        return kNever;
    return events_[next_].time;
}

std::vector<uint8_t> RecordingPeer::take(Nanos now)
{
    std::vector<uint8_t> due;
    while (!silent_ && next_ < events_.size() && events_[next_].kind == PortEvent::Kind::Read &&
           events_[next_].time <= now) {
        due.insert(due.end(), events_[next_].bytes.begin(), events_[next_].bytes.end());
        ++next_;
        skip_markers();
    }
    return due;
}

} // namespace sim
