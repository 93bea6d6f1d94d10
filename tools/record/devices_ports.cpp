// The descriptors the library opens on the camera: its character devices (each request with the
// record it moved) and its serial ports (every byte each way, with its time). Also the waits and
// clock reads of the library, which a replay needs to land its lines at the recorded times.
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <linux/wireless.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "recorder.h"
#include "request_sizes.h"

using namespace record;

namespace
{

bool is_port_path(const char *path)
{
    return strncmp(path, "/dev/tty", 8) == 0;
}

bool is_device_path(const char *path)
{
    return strncmp(path, "/dev/", 5) == 0 && !is_port_path(path);
}

// glibc declares these pointers never null, so the test sits where the compiler cannot assume it
// away: a null from a caller must reach libc and fail there as it would without the recording.
__attribute__((noinline)) bool given(const void *pointer)
{
    return pointer != nullptr;
}

int mode_argument(int flags, va_list args)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, int) : 0;
}

// An open of the library: a device or a port is noted (opened, or why not); anything else is not
// the camera's hardware and goes by unrecorded.
void note_open(const char *path, int fd, int error, int64_t when)
{
    if (!given(path) || (!is_port_path(path) && !is_device_path(path)))
        return;
    std::lock_guard<std::mutex> hold(state().mutex);
    if (is_port_path(path)) {
        Port &port = state().recording.ports[path];
        port.opens.push_back(fd < 0 ? error : 0);
        if (fd < 0) {
            if (!port.opened && port.first_open_errno == 0)
                port.first_open_errno = error;
            return;
        }
        port.opened = true;
        port.events.push_back({PortEvent::Kind::Open, when, {}});
        state().descriptors[fd] = {Descriptor::Kind::Port, path};
        state().ready_at.erase(fd);
        return;
    }
    Device &device = state().recording.devices[path];
    device.opens.push_back(fd < 0 ? error : 0);
    if (fd < 0) {
        if (!device.opened && device.first_open_errno == 0)
            device.first_open_errno = error;
        return;
    }
    device.opened = true;
    state().descriptors[fd] = {Descriptor::Kind::Device, path};
}

int recorded_open(const char *name, const void *caller, const char *path, int flags, mode_t mode)
{
    using Open = int (*)(const char *, int, ...);
    static const auto next_open = next<Open>("open");
    static const auto next_open64 = next<Open>("open64");
    const auto chosen = strcmp(name, "open64") == 0 ? next_open64 : next_open;
    if (!recorded(caller))
        return chosen(path, flags, mode);
    const int64_t when = now_ns();
    const int fd = chosen(path, flags, mode);
    KeepErrno keep;
    note_open(path, fd, errno, when);
    return fd;
}

// openat and openat64: only absolute paths name the camera's devices and ports.
int recorded_openat(const char *name, const void *caller, int dirfd, const char *path, int flags, mode_t mode)
{
    using OpenAt = int (*)(int, const char *, int, ...);
    static const auto next_openat = next<OpenAt>("openat");
    static const auto next_openat64 = next<OpenAt>("openat64");
    const auto chosen = strcmp(name, "openat64") == 0 ? next_openat64 : next_openat;
    if (!recorded(caller))
        return chosen(dirfd, path, flags, mode);
    const int64_t when = now_ns();
    const int fd = chosen(dirfd, path, flags, mode);
    KeepErrno keep;
    if (given(path) && path[0] == '/')
        note_open(path, fd, errno, when);
    return fd;
}

// The port a descriptor of the library is open on, if it is one.
bool port_of(int fd, std::string *path)
{
    const auto found = state().descriptors.find(fd);
    if (found == state().descriptors.end() || found->second.kind != Descriptor::Kind::Port)
        return false;
    *path = found->second.path;
    return true;
}

int64_t sleep_started()
{
    return now_ns();
}

