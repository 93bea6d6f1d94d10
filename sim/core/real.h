// The real libc and libpcap entry points behind the ones this simulator interposes. Everything
// the simulator does itself goes through these, never through the interposed names.
#pragma once

#include <cstdio>
#include <pcap/pcap.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

namespace sim::real
{

// The definition behind the executable's own `name`: a sanitizer's wrapper when one is linked in,
// else the next library's (libc's, or libclidriver's for a test that wraps a command). Ends the
// process with a message when there is none.
void *next_symbol(const char *name);
template <typename Function> Function next(const char *name)
{
    return reinterpret_cast<Function>(next_symbol(name));
}

int open(const char *path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void *buffer, size_t count);
ssize_t write(int fd, const void *buffer, size_t count);
int ioctl(int fd, unsigned long request, void *argument);
int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, struct timeval *timeout);
FILE *fopen(const char *path, const char *mode);
int fclose(FILE *stream);
FILE *popen(const char *command, const char *mode);
int pclose(FILE *stream);
int socket(int domain, int type, int protocol);
int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
int gettimeofday(struct timeval *tv, void *tz);
unsigned int sleep(unsigned int seconds);
int usleep(useconds_t microseconds);
int nanosleep(const struct timespec *wanted, struct timespec *left);
unsigned int alarm(unsigned int seconds);

pcap_t *pcap_open_live(const char *device, int snaplen, int promisc, int to_ms, char *errbuf);
int pcap_dispatch(pcap_t *handle, int count, pcap_handler callback, u_char *user);
int pcap_compile(pcap_t *handle, struct bpf_program *program, const char *filter, int optimize,
                 bpf_u_int32 netmask);
int pcap_setfilter(pcap_t *handle, struct bpf_program *program);
void pcap_close(pcap_t *handle);

} // namespace sim::real
