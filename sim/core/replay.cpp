#include "core/replay.h"

#include <algorithm>
#include <cstdio>

#include "core/journal.h"

namespace sim
{

Replay &replay()
{
    static Replay *instance = new Replay;
    return *instance;
}

void Replay::reset(ReplayScript script)
{
    std::lock_guard<std::mutex> hold(mutex_);
    active_ = script.recorded;
    script_ = std::move(script);
    sleeps_done_ = 0;
    reported_.clear();
    departures_ = 0;
}

std::optional<Nanos> Replay::next_clock_read()
{
    std::lock_guard<std::mutex> hold(mutex_);
    // Once the run has left the recording, the camera's clock reads belong to calls this run no
    // longer makes: following them would throw its time-outs about. Its time is simulated from there.
    if (script_.clock_us.empty() || departures_ > 0)
        return std::nullopt;
    const Nanos at = script_.clock_us.front() * kMicrosecond;
    script_.clock_us.pop_front();
    return at;
}

Nanos Replay::sleep_length(Nanos asked)
{
    std::string what;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        ++sleeps_done_;
        if (departures_ > 0)
            return asked; // as the clock reads: a departed run sleeps what it asks
        // The library's threads (the lamp flasher beside a command) sleep in turns that need not
        // interleave alike on every run: a sleep takes the next recorded one of its length.
        const auto same = std::find_if(script_.sleeps.begin(), script_.sleeps.end(),
                                       [&](const auto &sleep) { return sleep.first == asked; });
        if (same != script_.sleeps.end()) {
            const Nanos slept = same->second;
            script_.sleeps.erase(same);
            return slept;
        }
        if (script_.sleeps.empty()) {
            // A thread still sleeping when the recording ended (the flasher at the shell's exit):
            // nothing was recorded after that, so nothing departs from it.
            return asked;
        }
        what = "sleep " + std::to_string(sleeps_done_) + " asks for " + std::to_string(asked) +
               " ns; the recording has no sleep of that length left";
    }
    depart("sleeps", what);
    return asked;
}

void Replay::depart(const std::string &where, const std::string &what)
{
    bool first = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        ++departures_;
        first = std::find(reported_.begin(), reported_.end(), where) == reported_.end();
        if (first)
            reported_.push_back(where);
    }
    const std::string line = "replay: departs from the recording: " + where + ": " + what;
    if (first) {
        fprintf(stderr, "%s\n", line.c_str());
        fflush(stderr);
    }
    Entry entry;
    entry.kind = Kind::Note;
    entry.name = where;
    entry.text = line;
    journal().add(entry);
}

int Replay::departures() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return departures_;
}

} // namespace sim
