// Cost of the RFID search's work per report: the frame's kind and ID text (the frame logic
// compiled straight in), and CLI_RfidDataDeal through the built library against tables of
// different fill (the atomic byte-wise search of up to 100 slots), with a print sink that
// discards; and emptying the table, as a start and a stop do.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "clidriver/clidriver.h"
#include "rfid_frame.h"
#include "rfid_table.h"

extern "C" int Cli_Common_Print(const char *format, ...)
{
    benchmark::DoNotOptimize(format);
    return 0;
}

namespace
{

// A tag report from the reader, ID 0x10000000 + n.
void report_of(uint8_t *frame, int n)
{
    const uint8_t bytes[12] = {0xFF, 0x0C, 0x00, 0x0C, 0xF1, 0x01, 0x10, 0x00, 0x00, static_cast<uint8_t>(n),
                               0x00, 0x00};
    memcpy(frame, bytes, sizeof bytes);
}

// A table holding `count` IDs 0x10000000 + n.
void fill(CliRfidTable &table, int count)
{
    memset(&table, 0, sizeof table);
    for (int n = 0; n < count; ++n) {
        char id[16];
        snprintf(id, sizeof id, "%08X", 0x10000000 + n);
        cli_rfid_table_store(&table, id);
    }
}

void BM_RfidTagId(benchmark::State &state)
{
    uint8_t frame[12];
    report_of(frame, 7);
    char id[kRfidIdTextSize];
    for (auto _ : state) {
        benchmark::DoNotOptimize(frame);
        benchmark::DoNotOptimize(cli_rfid_tag_id(frame, sizeof frame, id, sizeof id));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_RfidTagId);

// The same tag again (the reader repeats itself): found in the slot given by the argument.
void BM_RfidDataDealKnownTag(benchmark::State &state)
{
    CliRfidTable table;
    fill(table, 100);
    uint8_t frame[12];
    report_of(frame, static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(CLI_RfidDataDeal(frame, &table));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_RfidDataDealKnownTag)->Arg(0)->Arg(49)->Arg(99);

// A new tag against a full table: every slot compared, then refused (the costliest report).
void BM_RfidDataDealFullTable(benchmark::State &state)
{
    CliRfidTable table;
    fill(table, 100);
    uint8_t frame[12];
    report_of(frame, 200);
    for (auto _ : state) {
        benchmark::DoNotOptimize(CLI_RfidDataDeal(frame, &table));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_RfidDataDealFullTable);

void BM_RfidFrameThatIsNoReport(benchmark::State &state)
{
    CliRfidTable table;
    fill(table, 0);
    const uint8_t frame[10] = {0xFF, 0x0C, 0x00, 0x08, 0x10, 0x00, 0x75, 0x46, 0x00, 0x00};
    for (auto _ : state)
        benchmark::DoNotOptimize(CLI_RfidDataDeal(frame, &table));
}
BENCHMARK(BM_RfidFrameThatIsNoReport);

void BM_RfidTableClear(benchmark::State &state)
{
    CliRfidTable table;
    fill(table, 100);
    for (auto _ : state) {
        cli_rfid_table_clear(&table);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_RfidTableClear);

} // namespace

BENCHMARK_MAIN();
