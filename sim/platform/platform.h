// The simulated camera platform: every operation of the closed driver and image libraries that
// libclidriver calls (include/clidriver/platform.def), answering as a healthy camera unless a
// scenario or a test says otherwise, and journaling every call with its arguments and the
// contents of the records passed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "clidriver/platform.h"

namespace sim
{

// One call as the product made it.
struct PlatformCall {
    std::string name;
    std::vector<int64_t> numbers;     // the number arguments alone
    std::vector<int64_t> values;      // integer arguments (pointers as their address)
    std::vector<std::string> texts;   // string arguments
    std::vector<void *> records;      // pointer arguments, in order
    std::vector<size_t> record_sizes; // bytes behind each
};

// How one operation answers. For each call: the hook when set, else the next of the sequence,
// else the standing result (0 when none). `out` is written through the first record argument
// (the board type, the version text, the compass reading...).
// One call as a recording layer saw it on a camera.
struct RecordedCall {
    std::vector<int64_t> args;      // number arguments
    std::vector<std::string> texts; // text arguments
    int64_t result = 0;
    std::optional<std::vector<uint8_t>> sent; // the first record as the library passed it
    std::vector<uint8_t> bytes;               // the first record after the call
};

struct OpScript {
    std::optional<int64_t> result;
    std::deque<int64_t> sequence;
    std::vector<uint8_t> out;
    std::function<int64_t(PlatformCall &)> hook;
    int calls = 0;
    std::deque<RecordedCall> recorded; // a recorded camera: the calls in order, nothing else
};

class Platform
{
  public:
    void reset();
    OpScript &script(const std::string &operation);
    // Under a recorded camera: the next recorded call of the operation, checked against this one.
    int64_t answer_recorded(PlatformCall &call);
    // The alarm count record drv_GetAlarmCnt hands out.
    CliAlarmCount &alarm_count() { return alarm_count_; }
    // Where Cli_Common_Print also writes each line (the shell's console); null: journal only.
    void set_console(FILE *console) { console_ = console; }
    FILE *console() const { return console_; }

    int64_t answer(PlatformCall &call); // used by the generated operations

  private:
    std::mutex mutex_;
    std::map<std::string, OpScript> scripts_;
    CliAlarmCount alarm_count_{};
    FILE *console_ = nullptr;
};

Platform &platform();

// The names of every simulated operation, in list order.
const std::vector<std::string> &platform_operations();

} // namespace sim
