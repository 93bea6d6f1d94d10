// The Wi-Fi interface's wireless-extensions channel request (SIOCSIWFREQ on a datagram socket)
// and the start of product threads, both with failures on demand.
#pragma once

#include <deque>
#include <mutex>
#include <string>

namespace sim
{

struct WirelessScript {
    std::string interface = "wlan0"; // the only interface whose channel can be set
    std::deque<int> channel_errnos;  // errno for each coming request, 0 = success; then success
    int socket_errno = 0;            // non-zero: socket(AF_INET, SOCK_DGRAM) fails with it
};

class Wireless
{
  public:
    void reset();
    WirelessScript &script();
    // socket(AF_INET, SOCK_DGRAM, ...): the errno to fail with, or 0.
    int socket_errno();
    // The SIOCSIWFREQ request on any socket; `request` points at a struct iwreq.
    int set_frequency(int fd, void *request);

  private:
    std::mutex mutex_;
    WirelessScript script_;
};

Wireless &wireless();

struct ThreadScript {
    int fail_next = 0; // this many coming pthread_create calls fail
    int err = 11;      // with this error (EAGAIN)
};

class Threads
{
  public:
    void reset();
    ThreadScript &script();
    int create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
    // Under a shell that is not the simulator's own (the camera's shell on a PC) only threads
    // started from the code `counted` accepts are the camera's; the shell's others (its step
    // watchdog) must not hold simulated time back.
    void count_only(bool (*counted)(const void *caller)) { counted_ = counted; }
    bool counts(const void *caller) const { return counted_ == nullptr || counted_(caller); }

  private:
    std::mutex mutex_;
    ThreadScript script_;
    bool (*counted_)(const void *caller) = nullptr;
};

Threads &threads();

} // namespace sim
