#include "fault_injection.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "core/descriptors.h"
#include "core/real.h"

namespace serialtest
{

Faults &faults()
{
    static Faults armed;
    return armed;
}

namespace
{

// The definition behind this executable's: a sanitizer's wrapper when one is linked in, else the
// next library's (libc, or libclidriver for the link's operations).
template <typename Function> Function next(const char *name)
{
    char wrapped[96];
    snprintf(wrapped, sizeof wrapped, "__interceptor_%s", name);
    void *symbol = dlsym(RTLD_DEFAULT, wrapped);
    if (symbol == nullptr)
        symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        fprintf(stderr, "serial tests: no %s behind the test's own\n", name);
        abort();
    }
    return reinterpret_cast<Function>(symbol);
}

bool product_port(int fd)
{
    return sim::descriptors().kind(fd) == sim::FdKind::Port;
}

} // namespace
} // namespace serialtest

using serialtest::faults;

extern "C" int tcgetattr(int fd, struct termios *settings)
{
    static const auto real = serialtest::next<int (*)(int, struct termios *)>("tcgetattr");
    if (serialtest::product_port(fd) && faults().tcgetattr.fires()) {
        errno = EIO;
        return -1;
    }
    return real(fd, settings);
}

extern "C" int tcsetattr(int fd, int action, const struct termios *settings)
{
    static const auto real = serialtest::next<int (*)(int, int, const struct termios *)>("tcsetattr");
    if (serialtest::product_port(fd) && faults().tcsetattr.fires()) {
        errno = EIO;
        return -1;
    }
    return real(fd, action, settings);
}

extern "C" ssize_t read(int fd, void *buffer, size_t count)
{
    if (serialtest::product_port(fd) && faults().empty_read.fires())
        return 0;
    return sim::real::read(fd, buffer, count);
}

extern "C" uint32_t CLI_ComSend(int fd, uint32_t ulType, const void *pvData, uint32_t ulLen,
                                uint32_t ulCommand)
{
    static const auto real =
        serialtest::next<uint32_t (*)(int, uint32_t, const void *, uint32_t, uint32_t)>("CLI_ComSend");
    if (faults().com_send.fires())
        return 1;
    return real(fd, ulType, pvData, ulLen, ulCommand);
}
