#include "peripherals/port_log.h"

#include "core/hex_digit.h"

namespace sim
{

namespace
{

constexpr int64_t kLatest = INT64_MAX / 4; // far beyond any run, and safe to add time to

// Splits at spaces and tabs.
std::vector<std::string_view> words_of(std::string_view line)
{
    std::vector<std::string_view> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        const size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
        if (i > start)
            words.push_back(line.substr(start, i - start));
    }
    return words;
}

bool read_time(std::string_view word, int64_t &time)
{
    if (word.empty())
        return false;
    int64_t value = 0;
    for (const char c : word) {
        if (c < '0' || c > '9' || value > (kLatest - (c - '0')) / 10)
            return false; // not a digit, or later than any run
        value = value * 10 + (c - '0');
    }
    time = value;
    return true;
}

} // namespace

PortLog read_port_log(std::string_view text)
{
    PortLog log;
    int64_t last = 0;
    size_t number = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        const auto fail = [&](const std::string &what) {
            log.events.clear();
            log.error = "line " + std::to_string(number) + ": " + what;
            return log;
        };
        const std::vector<std::string_view> words = words_of(line);
        if (words.empty() || words[0][0] == '#')
            continue;
        PortEvent event;
        if (words[0] == "open")
            event.kind = PortEvent::Kind::Open;
        else if (words[0] == "close")
            event.kind = PortEvent::Kind::Close;
        else if (words[0] == ">")
            event.kind = PortEvent::Kind::Wrote;
        else if (words[0] == "<")
            event.kind = PortEvent::Kind::Read;
        else
            return fail("expected open, close, > or < and a time, found \"" + std::string(words[0]) + "\"");
        if (words.size() < 2 || !read_time(words[1], event.time))
            return fail("expected a time in nanoseconds after \"" + std::string(words[0]) + "\"");
        if (event.time < last)
            return fail("the time goes back (" + std::to_string(event.time) + " after " +
                        std::to_string(last) + ")");
        last = event.time;
        const bool carries = event.kind == PortEvent::Kind::Wrote || event.kind == PortEvent::Kind::Read;
        if (!carries && words.size() > 2)
            return fail("\"" + std::string(words[0]) + "\" takes only a time");
        if (carries && words.size() < 3)
            return fail("a write or read carries at least one byte");
        for (size_t i = 2; i < words.size(); ++i) {
            const std::string_view word = words[i];
            const int high = word.size() == 2 ? hex_digit(word[0]) : -1;
            const int low = word.size() == 2 ? hex_digit(word[1]) : -1;
            if (high < 0 || low < 0)
                return fail("expected a byte as two hexadecimal digits, found \"" + std::string(word) + "\"");
            event.bytes.push_back(static_cast<uint8_t>(high * 16 + low));
        }
        log.events.push_back(std::move(event));
    }
    return log;
}

std::string port_log_line(const PortEvent &event)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string line;
    switch (event.kind) {
    case PortEvent::Kind::Open:
        line = "open ";
        break;
    case PortEvent::Kind::Close:
        line = "close ";
        break;
    case PortEvent::Kind::Wrote:
        line = "> ";
        break;
    case PortEvent::Kind::Read:
        line = "< ";
        break;
    }
    line += std::to_string(event.time);
    for (const uint8_t byte : event.bytes) {
        line += ' ';
        line += kDigits[byte >> 4];
        line += kDigits[byte & 15];
    }
    return line;
}

} // namespace sim
