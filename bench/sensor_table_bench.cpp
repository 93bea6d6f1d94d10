// Cost of the encoder start-up's own work: finding the sensor in the driver's text (a known name
// first in the table, one last in it, an unknown sensor over the whole 50 bytes) and filling the
// four records handed to the platform.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "sensor_table.h"

namespace
{

void sensor_norm(benchmark::State &state, const std::string &text)
{
    CliVideoNorm norm;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cli_sensor_norm(text.data(), text.size(), &norm));
        benchmark::ClobberMemory();
    }
}

void BM_SensorFirstRow(benchmark::State &state)
{
    sensor_norm(state, "IMX123\n");
}
void BM_SensorLastRow(benchmark::State &state)
{
    sensor_norm(state, "IMX225\n");
}
void BM_SensorUnknownFiftyBytes(benchmark::State &state)
{
    sensor_norm(state, std::string(49, 'x') + "\n");
}

void BM_RecordsFilled(benchmark::State &state)
{
    const CliVideoNorm norm = {1920, 1080, 25};
    CliVideoEncodeParam param;
    CliIspExposure exposure;
    CliIspWhiteBalance balance;
    CliIspEnhance enhance;
    for (auto _ : state) {
        cli_encode_param_fill(&param, &norm);
        cli_isp_exposure_fill(&exposure);
        cli_isp_white_balance_fill(&balance);
        cli_isp_enhance_fill(&enhance);
        benchmark::DoNotOptimize(&param);
        benchmark::DoNotOptimize(&exposure);
        benchmark::DoNotOptimize(&balance);
        benchmark::DoNotOptimize(&enhance);
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(BM_SensorFirstRow);
BENCHMARK(BM_SensorLastRow);
BENCHMARK(BM_SensorUnknownFiftyBytes);
BENCHMARK(BM_RecordsFilled);
BENCHMARK_MAIN();
