// The serial light sensor on the console UART through libclidriver.so: the query byte for byte,
// the reply turned into a voltage, replies that are not the sensor's spending attempts up to five,
// a short write spending one, a reply that never comes ending the command at once with the port
// left open, and each failure of the port itself. Simulated time is counted from the line speed:
// a seven-byte reply at 9600 baud takes 7 x 1,041,666 ns.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "fault_injection.h"
#include "lights_fixture.h"
#include "peripherals/light_sensor.h"
#include "peripherals/scripted_peer.h"

namespace
{

using clitest::Call;
using lightstest::Bytes;
using lightstest::console;
using lightstest::kFrameAt9600;
using Lines = std::vector<std::string>;
using Mode = sim::Misbehaviour::Mode;

// The query, as the sensor's manual gives it.
const Bytes kQuery = {0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7A};

const std::string kInvalid = "ERROR CLI_232PhotoSensorVoltage: read date invalid";
const std::string kGiveUp = "ERROR CLI_232PhotoSensorVoltage: read date invalid,please check operation";

std::string reply_line(const std::string &hex)
{
    return " INFO CLI_232PhotoSensorVoltage: " + hex;
}

std::string volts_line(const std::string &volts)
{
    return " INFO CLI_232PhotoSensorVoltage: photosensor voltage: " + volts + "V";
}

class LightSensor : public lightstest::AccessoryTest
{
  protected:
    void hang_sensor(const sim::LightSensorSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang([setup, how] {
            auto sensor = std::make_unique<sim::LightSensorPeer>(setup);
            sensor->misbehave(how);
            return sensor;
        });
    }

    static sim::LightSensorPeer *sensor() { return peer<sim::LightSensorPeer>(); }

    // A whole exchange that gave `volts` after the reply `hex`, one query written.
    static void expect_reading(const Call &call, const std::string &hex, const std::string &volts)
    {
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.messages(), (Lines{reply_line(hex), volts_line(volts)}));
        EXPECT_EQ(call.out, "photosensor voltage: " + volts + "V\r\n");
        EXPECT_EQ(call.err, "");
        EXPECT_EQ(writes(call), std::vector<Bytes>{kQuery});
        EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
        clitest::expect_reported_by_command_unit(call);
    }

    // The descriptor the command opened the line with, from the journal.
    static int line_fd(const Call &call)
    {
        const auto opens = call.of(sim::Kind::Open, lightstest::kAccessory);
        return opens.empty() ? -1 : static_cast<int>(opens[0].result);
    }
};

// ---- Readings --------------------------------------------------------------------------------------

TEST_F(LightSensor, TheHealthyCamerasSensorReads128As1Point64Volts)
{
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    expect_reading(call, "ff 1 20 5b 0 80 fc", "1.64");
    EXPECT_EQ(received(call), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC}));
    EXPECT_EQ(line_baud(), 9600u);
    EXPECT_EQ(call.waited, kFrameAt9600) << "the reply comes seven byte-times after the query";
}

TEST_F(LightSensor, Level0IsFullScale)
{
    hang_sensor({.level = 0});
    expect_reading(run([] { return CLI_232PhotoSensorVoltage(); }), "ff 1 20 5b 0 0 7c", "3.30");
}

TEST_F(LightSensor, Level255IsDark)
{
    hang_sensor({.level = 255});
    expect_reading(run([] { return CLI_232PhotoSensorVoltage(); }), "ff 1 20 5b 0 ff 7b", "0.00");
}

TEST_F(LightSensor, Level128Is1Point64)
{
    hang_sensor({.level = 128});
    expect_reading(run([] { return CLI_232PhotoSensorVoltage(); }), "ff 1 20 5b 0 80 fc", "1.64");
}

TEST_F(LightSensor, TheReplysCheckByteIsNotLookedAt)
{
    hang_sensor({.level = 100}, {.bad_checksum = {1}});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    expect_reading(call, "ff 1 20 5b 0 64 e1", "2.01");
    EXPECT_EQ(received(call), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x64, 0xE1})) << "0xE0 would be right";
}

TEST_F(LightSensor, ASlowSensorIsWaitedFor)
{
    hang_sensor({.level = 128, .answer_delay = 600 * sim::kMillisecond});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    expect_reading(call, "ff 1 20 5b 0 80 fc", "1.64");
    EXPECT_EQ(call.waited, 600 * sim::kMillisecond + kFrameAt9600);
}

// Each wait for a byte gets the whole second again.
TEST_F(LightSensor, AReplyTricklingInWithinASecondPerByteIsReadWhole)
{
    hang_sensor({.level = 128}, {.mode = Mode::Trickle, .trickle_gap = 900 * sim::kMillisecond});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    expect_reading(call, "ff 1 20 5b 0 80 fc", "1.64");
    EXPECT_EQ(call.waited, 7 * 900 * sim::kMillisecond);
}

