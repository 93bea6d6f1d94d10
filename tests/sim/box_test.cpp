// The simulated peripheral box behind the hub's port 0x0005, through a real pty as the product
// uses it: the heater switched by 0xE1 and 0x06, the temperature request 0x07 and its answer,
// a longer answer, refusals with and without a reply, silence and the misbehaviour every peer
// has, the box straight on the line, and its scenario keys.
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
#include "hub_wire.h"
#include "peripherals/box.h"
#include "peripherals/hub.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;
using clitest::hub_frame;

constexpr const char *kLink = "/dev/ttyC0";
constexpr uint16_t kBox = 0x0005;

// One byte at the hub's 115200 baud: ten bits, whole nanoseconds.
constexpr sim::Nanos kByte = 10 * kSecond / 115200;

constexpr sim::Nanos line_time(size_t bytes)
{
    return static_cast<sim::Nanos>(bytes) * kByte;
}

class BoxOnTheLine : public clitest::SimTest
{
  protected:
    // A hub on the link with the box behind its port 0x0005; the line opened raw at 115200.
    void hang(const sim::BoxSetup &setup, const sim::Misbehaviour &how = {})
    {
        scenario().ports[kLink].make_peer = [setup, how] {
            auto hub = std::make_unique<sim::HubPeer>();
            hub->acknowledge(0); // acknowledges its device ports, never the box's
            auto box = std::make_unique<sim::BoxPeer>(setup);
            box->misbehave(how);
            hub->add_device(kBox, std::move(box));
            return hub;
        };
        restart();
        open_line();
    }

    void open_line()
    {
        fd_ = clitest::open_raw_line(kLink, B115200);
        ASSERT_GE(fd_, 0);
    }

    void TearDown() override
    {
        if (fd_ >= 0)
            close(fd_);
        SimTest::TearDown();
    }

    // The camera's frame for the box: `command` with `payload`.
    void tell(uint8_t command, const Bytes &payload = {})
    {
        const Bytes frame = hub_frame(kBox, command, payload);
        ASSERT_EQ(write(fd_, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    }

    // Reads exactly `count` bytes, waiting up to 5 s for each piece.
    Bytes read_exactly(size_t count) const { return clitest::read_exactly(fd_, count, 5 * kSecond); }

    bool readable_within(sim::Nanos timeout) const { return clitest::readable_within(fd_, timeout); }

    static sim::BoxPeer *box()
    {
        auto *hub = dynamic_cast<sim::HubPeer *>(sim::serial_ports().port(kLink)->peer());
        return hub != nullptr ? dynamic_cast<sim::BoxPeer *>(hub->device(kBox)) : nullptr;
    }

    int fd_ = -1;
};

TEST_F(BoxOnTheLine, TheHeaterGoesOnAfterItsPreparationAndOffAgainAndEveryCommandIsKept)
{
    hang({.temperature = 20});
    // What the camera sends to switch the heater on: open, rate, 0xE1 00, 0x06 01.
    tell(sim::kHubOpen);
    tell(sim::kHubSetRate, clitest::big_endian_rate(115200));
    tell(sim::kBoxPrepareHeater, {0x00});
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn});
    EXPECT_FALSE(readable_within(kSecond)) << "the box answers none of these, the hub none for its port";
    ASSERT_NE(box(), nullptr);
    EXPECT_TRUE(box()->heater_on());
    sim::clock().advance(kSecond);
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOff});
    EXPECT_FALSE(box()->heater_on());
    const std::vector<sim::BoxCommand> &heard = box()->commands();
    ASSERT_EQ(heard.size(), 5u);
    const uint8_t expected[] = {sim::kHubOpen, sim::kHubSetRate, sim::kBoxPrepareHeater,
                                sim::kBoxSwitchHeater, sim::kBoxSwitchHeater};
    for (size_t i = 0; i < heard.size(); ++i) {
        EXPECT_EQ(heard[i].command, expected[i]) << i;
        EXPECT_FALSE(heard[i].refused);
    }
    EXPECT_EQ(heard[2].payload, Bytes{0x00});
    EXPECT_EQ(heard[3].time, 0);
    EXPECT_EQ(heard[4].time, 2 * kSecond);
    EXPECT_EQ(heard[4].payload, Bytes{sim::kBoxHeaterOff});
}

