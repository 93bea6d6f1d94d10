// Serial ports on ptys with peers on the far end, paced by the simulated clock.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "camera_line.h"
#include "core/clock.h"
#include "devices/serial.h"
#include "peripherals/scripted_peer.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;

constexpr const char *kLink = "/dev/ttyC0";

// Ten bits a byte at 9600 baud, as a UART puts them on the line (whole nanoseconds a byte).
constexpr sim::Nanos byte_time(size_t bytes)
{
    return static_cast<sim::Nanos>(bytes) * (10 * kSecond / 9600);
}

class SerialPort : public clitest::SimTest
{
  protected:
    // Hangs a scripted peer on the link; `setup` configures it.
    void hang_peer(std::function<void(sim::ScriptedPeer &)> setup)
    {
        scenario().ports[kLink].make_peer = [setup] {
            auto peer = std::make_unique<sim::ScriptedPeer>();
            setup(*peer);
            return peer;
        };
        restart();
    }

    // Opens the link as the product does: raw 8N1 at 9600.
    int open_link()
    {
        const int fd = clitest::open_raw_line(kLink, B9600);
        EXPECT_GE(fd, 0);
        return fd;
    }

    // One select on `fd` with a time-out, as CLI_Treadn does; returns select's result.
    static int wait_readable(int fd, sim::Nanos timeout)
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval limit{static_cast<time_t>(timeout / kSecond),
                      static_cast<suseconds_t>((timeout % kSecond) / 1000)};
        return select(fd + 1, &set, nullptr, nullptr, &limit);
    }

    // Reads exactly `count` bytes, waiting up to `timeout` for each piece.
    static Bytes read_exactly(int fd, size_t count, sim::Nanos timeout = 5 * kSecond)
    {
        return clitest::read_exactly(fd, count, timeout);
    }
};

TEST_F(SerialPort, PeerAnswersWhatItHearsAtLineSpeed)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.add_rule({{0xFE, 0x01}, {0xAA, 0xBB, 0xCC}, 20 * kMillisecond});
    });
    const int fd = open_link();
    const uint8_t request[] = {0xFE, 0x01};
    ASSERT_EQ(write(fd, request, sizeof request), 2);
    const sim::Nanos asked = sim::clock().now();
    EXPECT_EQ(read_exactly(fd, 3), (Bytes{0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(sim::clock().now() - asked, 20 * kMillisecond + byte_time(3));
    close(fd);
}

TEST_F(SerialPort, EverythingTheProductWroteIsRecordedByteForByte)
{
    hang_peer([](sim::ScriptedPeer &) {});
    const int fd = open_link();
    const std::string first = "$PMTK000*32\r\n";
    const uint8_t second[] = {0x00, 0xFF, 0x0A, 0x0D};
    write(fd, first.data(), first.size());
    write(fd, second, sizeof second);
    close(fd);
    Bytes expected(first.begin(), first.end());
    expected.insert(expected.end(), second, second + sizeof second);
    EXPECT_EQ(sim::serial_ports().port(kLink)->written(), expected);
    const auto writes = sim::journal().select(sim::Kind::SerialWrite, kLink);
    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(writes[1].bytes, Bytes(second, second + sizeof second));
}

TEST_F(SerialPort, NothingAnswersBeforeTheRequestAndSelectTimesOutOnSimulatedTime)
{
    hang_peer([](sim::ScriptedPeer &peer) { peer.add_rule({{'?'}, {'!'}}); });
    const int fd = open_link();
    EXPECT_EQ(wait_readable(fd, 5 * kSecond), 0);
    EXPECT_EQ(sim::clock().now(), 5 * kSecond);
    close(fd);
}

TEST_F(SerialPort, SelectTellsTheTimeNotWaited)
{
    hang_peer([](sim::ScriptedPeer &peer) { peer.add_rule({{'?'}, {'!'}, 300 * kMillisecond}); });
    const int fd = open_link();
    write(fd, "?", 1);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{1, 0};
    ASSERT_EQ(select(fd + 1, &set, nullptr, nullptr, &limit), 1);
    EXPECT_TRUE(FD_ISSET(fd, &set));
    const sim::Nanos spent = 300 * kMillisecond + byte_time(1);
    EXPECT_EQ(limit.tv_sec * kSecond + limit.tv_usec * 1000, (kSecond - spent) / 1000 * 1000);
    close(fd);
}

TEST_F(SerialPort, SilentPeerHearsButNeverAnswers)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.add_rule({{'?'}, {'!'}});
        peer.misbehave({.mode = sim::Misbehaviour::Mode::Silent});
    });
    const int fd = open_link();
    write(fd, "?", 1);
    EXPECT_EQ(wait_readable(fd, 2 * kSecond), 0);
    EXPECT_EQ(sim::serial_ports().port(kLink)->written(), Bytes{'?'});
    close(fd);
}

TEST_F(SerialPort, GarbageFlowsWithoutBeingAskedAndIsTheSameEveryRun)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.misbehave({.mode = sim::Misbehaviour::Mode::Garbage,
                        .garbage_every = 10 * kMillisecond,
                        .garbage_chunk = 16,
                        .garbage_seed = 7});
    });
    const int fd = open_link();
    const Bytes first = read_exactly(fd, 64);
    EXPECT_EQ(first.size(), 64u);
    EXPECT_EQ(sim::clock().now(), 30 * kMillisecond) << "four chunks of 16, the first at once";
    close(fd);

    restart();
    const int again = open_link();
    EXPECT_EQ(read_exactly(again, 64), first);
    close(again);
}