void note_sleep(int64_t asked, int64_t started)
{
    const int64_t slept = now_ns() - started;
    std::lock_guard<std::mutex> hold(state().mutex);
    state().recording.sleeps_ns.emplace_back(asked, slept);
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return recorded_open("open", __builtin_return_address(0), path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return recorded_open("open64", __builtin_return_address(0), path, flags, mode);
}

int openat(int dirfd, const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return recorded_openat("openat", __builtin_return_address(0), dirfd, path, flags, mode);
}

int openat64(int dirfd, const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return recorded_openat("openat64", __builtin_return_address(0), dirfd, path, flags, mode);
}

// The fortified forms of open that _FORTIFY_SOURCE builds call.
int __open_2(const char *path, int flags)
{
    static const auto next_open = next<int (*)(const char *, int)>("__open_2");
    if (!recorded(__builtin_return_address(0)))
        return next_open(path, flags);
    const int64_t when = now_ns();
    const int fd = next_open(path, flags);
    KeepErrno keep;
    note_open(path, fd, errno, when);
    return fd;
}

int __open64_2(const char *path, int flags)
{
    static const auto next_open = next<int (*)(const char *, int)>("__open64_2");
    if (!recorded(__builtin_return_address(0)))
        return next_open(path, flags);
    const int64_t when = now_ns();
    const int fd = next_open(path, flags);
    KeepErrno keep;
    note_open(path, fd, errno, when);
    return fd;
}

int close(int fd)
{
    static const auto next_close = next<int (*)(int)>("close");
    if (!recorded(__builtin_return_address(0)))
        return next_close(fd);
    const int64_t when = now_ns();
    const int result = next_close(fd);
    KeepErrno keep;
    std::lock_guard<std::mutex> hold(state().mutex);
    const auto found = state().descriptors.find(fd);
    if (found != state().descriptors.end()) {
        if (found->second.kind == Descriptor::Kind::Port)
            state().recording.ports[found->second.path].events.push_back({PortEvent::Kind::Close, when, {}});
        state().descriptors.erase(found);
        state().ready_at.erase(fd);
    }
    return result;
}

ssize_t read(int fd, void *buffer, size_t count)
{
    static const auto next_read = next<ssize_t (*)(int, void *, size_t)>("read");
    if (!recorded(__builtin_return_address(0)))
        return next_read(fd, buffer, count);
    const int64_t when = now_ns();
    const ssize_t got = next_read(fd, buffer, count);
    KeepErrno keep;
    std::lock_guard<std::mutex> hold(state().mutex);
    std::string path;
    if (!port_of(fd, &path))
        return got;
    // The bytes were known to be there when the select before this read said so.
    int64_t stamp = when;
    if (const auto ready = state().ready_at.find(fd); ready != state().ready_at.end()) {
        stamp = ready->second;
        state().ready_at.erase(ready);
    }
    if (got > 0) {
        const auto *bytes = static_cast<const uint8_t *>(buffer);
        state().recording.ports[path].events.push_back(
            {PortEvent::Kind::Read, stamp, Bytes(bytes, bytes + got)});
    }
    return got;
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    static const auto next_write = next<ssize_t (*)(int, const void *, size_t)>("write");
    if (!recorded(__builtin_return_address(0)))
        return next_write(fd, buffer, count);
    const int64_t when = now_ns();
    const ssize_t written = next_write(fd, buffer, count);
    KeepErrno keep;
    std::lock_guard<std::mutex> hold(state().mutex);
    std::string path;
    if (written > 0 && port_of(fd, &path)) {
        const auto *bytes = static_cast<const uint8_t *>(buffer);
        state().recording.ports[path].events.push_back(
            {PortEvent::Kind::Wrote, when, Bytes(bytes, bytes + written)});
    }
    return written;
}

int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, struct timeval *timeout)
{
    using Select = int (*)(int, fd_set *, fd_set *, fd_set *, struct timeval *);
    static const auto next_select = next<Select>("select");
    if (!recorded(__builtin_return_address(0)))
        return next_select(nfds, readfds, writefds, exceptfds, timeout);
    fd_set asked;
    FD_ZERO(&asked);
    if (readfds != nullptr)
        asked = *readfds;
    const int ready = next_select(nfds, readfds, writefds, exceptfds, timeout);
    KeepErrno keep;
    if (readfds == nullptr)
        return ready;
    // A port reported ready gets the time its bytes were known to be there; one asked about and
    // not ready has no such time (an earlier select's stamp would be stale).
    const int64_t when = now_ns();
    std::lock_guard<std::mutex> hold(state().mutex);
    std::string path;
    for (int fd = 0; fd < nfds && fd < FD_SETSIZE; ++fd) {
        if (!FD_ISSET(fd, &asked) || !port_of(fd, &path))
            continue;
        if (ready > 0 && FD_ISSET(fd, readfds))
            state().ready_at[fd] = when;
        else
            state().ready_at.erase(fd);
    }
    return ready;
}

