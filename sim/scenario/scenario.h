// A simulated camera described as data: product type, platform answers, character devices,
// files, command outputs, serial peripherals, the Wi-Fi air. Tests build one in code or load one
// from sim/scenarios/*.toml; sim::start applies it.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "core/replay.h"
#include "core/time.h"
#include "devices/capture.h"
#include "devices/chardev.h"
#include "devices/files.h"
#include "devices/serial.h"
#include "devices/wireless.h"
#include "platform/board_model.h"
#include "platform/platform.h"

namespace sim
{

// What the camera's platform has done before its command shell starts. A shell on the simulated
// camera does the same before the first command (unless asked to leave the library bare).
struct Startup {
    bool product_record = true;                // CLI_GetProductAllVersion: the product type is stored
    bool serial_ports = true;                  // CLI_RsInit on the shell's port list: the link's line, GPS
    std::optional<uint32_t> hub;               // the hub declared on the link, at this line speed
    std::map<uint32_t, uint32_t> link_devices; // link type -> speed: devices declared present
};

struct Scenario {
    std::string source; // the file it was read from, for messages
    std::string name;   // [camera] name: what this camera is, for banners and reports
    uint32_t product_type = 0;
    int64_t boot_epoch = kDefaultBootEpochSeconds;
    std::map<std::string, OpScript> platform;
    std::optional<CliAlarmCount> alarm_count;
    ControlBoardScript control_board; // the board type and version text the control board reports
    std::map<std::string, DeviceScript> devices;
    std::map<std::string, FileScript> files;
    std::map<std::string, CommandScript> commands;
    std::map<std::string, PortScript> ports;
    WirelessScript wireless;
    CaptureScript capture;
    ThreadScript threads;
    Startup startup;
    ReplayScript replay; // [recording]: a camera recorded by the recording layer
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
