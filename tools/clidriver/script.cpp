#include "script.h"

#include <algorithm>
#include <chrono>

#include "number.h"

namespace shell
{

const char *outcome_name(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Pass:
        return "PASS";
    case Outcome::Fail:
        return "FAIL";
    case Outcome::Error:
        return "ERROR";
    case Outcome::Skip:
        break;
    }
    return "SKIP";
}

int64_t wall_clock_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string read_expectations(const Shell &shell, const CommandLine &command, int64_t &expected,
                              StepOptions &options, std::vector<Quantity> *measures)
{
    expected = 0;
    if (command.expect) {
        if (std::string error = shell.check_expect(command.name, *command.expect, expected); !error.empty())
            return error;
    }
    const Entry *entry = find_command(command.name);
    const std::vector<Quantity> quantities =
        entry != nullptr ? measurements_of(*entry) : std::vector<Quantity>{};
    if (std::string error = parse_checks(command.checks, quantities, options); !error.empty())
        return error;
    if (measures != nullptr)
        *measures = quantities;
    return {};
}

Script parse_script(std::string_view text, const std::string &source, const Shell &shell,
                    std::vector<std::string> &errors)
{
    // A script saved by an editor that marks UTF-8 reads the same without the mark.
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
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
        if (std::string error =
                read_expectations(shell, line.command, line.expected, line.options, &line.measures);
            !error.empty()) {
            errors.push_back(where + error);
            continue;
        }
        script.lines.push_back(std::move(line));
    }
    return script;
}

Verdict judge(const CallResult &result, int64_t expected, const StepOptions &options, int64_t step_ns)
{
    Verdict verdict;
    if (!result.called) {
        verdict.outcome = Outcome::Error;
        verdict.reason = "the command could not be called";
        return verdict;
    }
    if (result.skipped) {
        verdict.outcome = Outcome::Skip;
        verdict.reason = "the model's default answered \"unsupport this function\"";
        return verdict;
    }
    for (const Limit &limit : options.limits) {
        const auto measured =
            std::find_if(result.measurements.begin(), result.measurements.end(),
                         [&](const Measurement &m) { return m.quantity.name == limit.name; });
        LimitResult checked;
        checked.limit = &limit;
        if (measured == result.measurements.end())
            checked.why = limit.name + " was not measured, limit " + limit.written;
        else
            checked.passed = within(limit, *measured, checked.why);
        verdict.limits.push_back(std::move(checked));
    }
    if (options.timeout_s && static_cast<double>(step_ns) > *options.timeout_s * 1e9) {
        verdict.outcome = Outcome::Error;
        verdict.reason = "overran its time limit: took " + format_simulated(step_ns) + ", limit " +
                         format_simulated(static_cast<int64_t>(*options.timeout_s * 1e9));
        return verdict;
    }
    if (result.status.value_or(0) != expected) {
        verdict.outcome = Outcome::Fail;
        verdict.reason = "expected " + std::to_string(expected) + ", got " +
                         (result.status ? std::to_string(*result.status) : std::string("no status"));
        return verdict;
    }
    for (const LimitResult &checked : verdict.limits) {
        if (!checked.passed) {
            verdict.outcome = Outcome::Fail;
            verdict.reason = checked.why;
            return verdict;
        }
    }
    return verdict;
}

void print_verdict(FILE *out, const Verdict &verdict)
{
    for (const LimitResult &checked : verdict.limits)
        fprintf(out, "  check %s: %s\n", checked.why.c_str(), checked.passed ? "pass" : "FAIL");
    if (verdict.outcome != Outcome::Pass)
        fprintf(out, "%s: %s\n", outcome_name(verdict.outcome), verdict.reason.c_str());
    fflush(out);
}

namespace
{

bool failing(Outcome outcome)
{
    return outcome == Outcome::Fail || outcome == Outcome::Error;
}

} // namespace

