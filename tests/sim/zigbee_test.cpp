// The simulated ZigBee coordinator straight on /dev/ttyC0 (and once behind the hub), through a
// real pty as the product uses it: what it makes of each frame it hears (checked, carried out or
// kept and ignored), when the sensor joins and when not, its reports at their times, refusals and
// status replies, the erase, reports wrong on purpose, the misbehaviour every peer has with its
// frames stuffed right again, and its scenario keys. Frames are written and read by the tests' own
// code (tests/support/zigbee_wire.h).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "camera_line.h"
#include "core/clock.h"
#include "devices/serial.h"
#include "hub_wire.h"
#include "peripherals/hub.h"
#include "peripherals/zigbee.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"
#include "zigbee_wire.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;
using clitest::zb_bytes;
using clitest::zb_climate;
using clitest::zb_frame;
using clitest::zb_particulate;
using clitest::zb_read;
using clitest::zb_report;
using clitest::zb_stuff;
using clitest::zb_version;

constexpr const char *kLink = "/dev/ttyC0";

// One byte at 115200 baud: ten bits, whole nanoseconds.
constexpr sim::Nanos kByte = 10 * kSecond / 115200;

constexpr sim::Nanos line_time(size_t bytes)
{
    return static_cast<sim::Nanos>(bytes) * kByte;
}

const std::string kKey = "ZigBeeAlliance09";

// The camera's five set-up commands, by the tests' own writer.
Bytes security(const std::string &key, uint8_t state = 3)
{
    Bytes payload = {state};
    payload.insert(payload.end(), key.begin(), key.end());
    return zb_frame(0x0022, payload);
}
const Bytes kPanId = zb_frame(0x0020, Bytes(8, 0));
const Bytes kChannel11 = zb_frame(0x0021, {0x00, 0x00, 0x08, 0x00});
const Bytes kStart = zb_frame(0x0024, {});
const Bytes kPermit = zb_frame(0x0049, {0x00, 0x00, 0xFF, 0x00});
const Bytes kErase = zb_frame(0x0012, {});

