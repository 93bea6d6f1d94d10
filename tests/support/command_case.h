// Table-driven command tests: a case is data (what differs from the healthy camera, the call,
// and everything an operator and the hardware should see), and one body runs every row.
//
// Also the forms a row compares whole: what the call did to the camera's devices, files and
// pipes (a short line per open, request, close, popen and pclose, in order) and the requests with
// their numbers, arguments and the records before and after the driver saw them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "core/journal.h"
#include "sim_fixture.h"

namespace clitest
{

// "open /dev/cpld_drv rw", "open /program/factory/version r failed", "ioctl /dev/cpld_drv 0x1950",
// "close /dev/cpld_drv", "popen lsusb", "pclose lsusb": descriptors and run numbers left out, so
// the same call gives the same trace on every run.
inline std::vector<std::string> camera_trace(const Call &call)
{
    std::vector<std::string> trace;
    for (const sim::Entry &entry : call.journal) {
        switch (entry.kind) {
        case sim::Kind::Open: {
            const int64_t access = entry.values.empty() ? -1 : entry.values[0] & O_ACCMODE;
            const char *mode = access == O_RDONLY   ? " r"
                               : access == O_WRONLY ? " w"
                               : access == O_RDWR   ? " rw"
                                                    : " ?";
            trace.push_back("open " + entry.name + mode + (entry.result < 0 ? " failed" : ""));
            break;
        }
        case sim::Kind::Close:
            trace.push_back("close " + entry.name);
            break;
        case sim::Kind::Ioctl:
            trace.push_back("ioctl " + entry.name + " " +
                            sim::hex(static_cast<uint64_t>(entry.values.empty() ? 0 : entry.values[0])));
            break;
        case sim::Kind::Popen:
            trace.push_back("popen " + entry.name + (entry.result < 0 ? " failed" : ""));
            break;
        case sim::Kind::Pclose:
            trace.push_back("pclose " + entry.name);
            break;
        default:
            break;
        }
    }
    return trace;
}

// Two traces one after the other: what one step did, then the next.
inline std::vector<std::string> concat(std::vector<std::string> first, const std::vector<std::string> &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The 32-bit words of a record, in the camera's (little-endian) order.
inline std::vector<uint32_t> record_words(const std::vector<uint8_t> &bytes)
{
    std::vector<uint32_t> words(bytes.size() / 4);
    if (!words.empty())
        memcpy(words.data(), bytes.data(), words.size() * 4);
    return words;
}

// One driver request as issued: its number, the argument when passed by value, and the record
// behind the pointer before and after the driver answered (both empty for a by-value request).
struct Request {
    uint64_t number = 0;
    int64_t by_value = 0;
    std::vector<uint32_t> before;
    std::vector<uint32_t> after;

    bool operator==(const Request &) const = default;
};

inline void PrintTo(const Request &request, std::ostream *os)
{
    *os << "{" << sim::hex(request.number) << " arg " << request.by_value << " [";
    for (uint32_t word : request.before)
        *os << " " << sim::hex(word);
    *os << " ] -> [";
    for (uint32_t word : request.after)
        *os << " " << sim::hex(word);
    *os << " ]}";
}

// Every request the call issued to `device` (all devices when empty), in order.
inline std::vector<Request> requests(const Call &call, const std::string &device = {})
{
    std::vector<Request> result;
    for (const sim::Entry &entry : call.of(sim::Kind::Ioctl, device)) {
        Request request;
        request.number = static_cast<uint64_t>(entry.values.at(0));
        request.by_value = entry.values.at(1);
        if (!entry.records.empty())
            request.before = record_words(entry.records[0]);
        if (entry.records.size() > 1)
            request.after = record_words(entry.records[1]);
        result.push_back(request);
    }
    return result;
}

// Every diagnostic line of the call came from the command implementations' unit, at a real line.
inline void expect_reported_by_command_unit(const Call &call)
{
    for (const DiagLine &line : call.lines) {
        EXPECT_EQ(line.file, "cli_libfun.cpp") << line.function;
        EXPECT_GT(line.line, 0) << line.function;
    }
}

// Everything one call should show: status word, diagnostic lines ("LEVEL function: text"),
// standard output and error byte for byte, the camera trace and the requests issued.
struct Expected {
    long long status = 0;
    std::vector<std::string> messages;
    std::string out;
    std::string err;
    std::vector<std::string> trace;
    std::vector<Request> requests;
};

inline void expect_call(const Call &call, const Expected &want)
{
    EXPECT_EQ(call.status, want.status);
    EXPECT_EQ(call.messages(), want.messages);
    EXPECT_EQ(call.out, want.out);
    EXPECT_EQ(call.err, want.err);
    EXPECT_EQ(camera_trace(call), want.trace);
    EXPECT_EQ(requests(call), want.requests);
    expect_reported_by_command_unit(call);
}

// One row: the camera (nullptr: the healthy one), the call, what it must show.
struct CommandCase {
    const char *name; // the test's name: letters, digits and underscores
    std::function<void(sim::Scenario &)> camera;
    std::function<long long()> command;
    Expected want;
};

inline void PrintTo(const CommandCase &row, std::ostream *os)
{
    *os << row.name;
}

inline std::string case_name(const ::testing::TestParamInfo<CommandCase> &info)
{
    return info.param.name;
}

// The fixture of a command table: the row's camera, then the call, checked whole.
class CommandTable : public SimTest, public ::testing::WithParamInterface<CommandCase>
{
  protected:
    void run_row()
    {
        const CommandCase &row = GetParam();
        if (row.camera) {
            row.camera(scenario());
            restart();
        }
        expect_call(run(row.command), row.want);
    }
};

} // namespace clitest
