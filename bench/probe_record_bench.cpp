// Cost of the Wi-Fi sniffer's work per captured frame and per receive: the record extraction
// (src/probe_record.cpp, compiled in) on a probe request, on frames it drops, and filling a whole
// record area; ulink_recv through the built library on a batch of three frames delivered by this
// benchmark's own pcap_dispatch (the library's call to libpcap comes here first); and
// CLI_WifiDataProc matching the last of 17 records. The print sink discards; the echo goes to
// /dev/null while a benchmark runs.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#include "clidriver/clidriver.h"
#include "probe_frame.h"
#include "probe_record.h"

extern "C" int Cli_Common_Print(const char *format, ...)
{
    benchmark::DoNotOptimize(format);
    return 0;
}

namespace
{

using clitest::Bytes;
using clitest::FrameShape;

// The driver's frame as the 128-byte snap length keeps it.
Bytes captured(const FrameShape &shape)
{
    Bytes frame = clitest::make_frame(shape);
    if (frame.size() > 128)
        frame.resize(128);
    return frame;
}

FrameShape probe_shape()
{
    FrameShape shape;
    shape.on_air = 140; // a probe request with a few information elements
    return shape;
}

// Frames this benchmark's pcap_dispatch hands to the library, each with its length on the air.
std::vector<std::pair<Bytes, uint32_t>> g_batch;

class QuietStdout
{
  public:
    QuietStdout() : saved_(stdout), null_(fopen("/dev/null", "w"))
    {
        if (null_ != nullptr)
            stdout = null_;
    }
    ~QuietStdout()
    {
        stdout = saved_;
        if (null_ != nullptr)
            fclose(null_);
    }

  private:
    FILE *saved_;
    FILE *null_;
};

void take(benchmark::State &state, const FrameShape &shape)
{
    const Bytes frame = captured(shape);
    probe_record record;
    uint32_t subtype = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cli_probe_take(frame.data(), static_cast<uint32_t>(frame.size()),
                                                shape.on_air, &record, &subtype));
        benchmark::ClobberMemory();
    }
}

void BM_ProbeTakeProbeRequest(benchmark::State &state)
{
    take(state, probe_shape());
}
BENCHMARK(BM_ProbeTakeProbeRequest);

void BM_ProbeTakeBeacon(benchmark::State &state)
{
    FrameShape shape = probe_shape();
    shape.fc = clitest::kFcBeacon;
    take(state, shape);
}
BENCHMARK(BM_ProbeTakeBeacon);

void BM_ProbeTakeOutOfBounds(benchmark::State &state)
{
    FrameShape shape = probe_shape();
    shape.on_air = 400;
    take(state, shape);
}
BENCHMARK(BM_ProbeTakeOutOfBounds);

void BM_ProbeCollectWholeArea(benchmark::State &state)
{
    const FrameShape shape = probe_shape();
    const Bytes frame = captured(shape);
    ulink_collector collector;
    uint32_t subtype = 0;
    for (auto _ : state) {
        cli_probe_collector_start(&collector, nullptr, 17);
        for (int i = 0; i < 17; ++i)
            cli_probe_collect(&collector, frame.data(), static_cast<uint32_t>(frame.size()), shape.on_air,
                              &subtype);
        benchmark::DoNotOptimize(collector.ulByteCount);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ProbeCollectWholeArea);

void BM_UlinkRecvThreeFrames(benchmark::State &state)
{
    const QuietStdout quiet;
    FrameShape beacon = probe_shape();
    beacon.fc = clitest::kFcBeacon;
    g_batch = {{captured(probe_shape()), 140}, {captured(beacon), 140}, {captured(probe_shape()), 140}};
    int handle = 0;
    ulink_capture capture{};
    capture.pstHandle = reinterpret_cast<pcap_t *>(&handle);
    uint8_t out[256];
    uint32_t length = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ulink_recv(3, out, &length, &capture));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_UlinkRecvThreeFrames);

void BM_WifiDataProcLastOfSeventeen(benchmark::State &state)
{
    const QuietStdout quiet;
    Bytes records;
    for (int i = 0; i < 17; ++i) {
        const Bytes record = {0x02, 0x11, 0x22, 0x33, 0x44, static_cast<uint8_t>(i), 0xC3, 0, 0, 0,
                              0,    0,    0,    0,    0};
        records.insert(records.end(), record.begin(), record.end());
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(CLI_WifiDataProc(255, records.data(), "02:11:22:33:44:10"));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_WifiDataProcLastOfSeventeen);

} // namespace

// libpcap's dispatch for the library while the benchmark runs: the batch, as captured.
extern "C" int pcap_dispatch(pcap_t *, int count, pcap_handler callback, u_char *user)
{
    int delivered = 0;
    for (const auto &[frame, on_air] : g_batch) {
        if (count > 0 && delivered == count)
            break;
        pcap_pkthdr header{};
        header.caplen = static_cast<bpf_u_int32>(frame.size());
        header.len = on_air;
        callback(user, &header, frame.data());
        ++delivered;
    }
    return delivered;
}

BENCHMARK_MAIN();
