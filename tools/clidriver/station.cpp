#include "station.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <limits.h>
#include <optional>
#include <sstream>
#include <unistd.h>

#include "capture.h"
#include "readings.h"
#include "reports.h"
#include "script.h"

#ifndef CLIDRIVER_VERSION
#define CLIDRIVER_VERSION "unknown"
#endif

namespace shell
{
namespace
{

// A report file, opened before the run so that a wrong path is known before any command runs.
class ReportFile
{
  public:
    ReportFile() = default;
    ReportFile(const ReportFile &) = delete;
    ReportFile &operator=(const ReportFile &) = delete;
    ~ReportFile()
    {
        if (file_ != nullptr)
            fclose(file_);
    }

    bool open(const std::string &path, FILE *err)
    {
        path_ = path;
        if (path.empty())
            return true;
        file_ = fopen(path.c_str(), "w");
        if (file_ == nullptr)
            fprintf(err, "clidriver: cannot write report %s: %s\n", path.c_str(), strerror(errno));
        return file_ != nullptr;
    }

    bool write(const std::string &text, FILE *err)
    {
        if (file_ == nullptr)
            return true;
        const bool written = fwrite(text.data(), 1, text.size(), file_) == text.size();
        const bool closed = fclose(file_) == 0;
        file_ = nullptr;
        if (!written || !closed)
            fprintf(err, "clidriver: cannot write report %s: %s\n", path_.c_str(), strerror(errno));
        return written && closed;
    }

