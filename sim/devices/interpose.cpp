// The libc and libpcap entry points the simulated camera takes over. Each one looks at what it
// is asked for: a camera path, a simulated descriptor, a fixed command, the Wi-Fi interface, a
// wait; anything else goes to the real function untouched.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <linux/wireless.h>
#include <mutex>
#include <poll.h>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "core/clock.h"
#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/real.h"
#include "core/sim.h"
#include "devices/capture.h"
#include "devices/chardev.h"
#include "devices/files.h"
#include "devices/serial.h"
#include "devices/wireless.h"

using namespace sim;

namespace
{

int open_path(const char *path, int flags, mode_t mode)
{
    if (active() && path != nullptr) {
        if (serial_ports().simulated(path))
            return serial_ports().open(path, flags);
        if (devices().simulated(path))
            return devices().open(path, flags);
        if (files().simulated_file(path))
            return files().open(path, flags);
    }
    return real::open(path, flags, mode);
}

// Whether an openat names a path the simulator may own. glibc declares the path never null, so
// the test sits in a function of its own where the compiler cannot assume it away: a null path
// must reach the kernel and fail with EFAULT as it would on the camera, not crash here.
__attribute__((noinline)) bool plain_path(int dirfd, const char *path)
{
    return path != nullptr && (path[0] == '/' || dirfd == AT_FDCWD);
}

int mode_argument(int flags, va_list args)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, int) : 0;
}

void journal_close(const FdOwner &owner, int fd)
{
    if (owner.kind == FdKind::Socket)
        return;
    Entry entry;
    entry.kind = Kind::Close;
    entry.name = owner.what;
    entry.values = {fd};
    entry.text = "close " + owner.what + " fd " + std::to_string(fd);
    journal().add(entry);
}

// Forgets a simulated descriptor that is being closed.
void closing(int fd)
{
    if (descriptors().kind(fd) == FdKind::None)
        return;
    if (descriptors().kind(fd) == FdKind::Port) {
        if (Port *port = serial_ports().port_of_fd(fd))
            port->product_closed(fd);
    }
    if (auto owner = descriptors().forget(fd))
        journal_close(*owner, fd);
}

bool on_port(int fd)
{
    return descriptors().kind(fd) == FdKind::Port;
}

std::string port_name(int fd)
{
    const auto owner = descriptors().owner(fd);
    return owner ? owner->what : "?";
}

// The camera's files and pipes read through stdio: the first read of a stream is the one that
// reaches the kernel (stdio fills its buffer with one read of these small files), so that is the
// read the fault point may fail; a stream whose read failed keeps failing, as its error flag would.
class StreamReads
{
  public:
    // False when this read fails.
    bool read_ok(FILE *stream)
    {
        if (stream == nullptr)
            return true;
        const int fd = fileno(stream);
        const FdKind kind = descriptors().kind(fd);
        if (kind != FdKind::File && kind != FdKind::Pipe)
            return true;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            if (failed_.count(stream) != 0)
                return false;
            if (!first_.insert(stream).second)
                return true;
        }
        if (!fault_point().fails(Fault::Read, [&] { return "read " + port_name(fd); }))
            return true;
        std::lock_guard<std::mutex> hold(mutex_);
        failed_.insert(stream);
        return false;
    }
    void closed(FILE *stream)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        first_.erase(stream);
        failed_.erase(stream);
    }

  private:
    std::mutex mutex_;
    std::set<FILE *> first_;
    std::set<FILE *> failed_;
};

StreamReads &stream_reads()
{
    static StreamReads *instance = new StreamReads;
    return *instance;
}

