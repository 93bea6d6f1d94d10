// The Wi-Fi channel request (SIOCSIWFREQ on a datagram socket) and the start of product threads,
// with failures on demand.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <linux/wireless.h>
#include <pthread.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "core/journal.h"
#include "core/real.h"
#include "devices/wireless.h"
#include "sim_fixture.h"

namespace
{

class Wireless : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        socket_ = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_GE(socket_, 0) << strerror(errno);
    }
    void TearDown() override
    {
        if (socket_ >= 0)
            close(socket_);
        SimTest::TearDown();
    }

    // Sets `channel` on `interface` as the sniffer does; returns ioctl's result, errno in `err`.
    int set_channel(const char *interface, int channel, int *err = nullptr)
    {
        struct iwreq request;
        memset(&request, 0, sizeof request);
        strncpy(request.ifr_name, interface, IFNAMSIZ);
        request.u.freq.m = channel;
        request.u.freq.e = 0;
        request.u.freq.flags = IW_FREQ_FIXED;
        errno = 0;
        const int result = ioctl(socket_, SIOCSIWFREQ, &request);
        if (err != nullptr)
            *err = errno;
        return result;
    }

    std::vector<sim::Entry> requests() const { return sim::journal().select(sim::Kind::SocketIoctl); }

    int socket_ = -1;
};

TEST_F(Wireless, ChannelRequestOnWlan0IsRecordedAndSucceeds)
{
    for (int channel : {1, 6, 11, 13, 14}) {
        SCOPED_TRACE(channel);
        EXPECT_EQ(set_channel("wlan0", channel), 0);
        const sim::Entry last = requests().back();
        EXPECT_EQ(last.name, "wlan0");
        ASSERT_EQ(last.values.size(), 4u);
        EXPECT_EQ(last.values[0], channel);
        EXPECT_EQ(last.values[1], 0) << "exponent";
        EXPECT_EQ(last.values[3], IW_FREQ_FIXED) << "flags";
        EXPECT_EQ(last.result, 0);
        EXPECT_EQ(last.err, 0);
        EXPECT_EQ(last.text, "SIOCSIWFREQ wlan0 channel " + std::to_string(channel) + " -> 0");
    }
    EXPECT_EQ(requests().size(), 5u);
}

