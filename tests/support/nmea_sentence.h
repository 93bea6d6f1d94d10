// NMEA sentences for tests: the checksum worked out here, apart from the simulated receiver's and
// the library's own, so a test's sentences do not lean on the code they check.
#pragma once

#include <cstdio>
#include <string>

namespace clitest
{

// "$GPGGA,..." -> "$GPGGA,...*HH": the XOR of every character after the '$', two upper-case digits.
inline std::string with_nmea_checksum(const std::string &body)
{
    unsigned sum = 0;
    for (size_t i = 1; i < body.size(); ++i)
        sum ^= static_cast<unsigned char>(body[i]);
    char digits[3];
    snprintf(digits, sizeof digits, "%02X", sum & 0xFFu);
    return body + "*" + digits;
}

} // namespace clitest
