// What an operator types where a command wants a number, a time-out or raw bytes, turned into
// the values the command receives. Every parser answers with an empty string on success or with
// the one-line reason the text was refused; none of them throws.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <sys/time.h>
#include <vector>

namespace shell
{

// Decimal ("115200"), hex with 0x ("0x1C200") and, where `lowest` is negative, a leading '-'
// ("-1", "-0x10"). Leading zeros are decimal, not octal: operators copy "010" from logs.
// `type` names the parameter's type in the message ("uint32_t", "int").
std::string parse_integer(std::string_view text, int64_t lowest, uint64_t highest, std::string_view type,
                          int64_t &value);

template <typename T> std::string parse_number(std::string_view text, std::string_view type, T &value)
{
    static_assert(std::numeric_limits<T>::is_integer && sizeof(T) <= 4);
    int64_t parsed = 0;
    std::string error = parse_integer(text, std::numeric_limits<T>::min(),
                                      static_cast<uint64_t>(std::numeric_limits<T>::max()), type, parsed);
    if (error.empty())
        value = static_cast<T>(parsed);
    return error;
}

// A time-out: "SECONDS" or "SECONDS.FRACTION" with up to six digits of fraction, read as a
// decimal fraction of a second ("1.5" is 1 s 500000 us, "0.000250" is 250 us). Seconds fit the
// camera's 32-bit time_t.
std::string parse_timeval(std::string_view text, struct timeval &value);

// Raw bytes as one argument: hex pairs separated by blanks, "FE 00 04" (a run "FE0004" and a
// single digit "7" are accepted too).
std::string parse_hex_bytes(std::string_view text, std::vector<uint8_t> &bytes);

// "FE 00 04": upper-case pairs separated by one blank.
std::string hex_bytes(const uint8_t *bytes, size_t count);

// `text` in double quotes with the escapes C and JSON share (\" \\ \n \r \t); any other byte for
// which `needs_code` holds is written with `code_format`, a printf format taking the byte.
std::string quote_with_escapes(std::string_view text, bool (*needs_code)(unsigned char byte),
                               const char *code_format);

// A string as the shell prints it: in double quotes, with C escapes for quotes, backslashes and
// anything that is not printable ASCII.
std::string escape_text(std::string_view text);

// Wall and simulated durations as the shell prints them: "12.345 ms" and "2.000000 s".
std::string format_wall(int64_t nanoseconds);
std::string format_simulated(int64_t nanoseconds);

} // namespace shell
