// The two accessories of the console UART, the IR lamp unit and the serial light sensor, through a
// real pty as the product uses it: frames found in junk and behind half a frame, the lamp unit's
// checks and switches, the sensor's replies at line speed with their levels, delays and wrong
// command bytes, the misbehaviour every peer has, and their scenario keys. The frames are written
// out here byte for byte from the accessories' documentation.
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
#include "peripherals/ir_lamp.h"
#include "peripherals/lamp_wire.h"
#include "peripherals/light_sensor.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;
using Mode = sim::Misbehaviour::Mode;

constexpr const char *kLine = "/dev/ttyAMBA1";
// One byte at 9600 baud, ten bits, whole nanoseconds; a frame is seven.
constexpr sim::Nanos kByte = 10 * kSecond / 9600;
constexpr sim::Nanos kFrame = 7 * kByte;

const Bytes kOnPort0 = {0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x49};
const Bytes kOnPort1 = {0xFF, 0x01, 0x20, 0x2D, 0x43, 0xE8, 0x79};
const Bytes kOff = {0xFF, 0x01, 0x20, 0x2D, 0x50, 0x00, 0x9E};
const Bytes kQuery = {0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7A};

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

class Accessory : public clitest::SimTest
{
  protected:
    void hang(std::function<std::unique_ptr<sim::Peer>()> make)
    {
        scenario().ports[kLine].make_peer = std::move(make);
        restart();
        fd_ = clitest::open_raw_line(kLine, B9600);
        ASSERT_GE(fd_, 0);
    }

    void TearDown() override
    {
        if (fd_ >= 0)
            close(fd_);
        SimTest::TearDown();
    }

    void say(const Bytes &bytes)
    {
        ASSERT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // Reads exactly `count` bytes, waiting up to 5 s for each piece.
    Bytes read_exactly(size_t count) const { return clitest::read_exactly(fd_, count, 5 * kSecond); }

    bool readable_within(sim::Nanos timeout) const { return clitest::readable_within(fd_, timeout); }

    template <typename PeerType> static PeerType *peer()
    {
        return dynamic_cast<PeerType *>(sim::serial_ports().port(kLine)->peer());
    }

    int fd_ = -1;
};

// ---- Finding frames -------------------------------------------------------------------------------

TEST(LampFrameReader, FindsFramesInPiecesAndSkipsJunkBeforeTheSync)
{
    sim::LampFrameReader reader;
    EXPECT_TRUE(reader.read({0x00, 0x13, 0xFF, 0x01, 0x20}, 0).empty());
    const auto frames = reader.read({0x2D, 0x13, 0xE8, 0x49, 0xFF, 0x01}, 5);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes, kOnPort0);
    EXPECT_TRUE(frames[0].check_ok);
    EXPECT_EQ(frames[0].time, 5);
    EXPECT_EQ(frames[0].address(), 0x01);
    EXPECT_EQ(frames[0].command(), 0x2D);
    EXPECT_EQ(frames[0].data(), 0x13E8);
    EXPECT_EQ(reader.skipped(), 2u);
}

TEST(LampFrameReader, AWholeFrameBehindHalfOfOneIsStillFound)
{
    sim::LampFrameReader reader;
    const auto frames = reader.read(joined({{0xFF, 0x01, 0x20}, kQuery}), 0);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_FALSE(frames[0].check_ok) << "the half frame and the start of the next make a wrong check";
    EXPECT_EQ(frames[0].bytes, (Bytes{0xFF, 0x01, 0x20, 0xFF, 0x01, 0x20, 0x59}));
    EXPECT_TRUE(frames[1].check_ok);
    EXPECT_EQ(frames[1].bytes, kQuery);
}

TEST(LampFrameReader, BuildsFramesWithTheirCheckByte)
{
    EXPECT_EQ(sim::lamp_frame(0x01, 0x2D, 0x43E8), kOnPort1);
    EXPECT_EQ(sim::lamp_frame(0x01, 0x5B, 0x0080), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC}));
    EXPECT_EQ(sim::lamp_frame(0xFE, 0xFF, 0xFFFF), (Bytes{0xFF, 0xFE, 0x20, 0xFF, 0xFF, 0xFF, 0x1B}));
}

// ---- The IR lamp unit -----------------------------------------------------------------------------

class LampUnitOnTheLine : public Accessory
{
  protected:
    void hang_unit(uint8_t address = 0x01, const sim::Misbehaviour &how = {})
    {
        hang([address, how] {
            auto unit = std::make_unique<sim::IrLampPeer>(address);
            unit->misbehave(how);
            return unit;
        });
    }
    static sim::IrLampPeer *unit() { return peer<sim::IrLampPeer>(); }
};

