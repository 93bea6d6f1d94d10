// The value of one hexadecimal digit, as peers read them: NMEA checksums after '*' and the bytes
// of a recorded port log. Either case is accepted; anything else is -1.
#pragma once

namespace sim
{

inline int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace sim
