// The control board's version text taken apart into the PCB and MCU texts, as the version command
// does once per call: the two bounded scans over the board's 8-byte area.
#include <benchmark/benchmark.h>

#include <cstring>

#include "sib_version.h"

namespace
{

void scan(benchmark::State &state, const char *text)
{
    char area[kSibVersionSize] = {};
    memcpy(area, text, strnlen(text, sizeof area));
    for (auto _ : state) {
        char pcb[kSibPartSize] = {};
        char mcu[kSibPartSize] = {};
        cli_sib_pcb_text(area, sizeof area, pcb, sizeof pcb);
        cli_sib_mcu_text(area, sizeof area, mcu, sizeof mcu);
        benchmark::DoNotOptimize(pcb);
        benchmark::DoNotOptimize(mcu);
    }
}

void BM_SibVersionShort(benchmark::State &state)
{
    scan(state, "1.3A");
}
BENCHMARK(BM_SibVersionShort);

// All eight bytes used, no terminator, both texts cut to their areas.
void BM_SibVersionFullArea(benchmark::State &state)
{
    scan(state, "1.23456A");
}
BENCHMARK(BM_SibVersionFullArea);

} // namespace

BENCHMARK_MAIN();
