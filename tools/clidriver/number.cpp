#include "number.h"

#include <cstdio>

namespace shell
{
namespace
{

int digit_value(char c, int base)
{
    int value = -1;
    if (c >= '0' && c <= '9')
        value = c - '0';
    else if (c >= 'a' && c <= 'f')
        value = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
        value = c - 'A' + 10;
    return value < base ? value : -1;
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string quoted(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

} // namespace

std::string parse_integer(std::string_view text, int64_t lowest, uint64_t highest, std::string_view type,
                          int64_t &value)
{
    const std::string_view original = text;
    const std::string range = " (" + std::to_string(lowest) + " to " + std::to_string(highest) + ")";
    bool negative = false;
    if (!text.empty() && text.front() == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty())
        return quoted(original) + " is not a number (decimal, or hex with 0x)";
    // Accumulate the magnitude; anything beyond 64 bits is out of every range the shell knows.
    uint64_t magnitude = 0;
    bool overflow = false;
    for (char c : text) {
        const int digit = digit_value(c, base);
        if (digit < 0)
            return quoted(original) + " is not a number (decimal, or hex with 0x)";
        if (magnitude > (UINT64_MAX - static_cast<uint64_t>(digit)) / static_cast<uint64_t>(base))
            overflow = true;
        else
            magnitude = magnitude * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    }
    if (negative && magnitude != 0 && lowest >= 0)
        return quoted(original) + " is out of range for " + std::string(type) + range +
               ": no sign for an unsigned number";
    const uint64_t limit = negative ? static_cast<uint64_t>(-(lowest + 1)) + 1 : highest;
    if (overflow || magnitude > limit)
        return quoted(original) + " is out of range for " + std::string(type) + range;
    // -(magnitude - 1) - 1 reaches INT64_MIN without overflowing on the way.
    value = !negative || magnitude == 0 ? static_cast<int64_t>(magnitude)
                                        : -static_cast<int64_t>(magnitude - 1) - 1;
    return {};
}

std::string parse_timeval(std::string_view text, struct timeval &value)
{
    const std::string refusal = quoted(text) + " is not a time-out (SECONDS or SECONDS.FRACTION, e.g. 1.5)";
    const size_t dot = text.find('.');
    const std::string_view whole = text.substr(0, dot);
    const std::string_view fraction =
        dot == std::string_view::npos ? std::string_view{} : text.substr(dot + 1);
    if (whole.empty() || (dot != std::string_view::npos && (fraction.empty() || fraction.size() > 6)))
        return refusal;
    int64_t seconds = 0;
    for (char c : whole) {
        if (digit_value(c, 10) < 0)
            return refusal;
        seconds = seconds * 10 + (c - '0');
        if (seconds > INT32_MAX)
            return quoted(text) + " is out of range for a time-out (at most 2147483647 seconds)";
    }
    int64_t microseconds = 0;
    for (size_t i = 0; i < 6; ++i) {
        int digit = 0;
        if (i < fraction.size()) {
            digit = digit_value(fraction[i], 10);
            if (digit < 0)
                return refusal;
        }
        microseconds = microseconds * 10 + digit;
    }
    value.tv_sec = static_cast<time_t>(seconds);
    value.tv_usec = static_cast<suseconds_t>(microseconds);
    return {};
}

std::string parse_hex_bytes(std::string_view text, std::vector<uint8_t> &bytes)
{
    std::vector<uint8_t> result;
    size_t i = 0;
    while (i < text.size()) {
        if (is_blank(text[i])) {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < text.size() && !is_blank(text[end]))
            ++end;
        const std::string_view run = text.substr(i, end - i);
        if (run.size() != 1 && run.size() % 2 != 0)
            return quoted(text) + " is not hex bytes (pairs of hex digits, like \"FE 00 04\")";
        for (size_t at = 0; at < run.size(); at += run.size() == 1 ? 1 : 2) {
            const int high = run.size() == 1 ? 0 : digit_value(run[at], 16);
            const int low = digit_value(run[run.size() == 1 ? at : at + 1], 16);
            if (high < 0 || low < 0)
                return quoted(text) + " is not hex bytes (pairs of hex digits, like \"FE 00 04\")";
            result.push_back(static_cast<uint8_t>(high * 16 + low));
        }
        i = end;
    }
    bytes = std::move(result);
    return {};
}

std::string hex_bytes(const uint8_t *bytes, size_t count)
{
    std::string text;
    text.reserve(count * 3);
    char pair[4];
    for (size_t i = 0; i < count; ++i) {
        snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes[i]);
        text += pair;
    }
    return text;
}

std::string quote_with_escapes(std::string_view text, bool (*needs_code)(unsigned char byte),
                               const char *code_format)
{
    std::string result = "\"";
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            result += "\\\"";
            break;
        case '\\':
            result += "\\\\";
            break;
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        default:
            if (needs_code(byte)) {
                char code[8];
                snprintf(code, sizeof code, code_format, byte);
                result += code;
            } else {
                result += c;
            }
        }
    }
    return result + "\"";
}

std::string escape_text(std::string_view text)
{
    return quote_with_escapes(
        text, [](unsigned char byte) { return byte < 0x20 || byte >= 0x7F; }, "\\x%02X");
}

std::string format_wall(int64_t nanoseconds)
{
    char text[48];
    snprintf(text, sizeof text, "%.3f ms", static_cast<double>(nanoseconds) / 1e6);
    return text;
}

std::string format_simulated(int64_t nanoseconds)
{
    char text[48];
    snprintf(text, sizeof text, "%lld.%06lld s", static_cast<long long>(nanoseconds / 1000000000),
             static_cast<long long>((nanoseconds % 1000000000) / 1000));
    return text;
}

} // namespace shell
