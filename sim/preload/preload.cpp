// The simulated camera as a library to preload under the camera's own shell on a PC:
//
//     CLIDRIVER_SIM_SCENARIO=sim/scenarios/default.toml LD_PRELOAD=libclidriver-sim.so clidriver-camera ...
//
// The camera's shell links nothing simulated; preloaded, this library's libc, libpcap and
// platform entry points stand in for the camera's hardware and platform libraries, so the shell
// binary that ships runs unchanged on a PC. That is how a station run is recorded "on a camera"
// without one (the recording layer goes in front of this library). Without the variable it
// passes every call through.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <time.h>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/real.h"
#include "core/sim.h"
#include "devices/wireless.h"
#include "library_caller.h"
#include "platform/platform.h"
#include "platform/startup.h"
#include "scenario/scenario.h"

namespace
{

std::string g_platform_text;

// TOML text of what the simulated platform is and did before the shell: what a recording made
// on it states as its camera's start-up.
std::string describe(const sim::Scenario &scenario)
{
    std::string text = "[camera]\nname = \"";
    for (const char c : scenario.name)
        text += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    text += "\"\n\n[startup]\n";
    text += std::string("product_record = ") + (scenario.startup.product_record ? "true" : "false") + "\n";
    text += std::string("serial_ports = ") + (scenario.startup.serial_ports ? "true" : "false") + "\n";
    if (scenario.startup.hub)
        text += "hub = " + std::to_string(*scenario.startup.hub) + "\n";
    for (const auto &[type, rate] : scenario.startup.link_devices)
        text += std::string(type == COM_TYPE_ZIGBEE ? "zigbee"
                            : type == COM_TYPE_GPS  ? "gps"
                                                    : "rfid") +
                " = " + std::to_string(rate) + "\n";
    return text;
}

__attribute__((constructor)) void start_simulated_camera()
{
    const char *path = getenv("CLIDRIVER_SIM_SCENARIO");
    if (path == nullptr || *path == '\0')
        return;
    try {
        const sim::Scenario scenario = sim::load_scenario(path);
        sim::threads().count_only(clidriver::called_from_library);
        sim::start(scenario);
        g_platform_text = describe(scenario);
        sim::run_startup(scenario.startup, {});
        sim::platform().set_console(stdout);
    } catch (const sim::ScenarioError &error) {
        fprintf(stderr, "%s\n", error.what());
        _exit(2);
    }
}

} // namespace

extern "C" {

const char *clidriver_simulated_platform(void)
{
    return g_platform_text.c_str();
}

// Wall-clock time is the simulated camera's: a recording layer in front stamps what it writes
// with the camera's time, and the shell's reports carry it.
int clock_gettime(clockid_t clock, struct timespec *now)
{
    static const auto real = sim::real::next<int (*)(clockid_t, struct timespec *)>("clock_gettime");
    if (clock != CLOCK_REALTIME || !sim::active())
        return real(clock, now);
    const sim::Nanos at = sim::clock().now();
    now->tv_sec = static_cast<time_t>(sim::clock().boot_epoch() + at / sim::kSecond);
    now->tv_nsec = static_cast<long>(at % sim::kSecond);
    return 0;
}

} // extern "C"
