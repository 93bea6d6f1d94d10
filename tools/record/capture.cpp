// The Wi-Fi capture as the library sees it: every packet libpcap delivers to the library's
// callback (with its header time, the arrival the replay reproduces), a live capture that would
// not open (its error text) and each dispatch that failed.
#include <cstring>
#include <pcap/pcap.h>
#include <set>

#include "recorder.h"

using namespace record;

namespace
{

std::set<pcap_t *> &live_handles()
{
    static auto *instance = new std::set<pcap_t *>;
    return *instance;
}

// What the library's callback and its own argument were, for the wrapper in between.
struct Delivery {
    pcap_handler callback;
    u_char *user;
};

void deliver(u_char *argument, const struct pcap_pkthdr *head, const u_char *bytes)
{
    const auto *delivery = reinterpret_cast<const Delivery *>(argument);
    if (head != nullptr) {
        Packet packet;
        packet.seconds = head->ts.tv_sec;
        packet.microseconds = head->ts.tv_usec;
        packet.length = head->len;
        if (bytes != nullptr)
            packet.data.assign(bytes, bytes + head->caplen);
        std::lock_guard<std::mutex> hold(state().mutex);
        state().recording.wifi.packets.push_back(std::move(packet));
    }
    delivery->callback(delivery->user, head, bytes);
}

} // namespace

extern "C" {

pcap_t *pcap_open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf)
{
    using OpenLive = pcap_t *(*)(const char *, int, int, int, char *);
    static const auto next_open = next<OpenLive>("pcap_open_live");
    if (!recorded(__builtin_return_address(0)))
        return next_open(device, snaplen, promisc, to_ms, errbuf);
    pcap_t *handle = next_open(device, snaplen, promisc, to_ms, errbuf);
    KeepErrno keep;
    std::lock_guard<std::mutex> hold(state().mutex);
    Capture &wifi = state().recording.wifi;
    if (device != nullptr && wifi.interface.empty())
        wifi.interface = device;
    if (handle == nullptr) {
        if (!wifi.open_error)
            wifi.open_error = errbuf != nullptr ? std::string(errbuf, strnlen(errbuf, PCAP_ERRBUF_SIZE)) : "";
        return nullptr;
    }
    if (!wifi.opened) {
        wifi.opened = true;
        wifi.link_type = pcap_datalink(handle);
        wifi.snaplen = pcap_snapshot(handle);
    }
    live_handles().insert(handle);
    return handle;
}

int pcap_dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user)
{
    using Dispatch = int (*)(pcap_t *, int, pcap_handler, u_char *);
    static const auto next_dispatch = next<Dispatch>("pcap_dispatch");
    bool live = false;
    if (recorded(__builtin_return_address(0)) && callback != nullptr) {
        std::lock_guard<std::mutex> hold(state().mutex);
        live = live_handles().count(handle) != 0;
    }
    if (!live)
        return next_dispatch(handle, count, callback, user);
    Delivery delivery = {callback, user};
    const int result = next_dispatch(handle, count, deliver, reinterpret_cast<u_char *>(&delivery));
    KeepErrno keep;
    std::lock_guard<std::mutex> hold(state().mutex);
    Capture &wifi = state().recording.wifi;
    wifi.dispatch_results.push_back(result < 0 ? result : 0);
    if (result < 0)
        wifi.any_dispatch_failed = true;
    return result;
}

void pcap_close(pcap_t *handle)
{
    static const auto next_close = next<void (*)(pcap_t *)>("pcap_close");
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        live_handles().erase(handle);
    }
    next_close(handle);
}

} // extern "C"
