// Splits a diagnostic line into its fields, so that tests can assert on level, function and
// text without caring about the time. Column layout is tested separately on raw lines.
#pragma once

#include <optional>
#include <string>

namespace clitest
{

struct DiagLine {
    std::string date;     // YYYY-MM-DD
    std::string time;     // HH:MM:SS
    std::string usec;     // six digits
    std::string file;     // file field, padding removed
    std::string function; // function field, padding removed
    int line = 0;         // source line
    std::string level;    // " INFO" or "ERROR"
    std::string text;     // message, including its final newline
};

std::optional<DiagLine> parse_diag_line(const std::string &raw);

} // namespace clitest
