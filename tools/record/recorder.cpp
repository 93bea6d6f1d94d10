#include "recorder.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
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

std::atomic<bool> g_finished{false};
std::atomic<int64_t> g_epoch{kNoEpoch};

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

bool recording()
{
    if (g_finished.load(std::memory_order_acquire))
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

void finish()
{
    if (g_finished.exchange(true))
        return;
    const int saved = errno;
    Recording copy;
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        copy = state().recording;
    }
    copy.boot_epoch = boot_epoch();
    write_recording(copy);
    errno = saved;
}

} // namespace record

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
