// The far end of a simulated camera port, as a peer test holds it: the port opened raw at a
// speed, and bytes read back with a wait for each piece. The waits are real time (select on the
// pty), generous, and only spent when a peer stays quiet.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "core/time.h"

namespace clitest
{

// Opens `path` raw at `speed`, as the product would; -1 when it will not open.
inline int open_raw_line(const char *path, speed_t speed)
{
    const int fd = open(path, O_RDWR | O_NOCTTY);
    if (fd < 0)
        return -1;
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    tcsetattr(fd, TCSANOW, &settings);
    return fd;
}

// Whether `fd` has bytes to read within `timeout`.
inline bool readable_within(int fd, sim::Nanos timeout)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{static_cast<time_t>(timeout / sim::kSecond),
                  static_cast<suseconds_t>(timeout % sim::kSecond / 1000)};
    return select(fd + 1, &set, nullptr, nullptr, &limit) > 0;
}

// `count` bytes from `fd`, waiting up to `wait` for each piece; fewer when the line falls quiet.
inline std::vector<uint8_t> read_exactly(int fd, size_t count, sim::Nanos wait = 5 * sim::kSecond)
{
    std::vector<uint8_t> got;
    while (got.size() < count && readable_within(fd, wait)) {
        uint8_t buffer[256];
        const ssize_t n = read(fd, buffer, std::min(sizeof buffer, count - got.size()));
        if (n <= 0)
            break;
        got.insert(got.end(), buffer, buffer + n);
    }
    return got;
}

} // namespace clitest
