// One line as an operator types it, in a station script or at the prompt:
//     CLI_HeatCtrlBoardToSlot 1 2        => 0   # heater of board 1 sits in slot 2
//     CLI_ComSend 3 0 "FE 00 04" 3 1
//     CLI_GetGpsSatellite 0              => 0, satellites_in_use >= 4
// Blanks separate words; double quotes keep blanks inside one word (\" and \\ escape); a '#'
// that begins a word starts a comment; "=> N" is the status the line expects, and what follows
// it, the limits and step options (checks.h).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace shell
{

struct CommandLine {
    std::string name;                  // empty: a blank or comment-only line
    std::vector<std::string> words;    // the arguments
    std::optional<std::string> expect; // the text after "=>", not yet checked as a number
    std::string checks;                // what follows the expected status, not yet read (checks.h)

    // The command as it would be typed again: name and words, quoted where needed.
    std::string display() const;
};

// Empty on success, else why the line cannot be read.
std::string split_line(std::string_view line, CommandLine &command);

} // namespace shell
