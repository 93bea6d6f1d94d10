// How the camera reads a located NMEA sentence, written here from the reading rules alone, for
// the tests and fuzz targets to work out what the sentence analysis must say: the field table,
// the number a field stands for, and the angle as the operator sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace clitest
{

// The field table: 32 fields of at most 31 characters.
constexpr size_t kNmeaFields = 32;
constexpr size_t kNmeaFieldChars = 31;

// Field 0 is the address, field k the text after the k-th comma, up to the '*' (or the end of the
// text). A character beyond the 31st of its field is dropped; nothing after the 32nd field is kept.
inline std::vector<std::string> nmea_fields(const std::string &sentence)
{
    std::vector<std::string> fields(1);
    for (const char c : sentence) {
        if (c == '*' || c == '\0')
            break;
        if (c == ',') {
            if (fields.size() == kNmeaFields)
                break;
            fields.emplace_back();
        } else if (fields.back().size() < kNmeaFieldChars) {
            fields.back() += c;
        }
    }
    fields.resize(kNmeaFields);
    return fields;
}

// A field read as atoi reads it on the camera (a 32-bit C library): white space skipped, an
// optional sign, then decimal digits up to the first other character; a value beyond the range
// of a 32-bit int is held at the nearest end; no digits read as 0. Handed back as the unsigned
// word the command stores.
inline uint32_t nmea_number(const std::string &text)
{
    size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r')))
        ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-'))
        negative = text[at++] == '-';
    constexpr int64_t kMostPositive = 2147483647;
    constexpr int64_t kMostNegative = -2147483648LL;
    int64_t magnitude = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        magnitude = magnitude * 10 + (text[at] - '0');
        if (magnitude > kMostPositive + 1)
            magnitude = kMostPositive + 1; // already beyond either end: stays there
    }
    int64_t value = negative ? -magnitude : magnitude;
    if (value > kMostPositive)
        value = kMostPositive;
    if (value < kMostNegative)
        value = kMostNegative;
    return static_cast<uint32_t>(static_cast<int32_t>(value));
}

// An angle written ddmm.mmmm as the operator sees it: the point moved two places to the left,
// every other point dropped, the digits in their order ("3150.7816" shows as "31.507816"). A
// first point before index 3 is refused: false, with nothing shown.
inline bool nmea_shown_angle(const std::string &angle, std::string &shown)
{
    shown.clear();
    const size_t point = angle.find('.');
    if (point != std::string::npos && point < 3)
        return false;
    for (const char c : angle)
        if (c != '.')
            shown += c;
    if (point != std::string::npos)
        shown.insert(point - 2, ".");
    return true;
}

} // namespace clitest
