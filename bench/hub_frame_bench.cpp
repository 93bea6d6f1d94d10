// Cost of the peripheral link's framing: building a hub frame into its 1024-byte buffer, checking
// a received one, the checksum over a whole frame, and one frame received by CLI_ComRecv in hub
// mode from a pipe (the write into the pipe included), with a print sink that discards.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "hub_frame.h"

extern "C" int Cli_Common_Print(const char *format, ...)
{
    benchmark::DoNotOptimize(format);
    return 0;
}

namespace
{

std::vector<uint8_t> payload_of(size_t size)
{
    std::vector<uint8_t> payload(size);
    for (size_t i = 0; i < size; ++i)
        payload[i] = static_cast<uint8_t>(i % 64); // a sum that fits 16 bits, so checks pass
    return payload;
}

void BM_HubFrameBuild(benchmark::State &state)
{
    const std::vector<uint8_t> payload = payload_of(static_cast<size_t>(state.range(0)));
    uint8_t frame[kHubBufferSize];
    for (auto _ : state) {
        benchmark::DoNotOptimize(cli_hub_frame_build(frame, sizeof frame, 0x5B, kHubCmdPass, payload.data(),
                                                     static_cast<uint32_t>(payload.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(payload.size() + 9));
}
BENCHMARK(BM_HubFrameBuild)->Arg(0)->Arg(13)->Arg(64)->Arg(1015);

void BM_HubFrameCheck(benchmark::State &state)
{
    const std::vector<uint8_t> payload = payload_of(static_cast<size_t>(state.range(0)));
    uint8_t frame[kHubBufferSize];
    const uint32_t size = cli_hub_frame_build(frame, sizeof frame, 0x5B, kHubCmdPass, payload.data(),
                                              static_cast<uint32_t>(payload.size()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(frame);
        benchmark::DoNotOptimize(cli_hub_frame_check(frame, size, 0x5B));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}
BENCHMARK(BM_HubFrameCheck)->Arg(0)->Arg(13)->Arg(64)->Arg(1015);

void BM_GetCheckSum(benchmark::State &state)
{
    const std::vector<uint8_t> bytes = payload_of(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        benchmark::DoNotOptimize(CLI_GetCheckSum(bytes.data(), static_cast<uint32_t>(bytes.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_GetCheckSum)->Arg(4)->Arg(1019);

// One frame written into a pipe and received by CLI_ComRecv: three reads (head, length, rest),
// each after a select, and the two INFO lines.
void BM_ComRecvHubFrameFromPipe(benchmark::State &state)
{
    gastComCap.pcDevPath = "/dev/ttyC0";
    gastComCap.astDev[COM_TYPE_HUB] = {1, 115200};
    const std::vector<uint8_t> payload = payload_of(static_cast<size_t>(state.range(0)));
    uint8_t frame[kHubBufferSize];
    const uint32_t size = cli_hub_frame_build(frame, sizeof frame, 0x5B, kHubCmdPass, payload.data(),
                                              static_cast<uint32_t>(payload.size()));
    int ends[2];
    if (pipe(ends) != 0) {
        state.SkipWithError("no pipe");
        return;
    }
    uint8_t out[1024];
    for (auto _ : state) {
        if (write(ends[1], frame, size) != static_cast<ssize_t>(size)) {
            state.SkipWithError("short write");
            break;
        }
        uint32_t length = 0;
        if (CLI_ComRecv(ends[0], COM_TYPE_GPS, out, &length) != 0 || length != payload.size()) {
            state.SkipWithError("frame not received");
            break;
        }
        benchmark::DoNotOptimize(out);
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(BM_ComRecvHubFrameFromPipe)->Arg(13)->Arg(1015);

} // namespace

BENCHMARK_MAIN();
