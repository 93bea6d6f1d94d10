#include "shell.h"

#include <algorithm>
#include <cctype>
#include <chrono>

#include "capture.h"
#include "checks.h"
#include "command_pages.h"
#include "number.h"
#include "readings.h"
#include "script.h"

namespace shell
{
namespace
{

std::string join(const std::vector<std::string> &items, std::string_view separator)
{
    std::string text;
    for (size_t i = 0; i < items.size(); ++i)
        text += (i == 0 ? "" : std::string(separator)) + items[i];
    return text;
}

std::string count_of(size_t count, std::string_view thing)
{
    if (count == 0)
        return "no " + std::string(thing) + "s";
    return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

// The signature and what to type, under a refusal.
std::string how_to_call(const Entry &entry)
{
    std::string text = "\n  " + entry.signature + "\n  usage: " + usage(entry);
    const std::vector<std::string> names = lent(entry);
    if (!names.empty())
        text += "\n  the shell lends " + join(names, ", ") + " and prints " +
                (names.size() == 1 ? "it" : "them") + " after the call";
    return text;
}

bool contains_ignoring_case(std::string_view text, std::string_view part)
{
    auto lower = [](std::string_view s) {
        std::string result(s);
        for (char &c : result)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return result;
    };
    return lower(text).find(lower(part)) != std::string::npos;
}

// Looks `name` up and readies the call; on a refusal, the message and null.
std::unique_ptr<PreparedCall> prepare(std::string_view name, const std::vector<std::string> &words,
                                      std::string &message)
{
    const Entry *entry = find_command(name);
    if (entry == nullptr) {
        if (listed_but_not_built(name)) {
            message = std::string(name) + " is a support operation of the command list that this library "
                                          "does not build yet";
            return nullptr;
        }
        message = "unknown command '" + std::string(name) + "'";
        const std::vector<std::string> similar = similar_names(name);
        if (!similar.empty())
            message += "\n  did you mean " + join(similar, " or ") + "?";
        message += "\n  list shows every command";
        return nullptr;
    }
    if (!entry->callable_here()) {
        message = entry->refusal;
        return nullptr;
    }
    const size_t wanted = entry->callable->words();
    if (words.size() != wanted) {
        message = entry->name + " takes " + (wanted == 0 ? "no arguments" : count_of(wanted, "argument")) +
                  ", " + std::to_string(words.size()) + " given" + how_to_call(*entry);
        return nullptr;
    }
    std::string error;
    std::unique_ptr<PreparedCall> call = entry->callable->prepare(entry->params, words, error);
    if (call == nullptr)
        message = entry->name + ": " + error + how_to_call(*entry);
    return call;
}

OutputCapture *g_active_capture = nullptr;

} // namespace

OutputCapture *Shell::active_capture()
{
    return g_active_capture;
}

int exit_code(const CallResult &result)
{
    if (!result.called)
        return 2;
    return result.status.value_or(0) != 0 ? 1 : 0;
}

Shell::Shell(Settings settings, Hooks hooks, FILE *out, FILE *err)
    : settings_(settings), hooks_(std::move(hooks)), out_(out), err_(err)
{
}

void Shell::refuse(std::string_view prefix, const std::string &message)
{
    fflush(out_);
    fprintf(err_, "%.*s%s\n", static_cast<int>(prefix.size()), prefix.data(), message.c_str());
    fflush(err_);
}

std::string Shell::check(std::string_view name, const std::vector<std::string> &words) const
{
    std::string message;
    prepare(name, words, message);
    return message;
}

std::string Shell::check_expect(std::string_view name, const std::string &expect, int64_t &status) const
{
    const Entry *entry = find_command(name);
    if (entry == nullptr || !entry->callable_here())
        return "no such command to expect a status from";
    const Callable &callable = *entry->callable;
    const std::string type = callable.returns_status()
                                 ? entry->signature.substr(0, entry->signature.find(' '))
                                 : std::string("a status");
    std::string error =
        parse_integer(expect, callable.status_lowest(), callable.status_highest(), type, status);
    if (!error.empty())
        return "expected status: " + error;
    return {};
}

CallResult Shell::call(std::string_view name, const std::vector<std::string> &words, std::string_view prefix,
                       bool capture)
{
    CallResult result;
    std::string message;
    std::unique_ptr<PreparedCall> prepared = prepare(name, words, message);
    if (prepared == nullptr) {
        refuse(prefix, message);
        return result;
    }

    const Entry &entry = *find_command(name);
    result.skipped = entry.standard_default;
    // Readings are taken from what the command prints: such a command's output is kept (and shown
    // once it returns) whatever the mode.
    const bool has_readings = !readings_of(name).empty();
    fflush(out_);
    OutputCapture captured;
    const bool capturing = (capture || has_readings) && captured.begin();
    const int64_t simulated_before = hooks_.simulated_now ? hooks_.simulated_now() : 0;
    const auto wall_before = std::chrono::steady_clock::now();
    g_active_capture = capturing ? &captured : nullptr;
    result.status = prepared->invoke();
    g_active_capture = nullptr;
    const auto wall_after = std::chrono::steady_clock::now();
    if (hooks_.simulated_now)
        result.simulated_ns = hooks_.simulated_now() - simulated_before;
    result.called = true;
    result.wall_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(wall_after - wall_before).count();
    fflush(stdout); // the command's own output first, whatever stream the shell prints on
    if (capturing)
        captured.end(result.out, result.err);
    result.captured = capturing;
    result.measurements = take_readings(name, result.out);

    for (const std::string &line : prepared->outputs())
        fprintf(out_, "%s\n", line.c_str());
    for (const Measurement &reading : result.measurements)
        if (reading.present)
            fprintf(out_, "  reading %s = %s\n", reading.quantity.name.c_str(), show(reading).c_str());
    for (Measurement &lent : prepared->measured())
        result.measurements.push_back(std::move(lent));
    if (result.status)
        fprintf(out_, "=> %lld\n", static_cast<long long>(*result.status));
    if (settings_.timing) {
        if (result.simulated_ns)
            fprintf(out_, "-- wall %s, simulated %s\n", format_wall(result.wall_ns).c_str(),
                    format_simulated(*result.simulated_ns).c_str());
        else
            fprintf(out_, "-- wall %s\n", format_wall(result.wall_ns).c_str());
    }
    fflush(out_);
    if (hooks_.after_command)
        hooks_.after_command();
    return result;
}

int Shell::run_once(std::string_view name, const std::vector<std::string> &words)
{
    if (name == "help" || name == "list") {
        if (words.size() > 1) {
            refuse("clidriver: ", std::string(name) + " takes at most one word");
            return 2;
        }
        if (name == "help")
            help(words.empty() ? "" : words[0]);
        else
            list(words.empty() ? "" : words[0]);
        return 0;
    }
    return exit_code(call(name, words));
}

bool Shell::run_line(std::string_view text)
{
    line_code_ = 0;
    CommandLine line;
    if (std::string error = split_line(text, line); !error.empty()) {
        refuse("clidriver: ", error);
        line_code_ = 2;
        return true;
    }
    if (line.name.empty())
        return true;
    if (line.name == "quit" || line.name == "exit")
        return false;
    if (line.name == "help" || line.name == "list") {
        line_code_ = run_once(line.name, line.words);
        return true;
    }
    int64_t expected = 0;
    StepOptions options;
    if (line.expect) {
        std::string error = check(line.name, line.words);
        if (error.empty())
            error = read_expectations(*this, line, expected, options);
        if (!error.empty()) {
            refuse("clidriver: ", error);
            line_code_ = 2;
            return true;
        }
    }
    const CallResult result = call(line.name, line.words);
    line_code_ = exit_code(result);
    if (result.called && line.expect) {
        const Verdict verdict =
            judge(result, expected, options, result.simulated_ns.value_or(result.wall_ns));
        print_verdict(out_, verdict);
        line_code_ = verdict.outcome == Outcome::Fail || verdict.outcome == Outcome::Error ? 1 : 0;
    }
    return true;
}

void Shell::help(std::string_view topic)
{
    if (topic.empty()) {
        fputs("Type a command and its arguments, e.g.  CLI_GetGpsCoor 0\n"
              "  list [TEXT]      the commands whose name contains TEXT (any case), each marked\n"
              "                   implemented, default or support\n"
              "  help [COMMAND]   this text, or a command's signature, what to type and its page\n"
              "  quit             leave (Ctrl-D too)\n"
              "Numbers are decimal or 0x hex, with a leading - where the type is signed. A time-out is\n"
              "SECONDS or SECONDS.FRACTION. Bytes are one quoted word of hex pairs: \"FE 00 04\".\n"
              "Result words, buffers and serial port records are lent by the shell and printed after\n"
              "the call, then the status word: => 0. \"=> N\" at the end of a line says what to expect.\n",
              out_);
        fflush(out_);
        return;
    }
    const Entry *entry = find_command(topic);
    if (entry == nullptr) {
        std::string message;
        prepare(topic, {}, message);
        refuse("clidriver: ", message);
        return;
    }
    fprintf(out_, "%s\n", entry->signature.c_str());
    if (!entry->callable_here()) {
        fprintf(out_, "  %s\n", entry->refusal.c_str());
        fflush(out_);
        return;
    }
    fprintf(out_, "  usage: %s\n", usage(*entry).c_str());
    const std::vector<std::string> names = lent(*entry);
    if (!names.empty())
        fprintf(out_, "  lent by the shell and printed after the call: %s\n", join(names, ", ").c_str());
    switch (entry->origin) {
    case Origin::Command:
        if (!entry->default_in_force)
            fputs("  answered by its own implementation\n", out_);
        else if (entry->status_from_default)
            fprintf(out_, "  answered by its default __%s, which returns no status\n", entry->name.c_str());
        else
            fprintf(out_, "  answered by its default __%s\n", entry->name.c_str());
        break;
    case Origin::Default:
        fputs("  the default of the command of the same name without underscores\n", out_);
        break;
    case Origin::Support:
        fputs("  a support operation of the library\n", out_);
        break;
    }
    // The command's page, indented under the signature.
    std::string_view page = command_page(entry->name);
    if (!page.empty())
        fputc('\n', out_);
    while (!page.empty()) {
        const size_t end = std::min(page.find('\n'), page.size());
        const std::string_view text = page.substr(0, end);
        fprintf(out_, "%s%.*s\n", text.empty() ? "" : "  ", static_cast<int>(text.size()), text.data());
        page.remove_prefix(std::min(end + 1, page.size()));
    }
    fflush(out_);
}

namespace
{

// Who answers under a name on this model: the model's (or the library's) own code, a default
// (whose standard body answers "unsupport this function"), or a support operation of the library.
const char *answered_by(const Entry &entry)
{
    switch (entry.origin) {
    case Origin::Command:
        return entry.default_in_force ? "default" : "implemented";
    case Origin::Default:
        return "default";
    case Origin::Support:
        return "support";
    }
    return "";
}

} // namespace

void Shell::list(std::string_view filter)
{
    std::vector<std::pair<std::string, const Entry *>> shown;
    size_t width = 0;
    for (const Entry &entry : command_table()) {
        if (!filter.empty() && !contains_ignoring_case(entry.name, filter))
            continue;
        std::string text =
            entry.callable_here() ? usage(entry) : entry.name + "   (not callable from the shell)";
        width = std::max(width, text.size());
        shown.emplace_back(std::move(text), &entry);
    }
    for (const auto &[text, entry] : shown)
        fprintf(out_, "%-*s  %s\n", static_cast<int>(width), text.c_str(), answered_by(*entry));
    fprintf(out_, "%s\n", count_of(shown.size(), "command").c_str());
    fflush(out_);
}

} // namespace shell
