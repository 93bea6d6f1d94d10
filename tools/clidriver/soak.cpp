// clidriver-soak: a day at the station in one process. Runs station scripts on their simulated
// cameras round after round, checks that every round ends as the first did, and watches the
// process's open descriptors, threads and resident memory for growth.
//
//     clidriver-soak [--rounds N] [--rss-allowance KIB] [--all-lines] [--quiet]
//                    SCENARIO SCRIPT [SCENARIO SCRIPT...]
//
// What a round is, and what carries from one round to the next:
// - Each pair is one station run: the simulated camera is started afresh on the scenario (its
//   devices, files, serial peers and capture from boot, the clock at 0), the platform's start-up
//   runs again (product record, serial set-up, the link's table declared from nothing), and the
//   script runs as `clidriver --scenario SCENARIO SCRIPT` runs it. So every round meets the same
//   camera and the simulated timestamps repeat.
// - The shell and libclidriver stay loaded for the whole soak, as the shell on a camera stays up
//   while the station repeats its scripts: whatever the library keeps for the life of the process
//   (the control board's link, opened once; the image processor's factory settings, loaded once;
//   a flash thread) is kept, never torn down between rounds. That is what the soak is for.
// - On the line every unit is a freshly booted camera whose shell runs the script once. Two
//   commands keep something for the life of the process on every call, by their contract:
//   CLI_ParkLedTestInit starts one more parking-lamp flash thread, and CLI_EncodeInit leaves the
//   sensor driver's reader (its pipe) open. The next unit's boot frees them; one process cannot
//   boot again, so they run in the first round only (the flash thread it starts then flashes for
//   every later round's CLI_ParkLedAlternate). Run in every round (--all-lines) they add a thread
//   and a descriptor a round, as designed, and the soak would measure the script, not the library;
//   past about a thousand rounds the descriptors would outgrow what select() can watch.
//
// Each round's outcome is checked: per script line, the status, the outcome (PASS, FAIL, ERROR,
// SKIP), the reason, the attempts, the simulated time and every reading must be what the first
// round had (its lines left out above excepted). Wall times are not compared. A round that differs
// is reported line by line and fails the soak.
//
// After each round the process is sampled: open descriptors (/proc/self/fd), threads
// (/proc/self/task), resident memory (VmRSS). Against the first round's figures, descriptors and
// threads may not grow at all, resident memory by at most the allowance (default 512 KiB; not judged
// under a sanitizer, which keeps memory of its own: AddressSanitizer's leak check judges). A thread
// that is ending when the round ends (the RFID search, stopped by the script's last search line,
// leaves on its own) is given up to a second to be gone before it counts.
//
// Exit status: 0 the soak held, 1 a round differed or something grew, 2 a bad command line, a
// scenario or a script that cannot be read or checked.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "number.h"
#include "scenario/scenario.h"
#include "script.h"
#include "shell.h"
#include "simulated.h"

