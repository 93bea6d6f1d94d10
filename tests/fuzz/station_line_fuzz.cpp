// What a station script line states after its expected status (limits, retries, a time limit)
// and the result lines readings are taken from: any text. The first byte chooses which. Neither
// may crash or read out of bounds; what is accepted must hold together: every limit names a
// measurement the command makes and judges any value without failing, and every reading taken
// is text the command printed.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "checks.h"
#include "readings.h"

namespace
{

// Limits are checked against what CLI_GetGpsSatellite and CLI_GetGpsCoor measure, plus a text.
const std::vector<shell::Quantity> &measured()
{
    static const std::vector<shell::Quantity> quantities = [] {
        std::vector<shell::Quantity> all = shell::readings_of("CLI_GetGpsCoor");
        for (const shell::Quantity &quantity : shell::readings_of("CLI_GetGpsSatellite"))
            all.push_back(quantity);
        all.push_back({"chip", shell::Kind::Text, "", false});
        return all;
    }();
    return quantities;
}

// The commands whose result lines carry readings of every shape: text, real, integer, lists,
// two-line readings.
constexpr const char *kPrinters[] = {"CLI_GetGpsCoor",    "CLI_GetGpsSatellite",     "CLI_GetCpuInfo",
                                     "CLI_GetRfidIDInfo", "CLI_GetZigbeeSensorInfo", "Cli_GetVersion_CPLD",
                                     "CLI_GetVersionAll", "CLI_PhotoSensorVoltage"};

// A pattern is compiled from the script; its size is kept to what a script line holds.
constexpr size_t kLongestChecks = 256;

void limits(std::string_view text)
{
    text = text.substr(0, kLongestChecks);
    shell::StepOptions options;
    if (!shell::parse_checks(text, measured(), options).empty())
        return;
    if (options.retries < 0 || options.retries > 100 || (options.timeout_s && !(*options.timeout_s > 0)))
        abort();
    for (const shell::Limit &limit : options.limits) {
        bool known = false;
        for (const shell::Quantity &quantity : measured())
            known = known || quantity.name == limit.name;
        if (!known)
            abort();
        for (const shell::Quantity &quantity : measured()) {
            if (quantity.name != limit.name)
                continue;
            for (const char *value : {"10", "-44.5", "HI3516A", ""}) {
                shell::Measurement measurement{quantity};
                shell::set_value(measurement, value);
                std::string why;
                if (!shell::within(limit, measurement, why) && why.empty())
                    abort(); // a failure always says why
            }
        }
    }
}

void readings(std::string_view out)
{
    for (const char *command : kPrinters)
        for (const shell::Measurement &reading : shell::take_readings(command, out)) {
            if (!reading.present)
                continue;
            for (const std::string &item :
                 reading.quantity.list ? reading.items : std::vector<std::string>{reading.text})
                if (out.find(item) == std::string_view::npos)
                    abort(); // a reading is always text the command printed
        }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (data[0] & 1)
        readings(text);
    else
        limits(text);
    return 0;
}