class CoordinatorOnTheLine : public clitest::SimTest
{
  protected:
    void hang(const sim::ZigbeeSetup &setup, const sim::Misbehaviour &how = {})
    {
        scenario().ports[kLink].make_peer = [setup, how] {
            auto peer = std::make_unique<sim::ZigbeePeer>(setup);
            peer->misbehave(how);
            return peer;
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

    void send(const Bytes &bytes)
    {
        ASSERT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // The five commands in the camera's order, with the key and channel given.
    void set_up(const std::string &key = kKey, const Bytes &channel = kChannel11)
    {
        for (const Bytes &frame : {kPanId, channel, security(key), kStart, kPermit})
            send(frame);
    }

    // Reads exactly `count` bytes, waiting up to 30 s for each piece.
    Bytes read_exactly(size_t count) const { return clitest::read_exactly(fd_, count, 30 * kSecond); }

    bool readable_within(sim::Nanos timeout) const { return clitest::readable_within(fd_, timeout); }

    static sim::ZigbeePeer *coordinator()
    {
        sim::Port *port = sim::serial_ports().port(kLink);
        if (port == nullptr)
            return nullptr;
        if (auto *direct = dynamic_cast<sim::ZigbeePeer *>(port->peer()))
            return direct;
        auto *hub = dynamic_cast<sim::HubPeer *>(port->peer());
        return hub != nullptr ? dynamic_cast<sim::ZigbeePeer *>(hub->device(sim::kHubPortZigbee)) : nullptr;
    }

    int fd_ = -1;
};

sim::ZigbeeSetup with_reports(std::vector<sim::ZigbeeReport> reports)
{
    sim::ZigbeeSetup setup;
    setup.reports = std::move(reports);
    return setup;
}

TEST_F(CoordinatorOnTheLine, ChecksEachSetUpCommandCarriesItOutAndLetsTheSensorJoin)
{
    hang({});
    set_up();
    sim::ZigbeePeer *peer = coordinator();
    ASSERT_NE(peer, nullptr);
    ASSERT_EQ(peer->heard().size(), 5u);
    const uint16_t types[] = {0x0020, 0x0021, 0x0022, 0x0024, 0x0049};
    const Bytes wires[] = {kPanId, kChannel11, security(kKey), kStart, kPermit};
    for (size_t i = 0; i < 5; ++i) {
        const sim::ZigbeeHeard &frame = peer->heard()[i];
        EXPECT_EQ(frame.wire, wires[i]) << i;
        EXPECT_EQ(frame.type, types[i]);
        EXPECT_TRUE(frame.unstuffed_ok && frame.length_ok && frame.checksum_ok && frame.payload_ok) << i;
        EXPECT_TRUE(frame.carried_out);
        EXPECT_FALSE(frame.refused);
        EXPECT_EQ(frame.time, 0);
    }
    EXPECT_EQ(peer->heard()[2].checksum, 0x0E);
    EXPECT_EQ(peer->extended_pan_id(), 0u);
    EXPECT_EQ(peer->channel_mask(), 0x800u);
    EXPECT_EQ(peer->key_state(), 3);
    EXPECT_TRUE(peer->network_started());
    EXPECT_TRUE(peer->joining_open());
    EXPECT_EQ(peer->join_times(), std::vector<sim::Nanos>{0});
    EXPECT_FALSE(readable_within(kSecond)) << "no status replies unless asked, no reports unless given";
}

TEST_F(CoordinatorOnTheLine, AFrameItCannotTrustIsKeptAndIgnored)
{
    hang({});
    Bytes bad_sum = zb_frame(0x0021, {0x00, 0x00, 0x10, 0x00}); // channel 12, checksum spoilt below
    Bytes inside = {0x00, 0x21, 0x00, 0x04, 0x00, 0x00, 0x00, 0x10, 0x00};
    inside[4] = 0x34; // the right XOR is 0x35
    bad_sum = zb_stuff(inside);
    const Bytes wrong_length = zb_stuff({0x00, 0x21, 0x00, 0x05, 0x35 ^ 0x04 ^ 0x05, 0x00, 0x00, 0x10, 0x00});
    const Bytes wrong_size = zb_frame(0x0021, {0x00, 0x10, 0x00});
    const Bytes bare = zb_bytes("01 02 10 21 02 10 02 14 3D 00 00 10 00 03"); // zeros not escaped
    const Bytes bad_escape = zb_bytes("01 02 10 21 02 10 02 14 3D 02 25 03");
    for (const Bytes &frame : {bad_sum, wrong_length, wrong_size, bare, bad_escape})
        send(frame);
    sim::ZigbeePeer *peer = coordinator();
    ASSERT_EQ(peer->heard().size(), 5u);
    EXPECT_FALSE(peer->heard()[0].checksum_ok);
    EXPECT_TRUE(peer->heard()[0].length_ok);
    EXPECT_FALSE(peer->heard()[1].length_ok);
    EXPECT_TRUE(peer->heard()[1].checksum_ok);
    EXPECT_FALSE(peer->heard()[2].payload_ok);
    EXPECT_TRUE(peer->heard()[2].checksum_ok && peer->heard()[2].length_ok);
    EXPECT_FALSE(peer->heard()[3].unstuffed_ok);
    EXPECT_FALSE(peer->heard()[4].unstuffed_ok);
    for (const sim::ZigbeeHeard &frame : peer->heard())
        EXPECT_FALSE(frame.carried_out);
    EXPECT_EQ(peer->channel_mask(), sim::kZbAllChannels) << "none of them changed the mask";
}

TEST_F(CoordinatorOnTheLine, FramesArriveInPiecesAndNoiseBetweenThemIsSkipped)
{
    hang({});
    send(zb_bytes("55 AA 03"));
    send(Bytes(kStart.begin(), kStart.begin() + 4));
    send(Bytes(kStart.begin() + 4, kStart.end()));
    send(zb_bytes("01 02 10")); // a start that never ends: the next start begins afresh
    send(kPermit);
    sim::ZigbeePeer *peer = coordinator();
    ASSERT_EQ(peer->heard().size(), 2u);
    EXPECT_EQ(peer->heard()[0].wire, kStart);
    EXPECT_EQ(peer->heard()[1].wire, kPermit);
    EXPECT_EQ(peer->skipped(), 6u);
}

TEST_F(CoordinatorOnTheLine, TheSensorsReportsFollowItsJoinAtTheirTimes)
{
    hang(with_reports({sim::ZigbeeReport::climate(100 * kMillisecond, 2345, 5678),
                       sim::ZigbeeReport::particulate(300 * kMillisecond, 1234),
                       sim::ZigbeeReport::version(500 * kMillisecond, "ZB-2.1.7")}));
    sim::clock().advance(kSecond);
    set_up();
    const Bytes climate = zb_climate(2345, 5678);
    EXPECT_EQ(read_exactly(climate.size()), climate);
    EXPECT_EQ(sim::clock().now(), kSecond + 100 * kMillisecond + line_time(climate.size()));
    const Bytes particulate = zb_particulate(1234);
    EXPECT_EQ(read_exactly(particulate.size()), particulate);
    EXPECT_EQ(sim::clock().now(), kSecond + 300 * kMillisecond + line_time(particulate.size()));
    const Bytes version = zb_version("ZB-2.1.7");
    EXPECT_EQ(read_exactly(version.size()), version);
    EXPECT_EQ(sim::clock().now(), kSecond + 500 * kMillisecond + line_time(version.size()));
    EXPECT_FALSE(readable_within(5 * kSecond));
    EXPECT_EQ(coordinator()->join_times(), std::vector<sim::Nanos>{kSecond});
}

TEST_F(CoordinatorOnTheLine, OpeningJoiningAgainStartsTheReportsAfresh)
{
    hang(with_reports({sim::ZigbeeReport::climate(kSecond, 1, 2)}));
    set_up();
    sim::clock().advance(500 * kMillisecond);
    send(kPermit);
    const Bytes climate = zb_climate(1, 2);
    EXPECT_EQ(read_exactly(climate.size()), climate);
    EXPECT_EQ(sim::clock().now(), 1500 * kMillisecond + line_time(climate.size()))
        << "only the second join's";
    EXPECT_FALSE(readable_within(5 * kSecond));
    EXPECT_EQ(coordinator()->joins(), 2u);
}

struct NoJoinRow {
    const char *name;
    std::vector<Bytes> frames;
};

void PrintTo(const NoJoinRow &row, std::ostream *out)
{
    *out << row.name;
}

class NoJoin : public CoordinatorOnTheLine, public ::testing::WithParamInterface<NoJoinRow>
{
};

TEST_P(NoJoin, NoSensorJoinsAndNothingIsSent)
{
    hang(with_reports({sim::ZigbeeReport::climate(0, 2345, 5678)}));
    for (const Bytes &frame : GetParam().frames)
        send(frame);
    EXPECT_EQ(coordinator()->joins(), 0u);
    EXPECT_FALSE(readable_within(5 * kSecond));
}

INSTANTIATE_TEST_SUITE_P(
    Coordinator, NoJoin,
    ::testing::Values(
        NoJoinRow{"WithoutTheNetworkStarted", {kPanId, kChannel11, security(kKey), kPermit}},
        NoJoinRow{"WithoutJoiningOpened", {kPanId, kChannel11, security(kKey), kStart}},
        NoJoinRow{"WithJoiningClosedAgain",
                  {kChannel11, security(kKey), kStart, zb_frame(0x0049, {0x00, 0x00, 0x00, 0x00})}},
        NoJoinRow{"OnAnotherChannel",
                  {zb_frame(0x0021, {0x00, 0x00, 0x10, 0x00}), security(kKey), kStart, kPermit}},
        NoJoinRow{"WithAnotherKey", {kChannel11, security("0123456789ABCDEF"), kStart, kPermit}},
        NoJoinRow{"WithADistributedKeyState", {kChannel11, security(kKey, 2), kStart, kPermit}},
        NoJoinRow{"WithoutAnyKey", {kChannel11, kStart, kPermit}},
        NoJoinRow{"AfterAnErase", {kChannel11, security(kKey), kStart, kErase, kPermit}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(CoordinatorOnTheLine, WithoutAChannelMaskEveryChannelIsOpen)
{
    hang({});
    for (const Bytes &frame : {security(kKey), kStart, kPermit})
        send(frame);
    EXPECT_EQ(coordinator()->channel_mask(), 0x07FFF800u);
    EXPECT_EQ(coordinator()->joins(), 1u);
}

TEST_F(CoordinatorOnTheLine, AnEraseDropsTheReportsStillToCome)
{
    hang(with_reports({sim::ZigbeeReport::climate(kSecond, 1, 2)}));
    set_up();
    sim::clock().advance(500 * kMillisecond);
    send(kErase);
    EXPECT_FALSE(readable_within(5 * kSecond));
    EXPECT_EQ(coordinator()->erasures(), 1u);
    EXPECT_FALSE(coordinator()->network_started());
    EXPECT_FALSE(coordinator()->key_state().has_value());
}

TEST_F(CoordinatorOnTheLine, ARefusedCommandIsAnsweredWithItsStatusAndNotCarriedOut)
{
    sim::ZigbeeSetup setup = with_reports({sim::ZigbeeReport::climate(0, 1, 2)});
    setup.refusals = {{0x0024, 0x05}, {0x0020, std::nullopt}};
    hang(setup);
    set_up();
    const Bytes status = zb_frame(0x8000, {0x05, 0x00, 0x00, 0x24});
    EXPECT_EQ(read_exactly(status.size()), status);
    EXPECT_FALSE(readable_within(5 * kSecond)) << "the refusal without a status goes unanswered";
    EXPECT_TRUE(coordinator()->heard()[0].refused);
    EXPECT_TRUE(coordinator()->heard()[3].refused);
    EXPECT_FALSE(coordinator()->extended_pan_id().has_value());
    EXPECT_FALSE(coordinator()->network_started());
    EXPECT_EQ(coordinator()->joins(), 0u);
}

TEST_F(CoordinatorOnTheLine, StatusRepliesAnswerEachCommandInTurn)
{
    sim::ZigbeeSetup setup;
    setup.status_replies = true;
    hang(setup);
    set_up();
    Bytes expected;
    const uint16_t types[] = {0x0020, 0x0021, 0x0022, 0x0024, 0x0049};
    for (uint8_t i = 0; i < 5; ++i) {
        const Bytes status =
            zb_frame(0x8000, {0x00, i, static_cast<uint8_t>(types[i] >> 8), static_cast<uint8_t>(types[i])});
        expected.insert(expected.end(), status.begin(), status.end());
    }
    EXPECT_EQ(read_exactly(expected.size()), expected);
    EXPECT_EQ(sim::clock().now(), line_time(expected.size())) << "one after the other at the line's speed";
}

TEST_F(CoordinatorOnTheLine, AReportCanBeWrongInAnyField)
{
    sim::ZigbeeReport head;
    head = sim::ZigbeeReport::climate(0, 1, 2);
    head.head = 0xFD;
    sim::ZigbeeReport type = sim::ZigbeeReport::climate(kSecond, 1, 2);
    type.data_type = 4;
    sim::ZigbeeReport length = sim::ZigbeeReport::version(2 * kSecond, "ZB");
    length.sensor_length = 2;
    sim::ZigbeeReport open = sim::ZigbeeReport::climate(3 * kSecond, 1, 2);
    open.closed = false;
    sim::ZigbeeReport raw;
    raw.at = 4 * kSecond;
    raw.wire = zb_bytes("01 80 02");
    hang(with_reports({head, type, length, open, raw}));
    set_up();
    const Bytes data = {0x00, 0x01, 0x00, 0x02};
    Bytes unclosed = zb_climate(1, 2);
    unclosed.pop_back();
    for (const Bytes &expected :
         {zb_report({.head = 0xFD, .command = 0x15, .data = data}),
          zb_report({.data_type = 4, .command = 0x15, .data = data}),
          zb_report({.length = 2, .command = 0xFE, .data = {'Z', 'B'}}), unclosed, zb_bytes("01 80 02")})
        EXPECT_EQ(read_exactly(expected.size()), expected);
}

TEST_F(CoordinatorOnTheLine, ItsNumberedFramesGetABadChecksumOrOversizeLengthsStuffedRight)
{
    hang(with_reports({sim::ZigbeeReport::climate(0, 0x0F0F, 2),
                       sim::ZigbeeReport::version(kSecond, "ZB-2.1.7"),
                       sim::ZigbeeReport::particulate(2 * kSecond, 1)}),
         {.bad_checksum = {1}, .oversize = {2}});
    set_up();
    const Bytes first_right = zb_climate(0x0F0F, 2);
    const clitest::ZbRead right = zb_read(first_right);
    // The first with its XOR off by one (0x81 + 1 = 0x82, no longer escaped either way).
    Bytes first = read_exactly(first_right.size());
    const clitest::ZbRead spoilt = zb_read(first);
    ASSERT_TRUE(spoilt.whole) << clitest::zb_hex(first);
    EXPECT_EQ(spoilt.checksum, static_cast<uint8_t>(right.checksum + 1));
    EXPECT_FALSE(spoilt.checksum_right());
    EXPECT_EQ(spoilt.payload, right.payload);
    // The second claims 0xFFFF in both length fields, with its checksum right.
    const Bytes version_right = zb_version("ZB-2.1.7");
    Bytes payload = zb_read(version_right).payload;
    payload[7] = 0xFF;
    payload[8] = 0xFF;
    Bytes inside = {0x80, 0x02, 0xFF, 0xFF, 0x00};
    inside.insert(inside.end(), payload.begin(), payload.end());
    uint8_t sum = 0;
    for (size_t i = 0; i < inside.size(); ++i)
        if (i != 4)
            sum ^= inside[i];
    inside[4] = sum;
    const Bytes oversize = zb_stuff(inside);
    EXPECT_EQ(read_exactly(oversize.size()), oversize);
    const Bytes third = zb_particulate(1);
    EXPECT_EQ(read_exactly(third.size()), third);
}

TEST_F(CoordinatorOnTheLine, ASilentCoordinatorStillJoinsTheSensorButSendsNothing)
{
    hang(with_reports({sim::ZigbeeReport::climate(0, 1, 2)}), {.mode = sim::Misbehaviour::Mode::Silent});
    set_up();
    EXPECT_FALSE(readable_within(5 * kSecond));
    EXPECT_EQ(coordinator()->joins(), 1u);
}

TEST_F(CoordinatorOnTheLine, BehindTheHubItsReportsComeInFramesFromPort5D)
{
    scenario().ports[kLink].make_peer = [] {
        auto hub = std::make_unique<sim::HubPeer>();
        hub->add_device(sim::kHubPortZigbee, std::make_unique<sim::ZigbeePeer>(
                                                 with_reports({sim::ZigbeeReport::climate(0, 1, 2)})));
        return hub;
    };
    restart();
    open_line();
    send(clitest::hub_frame(0x5D, clitest::kHubOpen));
    send(clitest::hub_frame(0x5D, clitest::kHubSetRate, clitest::big_endian_rate(115200)));
    for (const Bytes &frame : {kChannel11, security(kKey), kStart, kPermit})
        send(clitest::hub_frame(0x5D, clitest::kHubPass, frame));
    const Bytes framed = clitest::hub_frame(0x5D, clitest::kHubPass, zb_climate(1, 2));
    EXPECT_EQ(read_exactly(framed.size()), framed) << "the whole report in one hub frame";
    EXPECT_EQ(sim::clock().now(), line_time(zb_climate(1, 2).size()) + line_time(framed.size()));
}

TEST_F(CoordinatorOnTheLine, AScenarioFileDescribesTheCoordinatorAndItsSensor)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "zigbee"
status_replies = true
sensor_key_text = "0123456789ABCDEF"
sensor_channel = 15
sensor_address = 0x4321

[[ports."/dev/ttyC0".report]]
at_ms = 1000
temperature = 2345
humidity = 5678

[[ports."/dev/ttyC0".report]]
at_ms = 2000.5
pm = 1234

[[ports."/dev/ttyC0".report]]
at_ms = 3000
version = "ZB-2.1.7"

[[ports."/dev/ttyC0".report]]
at_ms = 4000
command = 0x17
data = "01 02"
head = 0xFD
data_type = 4
sensor_length = 9
closed = false

[[ports."/dev/ttyC0".report]]
at_ms = 5000
wire_text = "raw"

[[ports."/dev/ttyC0".refuse]]
type = 0x0049
status = 5

[[ports."/dev/ttyC0".refuse]]
type = 0x0012
)",
                                     "zigbee.toml", ".");
    restart();
    open_line();
    const sim::ZigbeeSetup &setup = coordinator()->setup();
    EXPECT_TRUE(setup.status_replies);
    EXPECT_EQ(std::string(setup.sensor_key.begin(), setup.sensor_key.end()), "0123456789ABCDEF");
    EXPECT_EQ(setup.sensor_channel, 15u);
    EXPECT_EQ(setup.sensor_address, 0x4321);
    ASSERT_EQ(setup.reports.size(), 5u);
    EXPECT_EQ(setup.reports[0].at, kSecond);
    EXPECT_EQ(setup.reports[0].command, 0x15);
    EXPECT_EQ(setup.reports[0].data, (Bytes{0x09, 0x29, 0x16, 0x2E}));
    EXPECT_EQ(setup.reports[1].at, 2000 * kMillisecond + 500 * sim::kMicrosecond);
    EXPECT_EQ(setup.reports[1].data, (Bytes{0x00, 0x00, 0x04, 0xD2}));
    EXPECT_EQ(setup.reports[2].data, (Bytes{'Z', 'B', '-', '2', '.', '1', '.', '7'}));
    EXPECT_EQ(setup.reports[3].command, 0x17);
    EXPECT_EQ(setup.reports[3].data, (Bytes{0x01, 0x02}));
    EXPECT_EQ(setup.reports[3].head, 0xFD);
    EXPECT_EQ(setup.reports[3].data_type, 4);
    EXPECT_EQ(setup.reports[3].sensor_length, 9);
    EXPECT_FALSE(setup.reports[3].closed);
    EXPECT_EQ(setup.reports[4].wire, (Bytes{'r', 'a', 'w'}));
    ASSERT_EQ(setup.refusals.size(), 2u);
    EXPECT_EQ(setup.refusals[0].type, 0x0049);
    EXPECT_EQ(setup.refusals[0].status, 5);
    EXPECT_EQ(setup.refusals[1].type, 0x0012);
    EXPECT_FALSE(setup.refusals[1].status.has_value());
}

TEST_F(CoordinatorOnTheLine, BehindTheHubInAScenarioFile)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "hub"

[ports."/dev/ttyC0".zigbee]
peer = "zigbee"
[[ports."/dev/ttyC0".zigbee.report]]
at_ms = 0
pm = 7
)",
                                     "zigbee.toml", ".");
    restart();
    open_line();
    ASSERT_NE(coordinator(), nullptr);
    EXPECT_EQ(coordinator()->setup().reports.size(), 1u);
}