namespace
{

// Commands whose every call keeps something for the life of the process (a thread, a descriptor):
// run in the first round only, unless --all-lines.
constexpr const char *kOncePerProcess[] = {"CLI_ParkLedTestInit", "CLI_EncodeInit"};

bool once_per_process(const std::string &command)
{
    return std::any_of(std::begin(kOncePerProcess), std::end(kOncePerProcess),
                       [&](const char *name) { return command == name; });
}

// Under a sanitizer resident memory grows round after round, leak or not: AddressSanitizer's
// quarantine keeps what is freed to catch a use after free, ThreadSanitizer keeps the history of
// every access it may have to report. It is shown but not judged there; AddressSanitizer's leak
// check at exit judges memory instead.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kJudgeResidentMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kJudgeResidentMemory = false;
#else
constexpr bool kJudgeResidentMemory = true;
#endif
#else
constexpr bool kJudgeResidentMemory = true;
#endif

constexpr int64_t kDefaultRounds = 10000;
constexpr int64_t kDefaultRssAllowanceKib = 512;
// How long a thread or descriptor that is going away is waited for, and how often it is looked at.
constexpr auto kSettleLimit = std::chrono::seconds(1);
constexpr auto kSettleStep = std::chrono::milliseconds(1);
constexpr int kBaselineLooks = 50;
// Rounds that differ or grow before the soak stops early.
constexpr int64_t kEnoughFailedRounds = 10;

struct Station {
    std::string scenario_path;
    std::string script_path;
    sim::Scenario scenario;
    shell::Script first;               // every line, for the first round
    shell::Script repeat;              // the lines later rounds run
    std::vector<std::string> expected; // the first round's outcome, per line later rounds run
};

struct Sample {
    long fds = 0;
    long threads = 0;
    long rss_kib = 0;
};

long count_entries(const char *directory)
{
    DIR *dir = opendir(directory);
    if (dir == nullptr)
        return -1;
    long count = 0;
    while (const dirent *entry = readdir(dir))
        if (entry->d_name[0] != '.')
            ++count;
    closedir(dir);
    return count;
}

long rss_kib()
{
    FILE *status = fopen("/proc/self/status", "r");
    if (status == nullptr)
        return -1;
    char line[256];
    long kib = -1;
    while (fgets(line, sizeof line, status) != nullptr)
        if (strncmp(line, "VmRSS:", 6) == 0) {
            kib = strtol(line + 6, nullptr, 10);
            break;
        }
    fclose(status);
    return kib;
}

Sample sample()
{
    Sample now;
    // The directory's own descriptor, open while it is read, is not counted.
    now.fds = count_entries("/proc/self/fd") - 1;
    now.threads = count_entries("/proc/self/task");
    now.rss_kib = rss_kib();
    return now;
}

// A sample once descriptors and threads are back to `limit`, or after the settle limit.
Sample settled_sample(const Sample &limit)
{
    const auto give_up = std::chrono::steady_clock::now() + kSettleLimit;
    Sample now = sample();
    while ((now.fds > limit.fds || now.threads > limit.threads) &&
           std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(kSettleStep);
        now = sample();
    }
    return now;
}

// The first round's figures: the fewest descriptors and threads seen over a few milliseconds, so a
// thread still ending then does not raise the bar for the rounds after it.
Sample baseline_sample()
{
    Sample fewest = sample();
    for (int i = 0; i < kBaselineLooks; ++i) {
        std::this_thread::sleep_for(kSettleStep);
        const Sample now = sample();
        fewest.fds = std::min(fewest.fds, now.fds);
        fewest.threads = std::min(fewest.threads, now.threads);
        fewest.rss_kib = now.rss_kib;
    }
    return fewest;
}

std::string read_file(const std::string &path, bool &ok)
{
    std::ifstream file(path, std::ios::binary);
    ok = static_cast<bool>(file);
    std::stringstream text;
    if (ok)
        text << file.rdbuf();
    return text.str();
}

// One line's outcome as compared between rounds: everything the summary and the readings say
// except wall time.
std::string outcome_of(const shell::LineOutcome &outcome)
{
    const shell::CallResult &result = outcome.result;
    std::string text = std::to_string(outcome.line->number) + " " + outcome.line->command.display() + ": ";
    if (!outcome.run)
        return text + "not run";
    text += !result.called ? "!" : result.status ? std::to_string(*result.status) : "-";
    text += std::string(" ") + shell::outcome_name(outcome.verdict.outcome);
    if (!outcome.verdict.reason.empty())
        text += " (" + outcome.verdict.reason + ")";
    if (outcome.attempts > 1)
        text += ", " + std::to_string(outcome.attempts) + " attempts";
    if (outcome.simulated_start_ns && outcome.simulated_end_ns)
        text +=
            ", simulated " + shell::format_simulated(*outcome.simulated_end_ns - *outcome.simulated_start_ns);
    for (const shell::Measurement &measurement : result.measurements)
        if (measurement.present)
            text += ", " + measurement.quantity.name + " = " + shell::show(measurement);
    return text;
}

std::vector<std::string> outcomes_of(const shell::ScriptRun &run, bool repeated_lines_only)
{
    std::vector<std::string> lines;
    for (const shell::LineOutcome &outcome : run.lines)
        if (!repeated_lines_only || !once_per_process(outcome.line->command.name))
            lines.push_back(outcome_of(outcome));
    return lines;
}

struct Options {
    int64_t rounds = kDefaultRounds;
    int64_t rss_allowance_kib = kDefaultRssAllowanceKib;
    bool quiet = false;
    bool all_lines = false; // every line in every round, once-per-process commands included
    std::vector<std::pair<std::string, std::string>> stations; // scenario, script
};

constexpr const char *kUsage =
    "usage: clidriver-soak [--rounds N] [--rss-allowance KIB] [--all-lines] [--quiet]\n"
    "                      SCENARIO SCRIPT [SCENARIO SCRIPT...]\n";

bool parse_count(const char *text, int64_t lowest, int64_t &value)
{
    char *end = nullptr;
    errno = 0;
    const long long parsed = strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || parsed < lowest)
        return false;
    value = parsed;
    return true;
}

