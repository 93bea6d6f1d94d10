// The recording layer's shared state: the recording itself under one mutex (the library's own
// threads, the RFID search and the lamp flasher, call in beside the command), the timeline its
// times are on, the output folder, and the one write at the end of the process.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <string>

#include "recording.h"

namespace record
{

// The definition of `name` after ours (libc's, libpcap's, the camera's platform libraries', or
// the simulated camera's on a PC); null when there is none.
void *next_symbol(const char *name);
template <typename Function> Function next(const char *name)
{
    return reinterpret_cast<Function>(next_symbol(name));
}

// What an open descriptor of the library is, as far as the recording cares.
struct Descriptor {
    enum class Kind { Device, Port };
    Kind kind;
    std::string path;
};

struct State {
    std::mutex mutex;
    Recording recording;
    std::map<int, Descriptor> descriptors;
    std::map<int, int64_t> ready_at; // a port's last select that returned it ready, not yet read
};

State &state();

// Whether this process is the one recorded: it runs libclidriver (the camera's shell) and is not
// a child forked from it. The commands the library starts through popen inherit LD_PRELOAD and so
// load this layer too; in them it passes every call on and writes nothing.
bool active();

// Whether a call is to be written down: it comes straight from libclidriver (its return address)
// and the recording has not been written yet. Fixes the timeline's boot epoch at the first one.
bool recorded(const void *return_address);
// Whether the recording still takes calls, whoever makes them (the platform's operations).
bool recording();

// Nanoseconds since the boot epoch on the timeline clock (CLOCK_REALTIME, which the simulated
// camera runs on simulated time).
int64_t now_ns();
int64_t boot_epoch();

// Writes the recording into its folder, once; a later call waits for that write to end (a bounded
// time) and does nothing more. Called at the end of the process: destructor, _exit, or a signal
// that ends it (`ending_signal`, which stays deliverable meanwhile).
void finish(int ending_signal = 0);

// The signals that end the process by default and that the layer writes the recording for.
sigset_t ending_signals();

// Keeps errno as the call being recorded left it, whatever the recording does meanwhile.
class KeepErrno
{
  public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    void update() { saved_ = errno; }

  private:
    int saved_;
};

} // namespace record
