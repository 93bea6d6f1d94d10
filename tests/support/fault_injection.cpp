#include "fault_injection.h"

#include <algorithm>
#include <cerrno>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "core/descriptors.h"
#include "core/real.h"
#include "devices/serial.h"

namespace clitest
{

Faults &faults()
{
    static Faults armed;
    return armed;
}

namespace
{

bool product_port(int fd)
{
    return sim::descriptors().kind(fd) == sim::FdKind::Port;
}

// The simulated camera asks this for every write to one of its serial ports (it owns write).
size_t limit_serial_write(int fd, size_t count)
{
    (void)fd;
    if (faults().short_write.fires())
        return std::min(count, faults().short_write_keeps);
    return count;
}

[[maybe_unused]] const bool kWriteLimitInstalled = (sim::set_serial_write_limit(limit_serial_write), true);

} // namespace
} // namespace clitest

using clitest::faults;

extern "C" int tcgetattr(int fd, struct termios *settings)
{
    static const auto real = sim::real::next<int (*)(int, struct termios *)>("tcgetattr");
    if (clitest::product_port(fd) && faults().tcgetattr.fires()) {
        errno = EIO;
        return -1;
    }
    return real(fd, settings);
}

extern "C" int tcsetattr(int fd, int action, const struct termios *settings)
{
    static const auto real = sim::real::next<int (*)(int, int, const struct termios *)>("tcsetattr");
    if (clitest::product_port(fd) && faults().tcsetattr.fires()) {
        errno = EIO;
        return -1;
    }
    return real(fd, action, settings);
}

extern "C" ssize_t read(int fd, void *buffer, size_t count)
{
    if (clitest::product_port(fd) && faults().empty_read.fires())
        return 0;
    return sim::real::read(fd, buffer, count);
}

extern "C" uint32_t CLI_ComSend(int fd, uint32_t ulType, const void *pvData, uint32_t ulLen,
                                uint32_t ulCommand)
{
    static const auto real =
        sim::real::next<uint32_t (*)(int, uint32_t, const void *, uint32_t, uint32_t)>("CLI_ComSend");
    if (faults().com_send.fires())
        return 1;
    return real(fd, ulType, pvData, ulLen, ulCommand);
}