TEST_F(Wireless, ScriptedErrnosFailTheFirstRequestsThenTheySucceed)
{
    struct Row {
        std::vector<int> script;
        std::vector<int> errnos; // what each of the following requests gives
    };
    const Row rows[] = {
        {{EBUSY}, {EBUSY, 0, 0}},
        {{EBUSY, EAGAIN}, {EBUSY, EAGAIN, 0}},
        {{EIO, 0, ENETDOWN}, {EIO, 0, ENETDOWN, 0}},
        {{}, {0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.script.size());
        sim::wireless().script().channel_errnos.assign(row.script.begin(), row.script.end());
        for (size_t i = 0; i < row.errnos.size(); ++i) {
            int err = 0;
            const int result = set_channel("wlan0", 6, &err);
            EXPECT_EQ(result, row.errnos[i] == 0 ? 0 : -1) << "request " << i;
            if (row.errnos[i] != 0) {
                EXPECT_EQ(err, row.errnos[i]) << "request " << i;
                EXPECT_EQ(requests().back().err, row.errnos[i]);
                EXPECT_EQ(requests().back().text,
                          std::string("SIOCSIWFREQ wlan0 channel 6 -> ") + strerror(row.errnos[i]));
            }
        }
    }
}

TEST_F(Wireless, AnotherInterfaceGivesEnodevWithoutUsingUpTheScript)
{
    sim::wireless().script().channel_errnos = {EBUSY};
    for (const char *name : {"wlan1", "eth0", "wlan", "wlan00", ""}) {
        SCOPED_TRACE(name);
        int err = 0;
        EXPECT_EQ(set_channel(name, 6, &err), -1);
        EXPECT_EQ(err, ENODEV);
        EXPECT_EQ(requests().back().name, name);
        EXPECT_EQ(requests().back().err, ENODEV);
    }
    int err = 0;
    EXPECT_EQ(set_channel("wlan0", 6, &err), -1);
    EXPECT_EQ(err, EBUSY) << "the scripted failure is still due for wlan0";
    EXPECT_EQ(set_channel("wlan0", 6), 0);
}

TEST_F(Wireless, ScenarioChoosesTheInterface)
{
    scenario().wireless.interface = "ra0";
    restart();
    int err = 0;
    EXPECT_EQ(set_channel("wlan0", 3, &err), -1);
    EXPECT_EQ(err, ENODEV);
    EXPECT_EQ(set_channel("ra0", 3), 0);
    EXPECT_EQ(requests().back().values[0], 3);
}

TEST_F(Wireless, FullLengthInterfaceNameIsReadWithinItsField)
{
    // IFNAMSIZ characters and no terminator: the name ends with the field.
    const std::string name(IFNAMSIZ, 'w');
    sim::wireless().script().interface = name;
    struct iwreq request;
    memset(&request, 0, sizeof request);
    memcpy(request.ifr_name, name.data(), IFNAMSIZ);
    request.u.freq.m = 9;
    EXPECT_EQ(ioctl(socket_, SIOCSIWFREQ, &request), 0);
    EXPECT_EQ(requests().back().name, name);
}

TEST_F(Wireless, NullRequestIsRefusedWithEfault)
{
    errno = 0;
    EXPECT_EQ(ioctl(socket_, SIOCSIWFREQ, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(Wireless, SocketErrnoFailsOnlyTheDatagramInternetSocket)
{
    sim::wireless().script().socket_errno = EMFILE;
    for (int type : {int{SOCK_DGRAM}, SOCK_DGRAM | SOCK_CLOEXEC, SOCK_DGRAM | SOCK_NONBLOCK}) {
        errno = 0;
        EXPECT_EQ(socket(AF_INET, type, 0), -1) << type;
        EXPECT_EQ(errno, EMFILE) << type;
    }
    struct Other {
        int domain;
        int type;
    };
    for (const Other other :
         {Other{AF_INET, SOCK_STREAM}, Other{AF_UNIX, SOCK_DGRAM}, Other{AF_UNIX, SOCK_STREAM}}) {
        const int fd = socket(other.domain, other.type, 0);
        EXPECT_GE(fd, 0) << other.domain << "/" << other.type << ": " << strerror(errno);
        if (fd >= 0)
            close(fd);
    }
    sim::wireless().script().socket_errno = 0;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_GE(fd, 0);
    if (fd >= 0)
        close(fd);
}

TEST_F(Wireless, ScenarioSocketErrnoAppliesFromTheStart)
{
    scenario().wireless.socket_errno = ENFILE;
    restart();
    errno = 0;
    EXPECT_EQ(socket(AF_INET, SOCK_DGRAM, 0), -1);
    EXPECT_EQ(errno, ENFILE);
}

// ---- threads ------------------------------------------------------------------------------------

std::atomic<int> g_ran{0};

void *count_run(void *argument)
{
    g_ran.fetch_add(1);
    return static_cast<char *>(argument) + 1;
}

class Threads : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        g_ran = 0;
    }
    std::vector<sim::Entry> creations() const { return sim::journal().select(sim::Kind::Thread); }
};

TEST_F(Threads, FailNextFailsThatManyCreationsThenTheyRun)
{
    struct Row {
        int fail_next;
        int err;
    };
    const Row rows[] = {{0, EAGAIN}, {1, EAGAIN}, {3, EAGAIN}, {2, EPERM}};
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.fail_next) + " " + strerror(row.err));
        restart();
        g_ran = 0;
        sim::threads().script().fail_next = row.fail_next;
        sim::threads().script().err = row.err;
        char marker[2] = {};
        for (int i = 0; i < row.fail_next; ++i) {
            pthread_t thread{};
            EXPECT_EQ(pthread_create(&thread, nullptr, count_run, marker), row.err) << "creation " << i;
        }
        EXPECT_EQ(g_ran.load(), 0) << "no failed creation runs its function";
        pthread_t thread{};
        ASSERT_EQ(pthread_create(&thread, nullptr, count_run, marker), 0);
        void *returned = nullptr;
        ASSERT_EQ(pthread_join(thread, &returned), 0);
        EXPECT_EQ(g_ran.load(), 1);
        EXPECT_EQ(returned, marker + 1) << "argument and result pass through";

        const auto entries = creations();
        ASSERT_EQ(entries.size(), static_cast<size_t>(row.fail_next) + 1);
        for (int i = 0; i < row.fail_next; ++i) {
            EXPECT_EQ(entries[static_cast<size_t>(i)].result, row.err);
            EXPECT_EQ(entries[static_cast<size_t>(i)].text, "pthread_create -> " + std::to_string(row.err));
        }
        EXPECT_EQ(entries.back().result, 0);
        EXPECT_EQ(entries.back().text, "pthread_create -> 0");
    }
}

TEST_F(Threads, ScenarioFailNextDefaultsToEagain)
{
    sim::Scenario fresh;
    fresh.threads.fail_next = 1;
    scenario() = fresh;
    restart();
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, nullptr, count_run, nullptr), EAGAIN);
    ASSERT_EQ(pthread_create(&thread, nullptr, count_run, nullptr), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(g_ran.load(), 1);
}

TEST_F(Threads, DetachedThreadsRunToo)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, count_run, nullptr), 0);
    pthread_attr_destroy(&attributes);
    for (int wait = 0; wait < 5000 && g_ran.load() == 0; ++wait) {
        struct timespec pause = {0, 1000000};
        sim::real::nanosleep(&pause, nullptr); // real time: the bench clock stands still meanwhile
    }
    EXPECT_EQ(g_ran.load(), 1);
}

} // namespace
