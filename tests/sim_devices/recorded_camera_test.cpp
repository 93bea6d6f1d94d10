// A camera recorded by the recording layer, replayed: the library's requests, platform calls and
// clock reads are answered from the recording in order, and where the library asks something the
// recording does not have, the replay says where and fails the call instead of answering.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "clidriver/platform.h"
#include "core/journal.h"
#include "peripherals/port_log.h"
#include "peripherals/recording_peer.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

class RecordedCamera : public clitest::SimTest
{
  protected:
    void replay(const std::string &text)
    {
        scenario() = sim::parse_scenario(text, "recorded.toml", ".");
        restart();
    }
    static std::vector<std::string> departures()
    {
        std::vector<std::string> lines;
        for (const sim::Entry &entry : sim::journal().select(sim::Kind::Note))
            if (entry.text.rfind("replay: ", 0) == 0)
                lines.push_back(entry.text);
        return lines;
    }
};

constexpr const char *kCpld = R"(
[camera]
name = "recorded: a CPLD read"
boot_epoch = 1795161600
[recording]
clock_us = [1500000]
[[devices."/dev/cpld_drv".recorded]]
number = 0x1950
sent = "00 00 00 00"
bytes = "0C 00 00 00"
)";

TEST_F(RecordedCamera, RequestsAndClockReadsAnswerAsRecorded)
{
    replay(kCpld);
    const clitest::Call call = run([] { return Cli_GetVersion_CPLD(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO Cli_GetVersion_CPLD: CPLD                : 012"}));
    ASSERT_EQ(call.printed.size(), 1u);
    // The diagnostic line carries the time the camera's clock showed when the library read it.
    EXPECT_EQ(call.printed[0].substr(0, 26), "2026-11-20 08:00:01 500000");
    EXPECT_EQ(call.waited, 1500 * sim::kMillisecond);
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(departures().empty());
}

TEST_F(RecordedCamera, ARequestTheRecordingDoesNotHaveNextIsADeparture)
{
    std::string text = kCpld;
    text.replace(text.find("0x1950"), 6, "0x1951");
    replay(text);
    const clitest::Call call = run([] { return Cli_GetVersion_CPLD(); });
    EXPECT_NE(call.status, 0);
    EXPECT_EQ(call.err, "replay: departs from the recording: /dev/cpld_drv: request 1 is 0x1950 where the "
                        "recording has 0x1951\n"
                        "[ERROR]:ioctl cmd[0x1950]\t@[src/cli_libfun.cpp Cli_GetVersion_CPLD]\r\n");
    const auto ioctls = call.of(sim::Kind::Ioctl);
    ASSERT_EQ(ioctls.size(), 1u);
    EXPECT_EQ(ioctls[0].result, -1);
    // The recorded clock read (1.5 s) belonged to the line the camera printed after its answer;
    // the departed run prints another line, on its own simulated time.
    ASSERT_EQ(call.printed.size(), 1u);
    EXPECT_EQ(call.printed[0].substr(0, 26), "2026-11-20 08:00:00 000000");
    EXPECT_EQ(call.waited, 0);
}

TEST_F(RecordedCamera, OpensGoAsRecordedOneByOne)
{
    std::string text = kCpld;
    text.replace(text.find("[[devices"), 0, "[devices.\"/dev/cpld_drv\"]\nopens = [\"EBUSY\", 0]\n");
    replay(text);
    const clitest::Call busy = run([] { return Cli_GetVersion_CPLD(); });
    EXPECT_NE(busy.status, 0);
    ASSERT_EQ(busy.of(sim::Kind::Open).size(), 1u);
    EXPECT_EQ(busy.of(sim::Kind::Open)[0].err, EBUSY);
    const clitest::Call free = run([] { return Cli_GetVersion_CPLD(); });
    EXPECT_EQ(free.status, 0);
    EXPECT_EQ(free.messages(),
              (std::vector<std::string>{" INFO Cli_GetVersion_CPLD: CPLD                : 012"}));
    EXPECT_TRUE(departures().empty());
}

TEST_F(RecordedCamera, ARecordDifferentFromTheOneRecordedIsADeparture)
{
    std::string text = kCpld;
    text.replace(text.find("sent = \"00"), 10, "sent = \"07");
    replay(text);
    const clitest::Call call = run([] { return Cli_GetVersion_CPLD(); });
    EXPECT_NE(call.status, 0);
    EXPECT_EQ(call.err,
              "replay: departs from the recording: /dev/cpld_drv: request 1 is 0x1950 passing 00 00 "
              "00 00 where the recording has 07 00 00 00\n"
              "[ERROR]:ioctl cmd[0x1950]\t@[src/cli_libfun.cpp Cli_GetVersion_CPLD]\r\n");
}

TEST_F(RecordedCamera, PlatformCallsAnswerInOrderAndTheFirstDepartureIsPrintedOnce)
{
    replay(R"(
[recording]
[[platform.DRV_SetIRCut.recorded]]
args = [0, 1]
result = 0
[[platform.DRV_SetIRCut.recorded]]
args = [0, 0]
result = 5
[[platform.DRV_SIBBoardTypeGet.recorded]]
result = 0
sent = "00 00 00 00"
bytes = "2A 00 00 00"
)");
    const clitest::Call call = run([] {
        uint32_t board = 0;
        const int32_t got = DRV_SIBBoardTypeGet(&board);
        return got == 0 && board == 42u && DRV_SetIRCut(0, 1) == 0 && DRV_SetIRCut(0, 0) == 5 &&
                       DRV_SetIRCut(0, 1) == -1 && DRV_SetIRCut(0, 1) == -1 && DRV_SetHeaterLevel(1, 2) == -1
                   ? 0
                   : 1;
    });
    EXPECT_EQ(call.status, 0) << "recorded answers in order, then -1 for every call not recorded";
    EXPECT_EQ(call.err,
              "replay: departs from the recording: DRV_SetIRCut: call 3(0, 1); the recording has no "
              "more calls of it\n"
              "replay: departs from the recording: DRV_SetHeaterLevel: call 1(1, 2); the recording "
              "has no more calls of it\n");
    EXPECT_EQ(departures().size(), 3u) << "every departure is in the journal, the repeated one printed once";
}

TEST_F(RecordedCamera, PlatformArgumentsThatDifferAreADeparture)
{
    replay(R"(
[recording]
[[platform.DRV_SetIRCut.recorded]]
args = [0, 1]
)");
    const clitest::Call call = run([] { return DRV_SetIRCut(0, 2); });
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.err, "replay: departs from the recording: DRV_SetIRCut: call 1(0, 2) where the recording "
                        "has (0, 1)\n");
}

TEST(PortLog, ReadsEveryKindOfEventAndWritesItBack)
{
    const std::string text = "# /dev/ttyS1 as the library used it\n"
                             "open 1200000\n"
                             "> 1300000 24 50 4D\n"
                             "\n"
                             "<\t1812500  0d 0A\r\n"
                             "close 90000000\n";
    const sim::PortLog log = sim::read_port_log(text);
    ASSERT_EQ(log.error, "");
    ASSERT_EQ(log.events.size(), 4u);
    using Kind = sim::PortEvent::Kind;
    EXPECT_EQ(log.events[0].kind, Kind::Open);
    EXPECT_EQ(log.events[0].time, 1200000);
    EXPECT_EQ(log.events[1].kind, Kind::Wrote);
    EXPECT_EQ(log.events[1].bytes, (std::vector<uint8_t>{0x24, 0x50, 0x4D}));
    EXPECT_EQ(log.events[2].kind, Kind::Read);
    EXPECT_EQ(log.events[2].time, 1812500);
    EXPECT_EQ(log.events[2].bytes, (std::vector<uint8_t>{0x0D, 0x0A}));
    EXPECT_EQ(log.events[3].kind, Kind::Close);
    EXPECT_EQ(sim::port_log_line(log.events[0]), "open 1200000");
    EXPECT_EQ(sim::port_log_line(log.events[1]), "> 1300000 24 50 4D");
    EXPECT_EQ(sim::port_log_line(log.events[2]), "< 1812500 0D 0A");
    EXPECT_EQ(sim::port_log_line(log.events[3]), "close 90000000");
}

TEST(PortLog, MistakesNameTheirLine)
{
    const struct {
        const char *text;
        const char *error;
    } rows[] = {
        {"opne 5\n", "line 1: expected open, close, > or < and a time, found \"opne\""},
        {"open\n", "line 1: expected a time in nanoseconds after \"open\""},
        {"open -5\n", "line 1: expected a time in nanoseconds after \"open\""},
        {"open 99999999999999999999\n", "line 1: expected a time in nanoseconds after \"open\""},
        {"open 9999999999999999999\n", "line 1: expected a time in nanoseconds after \"open\""},
        {"open 2305843009213693952\n", "line 1: expected a time in nanoseconds after \"open\""},
        {"open 10\nclose 9\n", "line 2: the time goes back (9 after 10)"},
        {"open 10 24\n", "line 1: \"open\" takes only a time"},
        {"> 10\n", "line 1: a write or read carries at least one byte"},
        {"< 10 2\n", "line 1: expected a byte as two hexadecimal digits, found \"2\""},
        {"< 10 0G\n", "line 1: expected a byte as two hexadecimal digits, found \"0G\""},
        {"\n\n< 10 123\n", "line 3: expected a byte as two hexadecimal digits, found \"123\""},
    };
    for (const auto &row : rows) {
        const sim::PortLog log = sim::read_port_log(row.text);
        EXPECT_EQ(log.error, row.error) << row.text;
        EXPECT_TRUE(log.events.empty()) << row.text;
    }
}

constexpr const char *kLinkLog = "open 0\n"
                                 "> 100 41 42\n"
                                 "< 200 43\n"
                                 "> 300 44\n"
                                 "< 400 45\n"
                                 "< 400 46\n"
                                 "close 500\n";

TEST_F(RecordedCamera, APortSendsWhatWasReadOnceWhatWasWrittenBeforeItIsWrittenAgain)
{
    replay("[recording]\n");
    sim::RecordingPeer peer("/dev/ttyS1", sim::read_port_log(kLinkLog));
    EXPECT_EQ(peer.next_send(), sim::kNever) << "nothing is read before the library writes 41 42";
    peer.receive({0x41}, 100);
    EXPECT_EQ(peer.next_send(), sim::kNever) << "half a write";
    peer.receive({0x42}, 100);
    EXPECT_EQ(peer.next_send(), 200);
    EXPECT_EQ(peer.take(200), (std::vector<uint8_t>{0x43}));
    EXPECT_EQ(peer.next_send(), sim::kNever);
    peer.receive({0x44}, 300);
    EXPECT_EQ(peer.next_send(), 400);
    EXPECT_EQ(peer.take(400), (std::vector<uint8_t>{0x45, 0x46})) << "pieces read at one time go together";
    EXPECT_TRUE(departures().empty());
    peer.receive({0x47}, 600);
    EXPECT_EQ(departures(),
              (std::vector<std::string>{"replay: departs from the recording: /dev/ttyS1: write 4 "
                                        "sends 47; the recording has nothing more on this port"}));
}

TEST_F(RecordedCamera, APortWriteThatDiffersIsADepartureAndTheLineGoesSilent)
{
    replay("[recording]\n");
    sim::RecordingPeer peer("/dev/ttyS1", sim::read_port_log(kLinkLog));
    peer.receive({0x41, 0x58}, 100);
    EXPECT_EQ(departures(),
              (std::vector<std::string>{"replay: departs from the recording: /dev/ttyS1: write 1 "
                                        "sends 41 58 where the recording has 41 42"}));
    EXPECT_EQ(peer.next_send(), sim::kNever);
    peer.receive({0x44}, 300);
    EXPECT_EQ(peer.next_send(), sim::kNever) << "after a departure nothing is answered";
}

TEST_F(RecordedCamera, APortWriteBeforeWhatTheCameraReadFirstIsADeparture)
{
    replay("[recording]\n");
    sim::RecordingPeer peer("/dev/ttyS1", sim::read_port_log(kLinkLog));
    peer.receive({0x41, 0x42}, 100);
    peer.receive({0x44}, 150);
    EXPECT_EQ(departures(),
              (std::vector<std::string>{"replay: departs from the recording: /dev/ttyS1: write 2 "
                                        "sends 44 where the recording has the camera read 43 first"}));
}

TEST_F(RecordedCamera, APortWithoutItsLogIsRefused)
{
    EXPECT_EQ(clitest::scenario_error("[ports.\"/dev/ttyS1\"]\npeer = \"recording\"\n", "."),
              "bad.toml:1: ports./dev/ttyS1.log: a recorded port needs its log (the file the recording wrote "
              "beside the scenario)");
}

} // namespace