// ---- Replies that are not the sensor's ------------------------------------------------------------

TEST_F(LightSensor, FiveWrongRepliesFailAfterTheFifthAttempt)
{
    hang_sensor({.level = 128, .wrong_replies = {1, 2, 3, 4, 5}});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    Lines expected;
    for (int attempt = 0; attempt < 5; ++attempt) {
        expected.push_back(reply_line("ff 1 20 5a 0 80 fb"));
        expected.push_back(kInvalid);
    }
    expected.push_back(kGiveUp);
    EXPECT_EQ(call.messages(), expected);
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, console("CLI_232PhotoSensorVoltage", "read date invalid,please check operation"))
        << "only the last report has a console line";
    EXPECT_EQ(writes(call), std::vector<Bytes>(5, kQuery));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
    EXPECT_EQ(call.waited, 5 * kFrameAt9600);
    EXPECT_EQ(sensor()->replies(), 5u);
}

TEST_F(LightSensor, AWrongReplyIsAskedAgainAndTheNextOneCounts)
{
    hang_sensor({.level = 0, .wrong_replies = {1}});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (Lines{reply_line("ff 1 20 5a 0 0 7b"), kInvalid,
                                      reply_line("ff 1 20 5b 0 0 7c"), volts_line("3.30")}));
    EXPECT_EQ(call.out, "photosensor voltage: 3.30V\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), std::vector<Bytes>(2, kQuery));
    EXPECT_EQ(call.waited, 2 * kFrameAt9600);
}

// Each of the first four bytes is compared: a reply wrong in any one of them is refused.
TEST_F(LightSensor, ARepliesFirstFourBytesMustEachMatch)
{
    const std::vector<Bytes> wrong = {{0xFE, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC},
                                      {0xFF, 0x02, 0x20, 0x5B, 0x00, 0x80, 0xFD},
                                      {0xFF, 0x01, 0x21, 0x5B, 0x00, 0x80, 0xFD},
                                      {0xFF, 0x01, 0x20, 0x59, 0x00, 0x80, 0xFA}};
    for (const Bytes &reply : wrong) {
        hang([reply] {
            auto scripted = std::make_unique<sim::ScriptedPeer>();
            scripted->add_rule({kQuery, reply});
            return scripted;
        });
        const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
        EXPECT_EQ(call.status, 1);
        ASSERT_EQ(call.messages().size(), 11u);
        EXPECT_EQ(call.messages()[1], kInvalid);
        EXPECT_EQ(call.messages()[10], kGiveUp);
    }
}

TEST_F(LightSensor, NoiseInsteadOfRepliesSpendsEveryAttempt)
{
    hang_sensor({}, {.mode = Mode::Garbage, .garbage_chunk = 7, .garbage_seed = 3});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 11u);
    for (size_t attempt = 0; attempt < 5; ++attempt)
        EXPECT_EQ(messages[2 * attempt + 1], kInvalid);
    EXPECT_EQ(messages[10], kGiveUp);
    EXPECT_EQ(writes(call).size(), 5u);
}

// ---- A short write --------------------------------------------------------------------------------

TEST_F(LightSensor, AShortWriteSpendsAnAttemptAndTheNextQueryIsAnswered)
{
    clitest::faults().short_write.arm(0, 1);
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_232PhotoSensorVoltage: write num lRet is 3",
                                      reply_line("ff 1 20 5b 0 80 fc"), volts_line("1.64")}));
    EXPECT_EQ(call.err, "") << "no console line for a short write";
    EXPECT_EQ(writes(call), (std::vector<Bytes>{{0xFF, 0x01, 0x20}, kQuery}));
    EXPECT_EQ(call.waited, kFrameAt9600) << "the short write waits for nothing";
    // The sensor found the whole query behind the half of one.
    ASSERT_NE(sensor(), nullptr);
    EXPECT_EQ(sensor()->replies(), 1u);
}

TEST_F(LightSensor, FiveShortWritesFailWithoutReadingAnything)
{
    clitest::faults().short_write.arm(0, 5);
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_232PhotoSensorVoltage: write num lRet is 3",
                                      "ERROR CLI_232PhotoSensorVoltage: write num lRet is 3",
                                      "ERROR CLI_232PhotoSensorVoltage: write num lRet is 3",
                                      "ERROR CLI_232PhotoSensorVoltage: write num lRet is 3",
                                      "ERROR CLI_232PhotoSensorVoltage: write num lRet is 3", kGiveUp}));
    EXPECT_EQ(call.waited, 0);
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
}

// ---- A reply that never comes: the command ends at once and keeps the port ------------------------