TEST_F(LampUnitOnTheLine, SwitchesEachPortOnAndEverythingOffAndKeepsEveryFrame)
{
    hang_unit();
    say(kOnPort0);
    EXPECT_TRUE(unit()->lamps_on(0));
    EXPECT_FALSE(unit()->lamps_on(1));
    sim::clock().advance(kSecond);
    say(kOnPort1);
    EXPECT_TRUE(unit()->lamps_on(0) && unit()->lamps_on(1));
    say(kOff);
    EXPECT_FALSE(unit()->lamps_on(0) || unit()->lamps_on(1));
    const auto &requests = unit()->requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].frame.bytes, kOnPort0);
    EXPECT_EQ(requests[0].frame.time, 0);
    EXPECT_EQ(requests[1].frame.time, kSecond);
    for (const sim::LampRequest &request : requests)
        EXPECT_EQ(request.verdict, sim::LampVerdict::Obeyed);
    EXPECT_FALSE(readable_within(2 * kSecond)) << "it answers nothing";
}

TEST_F(LampUnitOnTheLine, RefusesAWrongCheckAnotherAddressAnotherCommandAndUnknownData)
{
    hang_unit();
    say({0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x4A}); // check off by one
    say({0xFF, 0x02, 0x20, 0x2D, 0x13, 0xE8, 0x4A}); // for unit 2, right check
    say(kQuery);                                     // a light query
    say({0xFF, 0x01, 0x20, 0x2D, 0x00, 0x01, 0x4F}); // data it does not know
    say({0xFF, 0x01, 0x21, 0x2D, 0x13, 0xE8, 0x4A}); // another command page
    EXPECT_FALSE(unit()->lamps_on(0) || unit()->lamps_on(1));
    std::vector<sim::LampVerdict> verdicts;
    for (const sim::LampRequest &request : unit()->requests())
        verdicts.push_back(request.verdict);
    // The refused first frame is searched again from its second byte: no sync there, so nothing
    // more comes of it.
    EXPECT_EQ(verdicts,
              (std::vector<sim::LampVerdict>{sim::LampVerdict::BadCheck, sim::LampVerdict::OtherAddress,
                                             sim::LampVerdict::OtherCommand, sim::LampVerdict::UnknownSwitch,
                                             sim::LampVerdict::OtherCommand}));
}

TEST_F(LampUnitOnTheLine, AUnitAtAnotherAddressObeysOnlyItsOwnFrames)
{
    hang_unit(0x07);
    say(kOnPort0);
    say({0xFF, 0x07, 0x20, 0x2D, 0x43, 0xE8, 0x7F});
    EXPECT_FALSE(unit()->lamps_on(0));
    EXPECT_TRUE(unit()->lamps_on(1));
}

TEST_F(LampUnitOnTheLine, HangingUpEndsTheLine)
{
    hang_unit(0x01, {.hang_up_after = 14});
    say(kOnPort0);
    say(kOff);
    EXPECT_TRUE(unit()->hung_up());
    EXPECT_TRUE(unit()->lamps_on(0)) << "the frame that reached the count is not obeyed";
    EXPECT_EQ(unit()->requests().size(), 1u);
    close(fd_);
    fd_ = open(kLine, O_RDWR | O_NOCTTY);
    EXPECT_LT(fd_, 0) << "a line that hung up does not open again";
}

TEST_F(LampUnitOnTheLine, ANoisyUnitPutsNoiseOnTheLineAndStillObeys)
{
    hang_unit(0x01, {.mode = Mode::Garbage, .garbage_every = 100 * kMillisecond, .garbage_chunk = 3});
    EXPECT_EQ(read_exactly(6).size(), 6u);
    say(kOnPort1);
    EXPECT_TRUE(unit()->lamps_on(1));
}

// ---- The light sensor -----------------------------------------------------------------------------

class SensorOnTheLine : public Accessory
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
};

TEST_F(SensorOnTheLine, AnswersTheQueryWithItsLevelSevenByteTimesLater)
{
    hang_sensor({.level = 0x80});
    say(kQuery);
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC}));
    EXPECT_EQ(sim::clock().now(), kFrame);
    EXPECT_EQ(sensor()->replies(), 1u);
    ASSERT_EQ(sensor()->heard().size(), 1u);
    EXPECT_EQ(sensor()->heard()[0].bytes, kQuery);
}

