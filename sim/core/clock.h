// The simulated clock.
//
// sleep, usleep, nanosleep, alarm, gettimeofday and the time-outs of select on simulated serial
// ports run on this clock, so a command that waits half a minute on the camera finishes in
// milliseconds on the bench and a test can assert how much simulated time it spent.
//
// Time only moves when every participating thread is waiting on it: the test's own thread and
// every thread the product creates (pthread_create is interposed to count them). It then jumps
// to the earliest thing that can happen: a waiter's deadline, a peer with bytes to send, the
// alarm. A waiter whose condition is met (a port became readable) wakes without time moving.
// That keeps two product threads waiting at once (the RFID search beside the caller, the
// parking-lamp flasher beside a command) deterministic.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <vector>

#include "core/time.h"

namespace sim
{

// Something on the simulated timeline that acts at given times (a peer sending bytes, the
// capture delivering packets). Called with the clock's lock held.
class TimedSource
{
  public:
    virtual ~TimedSource() = default;
    virtual Nanos next_event() = 0;   // kNever when nothing is pending
    virtual void fire(Nanos now) = 0; // do what is due at `now`
};

enum class WaitEnd { Ready, Deadline, Interrupted };

class Clock
{
  public:
    Nanos now() const { return now_.load(); } // safe with or without the lock held
    // Wall-clock seconds since 1970 at simulated time 0.
    int64_t boot_epoch() const;
    // Back to boot: time 0, no alarm, no sources, the calling thread the only participant.
    void reset(int64_t boot_epoch_seconds);
    // Back to boot for a camera started again in the same process: time 0, no alarm, no sources,
    // but the product's threads still running keep taking part, and each one waiting keeps the
    // time it had left (a flash thread in its 500 ms poll polls again 500 ms after boot, at most).
    // A thread waiting on a condition (a serial port) at that moment would look at what no longer
    // exists: the process is stopped with a message instead.
    void restart(int64_t boot_epoch_seconds);

    // A thread is about to start that takes part in simulated time / has ended.
    void join();
    void leave();

    // Blocks the calling participant until `deadline` or until `ready()` holds. `ready` is
    // evaluated with the clock's lock held and must not call back into the clock. A pending
    // alarm interrupts the wait of the thread that set it, which then receives SIGALRM.
    WaitEnd wait(Nanos deadline, const std::function<bool()> &ready = nullptr);

    // Lets simulated time pass for the calling thread, as a sleep would (tests and the shell).
    void advance(Nanos duration) { wait(now() + duration); }

    // The calling thread steps away from the camera for a while (the shell waiting for its
    // operator to type): simulated time stands still for every thread until release(), and a
    // product thread left waiting meanwhile is not taken for a stall.
    // The calling thread's `hook(arg)` runs once, when the thread first settles into a wait (it
    // has looked at the present state and must wait for time to move), with the clock's lock held.
    static void when_first_waiting(void (*hook)(void *), void *arg);

    void hold();
    void release();

    void add_source(TimedSource *source);
    void remove_source(TimedSource *source);

    // A station step's time limit: simulated time never passes `at`. When it would, the thread
    // that would move it calls `reached` (without the lock held) while every other thread stays
    // where it waits, so the command is frozen at its limit, the same on every run. `reached`
    // normally ends the process; if it returns, the stop is lifted and time goes on.
    void stop_at(Nanos at, void (*reached)());
    void clear_stop();

    // alarm(seconds): returns the seconds left of the previous alarm (0 if none).
    unsigned set_alarm(unsigned seconds);

    // Runs `action` with the clock's lock held (for state that sources also touch).
    template <typename F> auto locked(F &&action)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return action();
    }
    std::mutex &mutex() { return mutex_; }

  private:
    struct Waiter {
        pthread_t thread;
        Nanos deadline;
        bool interrupted = false;
        bool conditional = false; // waits for a condition besides its deadline
        uint64_t settled = 0;     // the generation at which it last found its condition unmet
    };

    void fire_due_locked();
    Nanos next_moment_locked() const;
    bool everyone_settled_locked() const;
    void advance_locked();

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<Nanos> now_{0}; // written under the lock, read without it
    int64_t boot_epoch_ = kDefaultBootEpochSeconds;
    int participants_ = 1;
    std::vector<Waiter *> waiters_;
    std::vector<TimedSource *> sources_;
    Nanos alarm_at_ = kNever;
    pthread_t alarm_thread_{};
    Nanos stop_at_ = kNever;
    void (*stop_reached_)() = nullptr;
    bool stopped_ = false;    // time has reached stop_at_ and waits for more
    uint64_t generation_ = 0; // bumps on every change, to tell progress from a stall
    int holds_ = 0;
};

Clock &clock();

} // namespace sim
