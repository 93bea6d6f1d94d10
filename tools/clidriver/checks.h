// What a station script line expects besides its status word, written after "=> N", separated by
// commas:
//
//     CLI_GetGpsSatellite 0     => 0, satellites_in_use >= 4
//     Cli_GetVersion_CPLD       => 0, cpld = 012
//     CLI_GetCpuInfo            => 0, chip in HI3516A|HI3516D
//     CLI_GetGpsCoor 0          => 0, latitude in 44.0..44.1, latitude_hemisphere = N, retry 1
//     CLI_GetVersionAll         => 0, software ~ "^2\.1\.", timeout 5
//
// A limit names a measurement of the command: "=" and "!=" (a number or a text), "<" "<=" ">"
// ">=" (numbers), "in LOW..HIGH" (a range, both ends included), "in A|B|C" (one of a set), and
// "~ PATTERN" (a regular expression found in the value as printed). "retry N" runs a failing step
// up to N more times; "timeout SECONDS" is the step's time limit (simulated time on the simulated
// camera, wall time on the camera).
#pragma once

#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "measurement.h"

namespace shell
{

struct Limit {
    enum class Op { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual, Range, Set, Pattern };
    std::string name; // the measurement
    Op op = Op::Equal;
    std::string written;             // the limit as the script writes it, without the name: ">= 4"
    std::vector<std::string> values; // the value, the range's two ends, or the set's members
    std::vector<double> numbers;     // the same as numbers, where the measurement is one
    std::regex pattern;
};

struct StepOptions {
    std::vector<Limit> limits;
    int retries = 0;
    std::optional<double> timeout_s;
};

// Reads the text after the expected status against what the command measures. Empty on
// success, else why the text cannot be used.
std::string parse_checks(std::string_view text, const std::vector<Quantity> &measured, StepOptions &options);

// Whether `measurement` keeps to `limit`; on a failure `why` says so in the operator's words.
bool within(const Limit &limit, const Measurement &measurement, std::string &why);

} // namespace shell
