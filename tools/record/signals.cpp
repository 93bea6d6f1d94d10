// A recorded shell that a signal ends keeps its recording.
//
// At a station a run is stopped as often as it ends: the operator presses Ctrl-C during a command
// (the shell then ends by SIGINT), the station's controller stops a unit it gave up on (SIGTERM,
// SIGHUP when its terminal goes, SIGQUIT), a reader of the shell's output goes away (SIGPIPE), or
// the process crashes (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT): the run a developer most wants
// on the desk. A signal's default action runs no destructor, so the recording would die with it.
//
// So wherever the shell leaves a signal's action at its default, the layer stands in with a
// handler of its own: it writes the recording, then lets the same signal end the process as the
// default would have (the same exit status, the same core dump). The shell never sees the stand-in:
// sigaction and signal report the default where it asked for the default, and a handler of the
// shell's own (the interactive shell's Ctrl-C at the prompt) is installed as asked, untouched.
//
// A handler runs wherever the signal came: inside malloc, or holding the recording's lock. A write
// that cannot finish must not keep a stopped shell alive, so the handler first restores the
// default action and arms a timer that sends the same signal again after kBoundSeconds: the
// process then ends as it would have without the layer, only later and without the recording.
#include <atomic>
#include <csignal>
#include <ctime>
#include <unistd.h>

#include "recorder.h"

namespace record
{

namespace
{

constexpr int kEnding[] = {SIGINT,  SIGTERM, SIGHUP, SIGQUIT, SIGPIPE,
                           SIGSEGV, SIGBUS,  SIGFPE, SIGILL,  SIGABRT};
constexpr time_t kBoundSeconds = 5;

using Sigaction = int (*)(int, const struct sigaction *, struct sigaction *);

Sigaction next_sigaction()
{
    static const auto found = next<Sigaction>("sigaction");
    return found;
}

bool ending(int signal_number)
{
    for (const int candidate : kEnding)
        if (candidate == signal_number)
            return true;
    return false;
}

// Per signal: the shell's own wish is the default action, and the layer's handler stands in for it.
std::atomic<bool> g_standing_in[NSIG];

bool asks_default(const struct sigaction &action)
{
    return action.sa_handler == SIG_DFL;
}

struct sigaction default_action()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    return action;
}

void end_by(int signal_number)
{
    const Sigaction real = next_sigaction();
    const struct sigaction fallback = default_action();
    if (real != nullptr)
        real(signal_number, &fallback, nullptr);
    g_standing_in[signal_number].store(false, std::memory_order_relaxed);
    sigset_t self;
    sigemptyset(&self);
    sigaddset(&self, signal_number);
    pthread_sigmask(SIG_UNBLOCK, &self, nullptr);

    struct sigevent again = {};
    again.sigev_notify = SIGEV_SIGNAL;
    again.sigev_signo = signal_number;
    timer_t timer = {};
    if (timer_create(CLOCK_MONOTONIC, &again, &timer) == 0) {
        struct itimerspec when = {};
        when.it_value.tv_sec = kBoundSeconds;
        timer_settime(timer, 0, &when, nullptr);
    }

    finish(signal_number);
    raise(signal_number);
    // Only a signal the default action ignores comes back here; none of kEnding does.
    _exit(128 + signal_number);
}

struct sigaction stand_in()
{
    struct sigaction action = {};
    action.sa_handler = end_by;
    // Another stop signal while the recording is written waits for the write to end.
    sigemptyset(&action.sa_mask);
    for (const int other : kEnding)
        sigaddset(&action.sa_mask, other);
    return action;
}

} // namespace

sigset_t ending_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : kEnding)
        sigaddset(&set, signal_number);
    return set;
}

} // namespace record

// At load, every ending signal the shell inherited at its default gets the stand-in; one inherited
// as ignored (a shell started under nohup) stays ignored.
__attribute__((constructor)) static void stand_in_for_defaults()
{
    const record::Sigaction real = record::next_sigaction();
    if (real == nullptr || !record::active())
        return;
    const struct sigaction ours = record::stand_in();
    for (const int signal_number : record::kEnding) {
        struct sigaction inherited = {};
        if (real(signal_number, nullptr, &inherited) != 0 || !record::asks_default(inherited))
            continue;
        if (real(signal_number, &ours, nullptr) == 0)
            record::g_standing_in[signal_number].store(true, std::memory_order_relaxed);
    }
}

extern "C" {

// The shell's view of the signals' actions: where the layer stands in, the default it asked for.
int sigaction(int signal_number, const struct sigaction *action, struct sigaction *previous)
{
    const record::Sigaction real = record::next_sigaction();
    if (real == nullptr) {
        errno = ENOSYS;
        return -1;
    }
    if (!record::ending(signal_number) || !record::active())
        return real(signal_number, action, previous);
    struct sigaction wanted = {};
    if (action != nullptr)
        wanted = *action; // `action` and `previous` may be the same record
    const bool stood_in = record::g_standing_in[signal_number].load(std::memory_order_relaxed);
    int result = 0;
    if (action != nullptr && record::asks_default(wanted)) {
        const struct sigaction ours = record::stand_in();
        result = real(signal_number, &ours, previous);
        if (result == 0)
            record::g_standing_in[signal_number].store(true, std::memory_order_relaxed);
    } else {
        result = real(signal_number, action != nullptr ? &wanted : nullptr, previous);
        if (result == 0 && action != nullptr)
            record::g_standing_in[signal_number].store(false, std::memory_order_relaxed);
    }
    if (result == 0 && previous != nullptr && stood_in)
        *previous = record::default_action();
    return result;
}

// signal() as the C library gives it: the handler runs with its own signal blocked, and calls it
// interrupted go on.
sighandler_t signal(int signal_number, sighandler_t handler)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    if (signal_number > 0 && signal_number < NSIG)
        sigaddset(&action.sa_mask, signal_number);
    action.sa_flags = SA_RESTART;
    struct sigaction previous = {};
    if (sigaction(signal_number, &action, &previous) != 0)
        return SIG_ERR;
    return previous.sa_handler;
}

} // extern "C"
