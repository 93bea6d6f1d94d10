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
#include "platform/startup.h"
#include "scenario/scenario.h"

namespace shell::simulated
{

namespace
{

sim::Startup g_startup;
std::string g_camera_name;

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
    sim::StartupReport report;
    report.before_step = [] { sim::journal().clear(); };
    if (trace != nullptr) {
        report.step = [trace](const char *what, long long status) {
            for (const sim::Entry &entry : sim::journal().select(sim::Kind::Print)) {
                std::string line = entry.text;
                while (!line.empty() && line.back() == '\n')
                    line.pop_back();
                fprintf(trace, "~ %s startup: %s\n", format_simulated(entry.time).c_str(), line.c_str());
            }
            fprintf(trace, "~ %s startup: %s => %lld\n", format_simulated(sim::clock().now()).c_str(), what,
                    status);
        };
        report.declared = [trace](const char *name, uint32_t rate) {
            fprintf(trace, "~ %s startup: %s declared on the link at %u baud\n",
                    format_simulated(sim::clock().now()).c_str(), name, rate);
        };
    }
    sim::run_startup(g_startup, report);
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