int sleep_for(Nanos duration, Nanos *left)
{
    Entry entry;
    entry.kind = Kind::Sleep;
    entry.name = "sleep";
    entry.values = {duration};
    entry.text = "sleep " + std::to_string(duration / kMillisecond) + " ms";
    journal().add(entry);
    const Nanos deadline = sim::clock().now() + duration;
    const WaitEnd end = sim::clock().wait(deadline);
    if (left != nullptr)
        *left = end == WaitEnd::Interrupted ? std::max<Nanos>(0, deadline - sim::clock().now()) : 0;
    return end == WaitEnd::Interrupted ? -1 : 0;
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return open_path(path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    return open_path(path, flags | O_LARGEFILE, mode);
}

int openat(int dirfd, const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    if (plain_path(dirfd, path))
        return open_path(path, flags, mode);
    return static_cast<int>(syscall(SYS_openat, dirfd, path, flags, mode));
}

int openat64(int dirfd, const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = static_cast<mode_t>(mode_argument(flags, args));
    va_end(args);
    if (plain_path(dirfd, path))
        return open_path(path, flags | O_LARGEFILE, mode);
    return static_cast<int>(syscall(SYS_openat, dirfd, path, flags | O_LARGEFILE, mode));
}

// The fortified forms of open that _FORTIFY_SOURCE builds call.
int __open_2(const char *path, int flags)
{
    return open_path(path, flags, 0);
}

int __open64_2(const char *path, int flags)
{
    return open_path(path, flags | O_LARGEFILE, 0);
}

// glibc's fopen opens files without going through open, so it is taken over as well.
FILE *fopen(const char *path, const char *mode)
{
    if (active() && path != nullptr && files().simulated_file(path))
        return files().fopen(path, mode);
    return real::fopen(path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    return fopen(path, mode);
}

int fclose(FILE *stream)
{
    if (stream != nullptr) {
        stream_reads().closed(stream);
        closing(fileno(stream));
        files().forget_stream(stream);
    }
    return real::fclose(stream);
}

int close(int fd)
{
    closing(fd);
    return real::close(fd);
}

ssize_t read(int fd, void *buffer, size_t count)
{
    if (on_port(fd)) {
        if (const auto empty = port_hooks().empty_read; empty != nullptr && empty(fd))
            return 0;
        if (fault_point().fails(Fault::Read, [&] { return "read " + port_name(fd); })) {
            errno = EIO;
            return -1;
        }
    }
    return real::read(fd, buffer, count);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *stream)
{
    static const auto real = real::next<size_t (*)(void *, size_t, size_t, FILE *)>("fread");
    if (!stream_reads().read_ok(stream)) {
        errno = EIO;
        return 0;
    }
    return real(buffer, size, count, stream);
}

char *fgets(char *text, int size, FILE *stream)
{
    static const auto real = real::next<char *(*)(char *, int, FILE *)>("fgets");
    if (!stream_reads().read_ok(stream)) {
        errno = EIO;
        return nullptr;
    }
    return real(text, size, stream);
}

int fgetc(FILE *stream)
{
    static const auto real = real::next<int (*)(FILE *)>("fgetc");
    if (!stream_reads().read_ok(stream)) {
        errno = EIO;
        return EOF;
    }
    return real(stream);
}

int tcgetattr(int fd, struct termios *settings)
{
    static const auto real = real::next<int (*)(int, struct termios *)>("tcgetattr");
    if (on_port(fd)) {
        const auto fail = port_hooks().fail_getattr;
        if ((fail != nullptr && fail(fd)) ||
            fault_point().fails(Fault::Line, [&] { return "tcgetattr " + port_name(fd); })) {
            errno = EIO;
            return -1;
        }
    }
    return real(fd, settings);
}

int tcsetattr(int fd, int action, const struct termios *settings)
{
    static const auto real = real::next<int (*)(int, int, const struct termios *)>("tcsetattr");
    if (on_port(fd)) {
        const auto fail = port_hooks().fail_setattr;
        if ((fail != nullptr && fail(fd)) ||
            fault_point().fails(Fault::Line, [&] { return "tcsetattr " + port_name(fd); })) {
            errno = EIO;
            return -1;
        }
    }
    return real(fd, action, settings);
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    const bool port = descriptors().kind(fd) == FdKind::Port;
    if (port && fault_point().fails(Fault::Write, [&] { return "write " + port_name(fd); })) {
        errno = EIO;
        return -1;
    }
    if (port) {
        if (const WriteLimit limit = serial_write_limit())
            count = std::min(count, limit(fd, count));
    }
    const ssize_t written = real::write(fd, buffer, count);
    if (written > 0 && port) {
        if (Port *port = serial_ports().port_of_fd(fd))
            port->product_wrote(static_cast<size_t>(written));
    }
    return written;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (active()) {
        struct stat status = {};
        if (request == SIOCSIWFREQ && fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode))
            return wireless().set_frequency(fd, argument);
        if (descriptors().kind(fd) == FdKind::Device)
            return devices().ioctl(fd, request, reinterpret_cast<uintptr_t>(argument));
    }
    return real::ioctl(fd, request, argument);
}

// A select on a simulated serial port waits on the simulated clock: until the port has bytes to
// read (its peer sent them, at the simulated time it chose) or the time-out passes.
int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, struct timeval *timeout)
{
    bool watches_port = false;
    if (active() && readfds != nullptr) {
        for (int fd = 0; fd < nfds && fd < FD_SETSIZE; ++fd)
            if (FD_ISSET(fd, readfds) && descriptors().kind(fd) == FdKind::Port)
                watches_port = true;
    }
    if (!watches_port)
        return real::select(nfds, readfds, writefds, exceptfds, timeout);
    if (fault_point().fails(Fault::Select, [&] {
            for (int fd = 0; fd < nfds && fd < FD_SETSIZE; ++fd)
                if (FD_ISSET(fd, readfds) && descriptors().kind(fd) == FdKind::Port)
                    return "select " + port_name(fd);
            return std::string("select");
        })) {
        errno = EINTR; // a signal came first
        return -1;
    }

    std::vector<pollfd> watched;
    for (int fd = 0; fd < nfds && fd < FD_SETSIZE; ++fd)
        if (FD_ISSET(fd, readfds))
            watched.push_back(pollfd{fd, POLLIN, 0});
    const Nanos start = sim::clock().now();
    const Nanos deadline = timeout == nullptr ? kNever
                                              : start + static_cast<Nanos>(timeout->tv_sec) * kSecond +
                                                    timeout->tv_usec * kMicrosecond;
    const WaitEnd end = sim::clock().wait(deadline, [&] {
        for (pollfd &probe : watched)
            probe.revents = 0;
        return poll(watched.data(), watched.size(), 0) > 0;
    });
    if (timeout != nullptr) { // Linux leaves the time not slept in the time-out
        const Nanos left = std::max<Nanos>(0, deadline - sim::clock().now());
        timeout->tv_sec = static_cast<time_t>(left / kSecond);
        timeout->tv_usec = static_cast<suseconds_t>((left % kSecond) / kMicrosecond);
    }
    if (end == WaitEnd::Interrupted) {
        errno = EINTR;
        return -1;
    }
    struct timeval now_only = {0, 0};
    return real::select(nfds, readfds, writefds, exceptfds, &now_only);
}

