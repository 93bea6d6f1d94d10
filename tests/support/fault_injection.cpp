#include "fault_injection.h"

#include <algorithm>
#include <cerrno>

#include "clidriver/clidriver.h"
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

// The simulated camera asks this for every write to one of its serial ports (it owns write).
size_t limit_serial_write(int fd, size_t count)
{
    (void)fd;
    if (faults().short_write.fires())
        return std::min(count, faults().short_write_keeps);
    return count;
}

bool empty_read(int fd)
{
    (void)fd;
    return faults().empty_read.fires();
}

bool fail_getattr(int fd)
{
    (void)fd;
    return faults().tcgetattr.fires();
}

bool fail_setattr(int fd)
{
    (void)fd;
    return faults().tcsetattr.fires();
}

// The simulated camera owns write, read and the termios calls, and asks these on its ports.
[[maybe_unused]] const bool kWriteLimitInstalled = (sim::set_serial_write_limit(limit_serial_write), true);
[[maybe_unused]] const bool kPortHooksInstalled =
    (sim::set_port_hooks(sim::PortHooks{empty_read, fail_getattr, fail_setattr}), true);

} // namespace
} // namespace clitest

using clitest::faults;

extern "C" uint32_t CLI_ComSend(int fd, uint32_t ulType, const void *pvData, uint32_t ulLen,
                                uint32_t ulCommand)
{
    static const auto real =
        sim::real::next<uint32_t (*)(int, uint32_t, const void *, uint32_t, uint32_t)>("CLI_ComSend");
    if (faults().com_send.fires())
        return 1;
    return real(fd, ulType, pvData, ulLen, ulCommand);
}
