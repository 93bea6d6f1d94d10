// Replaying a camera recorded by the recording layer: the clock reads and sleeps the library made
// there, and the one way a replay says that the run on the PC has left the recording.
//
// A recorded camera answers only what was recorded. Where the library asks something else (a
// different request, platform call, sleep or serial write, or one more than the recording holds),
// the replay reports the departure on standard error and in the journal and fails the call,
// rather than invent an answer the camera never gave.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/time.h"

namespace sim
{

struct ReplayScript {
    bool recorded = false;                      // the scenario is a recording: strict answers
    std::deque<int64_t> clock_us;               // each clock read the library made, µs since boot
    std::deque<std::pair<Nanos, Nanos>> sleeps; // each sleep the library asked for: asked, slept
};

class Replay
{
  public:
    void reset(ReplayScript script = {});
    bool active() const { return active_; }

    // The time the next recorded clock read showed (nanoseconds since boot), if one is left and
    // the run has not departed from the recording (after that its time is the simulated clock's).
    std::optional<Nanos> next_clock_read();
    // How long a sleep of `asked` lasts: what the next recorded sleep of that length took on the
    // camera. One the recording has none of is a departure and lasts what was asked; once every
    // recorded sleep is used, a sleep is one that outlived the recording and lasts what was asked;
    // after a departure every sleep lasts what was asked.
    Nanos sleep_length(Nanos asked);

    // Says where the run left the recording; only the first departure at each place is printed,
    // so a command that retries does not bury the one line that matters.
    void depart(const std::string &where, const std::string &what);
    int departures() const;

  private:
    mutable std::mutex mutex_;
    bool active_ = false;
    ReplayScript script_;
    size_t sleeps_done_ = 0;
    std::vector<std::string> reported_;
    int departures_ = 0;
};

Replay &replay();

} // namespace sim
