// Station scripts: one command per line, "# comments", blank lines, "=> N" for the status a line
// expects (0 when not written) and, after it, limits on what the command measures and the step's
// options (checks.h):
//
//     Cli_GetVersion_CPLD                 => 0, cpld = 012
//     CLI_GetGpsSatellite 0               => 0, satellites_in_use >= 4, retry 1, timeout 20
//
// The whole script is read and checked before anything is called, so a typo on line 40 never
// leaves a camera half tested. Each line is a step that ends
//     PASS   the status and every limit as expected
//     FAIL   a status or a limit not met (the measured value is shown beside the limit)
//     ERROR  the command could not run, ended the process, or overran its time limit
//     SKIP   the model's default answered "unsupport this function": nothing was tested
// and the run ends with a summary table (wall time to the microsecond, simulated time as the
// camera's clock saw it; "-" on a camera):
//
//     Summary of examples/station.cli
//     line  command                      expected  got  outcome       wall    simulated
//       17  Cli_GetVersion_CPLD                 0    0  PASS      0.021 ms   0.000000 s
//       27  CLI_GetRawData                      0    0  SKIP      0.003 ms   0.000000 s
//       45  CLI_GetGpsSatellite 0               0    0  FAIL      3.493 ms   4.000000 s
//             satellites_in_use = 3, limit >= 4
//     3 steps: 1 passed, 1 failed, 0 errors, 1 skipped; wall 3.517 ms, simulated 4.000000 s
//
// "got" is "-" for a command that returns nothing (it passes when 0 is expected). A run passes
// when no step failed or erred.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "checks.h"
#include "shell.h"
#include "watchdog.h"
#include "words.h"

namespace shell
{

enum class Outcome { Pass, Fail, Error, Skip };
const char *outcome_name(Outcome outcome); // "PASS", "FAIL", "ERROR", "SKIP"

struct ScriptLine {
    int number = 0; // line number in the file, from 1
    CommandLine command;
    int64_t expected = 0;
    StepOptions options;
    std::vector<Quantity> measures; // what the command measures
};

struct Script {
    std::string source; // the file name as the operator gave it
    std::vector<ScriptLine> lines;
};

// Reads and checks every line against `shell`'s table. Each problem is one message
// "SOURCE:LINE: ..." in `errors`; the script may run only when there are none. A byte-order mark
// at the start is skipped.
Script parse_script(std::string_view text, const std::string &source, const Shell &shell,
                    std::vector<std::string> &errors);

// Reads a line's "=> N" and what follows it for `name` (at the prompt as in a script).
std::string read_expectations(const Shell &shell, const CommandLine &command, int64_t &expected,
                              StepOptions &options, std::vector<Quantity> *measures = nullptr);

struct LimitResult {
    const Limit *limit = nullptr;
    bool passed = false;
    std::string why; // "satellites_in_use = 3, limit >= 4"
};

struct Verdict {
    Outcome outcome = Outcome::Pass;
    std::string reason; // empty for a PASS
    std::vector<LimitResult> limits;
};

// How one call went against what was expected of it. `step_ns` is the step's time as the limit
// counts it (simulated on the simulated camera, wall on the camera).
Verdict judge(const CallResult &result, int64_t expected, const StepOptions &options, int64_t step_ns);

// The limits' lines and, unless the step passed, its outcome: "FAIL: ...".
void print_verdict(FILE *out, const Verdict &verdict);

struct LineOutcome {
    const ScriptLine *line = nullptr;
    bool run = false; // false: the run stopped before this line
    CallResult result;
    Verdict verdict;
    int attempts = 0;
    int64_t start_ms = 0, end_ms = 0;                            // wall clock, milliseconds since 1970
    std::optional<int64_t> simulated_start_ns, simulated_end_ns; // the simulated camera's clock
};

struct ScriptRun {
    std::string source;
    std::vector<LineOutcome> lines;
    size_t passed = 0, failed = 0, errors = 0, skipped = 0;
    size_t not_run = 0; // of the skipped: steps the run never reached (it stopped, or a command ended it)
    int64_t wall_ns = 0;
    std::optional<int64_t> simulated_ns; // none on a camera
    bool captured = false;               // the lines' output is in the outcomes
    int64_t start_ms = 0, end_ms = 0;
    std::optional<int64_t> simulated_start_ns, simulated_end_ns;
    std::optional<size_t> stopped_after; // index of the line after which the run stopped
    std::optional<size_t> current;       // the line being run
    Outcome outcome = Outcome::Pass;
};

struct RunOptions {
    bool capture = false;         // keep every line's output for the reports
    bool stop_on_failure = false; // the first FAIL or ERROR ends the run
    // Ends the run at a step that overruns its time limit while its command still runs (see
    // watchdog.h); without it a limit is judged once the command comes back.
    watchdog::CutOff cut_off = nullptr;
};

// Runs every line in order into `run` (filled as it goes, so that a command ending the process
// leaves a record of what ran).
void run_script(Shell &shell, const Script &script, const RunOptions &options, ScriptRun &run);

// Counts and the run's outcome from its lines.
void tally(ScriptRun &run);

void print_summary(FILE *out, const ScriptRun &run);

// 0 when no line failed or erred, else 1.
int exit_code(const ScriptRun &run);

// Wall-clock time now, in milliseconds since 1970.
int64_t wall_clock_ms();

} // namespace shell
