// Live capture on the simulated Wi-Fi interface: pcap_open_live on it replays a capture file
// through the real libpcap (the product's filter is compiled and applied by libpcap itself).
// Packets arrive on the simulated clock at the spacing the file recorded, and a dispatch waits
// at most the read time-out for them; the end of the file is a quiet channel.
#pragma once

#include <map>
#include <mutex>
#include <pcap/pcap.h>
#include <string>
#include <vector>

#include "core/time.h"

namespace sim
{

struct CaptureScript {
    std::string interface = "wlan0";
    std::string file;        // capture to replay; empty: nothing is on the air
    Nanos first_arrival = 0; // the file's first packet arrives this long after the open
    bool stamped = false;    // each packet arrives at the time its header states (a recorded capture)
    std::string open_error;  // non-empty: pcap_open_live fails with this text
    bool fail_compile = false;
    bool fail_setfilter = false;
    std::vector<int> dispatch_errors; // for coming dispatches: a negative result, or 0 = normal
};

class Capture
{
  public:
    void reset();
    CaptureScript &script();
    bool simulated_interface(const char *device);
    bool simulated(pcap_t *handle);

    pcap_t *open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf);
    int compile(pcap_t *handle, struct bpf_program *program, const char *filter, int optimize,
                bpf_u_int32 netmask);
    int setfilter(pcap_t *handle, struct bpf_program *program);
    int dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user);
    void close(pcap_t *handle);

  private:
    struct Replay {
        std::string file;
        int snaplen = 0;
        Nanos timeout = kSecond;
        std::vector<Nanos> arrivals; // of the packets that pass the filter, in order
        size_t delivered = 0;
        size_t delivering = 0; // within the current dispatch
        int64_t epoch = 0;     // wall-clock seconds at simulated time 0, for the packets' stamps
        pcap_handler callback = nullptr;
        u_char *user = nullptr;
    };
    bool scan(pcap_t *handle, Replay &replay, struct bpf_program *program);
    static void deliver(u_char *user, const struct pcap_pkthdr *header, const u_char *bytes);

    std::mutex mutex_;
    CaptureScript script_;
    std::map<pcap_t *, Replay> replays_;
    Nanos opened_at_ = 0;
};

Capture &capture();

} // namespace sim
