#include "simulated.h"

#include "clidriver/clidriver.h"

#include <climits>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "core/clock.h"
#include "core/journal.h"
#include "core/real.h"
#include "core/sim.h"
#include "number.h"
#include "platform/platform.h"
#include "scenario/scenario.h"

namespace shell::simulated
{

namespace
{

sim::Startup g_startup;
std::string g_camera_name;

// The shell's serial port list: it lives as long as the shell, as on the camera.
CliSerialPort g_astPorts[3];

} // namespace

void start(const std::string &scenario_path, FILE *console)
{
    start(sim::load_scenario(scenario_path), console);
}

void start(const sim::Scenario &scenario, FILE *console)
{
    // A camera started again under the same shell keeps the threads the library left running.
    if (sim::active())
        sim::restart(scenario);
    else
        sim::start(scenario);
    sim::platform().set_console(console);
    g_startup = scenario.startup;
    g_camera_name = scenario.name;
}

const std::string &camera_name()
{
    return g_camera_name;
}

std::string default_scenario()
{
#ifdef CLIDRIVER_INSTALLED_SCENARIOS
    char executable[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", executable, sizeof executable - 1);
    if (length > 0) {
        // bin/../share/... written as share/..., as the banner and the reports show it.
        const std::string path =
            (std::filesystem::path(std::string(executable, static_cast<size_t>(length))).parent_path() /
             CLIDRIVER_INSTALLED_SCENARIOS / "default.toml")
                .lexically_normal()
                .string();
        struct stat status = {};
        if (stat(path.c_str(), &status) == 0)
            return path;
    }
#endif
    return CLIDRIVER_SCENARIO_DIR "/default.toml";
}

void run_startup(FILE *trace)
{
    FILE *const console = sim::platform().console();
    sim::platform().set_console(nullptr);
    const auto step = [&](const char *what, const std::function<long long()> &call) {
        sim::journal().clear();
        const long long status = call();
        if (trace == nullptr)
            return;
        for (const sim::Entry &entry : sim::journal().select(sim::Kind::Print)) {
            std::string line = entry.text;
            while (!line.empty() && line.back() == '\n')
                line.pop_back();
            fprintf(trace, "~ %s startup: %s\n", format_simulated(entry.time).c_str(), line.c_str());
        }
        fprintf(trace, "~ %s startup: %s => %lld\n", format_simulated(sim::clock().now()).c_str(), what,
                status);
    };
    // A camera boots with nothing on its link's table: no line, no hub, no device. A shell that
    // starts the simulated camera again in the same process (the soak) must not hand the previous
    // camera's line and declarations to the next one.
    gastComCap = CliComCap{};
    if (g_startup.product_record)
        step("CLI_GetProductAllVersion", [] { return static_cast<long long>(CLI_GetProductAllVersion()); });
    if (g_startup.serial_ports)
        step("CLI_RsInit", [] { return static_cast<long long>(CLI_RsInit(g_astPorts)); });
    // The platform declares what it fits on the link by writing the link's table, as a camera's
    // start-up does.
    const auto declare = [&](uint32_t type, uint32_t rate, const char *name) {
        gastComCap.astDev[type].ulSupport = 1;
        gastComCap.astDev[type].ulRate = rate;
        if (trace != nullptr)
            fprintf(trace, "~ %s startup: %s declared on the link at %u baud\n",
                    format_simulated(sim::clock().now()).c_str(), name, rate);
    };
    if (g_startup.hub)
        declare(COM_TYPE_HUB, *g_startup.hub, "hub");
    for (const auto &[type, rate] : g_startup.link_devices)
        declare(type, rate, type == COM_TYPE_ZIGBEE ? "ZigBee" : type == COM_TYPE_GPS ? "GPS" : "RFID");
    sim::journal().clear();
    sim::platform().set_console(console);
}

Hooks hooks()
{
    Hooks hooks;
    hooks.simulated_now = [] { return static_cast<int64_t>(sim::clock().now()); };
    hooks.after_command = [] { sim::journal().clear(); };
    // While the operator types, simulated time stands still: a lamp flasher or tag search
    // started by a command resumes when the next command runs, the same on every run.
    hooks.waiting_for_operator = [](bool waiting) {
        if (waiting)
            sim::clock().hold();
        else
            sim::clock().release();
    };
    hooks.stop_clock_at = [](int64_t at_ns, void (*reached)()) { sim::clock().stop_at(at_ns, reached); };
    hooks.clear_clock_stop = [] { sim::clock().clear_stop(); };
    // The shell's own threads (its step watchdog) must not count as the camera's: the camera's
    // time would wait for them.
    hooks.start_own_thread = [](pthread_t *thread, void *(*start)(void *), void *arg) {
        return sim::real::pthread_create(thread, nullptr, start, arg);
    };
    return hooks;
}

void trace_to(FILE *out)
{
    sim::journal().set_listener([out](const sim::Entry &entry) {
        if (entry.kind == sim::Kind::Print)
            return;
        fprintf(out, "~ %s %s: %s\n", format_simulated(entry.time).c_str(), sim::kind_name(entry.kind),
                entry.text.c_str());
        fflush(out);
    });
}

} // namespace shell::simulated
