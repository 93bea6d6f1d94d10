#include "core/real.h"

#include <cstdlib>
#include <dlfcn.h>

namespace sim::real
{

// A sanitizer runtime keeps its wrapper under __interceptor_NAME: taken first, so the sanitizer
// still sees the call (with clang its runtime is linked into the executable, where RTLD_NEXT would
// skip it and go straight to libc). Otherwise the next definition after the executable's.
void *next_symbol(const char *name)
{
    char wrapped[96];
    snprintf(wrapped, sizeof wrapped, "__interceptor_%s", name);
    void *symbol = dlsym(RTLD_DEFAULT, wrapped);
    if (symbol == nullptr)
        symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        fprintf(stderr, "simulated camera: no real %s behind the interposed one\n", name);
        abort();
    }
    return symbol;
}

#define SIM_REAL(name, type) static const auto fn = next<type>(#name)

int open(const char *path, int flags, mode_t mode)
{
    SIM_REAL(open, int (*)(const char *, int, ...));
    return fn(path, flags, mode);
}
int close(int fd)
{
    SIM_REAL(close, int (*)(int));
    return fn(fd);
}
ssize_t read(int fd, void *buffer, size_t count)
{
    SIM_REAL(read, ssize_t(*)(int, void *, size_t));
    return fn(fd, buffer, count);
}
ssize_t write(int fd, const void *buffer, size_t count)
{
    SIM_REAL(write, ssize_t(*)(int, const void *, size_t));
    return fn(fd, buffer, count);
}
int ioctl(int fd, unsigned long request, void *argument)
{
    SIM_REAL(ioctl, int (*)(int, unsigned long, ...));
    return fn(fd, request, argument);
}
int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, struct timeval *timeout)
{
    SIM_REAL(select, int (*)(int, fd_set *, fd_set *, fd_set *, struct timeval *));
    return fn(nfds, readfds, writefds, exceptfds, timeout);
}
FILE *fopen(const char *path, const char *mode)
{
    SIM_REAL(fopen, FILE * (*)(const char *, const char *));
    return fn(path, mode);
}
int fclose(FILE *stream)
{
    SIM_REAL(fclose, int (*)(FILE *));
    return fn(stream);
}
FILE *popen(const char *command, const char *mode)
{
    SIM_REAL(popen, FILE * (*)(const char *, const char *));
    return fn(command, mode);
}
int pclose(FILE *stream)
{
    SIM_REAL(pclose, int (*)(FILE *));
    return fn(stream);
}
int socket(int domain, int type, int protocol)
{
    SIM_REAL(socket, int (*)(int, int, int));
    return fn(domain, type, protocol);
}
int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg)
{
    SIM_REAL(pthread_create, int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *));
    return fn(thread, attr, start, arg);
}
int gettimeofday(struct timeval *tv, void *tz)
{
    SIM_REAL(gettimeofday, int (*)(struct timeval *, void *));
    return fn(tv, tz);
}
unsigned int sleep(unsigned int seconds)
{
    SIM_REAL(sleep, unsigned int (*)(unsigned int));
    return fn(seconds);
}
int usleep(useconds_t microseconds)
{
    SIM_REAL(usleep, int (*)(useconds_t));
    return fn(microseconds);
}
int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    SIM_REAL(nanosleep, int (*)(const struct timespec *, struct timespec *));
    return fn(wanted, left);
}
unsigned int alarm(unsigned int seconds)
{
    SIM_REAL(alarm, unsigned int (*)(unsigned int));
    return fn(seconds);
}

pcap_t *pcap_open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf)
{
    SIM_REAL(pcap_open_live, pcap_t * (*)(const char *, int, int, int, char *));
    return fn(device, snaplen, promisc, to_ms, errbuf);
}
int pcap_dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user)
{
    SIM_REAL(pcap_dispatch, int (*)(pcap_t *, int, pcap_handler, u_char *));
    return fn(handle, count, callback, user);
}
int pcap_compile(pcap_t *handle, struct bpf_program *program, const char *filter, int optimize,
                 bpf_u_int32 netmask)
{
    SIM_REAL(pcap_compile, int (*)(pcap_t *, struct bpf_program *, const char *, int, bpf_u_int32));
    return fn(handle, program, filter, optimize, netmask);
}
int pcap_setfilter(pcap_t *handle, struct bpf_program *program)
{
    SIM_REAL(pcap_setfilter, int (*)(pcap_t *, struct bpf_program *));
    return fn(handle, program);
}
void pcap_close(pcap_t *handle)
{
    SIM_REAL(pcap_close, void (*)(pcap_t *));
    fn(handle);
}

} // namespace sim::real
