#include "watchdog.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <unistd.h>

#include "number.h"

namespace shell::watchdog
{
namespace
{

using Steady = std::chrono::steady_clock;

// Idle: no step under watch. Armed: a command runs under its limit. CuttingOff: the limit was
// reached and whoever saw it first is ending the process; the command must not go on.
enum State : int { Idle, Armed, CuttingOff };
std::atomic<int> g_state{Idle};

// Never destroyed: the wall-clock thread still waits on them while the process exits, and a
// condition variable destroyed under a waiter hangs the exit.
std::mutex &g_mutex = *new std::mutex; // guards what follows, and wakes the wall-clock thread
std::condition_variable &g_changed = *new std::condition_variable;
uint64_t g_generation = 0; // bumps at every arm and disarm
Steady::time_point g_armed_at;
Steady::time_point g_wall_deadline;
int64_t g_limit_ns = 0;
bool g_simulated = false;
CutOff g_cut_off = nullptr;
bool g_thread_started = false;

bool claim()
{
    int expected = Armed;
    return g_state.compare_exchange_strong(expected, CuttingOff);
}

int64_t wall_since_armed()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Steady::now() - g_armed_at).count();
}

// The camera's clock stood still at the limit: the step is cut off at that very instant.
void simulated_limit_reached()
{
    if (!claim())
        return;
    g_cut_off("overran its time limit: cut off after " + format_simulated(g_limit_ns), wall_since_armed());
}

void *watch_wall_clock(void *)
{
    std::unique_lock<std::mutex> lock(g_mutex);
    for (;;) {
        if (g_state.load() != Armed) {
            g_changed.wait(lock);
            continue;
        }
        const uint64_t armed = g_generation;
        if (g_changed.wait_until(lock, g_wall_deadline, [&] { return g_generation != armed; }))
            continue;
        if (!claim())
            continue;
        const int64_t wall = wall_since_armed();
        const std::string reason =
            g_simulated
                ? "overran its time limit: stuck outside the simulated camera's clock, cut off after " +
                      format_simulated(wall) + " of wall time"
                : "overran its time limit: cut off after " + format_simulated(wall);
        const CutOff cut_off = g_cut_off;
        lock.unlock();
        cut_off(reason, wall);
    }
}

} // namespace

void arm(const Shell &shell, int64_t limit_ns, CutOff cut_off)
{
    const Hooks &hooks = shell.hooks();
    const bool simulated = static_cast<bool>(hooks.stop_clock_at);
    {
        std::lock_guard<std::mutex> hold(g_mutex);
        if (!g_thread_started) {
            pthread_t thread;
            const int started = hooks.start_own_thread
                                    ? hooks.start_own_thread(&thread, watch_wall_clock, nullptr)
                                    : pthread_create(&thread, nullptr, watch_wall_clock, nullptr);
            if (started == 0) {
                pthread_detach(thread);
                g_thread_started = true;
            }
        }
        g_limit_ns = limit_ns;
        g_simulated = simulated;
        g_cut_off = cut_off;
        g_armed_at = Steady::now();
        g_wall_deadline =
            g_armed_at + std::chrono::nanoseconds(limit_ns + (simulated ? kSimulatedGraceNs : 0));
        ++g_generation;
        g_state.store(Armed);
    }
    g_changed.notify_all();
    if (simulated)
        hooks.stop_clock_at(*shell.simulated_now() + limit_ns, simulated_limit_reached);
}

void disarm(const Shell &shell)
{
    int expected = Armed;
    if (!g_state.compare_exchange_strong(expected, Idle)) {
        // The step is being cut off from another thread, which ends the process.
        for (;;)
            pause();
    }
    if (shell.hooks().clear_clock_stop)
        shell.hooks().clear_clock_stop();
    {
        std::lock_guard<std::mutex> hold(g_mutex);
        ++g_generation;
    }
    g_changed.notify_all();
}

} // namespace shell::watchdog
