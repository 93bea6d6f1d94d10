#include "devices/capture.h"

#include <cstring>

#include "core/clock.h"
#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"
#include "devices/files.h"

namespace sim
{

Capture &capture()
{
    static Capture *instance = new Capture;
    return *instance;
}

void Capture::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    script_ = CaptureScript{};
    replays_.clear();
}

CaptureScript &Capture::script()
{
    return script_;
}

bool Capture::simulated_interface(const char *device)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return device != nullptr && script_.interface == device;
}

bool Capture::simulated(pcap_t *handle)
{
    std::lock_guard<std::mutex> hold(mutex_);
    return replays_.count(handle) != 0;
}

namespace
{

void note(const std::string &name, const std::string &text, int64_t result)
{
    Entry entry;
    entry.kind = Kind::Capture;
    entry.name = name;
    entry.text = text;
    entry.result = result;
    journal().add(entry);
}

// A capture file with a radio-tap link and no packets: what an empty channel replays as.
std::string empty_capture()
{
    std::string header(24, '\0');
    const uint32_t magic = 0xA1B2C3D4, snaplen = 65535, linktype = DLT_IEEE802_11_RADIO;
    const uint16_t major = 2, minor = 4;
    memcpy(&header[0], &magic, 4);
    memcpy(&header[4], &major, 2);
    memcpy(&header[6], &minor, 2);
    memcpy(&header[16], &snaplen, 4);
    memcpy(&header[20], &linktype, 4);
    return header;
}

// Opens the capture file (or an empty one) as a libpcap offline handle.
pcap_t *open_file(const std::string &file, char *errbuf)
{
    if (!file.empty())
        return pcap_open_offline(file.c_str(), errbuf);
    const int fd = memory_file("empty-capture", empty_capture());
    FILE *stream = fd >= 0 ? fdopen(fd, "rb") : nullptr;
    if (stream == nullptr) {
        snprintf(errbuf, PCAP_ERRBUF_SIZE, "cannot make an empty capture");
        return nullptr;
    }
    return pcap_fopen_offline(stream, errbuf);
}

} // namespace

pcap_t *Capture::open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf)
{
    CaptureScript script;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        script = script_;
    }
    const std::string call = "pcap_open_live(" + std::string(device) + ", " + std::to_string(snaplen) + ", " +
                             std::to_string(promisc) + ", " + std::to_string(to_ms) + ")";
    if (script.open_error.empty() &&
        fault_point().fails(Fault::Capture, [&] { return "pcap_open_live " + std::string(device); }))
        script.open_error = std::string(device) + ": That device is not up";
    if (!script.open_error.empty()) {
        if (errbuf != nullptr)
            snprintf(errbuf, PCAP_ERRBUF_SIZE, "%s", script.open_error.c_str());
        note("pcap_open_live", call + " -> NULL: " + script.open_error, -1);
        return nullptr;
    }
    char local[PCAP_ERRBUF_SIZE] = {};
    pcap_t *handle = open_file(script.file, errbuf != nullptr ? errbuf : local);
    if (handle == nullptr) {
        note("pcap_open_live", call + " -> NULL: " + std::string(errbuf != nullptr ? errbuf : local), -1);
        return nullptr;
    }
    Replay replay;
    replay.file = script.file;
    replay.snaplen = snaplen;
    replay.timeout = static_cast<Nanos>(to_ms) * kMillisecond;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        opened_at_ = clock().now() + script.first_arrival;
        scan(handle, replay, nullptr);
        replays_[handle] = replay;
    }
    note("pcap_open_live", call + " -> replaying " + (script.file.empty() ? "an empty channel" : script.file),
         0);
    return handle;
}

// Times of the packets that `program` passes (all packets without one), from a second reading of
// the same file, so the replay knows when each will arrive before libpcap delivers it.
bool Capture::scan(pcap_t *handle, Replay &replay, struct bpf_program *program)
{
    (void)handle;
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t *reader = open_file(replay.file, errbuf);
    if (reader == nullptr)
        return false;
    if (program != nullptr && real::pcap_setfilter(reader, program) != 0) {
        real::pcap_close(reader);
        return false;
    }
    replay.arrivals.clear();
    pcap_t *first = open_file(replay.file, errbuf);
    struct pcap_pkthdr *header = nullptr;
    const u_char *data = nullptr;
    Nanos origin = 0;
    if (first != nullptr && pcap_next_ex(first, &header, &data) == 1)
        origin =
            static_cast<Nanos>(header->ts.tv_sec) * kSecond + static_cast<Nanos>(header->ts.tv_usec) * 1000;
    if (first != nullptr)
        real::pcap_close(first);
    while (pcap_next_ex(reader, &header, &data) == 1) {
        const Nanos stamp =
            static_cast<Nanos>(header->ts.tv_sec) * kSecond + static_cast<Nanos>(header->ts.tv_usec) * 1000;
        if (script_.stamped) // a recording's packets arrived when their headers say, on the camera's clock
            replay.arrivals.push_back(std::max<Nanos>(0, stamp - clock().boot_epoch() * kSecond));
        else
            replay.arrivals.push_back(opened_at_ + std::max<Nanos>(0, stamp - origin));
    }
    real::pcap_close(reader);
    return true;
}

