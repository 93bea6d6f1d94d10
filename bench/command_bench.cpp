// What a whole command costs on a PC: station commands called through the built library on the
// healthy simulated camera (sim/scenarios/default.toml), as the shell calls them. Simulated waits
// cost no wall time, so the wall time per call is the library's own work plus the simulated
// camera's (interposed calls, the journal, and for the GPS queries the receiver thread and the
// clock hand-overs that pace it). The counter `simulated_s` is the simulated time one call spent.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/journal.h"
#include "core/sim.h"
#include "scenario/scenario.h"

namespace
{

// The default camera, freshly booted, with the shell's start-up done (serial port list and link
// table), standard output on /dev/null so echoes do not mix with the benchmark's table.
class Station
{
  public:
    Station() : saved_(stdout), null_(fopen("/dev/null", "w"))
    {
        sim::start(sim::load_scenario(CLIDRIVER_SCENARIO_DIR "/default.toml"));
        if (null_ != nullptr)
            stdout = null_;
        CliSerialPort ports[3] = {};
        ok_ = CLI_RsInit(ports) == 0;
    }
    ~Station()
    {
        stdout = saved_;
        if (null_ != nullptr)
            fclose(null_);
    }
    Station(const Station &) = delete;
    Station &operator=(const Station &) = delete;
    bool ok() const { return ok_; }

  private:
    FILE *saved_;
    FILE *null_;
    bool ok_ = false;
};

template <typename Call> void run_command(benchmark::State &state, Call call)
{
    Station station;
    if (!station.ok()) {
        state.SkipWithError("CLI_RsInit failed on the default camera");
        return;
    }
    const sim::Nanos start = sim::clock().now();
    for (auto _ : state) {
        if (call() != 0) {
            state.SkipWithError("the command failed on the default camera");
            break;
        }
        sim::journal().clear(); // as the shell does after every command
    }
    const double simulated = static_cast<double>(sim::clock().now() - start) / 1e9;
    state.counters["simulated_s"] = benchmark::Counter(simulated, benchmark::Counter::kAvgIterations);
}

void BM_GetVersionAll(benchmark::State &state)
{
    run_command(state, [] { return CLI_GetVersionAll(); });
}
void BM_GetVersionCpld(benchmark::State &state)
{
    run_command(state, [] { return Cli_GetVersion_CPLD(); });
}
void BM_ChipCheckEthernet(benchmark::State &state)
{
    run_command(state, [] { return CLI_ChipCheckEthernet(); });
}
void BM_ChipCheckUsbDevice(benchmark::State &state)
{
    run_command(state, [] { return CLI_ChipCheckUsbDevice(0); });
}
void BM_GetCpuInfo(benchmark::State &state)
{
    run_command(state, [] { return CLI_GetCpuInfo(); });
}
void BM_DefaultCommand(benchmark::State &state)
{
    run_command(state, [] { return CLI_GetRawData(); });
}
void BM_GetGpsCoor(benchmark::State &state)
{
    run_command(state, [] { return CLI_GetGpsCoor(0); });
}
void BM_GetGpsSatellite(benchmark::State &state)
{
    run_command(state, [] { return CLI_GetGpsSatellite(0); });
}
// Lights and sensors: the analogue light sensor (one ioctl) and the serial one on the console
// UART (open, rate, one query and its reply, close).
void BM_PhotoSensorVoltage(benchmark::State &state)
{
    run_command(state, [] { return CLI_PhotoSensorVoltage(); });
}
void BM_232PhotoSensorVoltage(benchmark::State &state)
{
    run_command(state, [] { return CLI_232PhotoSensorVoltage(); });
}

} // namespace

BENCHMARK(BM_DefaultCommand);
BENCHMARK(BM_GetVersionAll);
BENCHMARK(BM_GetVersionCpld);
BENCHMARK(BM_ChipCheckEthernet);
BENCHMARK(BM_ChipCheckUsbDevice);
BENCHMARK(BM_GetCpuInfo);
BENCHMARK(BM_GetGpsCoor)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_GetGpsSatellite)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_PhotoSensorVoltage);
BENCHMARK(BM_232PhotoSensorVoltage);

BENCHMARK_MAIN();