TEST_F(BoxOnTheLine, ASwitchByteOtherThanOnOrOffChangesNothing)
{
    hang({});
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn});
    tell(sim::kBoxSwitchHeater, {0x02});
    tell(sim::kBoxSwitchHeater, {0x00, 0x00});
    EXPECT_TRUE(box()->heater_on());
    EXPECT_EQ(box()->commands().size(), 3u);
}

TEST_F(BoxOnTheLine, TheTemperatureRequestIsAnsweredWithOneByteFromItsPortAfterItsDelay)
{
    hang({.temperature = 0xF6, .answer_delay = 40 * kMillisecond});
    tell(sim::kBoxAskTemperature);
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {0xF6});
    ASSERT_EQ(answer, (Bytes{0xFE, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0xF6, 0x01, 0x03}));
    EXPECT_EQ(read_exactly(answer.size()), answer);
    EXPECT_EQ(sim::clock().now(), 40 * kMillisecond + line_time(answer.size()));
}

TEST_F(BoxOnTheLine, WithoutATemperatureTheRequestGoesUnanswered)
{
    hang({});
    tell(sim::kBoxAskTemperature);
    EXPECT_FALSE(readable_within(2 * kSecond));
    EXPECT_EQ(box()->commands().size(), 1u);
}

TEST_F(BoxOnTheLine, ALongerAnswerCarriesMoreBytesAfterTheTemperature)
{
    hang({.temperature = 23, .extra_bytes = {0x00, 0xFF, 0x17}});
    tell(sim::kBoxAskTemperature);
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {23, 0x00, 0xFF, 0x17});
    EXPECT_EQ(read_exactly(answer.size()), answer);
}

TEST_F(BoxOnTheLine, ARefusedCommandIsKeptButNotCarriedOutAndGoesUnanswered)
{
    hang({.temperature = 20,
          .refusals = {{sim::kBoxSwitchHeater, std::nullopt}, {sim::kBoxAskTemperature, std::nullopt}}});
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn});
    tell(sim::kBoxAskTemperature);
    EXPECT_FALSE(readable_within(2 * kSecond));
    EXPECT_FALSE(box()->heater_on());
    ASSERT_EQ(box()->commands().size(), 2u);
    EXPECT_TRUE(box()->commands()[0].refused);
    EXPECT_TRUE(box()->commands()[1].refused);
}

TEST_F(BoxOnTheLine, ARefusalCanAnswerWithAFrameThatIsNoTemperature)
{
    hang({.temperature = 20,
          .refusals = {{sim::kBoxAskTemperature, sim::HubFrame::of(kBox, 0x15, {0xEE})},
                       {sim::kBoxPrepareHeater, sim::HubFrame::of(kBox, sim::kBoxPrepareHeater)}}});
    tell(sim::kBoxAskTemperature);
    const Bytes refusal = hub_frame(kBox, 0x15, {0xEE});
    EXPECT_EQ(read_exactly(refusal.size()), refusal);
    tell(sim::kBoxPrepareHeater, {0x00});
    const Bytes empty = hub_frame(kBox, sim::kBoxPrepareHeater);
    EXPECT_EQ(read_exactly(empty.size()), empty) << "a frame with no payload at all";
}

TEST_F(BoxOnTheLine, ASilentBoxSwitchesItsHeaterButNeverAnswers)
{
    hang({.temperature = 20}, {.mode = sim::Misbehaviour::Mode::Silent});
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn});
    tell(sim::kBoxAskTemperature);
    EXPECT_FALSE(readable_within(5 * kSecond));
    EXPECT_TRUE(box()->heater_on());
}

