// Cost of one diagnostic line as a command emits it: clock read, local-time breakdown, file-field
// lookup and the call into the platform's print sink. The sink is defined here, so the figures
// separate the library's share (a sink that discards) from a console that formats the text.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>

#include "clidriver/clidriver.h"

namespace
{
enum class Sink { Discard, Format };
Sink g_sink = Sink::Discard;
char g_text[512];
} // namespace

extern "C" int Cli_Common_Print(const char *format, ...)
{
    if (g_sink == Sink::Discard) {
        benchmark::DoNotOptimize(format);
        return 0;
    }
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(g_text, sizeof g_text, format, args);
    va_end(args);
    benchmark::DoNotOptimize(g_text);
    return n;
}

// A default-only command: its whole body is one INFO line.
static void BM_DiagnosticLineDiscardingSink(benchmark::State &state)
{
    g_sink = Sink::Discard;
    for (auto _ : state)
        benchmark::DoNotOptimize(CLI_GetRawData());
}
BENCHMARK(BM_DiagnosticLineDiscardingSink);

static void BM_DiagnosticLineFormattingSink(benchmark::State &state)
{
    g_sink = Sink::Format;
    for (auto _ : state)
        benchmark::DoNotOptimize(CLI_GetRawData());
}
BENCHMARK(BM_DiagnosticLineFormattingSink);

BENCHMARK_MAIN();
