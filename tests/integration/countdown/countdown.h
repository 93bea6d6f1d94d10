// A fault at every step: each command of the shell's list runs once on a healthy camera, which
// counts the operations it makes (opens, driver requests, reads, writes, selects, pipes, driver
// and image-library operations, thread starts, termios and capture calls, and the messages its
// serial peers send), then once more per operation with exactly that one failing, or with the peer
// falling silent or talking garbage from that message on. Every run must survive, end with the
// status word and the report that failure calls for, leave nothing open but the deliberate
// exceptions, and stay inside the command's own time-outs on the simulated clock.
//
// Each run is a child process forked from a test process that has not touched the library, so
// every step starts from the library as loaded, as a camera's shell starts after power-on.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/fault.h"
#include "core/time.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace countdown
{

// What a row expects when one operation fails. `op` is the operation as the simulated camera
// names it ("open /dev/cpld_drv", "ioctl /dev/motor 0x80046b0c", "DRV_SetIRCut",
// "write /dev/ttyC0"); "write /dev/ttyC0#3" is only its third time in the run, and a trailing '*'
// matches any operation that starts with the rest. The first rule that matches applies.
struct OnFailure {
    const char *op;
    long long status;
    // The last ERROR diagnostic line of the run, as "ERROR function: text", where '*' stands for
    // text the rules leave open; nullptr: no ERROR line at all (a failure the command ignores or
    // only reports on standard error).
    const char *last_error;
    // Why the command may go on, for a failure that leaves the status word 0.
    const char *why = nullptr;
};

struct Row {
    const char *command = nullptr;               // the name in commands.def
    std::function<long long()> call;             // the command with the row's arguments
    const char *scenario = "default.toml";       // the camera, under sim/scenarios
    std::function<void(sim::Scenario &)> camera; // changes to it, or none
    // What the shell ran before, on the healthy camera (a join before a sensor query), or none.
    std::function<void()> prepare;
    long long healthy_status = 0; // the status word when nothing fails
    // The most simulated time any single run may take: the command's own time-outs, added up.
    sim::Nanos bound = 0;
    bool status_word = true;                  // false: the command returns nothing
    std::vector<clitest::LeftOpen> left_open; // what a failed run may leave open on purpose
    std::vector<OnFailure> failures;          // what each failing operation must give
    // Only the invariants are checked for a failing operation that `failures` does not name.
    bool invariants_only = false;
};

// The rows of the commands built in this library, written out; the defaults come from
// commands.def.
const std::vector<Row> &built_rows();

} // namespace countdown
