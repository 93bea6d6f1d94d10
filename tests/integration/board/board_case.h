// What the traffic camera's board commands show, row by row: besides the lines, standard output and
// error and the status word of every command, the platform operations each one made, with the
// records they were handed, in order. These commands reach the hardware only through the
// platform, so no device may be opened and no simulated time may pass.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "command_case.h"
#include "core/journal.h"
#include "scenario/scenario.h"

namespace boardtest
{

// "DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0": each platform operation of `entries` as the
// simulated platform saw it (records as their 32-bit words after the call, the version area as
// its text), with its answer.
inline std::vector<std::string> platform_calls(const std::vector<sim::Entry> &entries)
{
    std::vector<std::string> calls;
    for (const sim::Entry &entry : entries)
        if (entry.kind == sim::Kind::Platform)
            calls.push_back(entry.text);
    return calls;
}

inline std::vector<std::string> platform_calls(const clitest::Call &call)
{
    return platform_calls(call.journal);
}

// The console error line of a board command: "[ERROR]:TEXT\t@[src/cli_libfun.cpp FUNCTION]\r\n".
inline std::string console(const std::string &text, const std::string &function)
{
    return "[ERROR]:" + text + "\t@[src/cli_libfun.cpp " + function + "]\r\n";
}

// The call-failure pair's standard-error half.
inline std::string call_failed(const std::string &what, const std::string &function)
{
    return "[src/cli_libfun.cpp " + function + "]: " + what + " call failed\r\n";
}

struct Shown {
    long long status = 0;
    std::vector<std::string> messages; // "LEVEL function: text"
    std::string out;
    std::string err;
    std::vector<std::string> platform; // platform_calls()
};

// One row: what differs from the healthy camera, the call, and everything it must show.
struct BoardCase {
    const char *name;
    std::function<void(sim::Scenario &)> camera;
    std::function<long long()> command;
    Shown want;
};

inline void PrintTo(const BoardCase &row, std::ostream *os)
{
    *os << row.name;
}

inline std::string case_name(const ::testing::TestParamInfo<BoardCase> &info)
{
    return info.param.name;
}

inline void expect_shown(const clitest::Call &call, const Shown &want)
{
    EXPECT_EQ(call.status, want.status);
    EXPECT_EQ(call.messages(), want.messages);
    EXPECT_EQ(call.out, want.out);
    EXPECT_EQ(call.err, want.err);
    EXPECT_EQ(platform_calls(call), want.platform);
    EXPECT_EQ(clitest::camera_trace(call), std::vector<std::string>{}) << "no device, file or pipe";
    EXPECT_EQ(call.waited, 0) << "no simulated time passes";
    clitest::expect_reported_by_command_unit(call);
}

class BoardTable : public clitest::SimTest, public ::testing::WithParamInterface<BoardCase>
{
  protected:
    void run_row()
    {
        const BoardCase &row = GetParam();
        if (row.camera) {
            row.camera(scenario());
            restart();
        }
        expect_shown(run(row.command), row.want);
    }
};

} // namespace boardtest