TEST_F(SensorOnTheLine, AnswersAfterItsDelayAndEachQueryInTurn)
{
    hang_sensor({.level = 0, .answer_delay = 20 * kMillisecond});
    say(kQuery);
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x00, 0x7C}));
    EXPECT_EQ(sim::clock().now(), 20 * kMillisecond + kFrame);
    say(kQuery);
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x00, 0x7C}));
    EXPECT_EQ(sim::clock().now(), 2 * (20 * kMillisecond + kFrame));
}

TEST_F(SensorOnTheLine, NumberedRepliesAnswerAnotherQuery)
{
    hang_sensor({.level = 0xFF, .wrong_replies = {2}});
    for (int n = 0; n < 3; ++n)
        say(kQuery);
    EXPECT_EQ(read_exactly(21), joined({{0xFF, 0x01, 0x20, 0x5B, 0x00, 0xFF, 0x7B},
                                        {0xFF, 0x01, 0x20, 0x5A, 0x00, 0xFF, 0x7A},
                                        {0xFF, 0x01, 0x20, 0x5B, 0x00, 0xFF, 0x7B}}));
}

TEST_F(SensorOnTheLine, LeavesUnansweredWhatItCannotTrustOrWasNotAsked)
{
    hang_sensor({.address = 0x01});
    say({0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7B}); // check off by one
    say({0xFF, 0x02, 0x20, 0x59, 0x00, 0x00, 0x7B}); // for address 2
    say(kOnPort0);                                   // a lamp frame
    say({0x59, 0x00, 0x00});                         // junk
    EXPECT_FALSE(readable_within(2 * kSecond));
    EXPECT_EQ(sensor()->replies(), 0u);
    EXPECT_EQ(sensor()->heard().size(), 3u);
}

TEST_F(SensorOnTheLine, FindsTheQueryBehindHalfOfOne)
{
    hang_sensor({.level = 1});
    say({0xFF, 0x01, 0x20});
    say(kQuery);
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x01, 0x7D}));
    EXPECT_EQ(sensor()->replies(), 1u);
}

TEST_F(SensorOnTheLine, ASensorAtAnotherAddressAnswersFromIt)
{
    hang_sensor({.address = 0x09, .level = 0x10});
    say(kQuery);
    EXPECT_FALSE(readable_within(kSecond));
    say({0xFF, 0x09, 0x20, 0x59, 0x00, 0x00, 0x82});
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x09, 0x20, 0x5B, 0x00, 0x10, 0x94}));
}

TEST_F(SensorOnTheLine, ItsNumberedRepliesGetAWrongCheckByte)
{
    hang_sensor({.level = 0x80}, {.bad_checksum = {1}});
    say(kQuery);
    EXPECT_EQ(read_exactly(7), (Bytes{0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFD}));
}

TEST_F(SensorOnTheLine, SilentItHearsButNeverAnswers)
{
    hang_sensor({}, {.mode = Mode::Silent});
    say(kQuery);
    EXPECT_FALSE(readable_within(3 * kSecond));
    EXPECT_EQ(sensor()->replies(), 1u) << "a dropped reply is still counted";
}

TEST_F(SensorOnTheLine, TricklingItSendsItsReplyAByteAtATime)
{
    hang_sensor({.level = 0x80}, {.mode = Mode::Trickle, .trickle_gap = 300 * kMillisecond});
    say(kQuery);
    const Bytes reply = {0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC};
    for (size_t i = 0; i < reply.size(); ++i) {
        EXPECT_EQ(read_exactly(1), Bytes{reply[i]}) << i;
        EXPECT_EQ(sim::clock().now(), static_cast<sim::Nanos>(i + 1) * 300 * kMillisecond) << i;
    }
}

TEST_F(SensorOnTheLine, HangingUpAfterTheQueryLeavesItUnanswered)
{
    hang_sensor({}, {.hang_up_after = 7});
    say(kQuery);
    EXPECT_TRUE(sensor()->hung_up());
    EXPECT_EQ(sensor()->replies(), 0u);
}

// ---- Scenario keys ------------------------------------------------------------------------------

