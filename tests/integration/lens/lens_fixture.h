// What the lens and video tests share: the calls a command made into the camera's driver and
// image libraries, and a table whose rows compare those calls beside everything a CommandCase
// compares.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "command_case.h"
#include "core/journal.h"

namespace lenstest
{

// "ISP_SetAEIris(0, 100) -> 0": every platform call of the call, in order, as the simulated
// platform journals it (integers in decimal, records as their 32-bit words after the call).
inline std::vector<std::string> platform_trace(const clitest::Call &call)
{
    std::vector<std::string> trace;
    for (const sim::Entry &entry : call.of(sim::Kind::Platform))
        trace.push_back(entry.text);
    return trace;
}

// The 32-bit words of the record handed to the `nth` call (from 0) of `operation`.
inline std::vector<uint32_t> record_of(const clitest::Call &call, const std::string &operation,
                                       size_t nth = 0)
{
    const auto calls = call.of(sim::Kind::Platform, operation);
    if (nth >= calls.size() || calls[nth].records.empty()) {
        ADD_FAILURE() << operation << " call " << nth << " with a record was not made";
        return {};
    }
    return clitest::record_words(calls[nth].records[0]);
}

// One row: the camera (nullptr: the healthy one), the call, what it must show, and the platform
// calls it must make.
struct PlatformCase {
    const char *name;
    std::function<void(sim::Scenario &)> camera;
    std::function<long long()> command;
    clitest::Expected want;
    std::vector<std::string> platform;
};

inline void PrintTo(const PlatformCase &row, std::ostream *os)
{
    *os << row.name;
}

inline std::string platform_case_name(const ::testing::TestParamInfo<PlatformCase> &info)
{
    return info.param.name;
}

class PlatformTable : public clitest::SimTest, public ::testing::WithParamInterface<PlatformCase>
{
  protected:
    void run_row()
    {
        const PlatformCase &row = GetParam();
        if (row.camera) {
            row.camera(scenario());
            restart();
        }
        const clitest::Call call = run(row.command);
        clitest::expect_call(call, row.want);
        EXPECT_EQ(platform_trace(call), row.platform);
    }
};

// The source line of the first line of `source` (relative to the repository) that holds `text`;
// -1 when none does. Assertion lines name their source line, which the tests read here.
inline int source_line_of(const std::string &source, const std::string &text)
{
    std::ifstream in(std::string(CLIDRIVER_SOURCE_DIR) + "/" + source);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number)
        if (line.find(text) != std::string::npos)
            return number;
    return -1;
}

} // namespace lenstest