bool parse_options(int argc, char **argv, Options &options)
{
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if ((word == "--rounds" || word == "--rss-allowance") && i + 1 < argc) {
            const bool rounds = word == "--rounds";
            if (!parse_count(argv[++i], rounds ? 1 : 0,
                             rounds ? options.rounds : options.rss_allowance_kib)) {
                fprintf(stderr, "clidriver-soak: %s takes a whole number%s, not '%s'\n", word.c_str(),
                        rounds ? " of at least 1" : "", argv[i]);
                return false;
            }
        } else if (word == "--quiet") {
            options.quiet = true;
        } else if (word == "--all-lines") {
            options.all_lines = true;
        } else if (word.size() > 1 && word[0] == '-') {
            fprintf(stderr, "clidriver-soak: unknown option %s\n%s", word.c_str(), kUsage);
            return false;
        } else {
            files.push_back(word);
        }
    }
    if (files.empty() || files.size() % 2 != 0) {
        fprintf(stderr, "clidriver-soak: give scenarios and station scripts in pairs\n%s", kUsage);
        return false;
    }
    for (size_t i = 0; i < files.size(); i += 2)
        options.stations.emplace_back(files[i], files[i + 1]);
    return true;
}

// Descriptor 1 and the C streams on it go to /dev/null for the rounds; the soak's own lines go to
// `report`, a copy of the original standard output.
FILE *quiet_standard_output()
{
    const int copy = dup(STDOUT_FILENO);
    if (copy < 0)
        return nullptr;
    FILE *report = fdopen(copy, "w");
    if (report == nullptr) {
        close(copy);
        return nullptr;
    }
    setvbuf(report, nullptr, _IOLBF, 0);
    fflush(stdout);
    const int null = open("/dev/null", O_WRONLY);
    if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
        if (null >= 0)
            close(null);
        fclose(report);
        return nullptr;
    }
    close(null);
    return report;
}

// A step's time limit is held while its command runs, as the station's shell holds it (its
// watchdog thread is one of the threads the first round adds). A step cut off at its limit never
// came back, so the soak cannot go on in this process: it says so and ends.
void cut_off(const std::string &reason, int64_t)
{
    fprintf(stderr, "soak: a step was cut off at its time limit (%s); the soak ends here\n", reason.c_str());
    _exit(1);
}

// Runs one station on its freshly started camera: the run's lines, in `run`.
void run_station(Station &station, const shell::Script &script, FILE *sink, shell::ScriptRun &run)
{
    shell::simulated::start(station.scenario, sink);
    shell::simulated::run_startup(nullptr);
    shell::Shell shell(shell::Settings{}, shell::simulated::hooks(), sink, sink);
    shell::run_script(shell, script, shell::RunOptions{false, false, cut_off}, run);
}

