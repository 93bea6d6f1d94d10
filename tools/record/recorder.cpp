#include "recorder.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <sys/utsname.h>
#include <time.h>

#include "library_caller.h"
#include "writer.h"

namespace record
{

namespace
{

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kNoEpoch = INT64_MIN;

// Where the recording is: taking calls, being written (once, by whoever ends the process
// first), or written.
enum Stage { kRecording, kWriting, kWritten };
std::atomic<int> g_stage{kRecording};
std::atomic<int64_t> g_epoch{kNoEpoch};
// Set in a child forked from the shell: the recording is the shell's, and only it writes it.
std::atomic<bool> g_forked{false};

// A writer still at work elsewhere (another thread ends the process meanwhile) is waited for, a
// bounded time: its recording is the one being kept.
void wait_until_written()
{
    const struct timespec tick = {0, 1000000};
    for (int waited = 0; g_stage.load(std::memory_order_acquire) == kWriting && waited < 10000; ++waited)
        nanosleep(&tick, nullptr);
}

// The timeline clock as the process sees it: through the next clock_gettime, so that a simulated
// camera in front of libc supplies its simulated time.
int64_t realtime_ns()
{
    using ClockGettime = int (*)(clockid_t, struct timespec *);
    static const auto clock_next = next<ClockGettime>("clock_gettime");
    struct timespec now = {};
    const int saved = errno;
    if (clock_next == nullptr || clock_next(CLOCK_REALTIME, &now) != 0)
        clock_gettime(CLOCK_REALTIME, &now);
    errno = saved;
    return static_cast<int64_t>(now.tv_sec) * kSecond + now.tv_nsec;
}

void fix_epoch()
{
    if (g_epoch.load(std::memory_order_acquire) != kNoEpoch)
        return;
    const int64_t now = realtime_ns();
    int64_t seconds = now / kSecond;
    if (now < 0 && now % kSecond != 0)
        --seconds; // the whole second at or before the call
    int64_t expected = kNoEpoch;
    g_epoch.compare_exchange_strong(expected, seconds, std::memory_order_acq_rel);
    start_writer(); // the output folder, the camera's name: known from the first call on
}

} // namespace

void *next_symbol(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

State &state()
{
    static State *instance = new State; // never destroyed: threads may still call in at exit
    return *instance;
}

bool active()
{
    static const bool runs_the_library = clidriver::library_code().loaded();
    return runs_the_library && !g_forked.load(std::memory_order_relaxed);
}

bool recording()
{
    if (g_stage.load(std::memory_order_acquire) != kRecording || !active())
        return false;
    const int saved = errno;
    fix_epoch();
    errno = saved;
    return true;
}

bool recorded(const void *return_address)
{
    return clidriver::called_from_library(return_address) && recording();
}

int64_t boot_epoch()
{
    const int64_t epoch = g_epoch.load(std::memory_order_acquire);
    return epoch == kNoEpoch ? realtime_ns() / kSecond : epoch;
}

int64_t now_ns()
{
    return realtime_ns() - boot_epoch() * kSecond;
}

void finish(int ending_signal)
{
    if (!active())
        return;
    int expected = kRecording;
    if (!g_stage.compare_exchange_strong(expected, kWriting, std::memory_order_acq_rel)) {
        wait_until_written();
        return;
    }
    const int saved = errno;
    // No stop signal may cut the write short in this thread; one that comes meanwhile ends the
    // process once the recording is whole. The signal being handled stays deliverable: its bound
    // on a write that cannot finish comes as that signal.
    sigset_t ending = ending_signals();
    if (ending_signal != 0)
        sigdelset(&ending, ending_signal);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    Recording copy;
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        copy = state().recording;
    }
    copy.boot_epoch = boot_epoch();
    write_recording(copy);
    g_stage.store(kWritten, std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = saved;
}

} // namespace record

// A child forked from the shell (before it runs another program) is not the recorded process.
__attribute__((constructor)) static void note_forks()
{
    pthread_atfork(nullptr, nullptr, [] { record::g_forked.store(true, std::memory_order_relaxed); });
}

// The process ends: by returning from main or exit (this destructor), or by _exit, which the
// shell's watchdog uses to end a run cut off at a step's time limit (interposed below).
__attribute__((destructor)) static void record_at_exit()
{
    record::finish();
}

extern "C" {

[[noreturn]] void _exit(int status)
{
    record::finish();
    static const auto next_exit = record::next<void (*)(int)>("_exit");
    next_exit(status);
    __builtin_unreachable();
}

[[noreturn]] void _Exit(int status)
{
    record::finish();
    static const auto next_exit = record::next<void (*)(int)>("_Exit");
    next_exit(status);
    __builtin_unreachable();
}

} // extern "C"
