#include "core/clock.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "core/journal.h"

namespace sim
{

Clock &clock()
{
    // Never destroyed: detached product threads may still wait on it while the process exits.
    static Clock *instance = new Clock;
    return *instance;
}

int64_t Clock::boot_epoch() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return boot_epoch_;
}

void Clock::reset(int64_t boot_epoch_seconds)
{
    std::lock_guard<std::mutex> hold(mutex_);
    now_ = 0;
    boot_epoch_ = boot_epoch_seconds;
    participants_ = 1;
    waiters_.clear();
    sources_.clear();
    alarm_at_ = kNever;
    holds_ = 0;
    stop_at_ = kNever;
    stop_reached_ = nullptr;
    stopped_ = false;
    ++generation_;
}

void Clock::stop_at(Nanos at, void (*reached)())
{
    std::lock_guard<std::mutex> hold(mutex_);
    stop_at_ = at;
    stop_reached_ = reached;
    stopped_ = false;
    ++generation_;
}

void Clock::clear_stop()
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        stop_at_ = kNever;
        stop_reached_ = nullptr;
        stopped_ = false;
        ++generation_;
    }
    changed_.notify_all();
}

void Clock::restart(int64_t boot_epoch_seconds)
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        for (Waiter *waiter : waiters_) {
            if (waiter->conditional) {
                fprintf(stderr, "simulated camera: started again while a product thread waits on one of its "
                                "devices\n");
                std::abort();
            }
            if (waiter->deadline != kNever)
                waiter->deadline = std::max<Nanos>(0, waiter->deadline - now_);
        }
        now_ = 0;
        boot_epoch_ = boot_epoch_seconds;
        sources_.clear();
        alarm_at_ = kNever;
        holds_ = 0;
        stop_at_ = kNever;
        stop_reached_ = nullptr;
        stopped_ = false;
        ++generation_;
    }
    changed_.notify_all();
}

void Clock::join()
{
    std::lock_guard<std::mutex> hold(mutex_);
    ++participants_;
    ++generation_;
}

void Clock::leave()
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        --participants_;
        ++generation_;
    }
    changed_.notify_all();
}

void Clock::hold()
{
    std::lock_guard<std::mutex> hold(mutex_);
    ++holds_;
}

void Clock::release()
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        --holds_;
        ++generation_;
    }
    changed_.notify_all();
}

void Clock::add_source(TimedSource *source)
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        sources_.push_back(source);
        ++generation_;
    }
    changed_.notify_all();
}

void Clock::remove_source(TimedSource *source)
{
    std::lock_guard<std::mutex> hold(mutex_);
    sources_.erase(std::remove(sources_.begin(), sources_.end(), source), sources_.end());
    ++generation_;
}

unsigned Clock::set_alarm(unsigned seconds)
{
    std::lock_guard<std::mutex> hold(mutex_);
    // Like glibc: the previous alarm's remaining time, rounded to the nearest second, and never
    // 0 while one is still pending.
    unsigned left = 0;
    if (alarm_at_ != kNever && alarm_at_ > now_) {
        const Nanos remaining = alarm_at_ - now_;
        left = static_cast<unsigned>(remaining / kSecond);
        const Nanos fraction = remaining % kSecond;
        if (fraction >= kSecond / 2 || (left == 0 && fraction > 0))
            ++left;
    }
    alarm_at_ = seconds == 0 ? kNever : now_ + static_cast<Nanos>(seconds) * kSecond;
    alarm_thread_ = pthread_self();
    ++generation_;
    return left;
}

void Clock::fire_due_locked()
{
    // A source may schedule more work at the same instant; keep going until nothing is due.
    for (int rounds = 0; rounds < 10000; ++rounds) {
        bool fired = false;
        for (TimedSource *source : std::vector<TimedSource *>(sources_)) {
            if (source->next_event() <= now_) {
                source->fire(now_);
                fired = true;
            }
        }
        if (!fired)
            return;
        ++generation_;
    }
}

Nanos Clock::next_moment_locked() const
{
    Nanos next = alarm_at_;
    for (const Waiter *waiter : waiters_)
        next = std::min(next, waiter->deadline);
    for (TimedSource *source : sources_)
        next = std::min(next, source->next_event());
    return next;
}

