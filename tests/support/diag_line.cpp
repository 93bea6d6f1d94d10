#include "diag_line.h"

#include <regex>

namespace clitest
{

std::optional<DiagLine> parse_diag_line(const std::string &raw)
{
    static const std::regex shape(R"(^(\d{4}-\d{2}-\d{2}) (\d{2}:\d{2}:\d{2}) (\d{6}) (\S+) *)"
                                  R"(@fun:(\S+) *line:(\d+) *--\[(.{5})\]([\s\S]*)$)");
    std::smatch m;
    if (!std::regex_match(raw, m, shape))
        return std::nullopt;
    DiagLine line;
    line.date = m[1];
    line.time = m[2];
    line.usec = m[3];
    line.file = m[4];
    line.function = m[5];
    line.line = std::stoi(m[6]);
    line.level = m[7];
    line.text = m[8];
    return line;
}

} // namespace clitest
