#include "script.h"

#include <algorithm>

#include "number.h"

namespace shell
{

Script parse_script(std::string_view text, const std::string &source, const Shell &shell,
                    std::vector<std::string> &errors)
{
    Script script;
    script.source = source;
    int number = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view raw = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        const std::string where = source + ":" + std::to_string(number) + ": ";

        ScriptLine line;
        line.number = number;
        if (std::string error = split_line(raw, line.command); !error.empty()) {
            errors.push_back(where + error);
            continue;
        }
        if (line.command.name.empty())
            continue;
        if (line.command.name == "help" || line.command.name == "list" || line.command.name == "quit") {
            errors.push_back(where + line.command.name + " is for the prompt; a script line is a command");
            continue;
        }
        if (std::string error = shell.check(line.command.name, line.command.words); !error.empty()) {
            errors.push_back(where + error);
            continue;
        }
        if (line.command.expect) {
            if (std::string error =
                    shell.check_expect(line.command.name, *line.command.expect, line.expected);
                !error.empty()) {
                errors.push_back(where + error);
                continue;
            }
        }
        script.lines.push_back(std::move(line));
    }
    return script;
}

ScriptRun run_script(Shell &shell, const Script &script, bool capture)
{
    ScriptRun run;
    run.source = script.source;
    run.captured = capture;
    if (shell.simulated())
        run.simulated_ns = 0;
    for (const ScriptLine &line : script.lines) {
        fprintf(shell.out(), "[%d] %s\n", line.number, line.command.display().c_str());
        fflush(shell.out());
        LineOutcome outcome;
        outcome.line = &line;
        const std::string where = script.source + ":" + std::to_string(line.number) + ": ";
        outcome.result = shell.call(line.command.name, line.command.words, where, capture);
        outcome.passed = outcome.result.called && outcome.result.status.value_or(0) == line.expected;
        if (!outcome.passed && outcome.result.called) {
            fprintf(shell.out(), "FAIL: expected %lld, got %s\n", static_cast<long long>(line.expected),
                    outcome.result.status ? std::to_string(*outcome.result.status).c_str() : "no status");
            fflush(shell.out());
        }
        ++(outcome.passed ? run.passed : run.failed);
        run.wall_ns += outcome.result.wall_ns;
        if (run.simulated_ns && outcome.result.simulated_ns)
            *run.simulated_ns += *outcome.result.simulated_ns;
        run.lines.push_back(std::move(outcome));
    }
    return run;
}

void print_summary(FILE *out, const ScriptRun &run)
{
    size_t width = 7;
    for (const LineOutcome &outcome : run.lines)
        width = std::max(width, outcome.line->command.display().size());
    const int w = static_cast<int>(width);
    fprintf(out, "\nSummary of %s\n", run.source.c_str());
    fprintf(out, "%4s  %-*s  %8s  %3s  %-6s  %10s  %11s\n", "line", w, "command", "expected", "got", "result",
            "wall", "simulated");
    for (const LineOutcome &outcome : run.lines) {
        const CallResult &result = outcome.result;
        const std::string got = !result.called ? "!" : result.status ? std::to_string(*result.status) : "-";
        fprintf(out, "%4d  %-*s  %8lld  %3s  %-6s  %10s  %11s\n", outcome.line->number, w,
                outcome.line->command.display().c_str(), static_cast<long long>(outcome.line->expected),
                got.c_str(), outcome.passed ? "PASS" : "FAIL", format_wall(result.wall_ns).c_str(),
                result.simulated_ns ? format_simulated(*result.simulated_ns).c_str() : "-");
    }
    fprintf(out, "%zu line%s: %zu passed, %zu failed; wall %s, simulated %s\n", run.lines.size(),
            run.lines.size() == 1 ? "" : "s", run.passed, run.failed, format_wall(run.wall_ns).c_str(),
            run.simulated_ns ? format_simulated(*run.simulated_ns).c_str() : "-");
    fflush(out);
}

int exit_code(const ScriptRun &run)
{
    return run.failed == 0 ? 0 : 1;
}

} // namespace shell