TEST_F(BoxOnTheLine, ItsNumberedAnswersGetABadChecksumOrAnOversizeLength)
{
    hang({.temperature = 0x14}, {.bad_checksum = {2}, .oversize = {3}});
    Bytes expected;
    for (int n = 1; n <= 3; ++n) {
        tell(sim::kBoxAskTemperature);
        sim::clock().advance(kSecond); // one answer at a time
    }
    const Bytes right = hub_frame(kBox, sim::kBoxAskTemperature, {0x14});
    Bytes bad_sum = right;
    bad_sum.back() += 1;
    Bytes oversize = right;
    oversize[1] = 0x03;
    oversize[2] = 0xFC; // 1020: L + 5 bytes do not fit the camera's 1024
    for (const Bytes &answer : {right, bad_sum, oversize})
        expected.insert(expected.end(), answer.begin(), answer.end());
    EXPECT_EQ(read_exactly(expected.size()), expected);
}

TEST_F(BoxOnTheLine, ATricklingBoxSendsItsAnswerAByteAtATimeThroughTheHub)
{
    hang({.temperature = 0x14}, {.mode = sim::Misbehaviour::Mode::Trickle, .trickle_gap = 50 * kMillisecond});
    tell(sim::kBoxAskTemperature);
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {0x14});
    for (size_t i = 0; i < answer.size(); ++i) {
        EXPECT_EQ(read_exactly(1), Bytes{answer[i]}) << i;
        EXPECT_EQ(sim::clock().now(), static_cast<sim::Nanos>(i + 1) * 50 * kMillisecond + kByte) << i;
    }
}

TEST_F(BoxOnTheLine, ANoisyBoxPutsItsNoiseOnTheHubsLine)
{
    hang({.temperature = 0x14}, {.mode = sim::Misbehaviour::Mode::Garbage,
                                 .garbage_every = 100 * kMillisecond,
                                 .garbage_chunk = 4,
                                 .garbage_seed = 3});
    tell(sim::kBoxAskTemperature);
    const Bytes noise = read_exactly(12);
    ASSERT_EQ(noise.size(), 12u);
    EXPECT_EQ(sim::clock().now(), 200 * kMillisecond + line_time(4)) << "three pieces: at 0, 100 and 200 ms";
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {0x14});
    EXPECT_EQ(std::search(noise.begin(), noise.end(), answer.begin(), answer.end()), noise.end());
}

TEST_F(BoxOnTheLine, ABoxThatHungUpHearsAndSaysNoMoreButTheHubGoesOn)
{
    hang({.temperature = 0x14}, {.hang_up_after = 20});
    tell(sim::kBoxAskTemperature); // 9 bytes
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {0x14});
    EXPECT_EQ(read_exactly(answer.size()), answer);
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn}); // 19
    tell(sim::kBoxAskTemperature);                    // 28: hung up
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOff});
    EXPECT_FALSE(readable_within(2 * kSecond));
    EXPECT_TRUE(box()->heater_on());
    EXPECT_EQ(box()->commands().size(), 2u);
    EXPECT_TRUE(box()->hung_up());
    const Bytes open = hub_frame(sim::kHubPortGps, sim::kHubOpen);
    ASSERT_EQ(write(fd_, open.data(), open.size()), static_cast<ssize_t>(open.size()));
    EXPECT_EQ(read_exactly(open.size()), open) << "the hub still acknowledges its device ports";
}

TEST_F(BoxOnTheLine, AScenarioFileDescribesTheBoxBehindTheHub)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "hub"

[ports."/dev/ttyC0".box]
peer = "box"
temperature = 31
extra_bytes = "AA BB"
answer_delay_ms = 5
bad_checksum = 2

[[ports."/dev/ttyC0".box.refuse]]
command = 0x06

[[ports."/dev/ttyC0".box.refuse]]
command = 0xE1
reply_command = 0x15
reply_text = "no"
)",
                                     "box.toml", ".");
    restart();
    open_line();
    tell(sim::kBoxPrepareHeater, {0x00});
    tell(sim::kBoxSwitchHeater, {sim::kBoxHeaterOn});
    tell(sim::kBoxAskTemperature);
    const Bytes refusal = hub_frame(kBox, 0x15, {'n', 'o'});
    Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {31, 0xAA, 0xBB});
    answer.back() += 1; // its second answer
    Bytes expected = refusal;
    expected.insert(expected.end(), answer.begin(), answer.end());
    EXPECT_EQ(read_exactly(expected.size()), expected);
    EXPECT_EQ(sim::clock().now(), 5 * kMillisecond + line_time(expected.size()));
    EXPECT_FALSE(box()->heater_on());
}