TEST_F(LightSensor, ASilentSensorEndsTheCommandAfterOneSecondWithThePortLeftOpen)
{
    allow_left_open(clitest::LeftOpen::LightSensorAfterTimeout);
    hang_sensor({}, {.mode = Mode::Silent});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_Treadn: read Timeout",
                                      "ERROR CLI_232PhotoSensorVoltage: read num lRet is 1"}));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), std::vector<Bytes>{kQuery}) << "no further attempt";
    EXPECT_EQ(call.waited, sim::kSecond);
    EXPECT_EQ(clitest::camera_trace(call), Lines{"open /dev/ttyAMBA1 rw"}) << "never closed";
    const int fd = line_fd(call);
    ASSERT_GE(fd, 0);
    EXPECT_NE(fcntl(fd, F_GETFD), -1) << "the descriptor is still open";
}

TEST_F(LightSensor, AReplyCutShortTimesOutTheSameWay)
{
    allow_left_open(clitest::LeftOpen::LightSensorAfterTimeout);
    hang([] {
        auto scripted = std::make_unique<sim::ScriptedPeer>();
        scripted->add_rule({kQuery, {0xFF, 0x01, 0x20}});
        return scripted;
    });
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_Treadn: read Timeout",
                                      "ERROR CLI_232PhotoSensorVoltage: read num lRet is 1"}));
    EXPECT_EQ(call.waited, 3 * lightstest::kByteAt9600 + sim::kSecond);
    EXPECT_EQ(writes(call).size(), 1u);
}

TEST_F(LightSensor, AGapLongerThanASecondWithinTheReplyTimesOut)
{
    allow_left_open(clitest::LeftOpen::LightSensorAfterTimeout);
    hang_sensor({}, {.mode = Mode::Trickle, .trickle_gap = 1500 * sim::kMillisecond});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_Treadn: read Timeout",
                                      "ERROR CLI_232PhotoSensorVoltage: read num lRet is 1"}));
    EXPECT_EQ(call.waited, sim::kSecond);
}

// The line ends under the command's read: the port reads as empty until the read gives up.
TEST_F(LightSensor, ASensorThatHangsUpEndsTheCommandWithThePortLeftOpen)
{
    allow_left_open(clitest::LeftOpen::LightSensorAfterTimeout);
    hang_sensor({}, {.hang_up_after = 7});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_Treadn: read data fail 0",
                                      "ERROR CLI_232PhotoSensorVoltage: read num lRet is 1"}));
    EXPECT_EQ(call.err, console("CLI_Treadn", "read data fail 0"));
    EXPECT_EQ(writes(call).size(), 1u);
    EXPECT_EQ(call.waited, 0) << "a dead line does not wait";
    EXPECT_EQ(clitest::camera_trace(call), Lines{"open /dev/ttyAMBA1 rw"});
}

// ---- The port itself ---------------------------------------------------------------------------

TEST_F(LightSensor, APortThatDoesNotExistIsReportedThroughPerrorOnly)
{
    scenario().ports[lightstest::kAccessory].present = false;
    restart();
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "/dev/ttyAMBA1: No such file or directory\n");
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(clitest::camera_trace(call), Lines{"open /dev/ttyAMBA1 rw failed"});
}

TEST_F(LightSensor, ASpeedThatCannotBeReadClosesThePort)
{
    clitest::faults().tcgetattr.arm(0, 1);
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_SetRsRate: tcgetattr() fail exit",
                                      "ERROR CLI_232PhotoSensorVoltage: Set Rate failed"}));
    EXPECT_EQ(call.err, console("CLI_SetRsRate", "tcgetattr() fail exit") +
                            "tcgetattr:: Input/output error\n" +
                            console("CLI_232PhotoSensorVoltage", "Set Rate failed"));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
    EXPECT_TRUE(writes(call).empty());
}

TEST_F(LightSensor, ASpeedThatCannotBeSetClosesThePort)
{
    clitest::faults().tcsetattr.arm(0, 1);
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                      "ERROR CLI_232PhotoSensorVoltage: Set Rate failed"}));
    EXPECT_EQ(call.err, console("CLI_SetRsRate", "tcsetattr() fail exit") +
                            console("CLI_232PhotoSensorVoltage", "Set Rate failed"));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
}

// The reply is shown before it is judged; the voltage comes once the port is closed.
TEST_F(LightSensor, TheReplysBytesArePrintedInOrderBeforeTheyAreJudged)
{
    hang_sensor({.address = 0x01, .level = 0x5C});
    const Call call = run([] { return CLI_232PhotoSensorVoltage(); });
    EXPECT_EQ(lightstest::story(call), (Lines{"open /dev/ttyAMBA1 rw", reply_line("ff 1 20 5b 0 5c d8"),
                                              "close /dev/ttyAMBA1", volts_line("2.11")}));
}

} // namespace
