#include "devices/wireless.h"

#include <chrono>
#include <condition_variable>
#include <memory>

#include <cerrno>
#include <cstring>
#include <linux/wireless.h>

#include "core/clock.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"

namespace sim
{

Wireless &wireless()
{
    static Wireless *instance = new Wireless;
    return *instance;
}

void Wireless::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    script_ = WirelessScript{};
}

WirelessScript &Wireless::script()
{
    return script_;
}

int Wireless::socket_errno()
{
    int err = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        err = script_.socket_errno;
    }
    if (err == 0 && fault_point().fails(Fault::Open, [] { return std::string("socket"); }))
        err = EMFILE; // the process has no descriptor left
    return err;
}

int Wireless::set_frequency(int fd, void *request)
{
    (void)fd;
    if (request == nullptr) { // the kernel's copy of the request would fault
        errno = EFAULT;
        return -1;
    }
    auto *iw = static_cast<struct iwreq *>(request);
    char name[IFNAMSIZ + 1] = {};
    memcpy(name, iw->ifr_name, IFNAMSIZ);
    const int channel = iw->u.freq.m;
    int err = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (script_.interface != name) {
            err = ENODEV;
        } else if (!script_.channel_errnos.empty()) {
            err = script_.channel_errnos.front();
            script_.channel_errnos.pop_front();
        }
    }
    if (err == 0 && fault_point().fails(Fault::Request, [&] { return "SIOCSIWFREQ " + std::string(name); }))
        err = EIO; // the radio's driver did not take the channel
    Entry entry;
    entry.kind = Kind::SocketIoctl;
    entry.name = name;
    entry.values = {channel, iw->u.freq.e, iw->u.freq.i, iw->u.freq.flags};
    entry.result = err == 0 ? 0 : -1;
    entry.err = err;
    entry.text = "SIOCSIWFREQ " + std::string(name) + " channel " + std::to_string(channel) +
                 (err == 0 ? " -> 0" : " -> " + std::string(strerror(err)));
    journal().add(entry);
    if (err != 0) {
        errno = err;
        return -1;
    }
    return 0;
}

Threads &threads()
{
    static Threads *instance = new Threads;
    return *instance;
}

void Threads::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    script_ = ThreadScript{};
}

ThreadScript &Threads::script()
{
    return script_;
}

namespace
{
// A thread being started: its creator goes on only once the new thread has reached its first
// wait on the clock (or ended). Both would otherwise run at the same simulated instant in
// whatever order the PC's scheduler picks (the lamp flasher reading its flag before or after the
// command that sets it), and a run would not repeat itself.
struct Start {
    void *(*function)(void *);
    void *argument;
    std::mutex mutex;
    std::condition_variable changed;
    bool settled = false;

    void settle()
    {
        std::lock_guard<std::mutex> hold(mutex);
        settled = true;
        changed.notify_all();
    }
    // A thread blocked outside the simulation never settles: its creator goes on after a while.
    void wait_settled()
    {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait_for(hold, std::chrono::seconds(5), [&] { return settled; });
    }
};

// Runs a product thread as a participant of simulated time until it returns.
void *participant(void *raw)
{
    const std::shared_ptr<Start> start = *static_cast<std::shared_ptr<Start> *>(raw);
    delete static_cast<std::shared_ptr<Start> *>(raw);
    Clock::when_first_waiting([](void *starting) { static_cast<Start *>(starting)->settle(); }, start.get());
    void *result = start->function(start->argument);
    Clock::when_first_waiting(nullptr, nullptr);
    start->settle();
    clock().leave();
    return result;
}
} // namespace

int Threads::create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg)
{
    int err = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (script_.fail_next > 0) {
            --script_.fail_next;
            err = script_.err;
        }
    }
    if (err == 0 && fault_point().fails(Fault::Thread, [] { return std::string("pthread_create"); }))
        err = EAGAIN; // no room for another thread
    if (err == 0) {
        clock().join(); // counted before it runs, so time cannot slip past its first wait
        auto starting = std::make_shared<Start>();
        starting->function = start;
        starting->argument = arg;
        auto *how = new std::shared_ptr<Start>(starting);
        err = real::pthread_create(thread, attr, participant, how);
        if (err != 0) {
            delete how;
            clock().leave();
        } else {
            starting->wait_settled();
        }
    }
    Entry entry;
    entry.kind = Kind::Thread;
    entry.name = "pthread_create";
    entry.result = err;
    entry.text = "pthread_create -> " + std::to_string(err);
    journal().add(entry);
    return err;
}

} // namespace sim
