// clidriver: the operator's shell over libclidriver.
//
//     clidriver [options] COMMAND [ARGUMENT...]     one command; exit 0, 1 (status not 0) or 2
//     clidriver [options] --script FILE | FILE.cli  a station script, then its summary
//     clidriver [options]                           the prompt
//
// Built twice from this file: `clidriver` runs on the simulated camera (CLIDRIVER_SHELL_SIMULATED),
// `clidriver-camera` on the camera itself, where the platform's libraries answer.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "commands.h"
#include "interactive.h"
#include "shell.h"
#include "station.h"

#if CLIDRIVER_SHELL_SIMULATED
#include "scenario/scenario.h"
#include "simulated.h"
#else
#include "platform_check.h"
#include "recording.h"
#endif

namespace
{

constexpr const char *kModes =
    "Modes:\n"
    "  clidriver [options] COMMAND [ARGUMENT...]   call one command: CLI_GetGpsCoor 0\n"
    "  clidriver [options] --script FILE           run a station script (also: clidriver FILE.cli)\n"
    "  clidriver [options]                         the prompt (help, list, quit)\n"
    "Options come before the command. Exit code: 0 success (or no status), 1 a non-zero status or\n"
    "a failed script line, 2 a refused command line, script or option.\n";

bool is_file(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

int main(int argc, char **argv)
{
    // Line by line, so the shell's lines and the command's own stay in order in a station log.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    CLI::App app{"Calls the factory-test and diagnostic commands of libclidriver by name.", "clidriver"};
    app.footer(kModes);
    shell::Settings settings;
    shell::StationOptions station;
    app.add_option("--script", station.script,
                   "Run a station script: one command per line, \"=> N\" expected")
        ->type_name("FILE");
    app.add_option("--junit", station.junit, "With a script: write a JUnit XML report to this file")
        ->type_name("FILE");
    app.add_option("--json", station.json, "With a script: write a JSON report to this file")
        ->type_name("FILE");
    app.add_option("--dut", station.dut,
                   "With a script: the serial number of the unit under test, for the reports")
        ->type_name("SERIAL");
    app.add_option("--station", station.station, "With a script: the station's name, for the reports")
        ->type_name("NAME");
    app.add_option("--operator", station.operator_name, "With a script: who runs it, for the reports")
        ->type_name("NAME");
    app.add_flag("--stop-on-failure", station.stop_on_failure,
                 "With a script: end the run at the first line that fails or errs");
    app.add_flag("--timing", settings.timing, "After each command, print its wall time and simulated time");
#if CLIDRIVER_SHELL_SIMULATED
    std::string scenario = shell::simulated::default_scenario();
    bool trace = false;
    bool bare = false;
    app.add_option("--scenario", scenario, "The simulated camera to run on (a TOML scenario)")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_flag("--trace", trace, "Print what the commands do to the simulated camera, with simulated time");
    app.add_flag("--bare", bare,
                 "Leave the library as loaded: skip the camera's start-up (product record, serial set-up, "
                 "link devices) that the scenario states");
#else
    std::string record_folder;
    CLI::Option *record_option =
        app.add_option(
               "--record", record_folder,
               "Write down what the camera answers to the library's calls in this folder, as a scenario "
               "the simulated camera replays (DIR/scenario.toml)")
            ->type_name("DIR");
#endif
    app.prefix_command(); // everything from the command on is the command's, "-1" included

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    std::vector<std::string> command = app.remaining();
    if (!command.empty() && command.front() == "--")
        command.erase(command.begin());

    if (!command.empty() && command.front().size() > 1 && command.front()[0] == '-') {
        fprintf(stderr, "clidriver: unknown option %s (options come before the command; --help lists them)\n",
                command.front().c_str());
        return 2;
    }
    if (station.script.empty() && command.size() == 1 && command.front().size() > 4 &&
        command.front().ends_with(".cli")) {
        station.script = command.front();
        command.clear();
    }
    if (!station.script.empty() && !command.empty()) {
        fprintf(stderr, "clidriver: a station script and a command cannot be given together\n");
        return 2;
    }
    if (station.script.empty() && (!station.junit.empty() || !station.json.empty())) {
        fprintf(stderr, "clidriver: --junit and --json report on a station script (--script FILE)\n");
        return 2;
    }
    if (station.script.empty() && (!station.dut.empty() || !station.station.empty() ||
                                   !station.operator_name.empty() || station.stop_on_failure)) {
        fprintf(stderr, "clidriver: --dut, --station, --operator and --stop-on-failure go with a station "
                        "script (--script FILE)\n");
        return 2;
    }
    // A script saved without the .cli suffix would otherwise be taken for an unknown command.
    if (!command.empty() && shell::find_command(command.front()) == nullptr && command.front() != "help" &&
        command.front() != "list" && is_file(command.front())) {
        fprintf(
            stderr,
            "clidriver: %s is a file, not a command; to run it as a station script: clidriver --script %s\n",
            command.front().c_str(), command.front().c_str());
        return 2;
    }

#if !CLIDRIVER_SHELL_SIMULATED
    if (record_option->count() > 0) {
        if (const int refused = shell::start_recording(record_folder, argv); refused != 0)
            return refused;
    }
    // Before the library runs (with the recording layer in front, when recording): listing and
    // help need nothing of the platform.
    const bool calls_the_library = !station.script.empty() || command.empty() ||
                                   (command.front() != "list" && command.front() != "help");
    if (calls_the_library) {
        if (const int refused = shell::report_missing_platform(shell::missing_platform_operations(), stderr);
            refused != 0)
            return refused;
    }
#endif

    shell::Hooks hooks;
#if CLIDRIVER_SHELL_SIMULATED
    try {
        shell::simulated::start(scenario, stdout);
    } catch (const sim::ScenarioError &error) {
        fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    hooks = shell::simulated::hooks();
    station.scenario = scenario;
    station.camera = shell::simulated::camera_name();
    if (!bare)
        shell::simulated::run_startup(trace ? stdout : nullptr);
    if (trace)
        shell::simulated::trace_to(stdout);
#endif

    shell::Shell shell(settings, hooks);
    if (!station.script.empty())
        return shell::run_station(shell, station);
    if (!command.empty())
        return shell.run_once(command.front(), std::vector<std::string>(command.begin() + 1, command.end()));
    std::string banner;
#if CLIDRIVER_SHELL_SIMULATED
    banner = "on the simulated camera \"" +
             (station.camera.empty() ? std::string("unnamed") : station.camera) + "\" (" + scenario + "); ";
#endif
    return shell::run_interactive(shell, banner);
}
