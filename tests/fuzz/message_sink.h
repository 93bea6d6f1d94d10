// The platform's print sink for the fuzz targets that compare diagnostic lines: each line is
// formatted whole and its message (what follows the level field) kept, in order, in
// fuzz_messages(). A line that does not format or does not fit the sink's buffer ends the run,
// since it could not be compared. Included by one source of a target: it defines the sink.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

inline std::vector<std::string> &fuzz_messages()
{
    static std::vector<std::string> messages;
    return messages;
}

extern "C" int Cli_Common_Print(const char *format, ...)
{
    char line[8192];
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (n < 0 || static_cast<size_t>(n) >= sizeof line) {
        fprintf(stderr, "a diagnostic line that does not format or fit %zu bytes\n", sizeof line);
        abort();
    }
    const std::string whole(line, static_cast<size_t>(n));
    const size_t level = whole.find("--["); // "--[ INFO]" or "--[ERROR]": nine characters
    fuzz_messages().push_back(level == std::string::npos ? whole : whole.substr(level + 9));
    return n;
}
