// How far apart two names are, for "did you mean" hints: the shell on a misspelt command, the
// scenario reader on a misspelt device path. Header only, so that the camera's shell and the
// simulated camera share it without either linking the other.
#pragma once

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

namespace text
{

inline std::string lower(std::string_view text)
{
    std::string result(text);
    for (char &c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

// Edit distance (insertions, deletions, substitutions), letter case ignored: "/dev/gpiodev" is 0
// away from "/dev/gpioDev".
inline size_t edit_distance(std::string_view a, std::string_view b)
{
    const std::string x = lower(a), y = lower(b);
    std::vector<size_t> row(y.size() + 1);
    for (size_t j = 0; j <= y.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= x.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= y.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[y.size()];
}

} // namespace text
