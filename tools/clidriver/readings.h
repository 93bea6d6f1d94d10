// Readings: the measurements a command's result lines carry, taken from its standard output by
// the rows of include/clidriver/readings.def. The rows hold each line as the command prints it
// (its printf format); this file turns a format into a matcher of whole lines, so the rule a
// station uses is the text the command is known to print, written once.
#pragma once

#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "measurement.h"

namespace shell
{

struct ReadingRule {
    std::string command;           // who prints the line
    std::string format;            // as the row gives it
    std::vector<std::regex> lines; // one matcher per printed line
    std::vector<Quantity> fields;  // one per conversion, in order
    std::vector<bool> hex;         // per field: the conversion prints hexadecimal
};

// Turns one row into a rule; on a mistake in the row, empty `error` says what.
ReadingRule make_rule(std::string_view command, std::string_view format, std::string_view names,
                      std::string &error);

// Every row of readings.def, made into rules. A row with a mistake is left out; the shell's tests
// check that there is none (reading_rule_errors).
const std::vector<ReadingRule> &reading_rules();
std::vector<std::string> reading_rule_errors();

// The names a command's result lines carry, its own and those of what it calls, without repeats.
std::vector<Quantity> readings_of(std::string_view command);

// Takes `command`'s readings from what it wrote on standard output. Every reading of the command
// comes back, present or not.
std::vector<Measurement> take_readings(std::string_view command, std::string_view out);

} // namespace shell