void run_script(Shell &shell, const Script &script, const RunOptions &options, ScriptRun &run)
{
    run.source = script.source;
    run.captured = options.capture;
    run.start_ms = wall_clock_ms();
    run.simulated_start_ns = shell.simulated_now();
    run.lines.clear();
    run.lines.reserve(script.lines.size());
    for (const ScriptLine &line : script.lines) {
        LineOutcome outcome;
        outcome.line = &line;
        run.lines.push_back(std::move(outcome));
    }
    for (size_t i = 0; i < script.lines.size(); ++i) {
        const ScriptLine &line = script.lines[i];
        LineOutcome &outcome = run.lines[i];
        run.current = i;
        fprintf(shell.out(), "[%d] %s\n", line.number, line.command.display().c_str());
        fflush(shell.out());
        const std::string where = script.source + ":" + std::to_string(line.number) + ": ";
        outcome.run = true;
        outcome.start_ms = wall_clock_ms();
        outcome.simulated_start_ns = shell.simulated_now();
        for (int attempt = 0; attempt <= line.options.retries; ++attempt) {
            if (attempt > 0) {
                fprintf(shell.out(), "-- retry %d of %d\n", attempt, line.options.retries);
                fflush(shell.out());
            }
            outcome.attempts = attempt + 1;
            const bool watched = line.options.timeout_s && options.cut_off != nullptr;
            if (watched)
                watchdog::arm(shell, static_cast<int64_t>(*line.options.timeout_s * 1e9), options.cut_off);
            outcome.result = shell.call(line.command.name, line.command.words, where, options.capture);
            if (watched)
                watchdog::disarm(shell);
            const int64_t step_ns = outcome.result.simulated_ns.value_or(outcome.result.wall_ns);
            outcome.verdict = judge(outcome.result, line.expected, line.options, step_ns);
            print_verdict(shell.out(), outcome.verdict);
            if (!failing(outcome.verdict.outcome) || !outcome.result.called)
                break;
        }
        outcome.end_ms = wall_clock_ms();
        outcome.simulated_end_ns = shell.simulated_now();
        run.wall_ns += outcome.result.wall_ns;
        if (options.stop_on_failure && failing(outcome.verdict.outcome) && i + 1 < script.lines.size()) {
            run.stopped_after = i;
            fprintf(shell.out(), "-- the run stops at its first failure (--stop-on-failure)\n");
            fflush(shell.out());
            break;
        }
    }
    run.current.reset();
    run.end_ms = wall_clock_ms();
    run.simulated_end_ns = shell.simulated_now();
    tally(run);
}

void tally(ScriptRun &run)
{
    run.passed = run.failed = run.errors = run.skipped = run.not_run = 0;
    if (run.simulated_start_ns && run.simulated_end_ns)
        run.simulated_ns = *run.simulated_end_ns - *run.simulated_start_ns;
    for (const LineOutcome &outcome : run.lines) {
        if (!outcome.run) {
            ++run.skipped;
            ++run.not_run;
            continue;
        }
        switch (outcome.verdict.outcome) {
        case Outcome::Pass:
            ++run.passed;
            break;
        case Outcome::Fail:
            ++run.failed;
            break;
        case Outcome::Error:
            ++run.errors;
            break;
        case Outcome::Skip:
            ++run.skipped;
            break;
        }
    }
    run.outcome = run.errors > 0 ? Outcome::Error : run.failed > 0 ? Outcome::Fail : Outcome::Pass;
}

void print_summary(FILE *out, const ScriptRun &run)
{
    size_t width = 7;
    for (const LineOutcome &outcome : run.lines)
        width = std::max(width, outcome.line->command.display().size());
    const int w = static_cast<int>(width);
    fprintf(out, "\nSummary of %s\n", run.source.c_str());
    fprintf(out, "%4s  %-*s  %8s  %3s  %-7s  %10s  %11s\n", "line", w, "command", "expected", "got",
            "outcome", "wall", "simulated");
    for (const LineOutcome &outcome : run.lines) {
        const CallResult &result = outcome.result;
        if (!outcome.run) {
            fprintf(out, "%4d  %-*s  %8lld  %3s  %-7s  %10s  %11s\n", outcome.line->number, w,
                    outcome.line->command.display().c_str(), static_cast<long long>(outcome.line->expected),
                    "", "NOT RUN", "", "");
            continue;
        }
        const std::string got = !result.called ? "!" : result.status ? std::to_string(*result.status) : "-";
        const std::optional<int64_t> simulated =
            outcome.simulated_start_ns && outcome.simulated_end_ns
                ? std::optional<int64_t>(*outcome.simulated_end_ns - *outcome.simulated_start_ns)
                : std::nullopt;
        fprintf(out, "%4d  %-*s  %8lld  %3s  %-7s  %10s  %11s\n", outcome.line->number, w,
                outcome.line->command.display().c_str(), static_cast<long long>(outcome.line->expected),
                got.c_str(), outcome_name(outcome.verdict.outcome), format_wall(result.wall_ns).c_str(),
                simulated ? format_simulated(*simulated).c_str() : "-");
        if (outcome.verdict.outcome == Outcome::Fail || outcome.verdict.outcome == Outcome::Error)
            fprintf(out, "%6s%s%s\n", "", outcome.verdict.reason.c_str(),
                    outcome.attempts > 1
                        ? (" (after " + std::to_string(outcome.attempts) + " attempts)").c_str()
                        : "");
    }
    const std::string not_run = run.not_run > 0 ? " (" + std::to_string(run.not_run) + " not run)" : "";
    fprintf(out, "%zu step%s: %zu passed, %zu failed, %zu error%s, %zu skipped%s; wall %s, simulated %s\n",
            run.lines.size(), run.lines.size() == 1 ? "" : "s", run.passed, run.failed, run.errors,
            run.errors == 1 ? "" : "s", run.skipped, not_run.c_str(), format_wall(run.wall_ns).c_str(),
            run.simulated_ns ? format_simulated(*run.simulated_ns).c_str() : "-");
    fflush(out);
}

int exit_code(const ScriptRun &run)
{
    return run.failed == 0 && run.errors == 0 ? 0 : 1;
}

} // namespace shell
