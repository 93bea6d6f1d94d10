#include "print_sink_double.h"

#include <cstdarg>
#include <cstdio>

#include "clidriver/platform.h"

namespace clitest
{
namespace
{
struct timeval g_now = {1795132800, 0}; // 2026-11-20 00:00:00 UTC
}

std::vector<std::string> &printed()
{
    static std::vector<std::string> lines;
    return lines;
}

void set_wall_clock(const struct timeval &now)
{
    g_now = now;
}
} // namespace clitest

extern "C" int Cli_Common_Print(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    if (length >= 0) {
        clitest::printed().emplace_back(text, static_cast<size_t>(length));
        free(text);
    }
    return length;
}

extern "C" int gettimeofday(struct timeval *tv, void *)
{
    if (tv != nullptr)
        *tv = clitest::g_now;
    return 0;
}
