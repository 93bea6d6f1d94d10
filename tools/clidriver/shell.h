// The operator's shell over the dispatch table: checks a command line, calls the command, and
// prints what came back, in one stable format:
//
//     <whatever the command prints: its standard output and diagnostic lines>
//       *pulIn = 2 (0x2)                      result words the shell lent, in parameter order
//       pvBuf = 24 47 50                      lent buffers, up to the last non-zero byte
//       pstPorts[0] = "/dev/ttyAMA1", flag 1  the serial port list
//       reading cpld = 12                     readings taken from the command's result lines
//     => 0                                    the status word (absent for commands without one)
//     -- wall 0.042 ms, simulated 2.000000 s  with --timing
//
// Refusals (unknown command, wrong number of words, a word that is not a number) go to standard
// error, and the command is then never called.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <pthread.h>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "measurement.h"
#include "words.h"

namespace shell
{

class OutputCapture;

// What the shell asks of the camera it runs on. On a PC the simulated camera fills these in; on
// the camera they stay empty.
struct Hooks {
    std::function<int64_t()> simulated_now;         // nanoseconds on the simulated clock
    std::function<void()> after_command;            // housekeeping between two commands
    std::function<void(bool)> waiting_for_operator; // true while the prompt waits for a line
    // A step's time limit on the simulated clock: time stops at `at_ns` and `reached` runs.
    std::function<void(int64_t at_ns, void (*reached)())> stop_clock_at;
    std::function<void()> clear_clock_stop;
    // Starts a thread of the shell's own, one that takes no part in the camera's simulated time.
    std::function<int(pthread_t *, void *(*)(void *), void *)> start_own_thread;
};

struct Settings {
    bool timing = false; // print each command's wall and simulated time
};

struct CallResult {
    bool called = false;           // false: refused, nothing was called
    std::optional<int64_t> status; // none for a command that returns nothing
    int64_t wall_ns = 0;
    std::optional<int64_t> simulated_ns;
    std::string out, err; // what the command wrote, when the call was captured
    bool captured = false;
    bool skipped = false;                  // a default's standard body answered
    std::vector<Measurement> measurements; // readings, then what the shell lent
};

// 0: success or nothing returned; 1: a non-zero status; 2: refused.
int exit_code(const CallResult &result);

class Shell
{
  public:
    explicit Shell(Settings settings = {}, Hooks hooks = {}, FILE *out = stdout, FILE *err = stderr);

    // Why `name` with `words` cannot be called, or empty. First line the reason, then the
    // signature and what to type.
    std::string check(std::string_view name, const std::vector<std::string> &words) const;
    // Why `expect` is not a status `name` can return, or empty; `status` receives it.
    std::string check_expect(std::string_view name, const std::string &expect, int64_t &status) const;

    // Calls `name` after checking it; a refusal is printed on the error stream after `prefix`.
    // With `capture`, what the command itself writes is kept in the result as well.
    CallResult call(std::string_view name, const std::vector<std::string> &words,
                    std::string_view prefix = "clidriver: ", bool capture = false);

    // One command given on the command line (or the shell words help and list): the exit code.
    int run_once(std::string_view name, const std::vector<std::string> &words);

    // One line typed at the prompt. False once the operator asks to leave.
    bool run_line(std::string_view line);

    void help(std::string_view topic);
    void list(std::string_view filter);

    bool simulated() const { return static_cast<bool>(hooks_.simulated_now); }
    // Around each wait for the operator's next line.
    void waiting_for_operator(bool waiting) const
    {
        if (hooks_.waiting_for_operator)
            hooks_.waiting_for_operator(waiting);
    }
    FILE *out() const { return out_; }
    FILE *err() const { return err_; }
    Settings &settings() { return settings_; }
    // Housekeeping between two commands, for work the station does of its own.
    void after_command() const
    {
        if (hooks_.after_command)
            hooks_.after_command();
    }
    // Nanoseconds on the simulated clock, or none on a camera.
    std::optional<int64_t> simulated_now() const
    {
        return hooks_.simulated_now ? std::optional<int64_t>(hooks_.simulated_now()) : std::nullopt;
    }
    const Hooks &hooks() const { return hooks_; }
    // The capture of the call under way, if any: a command that ends the process leaves it open,
    // and whoever reports that closes it.
    static OutputCapture *active_capture();
    // How the last line given to run_line ended: 0 well, 1 a failed status or limit, 2 refused.
    int line_code() const { return line_code_; }

  private:
    void refuse(std::string_view prefix, const std::string &message);

    Settings settings_;
    Hooks hooks_;
    FILE *out_;
    FILE *err_;
    int line_code_ = 0;
};

} // namespace shell