TEST_F(BoxOnTheLine, StraightOnTheLineItSpeaksTheSameFrames)
{
    scenario() =
        sim::parse_scenario("[ports.\"/dev/ttyC0\"]\npeer = \"box\"\ntemperature = 7\n", "box.toml", ".");
    restart();
    open_line();
    const Bytes other = hub_frame(sim::kHubPortGps, sim::kBoxAskTemperature);
    ASSERT_EQ(write(fd_, other.data(), other.size()), static_cast<ssize_t>(other.size()));
    Bytes wrong_sum = hub_frame(kBox, sim::kBoxAskTemperature);
    wrong_sum.back() ^= 1;
    ASSERT_EQ(write(fd_, wrong_sum.data(), wrong_sum.size()), static_cast<ssize_t>(wrong_sum.size()));
    tell(sim::kBoxAskTemperature);
    const Bytes answer = hub_frame(kBox, sim::kBoxAskTemperature, {7});
    EXPECT_EQ(read_exactly(answer.size()), answer) << "one answer: to the frame for its port it can trust";
    EXPECT_FALSE(readable_within(kSecond));
    auto *direct = dynamic_cast<sim::BoxPeer *>(sim::serial_ports().port(kLink)->peer());
    ASSERT_NE(direct, nullptr);
    EXPECT_EQ(direct->commands().size(), 1u);
}

class BoxScenarioErrors : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(BoxScenarioErrors, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BoxScenarioErrors,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownKey",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".box]\npeer = \"box\"\ntemp = 3\n",
            "bad.toml:5: ports./dev/ttyC0.box.temp: unknown key (expected one of: peer, absent, open_errno, "
            "temperature, extra_bytes, answer_delay_ms, refuse, mode, trickle_gap_ms, garbage_every_ms, "
            "garbage_chunk, garbage_seed, hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{"TemperatureOutOfRange",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".box]\npeer = "
                                 "\"box\"\ntemperature = 256\n",
                                 "bad.toml:5: ports./dev/ttyC0.box.temperature: expected 0..255"},
        clitest::ScenarioMistake{
            "ExtraBytesWithoutATemperature", "[ports.\"/dev/ttyC0\"]\npeer = \"box\"\nextra_bytes = \"00\"\n",
            "bad.toml:3: ports./dev/ttyC0.extra_bytes: a box without a temperature sends no "
            "answer to make longer"},
        clitest::ScenarioMistake{
            "RefusalWithoutCommand",
            "[ports.\"/dev/ttyC0\"]\npeer = \"box\"\n[[ports.\"/dev/ttyC0\".refuse]]\nreply = "
            "\"00\"\n",
            "bad.toml:3: ports./dev/ttyC0.refuse[0].command: a refusal needs the command it "
            "refuses"},
        clitest::ScenarioMistake{
            "RefusedTwice",
            "[ports.\"/dev/ttyC0\"]\npeer = \"box\"\n[[ports.\"/dev/ttyC0\".refuse]]\ncommand "
            "= 7\n[[ports.\"/dev/ttyC0\".refuse]]\ncommand = 7\n",
            "bad.toml:6: ports./dev/ttyC0.refuse[1].command: the box refuses this command "
            "already"},
        clitest::ScenarioMistake{
            "ReplyCommandOutOfRange",
            "[ports.\"/dev/ttyC0\"]\npeer = \"box\"\n[[ports.\"/dev/ttyC0\".refuse]]\ncommand "
            "= 7\nreply_command = 300\n",
            "bad.toml:5: ports./dev/ttyC0.refuse[0].reply_command: expected 0..255"},
        clitest::ScenarioMistake{
            "BoxWithALineKeyBehindTheHub",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".box]\npeer = "
            "\"box\"\nopen_errno = \"EIO\"\n",
            "bad.toml:5: ports./dev/ttyC0.box.open_errno: a device behind the hub has no line "
            "of its own"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