TEST(AccessoryKeys, ALightSensorReadsItsOwnKeys)
{
    const sim::Scenario read = sim::parse_scenario("[ports.\"/dev/ttyAMBA1\"]\npeer = \"light_sensor\"\n"
                                                   "level = 7\naddress = 3\nanswer_delay_ms = 2.5\n"
                                                   "wrong_replies = [1, 4]\n",
                                                   "keys.toml", ".");
    const auto made = read.ports.at(kLine).make_peer();
    ASSERT_NE(dynamic_cast<sim::LightSensorPeer *>(made.get()), nullptr);
    // What the keys mean shows in what it answers: run it against a line of the test's own.
    struct Line : sim::PortLine {
        const std::string &path() const override { return path_; }
        unsigned baud() const override { return 9600; }
        bool open_by_product() const override { return true; }
        std::string path_ = kLine;
    } line;
    made->attach(&line);
    for (int n = 0; n < 4; ++n)
        made->receive({0xFF, 0x03, 0x20, 0x59, 0x00, 0x00, 0x7C}, 0);
    Bytes sent;
    sim::Nanos first = sim::kNever;
    while (made->next_send() != sim::kNever) {
        first = std::min(first, made->next_send());
        const Bytes piece = made->take(made->next_send());
        sent.insert(sent.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(first, 2 * kMillisecond + 500 * sim::kMicrosecond + kFrame);
    const Bytes right = {0xFF, 0x03, 0x20, 0x5B, 0x00, 0x07, 0x85};
    const Bytes wrong = {0xFF, 0x03, 0x20, 0x5A, 0x00, 0x07, 0x84};
    EXPECT_EQ(sent, joined({wrong, right, right, wrong}));
}

TEST(AccessoryKeys, ALampUnitReadsItsAddress)
{
    const sim::Scenario read =
        sim::parse_scenario("[ports.\"/dev/ttyAMBA1\"]\npeer = \"ir_lamp\"\naddress = 2\n", "keys.toml", ".");
    const auto made = read.ports.at(kLine).make_peer();
    auto *unit = dynamic_cast<sim::IrLampPeer *>(made.get());
    ASSERT_NE(unit, nullptr);
    made->receive(kOnPort0, 0);
    made->receive({0xFF, 0x02, 0x20, 0x2D, 0x13, 0xE8, 0x4A}, 0);
    ASSERT_EQ(unit->requests().size(), 2u);
    EXPECT_EQ(unit->requests()[0].verdict, sim::LampVerdict::OtherAddress);
    EXPECT_EQ(unit->requests()[1].verdict, sim::LampVerdict::Obeyed);
    EXPECT_TRUE(unit->lamps_on(0));
}

class AccessoryMistakes : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(AccessoryMistakes, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, AccessoryMistakes,
    ::testing::Values(
        clitest::ScenarioMistake{"LevelTooHigh",
                                 "[ports.\"/dev/ttyAMBA1\"]\npeer = \"light_sensor\"\nlevel = 256\n",
                                 "bad.toml:3: ports./dev/ttyAMBA1.level: expected 0..255"},
        clitest::ScenarioMistake{"AddressNegative",
                                 "[ports.\"/dev/ttyAMBA1\"]\npeer = \"ir_lamp\"\naddress = -1\n",
                                 "bad.toml:3: ports./dev/ttyAMBA1.address: expected 0..255"},
        clitest::ScenarioMistake{"ReplyZero",
                                 "[ports.\"/dev/ttyAMBA1\"]\npeer = \"light_sensor\"\nwrong_replies = [0]\n",
                                 "bad.toml:3: ports./dev/ttyAMBA1.wrong_replies: expected the numbers of "
                                 "replies, from 1 ([1, 3])"},
        clitest::ScenarioMistake{
            "ALampUnitHasNoLevel", "[ports.\"/dev/ttyAMBA1\"]\npeer = \"ir_lamp\"\nlevel = 3\n",
            "bad.toml:3: ports./dev/ttyAMBA1.level: unknown key (expected one of: peer, absent, "
            "open_errno, address, mode, trickle_gap_ms, garbage_every_ms, garbage_chunk, "
            "garbage_seed, hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{"ALampUnitSendsNoCheck",
                                 "[ports.\"/dev/ttyAMBA1\"]\npeer = \"ir_lamp\"\nbad_checksum = 1\n",
                                 "bad.toml:3: ports./dev/ttyAMBA1.bad_checksum: the IR lamp unit sends no "
                                 "check to spoil"},
        clitest::ScenarioMistake{"ASensorReplyHasNoLength",
                                 "[ports.\"/dev/ttyAMBA1\"]\npeer = \"light_sensor\"\noversize = 1\n",
                                 "bad.toml:3: ports./dev/ttyAMBA1.oversize: the light sensor sends no length "
                                 "field to make too long"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