FILE *popen(const char *command, const char *mode)
{
    if (active() && command != nullptr && files().simulated_command(command))
        return files().popen(command, mode);
    return real::popen(command, mode);
}

int pclose(FILE *stream)
{
    stream_reads().closed(stream);
    if (auto status = files().pclose(stream))
        return *status;
    return real::pclose(stream);
}

int socket(int domain, int type, int protocol)
{
    if (active() && domain == AF_INET && (type & 0xF) == SOCK_DGRAM) {
        if (const int err = wireless().socket_errno()) {
            errno = err;
            return -1;
        }
    }
    return real::socket(domain, type, protocol);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg)
{
    if (!active() || !threads().counts(__builtin_return_address(0)))
        return real::pthread_create(thread, attr, start, arg);
    return threads().create(thread, attr, start, arg);
}

unsigned int sleep(unsigned int seconds)
{
    if (!active())
        return real::sleep(seconds);
    Nanos left = 0;
    sleep_for(static_cast<Nanos>(seconds) * kSecond, &left);
    return static_cast<unsigned>((left + kSecond - 1) / kSecond);
}

int usleep(useconds_t microseconds)
{
    if (!active())
        return real::usleep(microseconds);
    if (sleep_for(static_cast<Nanos>(microseconds) * kMicrosecond, nullptr) != 0) {
        errno = EINTR;
        return -1;
    }
    return 0;
}

int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    if (!active())
        return real::nanosleep(wanted, left);
    if (wanted == nullptr || wanted->tv_nsec < 0 || wanted->tv_nsec >= kSecond) {
        errno = EINVAL;
        return -1;
    }
    Nanos remaining = 0;
    if (sleep_for(static_cast<Nanos>(wanted->tv_sec) * kSecond + wanted->tv_nsec, &remaining) != 0) {
        if (left != nullptr) {
            left->tv_sec = static_cast<time_t>(remaining / kSecond);
            left->tv_nsec = static_cast<long>(remaining % kSecond);
        }
        errno = EINTR;
        return -1;
    }
    return 0;
}

unsigned int alarm(unsigned int seconds)
{
    if (!active())
        return real::alarm(seconds);
    Entry entry;
    entry.kind = Kind::Alarm;
    entry.name = "alarm";
    entry.values = {seconds};
    entry.text = "alarm(" + std::to_string(seconds) + ")";
    journal().add(entry);
    return sim::clock().set_alarm(seconds);
}

int gettimeofday(struct timeval *tv, void *tz)
{
    if (!active())
        return real::gettimeofday(tv, tz);
    const Nanos now = sim::clock().now();
    tv->tv_sec = static_cast<time_t>(sim::clock().boot_epoch() + now / kSecond);
    tv->tv_usec = static_cast<suseconds_t>((now % kSecond) / kMicrosecond);
    return 0;
}

pcap_t *pcap_open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf)
{
    if (active() && capture().simulated_interface(device))
        return capture().open_live(device, snaplen, promisc, to_ms, errbuf);
    return real::pcap_open_live(device, snaplen, promisc, to_ms, errbuf);
}

int pcap_compile(pcap_t *handle, struct bpf_program *program, const char *filter, int optimize,
                 bpf_u_int32 netmask)
{
    if (capture().simulated(handle))
        return capture().compile(handle, program, filter, optimize, netmask);
    return real::pcap_compile(handle, program, filter, optimize, netmask);
}

int pcap_setfilter(pcap_t *handle, struct bpf_program *program)
{
    if (capture().simulated(handle))
        return capture().setfilter(handle, program);
    return real::pcap_setfilter(handle, program);
}

int pcap_dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user)
{
    if (capture().simulated(handle))
        return capture().dispatch(handle, count, callback, user);
    return real::pcap_dispatch(handle, count, callback, user);
}

void pcap_close(pcap_t *handle)
{
    if (capture().simulated(handle))
        capture().close(handle);
    else
        real::pcap_close(handle);
}

} // extern "C"