class CoordinatorMistakes : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(CoordinatorMistakes, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

#define ZB_PORT   "[ports.\"/dev/ttyC0\"]\npeer = \"zigbee\"\n"
#define ZB_REPORT "[[ports.\"/dev/ttyC0\".report]]\n"

INSTANTIATE_TEST_SUITE_P(
    Files, CoordinatorMistakes,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownKey", ZB_PORT "sensor = 1\n",
            "bad.toml:3: ports./dev/ttyC0.sensor: unknown key (expected one of: peer, absent, "
            "open_errno, status_replies, sensor_key, sensor_key_text, sensor_channel, "
            "sensor_address, report, refuse, mode, trickle_gap_ms, garbage_every_ms, "
            "garbage_chunk, garbage_seed, hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{
            "AReportWithoutItsTime", ZB_PORT ZB_REPORT "pm = 1\n",
            "bad.toml:3: ports./dev/ttyC0.report[0].at_ms: a report needs the time it comes, "
            "after the sensor joined"},
        clitest::ScenarioMistake{
            "AReportOfTwoKinds", ZB_PORT ZB_REPORT "at_ms = 1\npm = 1\nversion = \"x\"\n",
            "bad.toml:4: ports./dev/ttyC0.report[0].at_ms: a report is one of temperature and "
            "humidity, pm, version, command (with data) or wire"},
        clitest::ScenarioMistake{
            "AReportOfNoKind", ZB_PORT ZB_REPORT "at_ms = 1\n",
            "bad.toml:4: ports./dev/ttyC0.report[0].at_ms: a report is one of temperature and "
            "humidity, pm, version, command (with data) or wire"},
        clitest::ScenarioMistake{
            "ATemperatureWithoutHumidity", ZB_PORT ZB_REPORT "at_ms = 1\ntemperature = 1\n",
            "bad.toml:3: ports./dev/ttyC0.report[0].humidity: a climate report carries both "
            "temperature and humidity, in hundredths"},
        clitest::ScenarioMistake{"AReadingTooLarge",
                                 ZB_PORT ZB_REPORT "at_ms = 1\ntemperature = 65536\nhumidity = 1\n",
                                 "bad.toml:5: ports./dev/ttyC0.report[0].temperature: expected 0..65535"},
        clitest::ScenarioMistake{"DataWithoutACommand",
                                 ZB_PORT ZB_REPORT "at_ms = 1\npm = 1\ndata = \"01\"\n",
                                 "bad.toml:6: ports./dev/ttyC0.report[0].data: data goes with a command"},
        clitest::ScenarioMistake{
            "RawBytesWithAFieldToSpoil", ZB_PORT ZB_REPORT "at_ms = 1\nwire = \"01 03\"\nhead = 1\n",
            "bad.toml:6: ports./dev/ttyC0.report[0].head: raw bytes go out as they are; write "
            "the field wrong in them"},
        clitest::ScenarioMistake{"AKeyOfFifteenBytes", ZB_PORT "sensor_key_text = \"ZigBeeAlliance0\"\n",
                                 "bad.toml:3: ports./dev/ttyC0.sensor_key_text: a link key is 16 bytes"},
        clitest::ScenarioMistake{"AChannelOutsideTheBand", ZB_PORT "sensor_channel = 27\n",
                                 "bad.toml:3: ports./dev/ttyC0.sensor_channel: expected 11..26"},
        clitest::ScenarioMistake{
            "ARefusalWithoutItsType", ZB_PORT "[[ports.\"/dev/ttyC0\".refuse]]\nstatus = 1\n",
            "bad.toml:3: ports./dev/ttyC0.refuse[0].type: a refusal needs the message type it "
            "refuses"},
        clitest::ScenarioMistake{
            "TheSameTypeRefusedTwice",
            ZB_PORT "[[ports.\"/dev/ttyC0\".refuse]]\ntype = 0x24\n[[ports.\"/dev/ttyC0\"."
                    "refuse]]\ntype = 0x24\n",
            "bad.toml:6: ports./dev/ttyC0.refuse[1].type: the coordinator refuses this type "
            "already"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