void print_sample(FILE *out, const char *what, const Sample &figures)
{
    fprintf(out, "  %-11s descriptors %ld, threads %ld, resident %ld KiB\n", what, figures.fds,
            figures.threads, figures.rss_kib);
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse_options(argc, argv, options))
        return 2;

    std::vector<Station> stations(options.stations.size());
    for (size_t i = 0; i < stations.size(); ++i) {
        Station &station = stations[i];
        station.scenario_path = options.stations[i].first;
        station.script_path = options.stations[i].second;
        try {
            station.scenario = sim::load_scenario(station.scenario_path);
        } catch (const sim::ScenarioError &error) {
            fprintf(stderr, "%s\n", error.what());
            return 2;
        }
        bool ok = false;
        const std::string text = read_file(station.script_path, ok);
        if (!ok) {
            fprintf(stderr, "clidriver-soak: cannot read station script %s: %s\n",
                    station.script_path.c_str(), strerror(errno));
            return 2;
        }
        // The script is checked against the shell's table, which needs no camera.
        const shell::Shell checker(shell::Settings{}, shell::simulated::hooks());
        std::vector<std::string> errors;
        station.first = shell::parse_script(text, station.script_path, checker, errors);
        if (!errors.empty()) {
            for (const std::string &error : errors)
                fprintf(stderr, "%s\n", error.c_str());
            return 2;
        }
        station.repeat = station.first;
        if (!options.all_lines)
            std::erase_if(station.repeat.lines,
                          [](const shell::ScriptLine &line) { return once_per_process(line.command.name); });
    }

    FILE *report = quiet_standard_output();
    if (report == nullptr) {
        fprintf(stderr, "clidriver-soak: cannot set standard output aside: %s\n", strerror(errno));
        return 2;
    }
    FILE *sink = stdout; // now /dev/null: the commands' lines and the shell's

    fprintf(report, "Soak: %" PRId64 " rounds of", options.rounds);
    for (const Station &station : stations)
        fprintf(report, " %s on %s%s", station.script_path.c_str(), station.scenario_path.c_str(),
                &station == &stations.back() ? "\n" : ",");
    for (const Station &station : stations)
        for (const shell::ScriptLine &line : station.first.lines)
            if (!options.all_lines && once_per_process(line.command.name))
                fprintf(report,
                        "  %s:%d %s runs in the first round only: it keeps a thread or a descriptor for "
                        "the life of the process on every call\n",
                        station.script_path.c_str(), line.number, line.command.display().c_str());

    const auto started = std::chrono::steady_clock::now();
    const Sample before = sample();
    if (before.fds < 0 || before.threads < 0 || before.rss_kib < 0) {
        fprintf(stderr,
                "clidriver-soak: cannot read /proc/self (fd, task, status): nothing to measure with\n");
        return 2;
    }
    Sample first, last, most;
    int64_t failed_rounds = 0;
    int64_t grown_rounds = 0;
    int64_t rounds_run = 0;
    int64_t bad_rounds = 0; // rounds that differed, grew, or both
    for (int64_t round = 1; round <= options.rounds; ++round) {
        rounds_run = round;
        bool round_differs = false;
        for (Station &station : stations) {
            shell::ScriptRun run;
            run_station(station, round == 1 ? station.first : station.repeat, sink, run);
            if (round == 1) {
                station.expected = outcomes_of(run, !options.all_lines);
                shell::print_summary(report, run);
                if (run.failed > 0 || run.errors > 0) {
                    fprintf(report, "the first round of %s did not pass: nothing to soak\n",
                            station.script_path.c_str());
                    return 1;
                }
                continue;
            }
            const std::vector<std::string> got = outcomes_of(run, !options.all_lines);
            if (got == station.expected)
                continue;
            round_differs = true;
            if (failed_rounds < 10) {
                fprintf(report, "round %" PRId64 ": %s ended otherwise than the first round:\n", round,
                        station.script_path.c_str());
                for (size_t i = 0; i < std::max(got.size(), station.expected.size()); ++i) {
                    const std::string want = i < station.expected.size() ? station.expected[i] : "(none)";
                    const std::string have = i < got.size() ? got[i] : "(none)";
                    if (want != have)
                        fprintf(report, "  first round: %s\n  this round:  %s\n", want.c_str(), have.c_str());
                }
            }
        }
        failed_rounds += round_differs ? 1 : 0;

        if (round == 1) {
            first = baseline_sample();
            last = most = first;
            continue;
        }
        last = settled_sample(first);
        most.fds = std::max(most.fds, last.fds);
        most.threads = std::max(most.threads, last.threads);
        most.rss_kib = std::max(most.rss_kib, last.rss_kib);
        const bool grown = last.fds > first.fds || last.threads > first.threads ||
                           (kJudgeResidentMemory && last.rss_kib > first.rss_kib + options.rss_allowance_kib);
        if (grown && grown_rounds++ < 10)
            fprintf(report,
                    "round %" PRId64 ": grown since the first round: descriptors %+ld, threads %+ld, "
                    "resident %+ld KiB\n",
                    round, last.fds - first.fds, last.threads - first.threads, last.rss_kib - first.rss_kib);
        if (!options.quiet && (round % 1000 == 0 || round == options.rounds))
            fprintf(report, "round %" PRId64 ": descriptors %ld, threads %ld, resident %ld KiB, %.1f s\n",
                    round, last.fds, last.threads, last.rss_kib,
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        // The soak has failed by then; the rounds left would only repeat it (and a grown round
        // costs the settle time).
        bad_rounds += round_differs || grown ? 1 : 0;
        if (bad_rounds >= kEnoughFailedRounds && round < options.rounds) {
            fprintf(report, "stopped after round %" PRId64 ": %" PRId64 " rounds failed\n", round,
                    bad_rounds);
            break;
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    fprintf(report, "\nSoak of %" PRId64 " rounds in %.1f s (%.2f ms a round)\n", rounds_run, seconds,
            seconds * 1000.0 / static_cast<double>(rounds_run));
    print_sample(report, "before:", before);
    print_sample(report, "round 1:", first);
    print_sample(report, "last round:", last);
    fprintf(report, "  most growth after round 1: descriptors %+ld, threads %+ld, resident %+ld KiB",
            most.fds - first.fds, most.threads - first.threads, most.rss_kib - first.rss_kib);
    if (kJudgeResidentMemory)
        fprintf(report, " (allowed %+" PRId64 " KiB)\n", options.rss_allowance_kib);
    else
        fprintf(report, " (not judged under a sanitizer, which keeps memory of its own)\n");
    if (failed_rounds > 0)
        fprintf(report, "FAIL: %" PRId64 " round%s ended otherwise than the first\n", failed_rounds,
                failed_rounds == 1 ? "" : "s");
    if (grown_rounds > 0)
        fprintf(report, "FAIL: %" PRId64 " round%s ended with more than the first round held\n", grown_rounds,
                grown_rounds == 1 ? "" : "s");
    if (failed_rounds == 0 && grown_rounds == 0 && kJudgeResidentMemory)
        fprintf(report,
                "PASS: every round as the first; descriptors and threads flat, resident memory within "
                "%" PRId64 " KiB\n",
                options.rss_allowance_kib);
    else if (failed_rounds == 0 && grown_rounds == 0)
        fprintf(report, "PASS: every round as the first; descriptors and threads flat\n");
    fflush(report);
    const int status = failed_rounds == 0 && grown_rounds == 0 ? 0 : 1;
    fclose(report);
    return status;
}