bool Clock::everyone_settled_locked() const
{
    if (holds_ > 0 || static_cast<int>(waiters_.size()) < participants_)
        return false;
    for (const Waiter *waiter : waiters_)
        if (waiter->settled != generation_)
            return false;
    return true;
}

// Moves time to the next thing that can happen and delivers the alarm if it is due.
void Clock::advance_locked()
{
    const Nanos next = next_moment_locked();
    // Something due exactly at the stop still happens; only time beyond it is refused.
    if (stop_at_ != kNever && next > stop_at_) {
        now_ = std::max(now_.load(), stop_at_);
        stopped_ = true;
        ++generation_;
        return;
    }
    if (next == kNever) {
        fprintf(stderr, "simulated camera: every thread waits for ever and nothing is scheduled\n");
        std::abort();
    }
    now_ = std::max(now_.load(), next);
    if (alarm_at_ <= now_) {
        alarm_at_ = kNever;
        bool delivered = false;
        for (Waiter *waiter : waiters_) {
            if (pthread_equal(waiter->thread, alarm_thread_)) {
                waiter->interrupted = true;
                delivered = true;
            }
        }
        if (!delivered) // the thread that set it is gone: any waiter takes the signal
            waiters_.front()->interrupted = true;
    }
    ++generation_;
}

namespace
{
thread_local void (*t_first_wait_hook)(void *) = nullptr;
thread_local void *t_first_wait_arg = nullptr;
} // namespace

void Clock::when_first_waiting(void (*hook)(void *), void *arg)
{
    t_first_wait_hook = hook;
    t_first_wait_arg = arg;
}

WaitEnd Clock::wait(Nanos deadline, const std::function<bool()> &ready)
{
    std::unique_lock<std::mutex> lock(mutex_);
    Waiter self{pthread_self(), deadline};
    self.conditional = static_cast<bool>(ready);
    waiters_.push_back(&self);
    ++generation_;
    changed_.notify_all();
    WaitEnd end;
    for (;;) {
        if (stopped_) {
            // Time has reached a step's limit: nothing moves until the stop is lifted.
            changed_.wait(lock);
            continue;
        }
        fire_due_locked();
        if (self.interrupted) {
            end = WaitEnd::Interrupted;
            break;
        }
        if (ready && ready()) {
            end = WaitEnd::Ready;
            break;
        }
        if (now_ >= self.deadline) { // restart() may move the deadline
            end = WaitEnd::Deadline;
            break;
        }
        // This waiter has looked at the present state and must wait. Time may move only once
        // every participant waits and every waiter has looked at the present state: otherwise
        // one whose condition is already met (bytes arrived, deadline reached) would wake late.
        self.settled = generation_;
        if (void (*hook)(void *) = t_first_wait_hook) {
            t_first_wait_hook = nullptr;
            hook(t_first_wait_arg);
        }
        if (everyone_settled_locked()) {
            advance_locked();
            if (stopped_) {
                void (*reached)() = stop_reached_;
                lock.unlock();
                if (reached != nullptr)
                    reached();
                clear_stop();
                lock.lock();
                continue;
            }
            changed_.notify_all();
            continue;
        }
        // Someone else still runs, or has yet to look. A thread that never comes back to the
        // clock (blocked outside the simulation) must not hang the test for ever, so after a long
        // real-time stall time moves on without it.
        const uint64_t seen = generation_;
        if (!changed_.wait_for(lock, std::chrono::seconds(20), [&] { return generation_ != seen; })) {
            if (holds_ == 0 && static_cast<int>(waiters_.size()) < participants_) {
                fprintf(stderr, "simulated camera: a thread has not come back to the clock for 20 s; "
                                "moving time on without it\n");
                participants_ = static_cast<int>(waiters_.size());
            }
            ++generation_;
        }
    }
    waiters_.erase(std::remove(waiters_.begin(), waiters_.end(), &self), waiters_.end());
    ++generation_;
    lock.unlock();
    changed_.notify_all();
    if (end == WaitEnd::Interrupted) {
        Entry entry;
        entry.kind = Kind::Alarm;
        entry.name = "SIGALRM";
        entry.text = "SIGALRM delivered";
        journal().add(entry);
        raise(SIGALRM);
    }
    return end;
}

} // namespace sim