  private:
    std::string path_;
    FILE *file_ = nullptr;
};

// The version of the libclidriver this process loaded, from its file name (libclidriver.so.1.0.0).
std::string library_version()
{
    void *symbol = dlsym(RTLD_DEFAULT, "__CLI_GetRawData");
    Dl_info where = {};
    if (symbol == nullptr || dladdr(symbol, &where) == 0 || where.dli_fname == nullptr)
        return {};
    char real[PATH_MAX];
    const std::string path = realpath(where.dli_fname, real) != nullptr ? real : where.dli_fname;
    const size_t so = path.rfind(".so.");
    return so == std::string::npos ? std::string() : path.substr(so + 4);
}

// What the camera says it is: the product type from the platform's manufacturing parameters and
// the software version as the version report prints it. Nothing of it reaches the console.
void identify_unit(Shell &shell, RunInfo &info)
{
    using ProductType = uint32_t (*)();
    if (auto product_type = reinterpret_cast<ProductType>(dlsym(RTLD_DEFAULT, "drv_GetManuparseProductType")))
        info.product_type = product_type();
    if (const Entry *report = find_command("COM_Display_SoftVER");
        report != nullptr && report->callable_here()) {
        std::string error;
        const auto call = report->callable->prepare(report->params, {}, error);
        const Captured printed = capture_output([&] {
            if (call)
                call->invoke();
        });
        for (const Measurement &reading : take_readings("COM_Display_SoftVER", printed.out))
            if (reading.quantity.name == "software" && reading.present)
                info.software_version = reading.text;
    }
    shell.after_command();
}

// What a command that ends the process leaves to be done: the step ends in ERROR, the summary is
// printed and the reports are written, and the shell ends with 1, not with the command's code.
struct Station {
    Shell *shell = nullptr;
    ScriptRun *run = nullptr;
    const RunInfo *info = nullptr;
    ReportFile *junit = nullptr;
    ReportFile *json = nullptr;
};
Station g_station;

void finish(Shell &shell, ScriptRun &run, const RunInfo &info, ReportFile &junit, ReportFile &json,
            bool &written)
{
    print_summary(shell.out(), run);
    written = junit.write(junit_xml(run, info), shell.err());
    written = json.write(json_report(run, info), shell.err()) && written;
}

// Ends the run at the step under way with `verdict`: what the command wrote so far is its output,
// the summary is printed and the reports are written, and the process ends (1, or 2 when a report
// could not be written). For a command that ended the process and for a step cut off at its limit.
[[noreturn]] void end_run_at_current_step(const Verdict &verdict, std::optional<int64_t> wall_ns,
                                          const char *announcement = nullptr)
{
    Station station = g_station;
    g_station = {};
    ScriptRun &run = *station.run;
    LineOutcome &outcome = run.lines[*run.current];
    CallResult &result = outcome.result;
    fflush(stdout); // what the command printed belongs to its output
    if (OutputCapture *capture = Shell::active_capture()) {
        capture->end(result.out, result.err);
        result.captured = true;
    }
    if (announcement != nullptr)
        fprintf(station.shell->out(), "%s\n", announcement);
    result.called = true;
    if (wall_ns)
        result.wall_ns = *wall_ns;
    outcome.run = true;
    outcome.attempts = std::max(outcome.attempts, 1);
    outcome.end_ms = wall_clock_ms();
    outcome.simulated_end_ns = station.shell->simulated_now();
    outcome.verdict = verdict;
    run.wall_ns += result.wall_ns;
    print_verdict(station.shell->out(), outcome.verdict);
    run.current.reset();
    run.end_ms = outcome.end_ms;
    run.simulated_end_ns = outcome.simulated_end_ns;
    tally(run);
    bool written = true;
    finish(*station.shell, run, *station.info, *station.junit, *station.json, written);
    fflush(nullptr);
    _exit(written ? 1 : 2);
}

void ended_the_process(int status, void *)
{
    if (g_station.run == nullptr || !g_station.run->current)
        return;
    end_run_at_current_step(
        Verdict{
            Outcome::Error, "the command ended the process (exit status " + std::to_string(status) + ")", {}},
        std::nullopt);
}

// The watchdog's way out: the step overran its limit while its command still ran. The remaining
// steps are not run: the command never came back, and the library's state with it.
void cut_off(const std::string &reason, int64_t wall_ns)
{
    if (g_station.run == nullptr || !g_station.run->current)
        _exit(1);
    end_run_at_current_step(Verdict{Outcome::Error, reason, {}}, wall_ns,
                            "-- cut off at the step's time limit; the run ends here");
}

} // namespace

int run_station(Shell &shell, const StationOptions &options)
{
    std::ifstream file(options.script, std::ios::binary);
    if (!file) {
        fprintf(shell.err(), "clidriver: cannot read station script %s: %s\n", options.script.c_str(),
                strerror(errno));
        return 2;
    }
    std::stringstream text;
    text << file.rdbuf();

    std::vector<std::string> errors;
    const Script script = parse_script(text.str(), options.script, shell, errors);
    if (!errors.empty()) {
        for (const std::string &error : errors)
            fprintf(shell.err(), "%s\n", error.c_str());
        fprintf(shell.err(), "clidriver: %s: %zu line%s to correct; nothing was run\n",
                options.script.c_str(), errors.size(), errors.size() == 1 ? "" : "s");
        return 2;
    }

    ReportFile junit, json;
    if (!junit.open(options.junit, shell.err()) || !json.open(options.json, shell.err()))
        return 2;

    RunInfo info;
    info.dut = options.dut;
    info.station = options.station;
    info.operator_name = options.operator_name;
    info.scenario = options.scenario;
    info.camera = options.camera;
    info.shell_version = CLIDRIVER_VERSION;
    info.library_version = library_version();
    char host[256] = {};
    if (gethostname(host, sizeof host - 1) == 0)
        info.hostname = host;
    identify_unit(shell, info);

    fprintf(shell.out(), "Station run of %s\n", options.script.c_str());
    if (!options.camera.empty() || !options.scenario.empty())
        fprintf(shell.out(), "  camera: %s (%s)\n",
                options.camera.empty() ? "unnamed" : options.camera.c_str(), options.scenario.c_str());
    fprintf(shell.out(), "  unit: %s, product type %s, software %s\n",
            options.dut.empty() ? "no serial number given (--dut)" : options.dut.c_str(),
            info.product_type ? std::to_string(*info.product_type).c_str() : "unknown",
            info.software_version.empty() ? "unknown" : info.software_version.c_str());
    fflush(shell.out());

    const bool reports = !options.junit.empty() || !options.json.empty();
    ScriptRun run;
    g_station = Station{&shell, &run, &info, &junit, &json};
    static const bool registered = on_exit(ended_the_process, nullptr) == 0;
    (void)registered;
    run_script(shell, script, RunOptions{reports, options.stop_on_failure, cut_off}, run);
    g_station = {};

    bool written = true;
    finish(shell, run, info, junit, json, written);
    if (!written)
        return 2;
    return exit_code(run);
}

} // namespace shell
