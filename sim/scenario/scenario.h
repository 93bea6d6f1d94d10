// A simulated camera described as data: product type, platform answers, character devices,
// files, command outputs, serial peripherals, the Wi-Fi air. Tests build one in code or load one
// from sim/scenarios/*.toml; sim::start applies it.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "core/time.h"
#include "devices/capture.h"
#include "devices/chardev.h"
#include "devices/files.h"
#include "devices/serial.h"
#include "devices/wireless.h"
#include "platform/platform.h"

namespace sim
{

struct Scenario {
    std::string source; // the file it was read from, for messages
    uint32_t product_type = 0;
    int64_t boot_epoch = kDefaultBootEpochSeconds;
    std::map<std::string, OpScript> platform;
    std::optional<CliAlarmCount> alarm_count;
    std::map<std::string, DeviceScript> devices;
    std::map<std::string, FileScript> files;
    std::map<std::string, CommandScript> commands;
    std::map<std::string, PortScript> ports;
    WirelessScript wireless;
    CaptureScript capture;
    ThreadScript threads;
};

// A scenario file that cannot be used; what() names the file, line and key.
class ScenarioError : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

Scenario load_scenario(const std::string &path);
Scenario parse_scenario(const std::string &text, const std::string &source_name, const std::string &base_dir);

// The repository's healthy camera, sim/scenarios/default.toml.
std::string default_scenario_path();

} // namespace sim