int Capture::compile(pcap_t *handle, struct bpf_program *program, const char *filter, int optimize,
                     bpf_u_int32 netmask)
{
    bool fail = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        fail = script_.fail_compile;
    }
    fail = fail || fault_point().fails(Fault::Capture, [] { return std::string("pcap_compile"); });
    // A failure is a genuine one from libpcap, so pcap_geterr has its real text.
    const std::string expression = fail ? std::string(filter) + " and )" : filter;
    const int result = real::pcap_compile(handle, program, expression.c_str(), optimize, netmask);
    note("pcap_compile", "pcap_compile(\"" + std::string(filter) + "\") -> " + std::to_string(result),
         result);
    return result;
}

int Capture::setfilter(pcap_t *handle, struct bpf_program *program)
{
    bool fail = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        fail = script_.fail_setfilter;
    }
    fail = fail || fault_point().fails(Fault::Capture, [] { return std::string("pcap_setfilter"); });
    int result = -1;
    if (!fail) {
        result = real::pcap_setfilter(handle, program);
        if (result == 0) {
            std::lock_guard<std::mutex> hold(mutex_);
            scan(handle, replays_.at(handle), program);
        }
    }
    note("pcap_setfilter", "pcap_setfilter -> " + std::to_string(result), result);
    return result;
}

void Capture::deliver(u_char *user, const struct pcap_pkthdr *header, const u_char *bytes)
{
    auto *replay = reinterpret_cast<Replay *>(user);
    struct pcap_pkthdr seen = *header;
    // A live capture stamps each frame with the moment it arrived.
    const size_t index = replay->delivered + replay->delivering++;
    if (index < replay->arrivals.size()) {
        const Nanos arrival = replay->arrivals[index];
        seen.ts.tv_sec = static_cast<time_t>(replay->epoch + arrival / kSecond);
        seen.ts.tv_usec = static_cast<suseconds_t>((arrival % kSecond) / 1000);
    }
    // A live capture keeps at most the snapshot length of each frame; the wire length stays.
    if (replay->snaplen > 0 && seen.caplen > static_cast<bpf_u_int32>(replay->snaplen))
        seen.caplen = static_cast<bpf_u_int32>(replay->snaplen);
    replay->callback(replay->user, &seen, bytes);
}

int Capture::dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user)
{
    Replay *replay = nullptr;
    int scripted = 0;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        replay = &replays_.at(handle);
        if (!script_.dispatch_errors.empty()) {
            scripted = script_.dispatch_errors.front();
            script_.dispatch_errors.erase(script_.dispatch_errors.begin());
        }
    }
    if (scripted >= 0 && fault_point().fails(Fault::Capture, [] { return std::string("pcap_dispatch"); }))
        scripted = PCAP_ERROR; // the interface went away under the capture
    const Nanos start = clock().now();
    const Nanos deadline = start + replay->timeout;
    if (scripted < 0) {
        note("pcap_dispatch", "pcap_dispatch -> " + std::to_string(scripted), scripted);
        return scripted;
    }
    // The packets that arrive before the read time-out, up to `count`; the call returns when the
    // last of `count` arrives, or at the time-out with fewer.
    auto arrived_by = [&](Nanos moment) {
        size_t n = 0;
        while (replay->delivered + n < replay->arrivals.size() &&
               replay->arrivals[replay->delivered + n] <= moment &&
               (count <= 0 || n < static_cast<size_t>(count)))
            ++n;
        return n;
    };
    size_t due = arrived_by(deadline);
    Nanos until = deadline;
    if (due > 0 && count > 0 && due == static_cast<size_t>(count))
        until = replay->arrivals[replay->delivered + due - 1];
    if (clock().wait(until) == WaitEnd::Interrupted)
        due = arrived_by(clock().now());
    int result = 0;
    if (due > 0) {
        replay->callback = callback;
        replay->user = user;
        replay->delivering = 0;
        replay->epoch = clock().boot_epoch();
        result =
            real::pcap_dispatch(handle, static_cast<int>(due), deliver, reinterpret_cast<u_char *>(replay));
        if (result > 0)
            replay->delivered += static_cast<size_t>(result);
    }
    note("pcap_dispatch", "pcap_dispatch(" + std::to_string(count) + ") -> " + std::to_string(result),
         result);
    return result;
}

void Capture::close(pcap_t *handle)
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        replays_.erase(handle);
    }
    real::pcap_close(handle);
    note("pcap_close", "pcap_close", 0);
}

} // namespace sim
