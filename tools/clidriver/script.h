// Station scripts: one command per line, "# comments", blank lines, and "=> N" for the status a
// line expects (0 when not written). The whole script is read and checked before anything is
// called, so a typo on line 40 never leaves a camera half tested. Each line runs in turn; the
// run ends with a summary table (wall time to the microsecond, simulated time as the camera's
// clock saw it):
//
//     Summary of examples/station.cli
//     line  command                      expected  got  result        wall    simulated
//       11  CLI_PlatformInit                    0    0  PASS      0.001 ms   0.000000 s
//       25  CLI_HeatCtrlBoardToSlot 1 2         0    0  PASS      0.000 ms   0.000000 s
//       35  __CLI_EncodeInit                    0    -  PASS      0.013 ms   0.000000 s
//     3 lines: 3 passed, 0 failed; wall 0.014 ms, simulated 0.000000 s
//
// "got" is "-" for a command that returns nothing (it passes when 0 is expected), and the
// simulated column is "-" on a camera. A script passes when every line does.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "shell.h"
#include "words.h"

namespace shell
{

struct ScriptLine {
    int number = 0; // line number in the file, from 1
    CommandLine command;
    int64_t expected = 0;
};

struct Script {
    std::string source; // the file name as the operator gave it
    std::vector<ScriptLine> lines;
};

// Reads and checks every line against `shell`'s table. Each problem is one message
// "SOURCE:LINE: ..." in `errors`; the script may run only when there are none.
Script parse_script(std::string_view text, const std::string &source, const Shell &shell,
                    std::vector<std::string> &errors);

struct LineOutcome {
    const ScriptLine *line = nullptr;
    CallResult result;
    bool passed = false;
};

struct ScriptRun {
    std::string source;
    std::vector<LineOutcome> lines;
    size_t passed = 0;
    size_t failed = 0;
    int64_t wall_ns = 0;
    std::optional<int64_t> simulated_ns; // none on a camera
    bool captured = false;               // the lines' output is in the outcomes
};

// Runs every line in order. With `capture`, each line's own output is kept for the reports.
ScriptRun run_script(Shell &shell, const Script &script, bool capture);

void print_summary(FILE *out, const ScriptRun &run);

// 0 when every line passed, else 1.
int exit_code(const ScriptRun &run);

} // namespace shell