TEST_F(SerialPort, TrickleSendsTheAnswerOneByteAtATime)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.add_rule({{'?'}, {'a', 'b', 'c', 'd'}});
        peer.misbehave({.mode = sim::Misbehaviour::Mode::Trickle, .trickle_gap = 400 * kMillisecond});
    });
    const int fd = open_link();
    write(fd, "?", 1);
    // Each wait is shorter than the whole answer but longer than one gap: a slow trickle keeps a
    // per-piece time-out satisfied while the whole read takes far longer.
    EXPECT_EQ(read_exactly(fd, 4, 500 * kMillisecond), (Bytes{'a', 'b', 'c', 'd'}));
    EXPECT_EQ(sim::clock().now(), 1600 * kMillisecond);
    close(fd);
}

TEST_F(SerialPort, HangUpLeavesTheProductWithAnErrorNotAHang)
{
    hang_peer([](sim::ScriptedPeer &peer) { peer.misbehave({.hang_up_after = 2}); });
    const int fd = open_link();
    write(fd, "ab", 2);
    EXPECT_EQ(wait_readable(fd, 5 * kSecond), 1) << "a hung-up line reads as ready";
    uint8_t byte = 0;
    EXPECT_LE(read(fd, &byte, 1), 0);
    EXPECT_LT(sim::clock().now(), 5 * kSecond);
    close(fd);
    errno = 0;
    EXPECT_EQ(open(kLink, O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(SerialPort, FlushDiscardsWhatArrivedMeanwhile)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.announce(100 * kMillisecond, {'o', 'l', 'd'});
        peer.announce(3 * kSecond, {'n', 'e', 'w'});
    });
    const int fd = open_link();
    sleep(1);
    tcflush(fd, TCIOFLUSH);
    EXPECT_EQ(read_exactly(fd, 3), (Bytes{'n', 'e', 'w'}));
    close(fd);
}

TEST_F(SerialPort, BytesSentWhileThePortIsClosedAreLost)
{
    hang_peer([](sim::ScriptedPeer &peer) {
        peer.announce(500 * kMillisecond, {'l', 'o', 's', 't'});
        peer.announce(2 * kSecond, {'k', 'e', 'p', 't'});
    });
    const int first = open_link();
    close(first);
    sleep(1);
    const int fd = open_link();
    EXPECT_EQ(read_exactly(fd, 4), (Bytes{'k', 'e', 'p', 't'}));
    close(fd);
}

TEST_F(SerialPort, SpeedAndFlagsTheProductSetAreVisibleOnTheLine)
{
    const int fd = open(kLink, O_RDWR | O_NOCTTY);
    ASSERT_GE(fd, 0);
    termios settings{};
    tcgetattr(fd, &settings);
    cfsetospeed(&settings, B115200);
    cfsetispeed(&settings, B115200);
    settings.c_cflag &= ~static_cast<tcflag_t>(PARENB);
    tcsetattr(fd, TCSANOW, &settings);
    sim::Port *port = sim::serial_ports().port(kLink);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->baud(), 115200u);
    termios seen{};
    ASSERT_TRUE(port->line_settings(&seen));
    EXPECT_EQ(seen.c_cflag & PARENB, 0u);
    close(fd);
    const int again = open(kLink, O_RDWR | O_NOCTTY);
    EXPECT_EQ(sim::serial_ports().port(kLink)->baud(), 115200u) << "a UART keeps its settings across opens";
    close(again);
}

TEST_F(SerialPort, AbsentOrFailingPortsRefuseToOpen)
{
    scenario().ports["/dev/ttyS2"].present = false;
    scenario().ports["/dev/ttyS1"].open_errno = EBUSY;
    restart();
    errno = 0;
    EXPECT_EQ(open("/dev/ttyS2", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(open("/dev/ttyS1", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EBUSY);
    const auto opens = sim::journal().select(sim::Kind::Open);
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[1].err, EBUSY);
}

TEST_F(SerialPort, EachCameraPortIsItsOwnLine)
{
    const int link = open_link();
    const int lamp = open("/dev/ttyAMBA1", O_RDWR | O_NOCTTY);
    ASSERT_GE(lamp, 0);
    write(lamp, "x", 1);
    EXPECT_EQ(sim::serial_ports().port("/dev/ttyAMBA1")->written(), Bytes{'x'});
    EXPECT_TRUE(sim::serial_ports().port(kLink)->written().empty());
    close(lamp);
    close(link);
}

TEST_F(SerialPort, SelectWithoutATimeOutWaitsForThePeer)
{
    hang_peer([](sim::ScriptedPeer &peer) { peer.add_rule({{'?'}, {'!'}, 7 * kSecond}); });
    const int fd = open_link();
    write(fd, "?", 1);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    EXPECT_EQ(select(fd + 1, &set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(sim::clock().now(), 7 * kSecond + byte_time(1));
    close(fd);
}

} // namespace