int ioctl(int fd, unsigned long request, ...)
{
    using Ioctl = int (*)(int, unsigned long, ...);
    static const auto next_ioctl = next<Ioctl>("ioctl");
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (!recorded(__builtin_return_address(0)))
        return next_ioctl(fd, request, argument);

    std::string device;
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const auto found = state().descriptors.find(fd);
        if (found != state().descriptors.end() && found->second.kind == Descriptor::Kind::Device)
            device = found->second.path;
    }
    if (device.empty()) {
        // The Wi-Fi channel request goes to a datagram socket: its outcome is the camera's answer.
        struct stat status = {};
        const int saved = errno;
        const bool channel = request == SIOCSIWFREQ && fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
        errno = saved;
        const int result = next_ioctl(fd, request, argument);
        KeepErrno keep;
        if (channel) {
            std::lock_guard<std::mutex> hold(state().mutex);
            state().recording.wifi.channel_errors.push_back(result == 0 ? 0 : errno);
        }
        return result;
    }

    Request entry;
    entry.number = request;
    const size_t size = request_size(request);
    const auto *record_bytes = static_cast<const uint8_t *>(argument);
    if (size == 0 || argument == nullptr)
        entry.value = reinterpret_cast<uintptr_t>(argument);
    else
        entry.sent = Bytes(record_bytes, record_bytes + size);
    const int result = next_ioctl(fd, request, argument);
    KeepErrno keep;
    entry.result = result;
    entry.error = result < 0 ? errno : 0;
    if (entry.sent)
        entry.bytes = Bytes(record_bytes, record_bytes + size);
    std::lock_guard<std::mutex> hold(state().mutex);
    state().recording.devices[device].requests.push_back(std::move(entry));
    return result;
}

int socket(int domain, int type, int protocol)
{
    static const auto next_socket = next<int (*)(int, int, int)>("socket");
    if (!recorded(__builtin_return_address(0)))
        return next_socket(domain, type, protocol);
    const int fd = next_socket(domain, type, protocol);
    KeepErrno keep;
    // The socket the channel request goes through: a camera that cannot open it answers so.
    if (fd < 0 && domain == AF_INET && (type & 0xF) == SOCK_DGRAM) {
        std::lock_guard<std::mutex> hold(state().mutex);
        if (state().recording.wifi.socket_errno == 0)
            state().recording.wifi.socket_errno = errno;
    }
    return fd;
}

unsigned int sleep(unsigned int seconds)
{
    static const auto next_sleep = next<unsigned int (*)(unsigned int)>("sleep");
    if (!recorded(__builtin_return_address(0)))
        return next_sleep(seconds);
    const int64_t started = sleep_started();
    const unsigned int left = next_sleep(seconds);
    KeepErrno keep;
    note_sleep(static_cast<int64_t>(seconds) * 1000000000, started);
    return left;
}

int usleep(useconds_t microseconds)
{
    static const auto next_usleep = next<int (*)(useconds_t)>("usleep");
    if (!recorded(__builtin_return_address(0)))
        return next_usleep(microseconds);
    const int64_t started = sleep_started();
    const int result = next_usleep(microseconds);
    KeepErrno keep;
    note_sleep(static_cast<int64_t>(microseconds) * 1000, started);
    return result;
}

int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    static const auto next_nanosleep = next<int (*)(const struct timespec *, struct timespec *)>("nanosleep");
    if (!recorded(__builtin_return_address(0)) || wanted == nullptr)
        return next_nanosleep(wanted, left);
    const int64_t started = sleep_started();
    const int result = next_nanosleep(wanted, left);
    KeepErrno keep;
    note_sleep(static_cast<int64_t>(wanted->tv_sec) * 1000000000 + wanted->tv_nsec, started);
    return result;
}

int gettimeofday(struct timeval *tv, void *tz)
{
    static const auto next_gettimeofday = next<int (*)(struct timeval *, void *)>("gettimeofday");
    if (!recorded(__builtin_return_address(0)))
        return next_gettimeofday(tv, tz);
    const int result = next_gettimeofday(tv, tz);
    KeepErrno keep;
    if (result == 0 && given(tv)) {
        const int64_t us = (static_cast<int64_t>(tv->tv_sec) - boot_epoch()) * 1000000 + tv->tv_usec;
        std::lock_guard<std::mutex> hold(state().mutex);
        state().recording.clock_us.push_back(us);
    }
    return result;
}

} // extern "C"
