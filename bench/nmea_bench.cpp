// Cost of turning a located NMEA sentence into what the operator sees: CLI_InfoAnalyse on RMC and
// GGA sentences from a real receiver (mt3339) in position mode (fields split, two coordinates
// rewritten, the INFO line and the standard-output echo) and in number mode (the satellites
// field), a sentence without a fix, and CLI_StringConvert alone. Everything goes through the built
// library; the print sink discards, and the echo goes to /dev/null while a benchmark runs.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "clidriver/clidriver.h"

extern "C" int Cli_Common_Print(const char *format, ...)
{
    benchmark::DoNotOptimize(format);
    return 0;
}

namespace
{

const std::string kRmc = "GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73";
const std::string kGga = "GPGGA,202640.000,4404.1306,N,12118.8515,W,2,10,0.98,1127.7,M,-19.6,M,0000,0000*6C";
const std::string kRmcNoFix = "GPRMC,,V,,,,,,,,,,N*53";

// Standard output on /dev/null for the life of one benchmark: the echo is formatted and buffered
// as on the camera, but does not mix with the benchmark's table.
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

void analyse(benchmark::State &state, const std::string &sentence, uint32_t field, bool number)
{
    const QuietStdout quiet;
    std::string text = sentence;
    uint32_t count = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CLI_InfoAnalyse(text.data(), field, number ? &count : nullptr));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(sentence.size()));
}

void BM_InfoAnalyseRmcPosition(benchmark::State &state)
{
    analyse(state, kRmc, 3, false);
}
BENCHMARK(BM_InfoAnalyseRmcPosition);

void BM_InfoAnalyseGgaPosition(benchmark::State &state)
{
    analyse(state, kGga, 2, false);
}
BENCHMARK(BM_InfoAnalyseGgaPosition);

void BM_InfoAnalyseGgaSatellites(benchmark::State &state)
{
    analyse(state, kGga, 7, true);
}
BENCHMARK(BM_InfoAnalyseGgaSatellites);

void BM_InfoAnalyseRmcWithoutFix(benchmark::State &state)
{
    analyse(state, kRmcNoFix, 3, false);
}
BENCHMARK(BM_InfoAnalyseRmcWithoutFix);

void BM_StringConvertLongitude(benchmark::State &state)
{
    for (auto _ : state) {
        char shown[16] = {};
        benchmark::DoNotOptimize(CLI_StringConvert(shown, "12118.8515"));
        benchmark::DoNotOptimize(shown);
    }
}
BENCHMARK(BM_StringConvertLongitude);

} // namespace

BENCHMARK_MAIN();
