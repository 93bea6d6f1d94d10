// The ZigBee join through libclidriver.so on the simulated camera: the coordinator behind the
// hub's port 0x005D (a traffic camera) or straight on the link. Every frame the camera writes is
// checked byte for byte against frames written out by hand, and the command frames are read back
// by the test's own reader (tests/support/zigbee_wire.h); the coordinator's own record says what it
// understood. Times are worked out from the line rates: a report of w bytes sent at t by the
// coordinator on its 115200-baud channel is whole at the hub at t + w byte-times, and reaches the
// camera in a hub frame of w + 9 bytes at 115200 baud.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "fault_injection.h"
#include "zigbee_fixture.h"

namespace
{

using namespace zbtest;
using clitest::big_endian_rate;
using clitest::faults;
using clitest::kHubClose;
using clitest::kHubOpen;
using clitest::kHubPass;
using clitest::kHubPortGps;
using clitest::kHubPortRfid;
using clitest::kHubPortZigbee;
using clitest::kHubSetRate;
using clitest::zb_bytes;
using clitest::zb_climate;
using clitest::zb_particulate;
using clitest::zb_read;
using clitest::zb_version;

// The coordinator's set-up commands as the camera sends them, written out by hand. The security
// command carries the key state 3 and the 16 characters of the ZigBee Home Automation default
// trust-centre link key as they are: none is below 0x10, so none is escaped.
const std::string kKey = "ZigBeeAlliance09";
const ZbBytes kCmd1 =
    zb_bytes("01 02 10 20 02 10 02 18 28 02 10 02 10 02 10 02 10 02 10 02 10 02 10 02 10 03");
const ZbBytes kCmd2 = zb_bytes("01 02 10 21 02 10 02 14 2D 02 10 02 10 02 18 02 10 03");
const ZbBytes kCmd3 = [] {
    ZbBytes wire = zb_bytes("01 02 10 22 02 10 11 02 1E 02 13");
    wire.insert(wire.end(), kKey.begin(), kKey.end());
    wire.push_back(0x03);
    return wire;
}();
const ZbBytes kCmd4 = zb_bytes("01 02 10 24 02 10 02 10 24 03");
const ZbBytes kCmd5 = zb_bytes("01 02 10 49 02 10 02 14 B2 02 10 02 10 FF 02 10 03");
const ZbBytes kReset = zb_bytes("01 02 10 12 02 10 02 10 12 03");

const std::string kJoin = "CLI_NetAccess";
const std::string kPrompt = " INFO CLI_NetAccess: Please push Client button";
const std::string kPromptOut = "Please push Client button\r\n";

// The frames a join writes in hub mode before it waits: the coordinator's channel opened at its
// rate, the GPS and RFID channels closed, the five commands passed to the coordinator.
std::vector<Bytes> hub_set_up_frames()
{
    return {hub_frame(kHubPortZigbee, kHubOpen),
            hub_frame(kHubPortZigbee, kHubSetRate, big_endian_rate(kZigbeeRate)),
            hub_frame(kHubPortGps, kHubClose),
            hub_frame(kHubPortRfid, kHubClose),
            hub_frame(kHubPortZigbee, kHubPass, kCmd1),
            hub_frame(kHubPortZigbee, kHubPass, kCmd2),
            hub_frame(kHubPortZigbee, kHubPass, kCmd3),
            hub_frame(kHubPortZigbee, kHubPass, kCmd4),
            hub_frame(kHubPortZigbee, kHubPass, kCmd5)};
}

std::vector<Bytes> with(std::vector<Bytes> frames, const std::vector<Bytes> &more)
{
    frames.insert(frames.end(), more.begin(), more.end());
    return frames;
}

// When a report sent by the coordinator at `at` after the join is whole at the camera.
sim::Nanos arrives(sim::Nanos at, const ZbBytes &report)
{
    return at + static_cast<sim::Nanos>(report.size()) * kByte +
           static_cast<sim::Nanos>(report.size() + 9) * kByte;
}

// What the camera's receive says for a hub frame carrying `report`.
Lines received(const ZbBytes &report)
{
    const size_t length = report.size() + 4;
    char line[64];
    snprintf(line, sizeof line, " INFO CLI_ComRecv: len %zu(0x%zx)", length, length);
    return {" INFO CLI_ComRecv: head 0xfe", line};
}

Lines concat_lines(std::initializer_list<Lines> parts)
{
    Lines all;
    for (const Lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// A failed receive on the link, the first time (a read that waited its 15 s) and on the link the
// join has closed since.
const Lines kFirstReceiveFailed = {"ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                                   "ERROR CLI_NetAccess: Function CLI_ComRecv call failed"};
const Lines kLaterReceiveFailed = {"ERROR CLI_ComRecv: read data fail",
                                   "ERROR CLI_NetAccess: Function CLI_ComRecv call failed"};
const std::string kTimesOut = "ERROR CLI_NetAccess: ZigBee Recv Times out";

Lines repeated(const Lines &lines, size_t times)
{
    Lines all;
    for (size_t i = 0; i < times; ++i)
        all.insert(all.end(), lines.begin(), lines.end());
    return all;
}

std::string repeated(const std::string &text, size_t times)
{
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

sim::ZigbeeSetup with_reports(std::vector<sim::ZigbeeReport> reports)
{
    sim::ZigbeeSetup setup;
    setup.reports = std::move(reports);
    return setup;
}

class Join : public ZigbeeTest
{
};

// ---- The commands ------------------------------------------------------------------------------

TEST_F(Join, TheFiveCommandsGoToTheCoordinatorByteForByte)
{
    hang_coordinator({});
    int fd = open_link(COM_TYPE_ZIGBEE);
    const Call call = run([&] { return CLI_ZigBeeNetAllowance(fd); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), (std::vector<Bytes>{hub_frame(kHubPortZigbee, kHubPass, kCmd1),
                                                hub_frame(kHubPortZigbee, kHubPass, kCmd2),
                                                hub_frame(kHubPortZigbee, kHubPass, kCmd3),
                                                hub_frame(kHubPortZigbee, kHubPass, kCmd4),
                                                hub_frame(kHubPortZigbee, kHubPass, kCmd5)}));
    EXPECT_EQ(call.waited, 0) << "no answer is awaited";
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 0u) << "the caller keeps its link";
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

struct CommandRow {
    const char *name;
    ZbBytes wire;
    uint16_t type;
    ZbBytes payload;
    uint8_t checksum;
};

void PrintTo(const CommandRow &row, std::ostream *out)
{
    *out << row.name;
}

class Commands : public ::testing::TestWithParam<CommandRow>
{
};

// Each command read back by the test's own reader: its fields, and a checksum that is the XOR of
// its type, length and payload as it came.
TEST_P(Commands, ReadBackGiveTheirTypeLengthChecksumAndPayload)
{
    const CommandRow &row = GetParam();
    const clitest::ZbRead read = zb_read(row.wire);
    ASSERT_TRUE(read.whole) << clitest::zb_hex(row.wire);
    EXPECT_EQ(read.type, row.type);
    EXPECT_EQ(read.payload, row.payload);
    EXPECT_TRUE(read.length_right());
    EXPECT_EQ(read.checksum, row.checksum);
    EXPECT_TRUE(read.checksum_right()) << "computed " << static_cast<int>(read.computed);
}

INSTANTIATE_TEST_SUITE_P(
    Join, Commands,
    ::testing::Values(CommandRow{"Cmd1ExtendedPanIdZero", kCmd1, 0x0020, ZbBytes(8, 0x00), 0x28},
                      CommandRow{"Cmd2ChannelMaskChannel11", kCmd2, 0x0021, {0x00, 0x00, 0x08, 0x00}, 0x2D},
                      CommandRow{"Cmd3KeyState3AndTheDefaultTrustCentreKey", kCmd3, 0x0022,
                                 [] {
                                     ZbBytes payload = {0x03};
                                     payload.insert(payload.end(), kKey.begin(), kKey.end());
                                     return payload;
                                 }(),
                                 0x0E},
                      CommandRow{"Cmd4StartNetwork", kCmd4, 0x0024, {}, 0x24},
                      CommandRow{"Cmd5PermitJoiningOpen", kCmd5, 0x0049, {0x00, 0x00, 0xFF, 0x00}, 0xB2},
                      CommandRow{"ResetErasesPersistentData", kReset, 0x0012, {}, 0x12}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(Join, TheCoordinatorUnderstandsEachCommandAndOpensItsNetwork)
{
    hang_coordinator({});
    int fd = open_link(COM_TYPE_ZIGBEE);
    ASSERT_EQ(CLI_ZigBeeNetAllowance(fd), 0u);
    sim::ZigbeePeer *peer = coordinator();
    ASSERT_NE(peer, nullptr);
    ASSERT_EQ(peer->heard().size(), 5u);
    const uint16_t types[] = {0x0020, 0x0021, 0x0022, 0x0024, 0x0049};
    for (size_t i = 0; i < 5; ++i) {
        const sim::ZigbeeHeard &frame = peer->heard()[i];
        EXPECT_EQ(frame.type, types[i]);
        EXPECT_TRUE(frame.unstuffed_ok && frame.length_ok && frame.checksum_ok && frame.payload_ok) << i;
        EXPECT_TRUE(frame.carried_out) << i;
    }
    EXPECT_EQ(peer->extended_pan_id(), 0u);
    EXPECT_EQ(peer->channel_mask(), 0x00000800u);
    EXPECT_EQ(peer->key_state(), 3);
    const auto key = peer->link_key();
    ASSERT_TRUE(key.has_value());
    EXPECT_EQ(std::string(key->begin(), key->end()), kKey);
    EXPECT_TRUE(peer->network_started());
    EXPECT_TRUE(peer->joining_open());
    EXPECT_EQ(peer->joins(), 1u) << "a sensor with the default key on channel 11 joins";
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

// ---- A join that works -------------------------------------------------------------------------

TEST_F(Join, AJoinClosesTheOtherChannelsPromptsAfterTheWaitAndEndsAfterFourReports)
{
    const ZbBytes first = zb_climate(2345, 5678);
    const ZbBytes second = zb_particulate(1234);
    const ZbBytes third = zb_version("ZB-2.1.7");
    const ZbBytes fourth = zb_climate(2350, 5600);
    hang_coordinator(with_reports({sim::ZigbeeReport::climate(2 * kSecond, 2345, 5678),
                                   sim::ZigbeeReport::particulate(3 * kSecond, 1234),
                                   sim::ZigbeeReport::version(4 * kSecond, "ZB-2.1.7"),
                                   sim::ZigbeeReport::climate(5 * kSecond, 2350, 5600)}));
    const Call call = run([] { return CLI_NetAccess(1); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              concat_lines({{kPrompt},
                            received(first),
                            {" INFO CLI_ZigBeeDataDealNew: hum info get, hum: 5678 temp: 2345\n"},
                            received(second),
                            {" INFO CLI_ZigBeeDataDealNew: pm info get: 1234\n"},
                            received(third),
                            {" INFO CLI_ZigBeeDataDealNew: ver info get\n"},
                            received(fourth),
                            {" INFO CLI_ZigBeeDataDealNew: hum info get, hum: 5600 temp: 2350\n"}}));
    EXPECT_EQ(call.out, kPromptOut);
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), with(hub_set_up_frames(), {hub_frame(kHubPortZigbee, kHubClose)}));
    EXPECT_EQ(call.waited, arrives(5 * kSecond, fourth)) << "the fourth report ends the join";
    EXPECT_EQ(call.of(sim::Kind::Open, kLink).size(), 1u);
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);

    // The prompt comes after the one-second wait, not before.
    const std::vector<sim::Entry> waits = call.of(sim::Kind::Sleep);
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].values.at(0), kSecond);
    const std::vector<sim::Entry> printed = call.of(sim::Kind::Print);
    ASSERT_FALSE(printed.empty());
    EXPECT_GT(printed[0].seq, waits[0].seq);
    EXPECT_EQ(printed[0].time, waits[0].time + kSecond);

    // The sensor joined when joining was opened, at the fifth command's write.
    const std::vector<sim::Entry> written = call.of(sim::Kind::SerialWrite, kLink);
    ASSERT_EQ(written.size(), 10u);
    ASSERT_NE(coordinator(), nullptr);
    EXPECT_EQ(coordinator()->join_times(), std::vector<sim::Nanos>{written[8].time});

    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.out, " Temperature: 23.5\n Humidity: 56.0\r\n PM2.5: 12.34\r\n");
    const Call version = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, " Software: ZB-2.1.7\r\n");
}

TEST_F(Join, TheReportsOfTheSensorAreCountedNotTheFramesRead)
{
    // A status answer to each command arrives after the flush of a join that does not wait: each
    // is read and refused, and counts as an attempt; the four reports behind them still end the
    // join within its ten receives.
    sim::ZigbeeSetup setup = with_reports({sim::ZigbeeReport::climate(1 * kSecond, 100, 200),
                                           sim::ZigbeeReport::climate(2 * kSecond, 101, 201),
                                           sim::ZigbeeReport::climate(3 * kSecond, 102, 202),
                                           sim::ZigbeeReport::climate(4 * kSecond, 103, 203)});
    setup.status_replies = true;
    hang_coordinator(setup);
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 0);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 1u + 5 * 3 + 4 * 3);
    for (size_t i = 0; i < 5; ++i) // 01 80 00 00 04, checksum, status 0, sequence, type: 10 bytes
        EXPECT_EQ(messages[3 + 3 * i], "ERROR CLI_ZigBeeDataDealNew: data len 10 too short") << i;
    EXPECT_EQ(messages.back(), " INFO CLI_ZigBeeDataDealNew: hum info get, hum: 203 temp: 103\n");
    EXPECT_EQ(call.waited, arrives(4 * kSecond, zb_climate(103, 203)));
    EXPECT_TRUE(call.of(sim::Kind::Sleep).empty()) << "a wait of 0 s does not sleep";
}

// ---- The reset ---------------------------------------------------------------------------------

TEST_F(Join, Waiting999SecondsSendsOnlyTheResetAndNoPrompt)
{
    hang_coordinator(with_reports({sim::ZigbeeReport::climate(0, 2345, 5678)}));
    const Call call = run([] { return CLI_NetAccess(999); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call),
              (std::vector<Bytes>{hub_frame(kHubPortZigbee, kHubOpen),
                                  hub_frame(kHubPortZigbee, kHubSetRate, big_endian_rate(kZigbeeRate)),
                                  hub_frame(kHubPortGps, kHubClose), hub_frame(kHubPortRfid, kHubClose),
                                  hub_frame(kHubPortZigbee, kHubPass, kReset),
                                  hub_frame(kHubPortZigbee, kHubClose)}));
    EXPECT_EQ(call.waited, 0);
    EXPECT_TRUE(call.of(sim::Kind::Sleep).empty());
    ASSERT_NE(coordinator(), nullptr);
    EXPECT_EQ(coordinator()->erasures(), 1u);
    EXPECT_EQ(coordinator()->joins(), 0u);
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
}

TEST_F(Join, TheResetClearsWhatTheLastJoinCollected)
{
    hang_coordinator(with_reports({sim::ZigbeeReport::climate(1 * kSecond, 2345, 5678),
                                   sim::ZigbeeReport::particulate(2 * kSecond, 1234),
                                   sim::ZigbeeReport::version(3 * kSecond, "ZB-2.1.7"),
                                   sim::ZigbeeReport::climate(4 * kSecond, 2345, 5678)}));
    ASSERT_EQ(run([] { return CLI_NetAccess(0); }).status, 0);
    ASSERT_EQ(run([] { return CLI_GetZigbeeSensorInfo(); }).status, 0);
    ASSERT_EQ(run([] { return CLI_NetAccess(999); }).status, 0);
    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.messages(), Lines{" INFO CLI_GetZigbeeSensorInfo: Init State or Bad ZigBee"});
    EXPECT_EQ(shown.out, "Init State or Bad ZigBee\r\n");
    const Call version = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(version.status, 1);
    EXPECT_EQ(version.out, "Init State or Bad ZigBee\r\n");
}

// ---- Joins that end without four reports --------------------------------------------------------

TEST_F(Join, WithNoWaitThePromptComesAtOnceAndTenReceivesFailOnTheClosedLink)
{
    hang_coordinator({});
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              concat_lines({{kPrompt}, kFirstReceiveFailed, repeated(kLaterReceiveFailed, 9), {kTimesOut}}));
    EXPECT_EQ(call.out, kPromptOut);
    EXPECT_EQ(call.err,
              repeated(call_failed(kJoin, "CLI_ComRecv"), 10) + console(kJoin, "ZigBee Recv Times out"));
    // The first failure closes the link (its close frame goes out); the closes after it, on the
    // forgotten descriptor, reach nothing.
    EXPECT_EQ(writes(call), with(hub_set_up_frames(), {hub_frame(kHubPortZigbee, kHubClose)}));
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
    EXPECT_EQ(call.waited, 15 * kSecond) << "one read waits the coordinator's 15 s, the others fail at once";
    EXPECT_TRUE(call.of(sim::Kind::Sleep).empty());
}

TEST_F(Join, AVersionThenSilenceTimesOut)
{
    const ZbBytes version = zb_version("ZB-2.1.7");
    hang_coordinator(with_reports({sim::ZigbeeReport::version(500 * kMillisecond, "ZB-2.1.7")}));
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), concat_lines({{kPrompt},
                                             received(version),
                                             {" INFO CLI_ZigBeeDataDealNew: ver info get\n"},
                                             kFirstReceiveFailed,
                                             repeated(kLaterReceiveFailed, 8),
                                             {kTimesOut}}));
    EXPECT_EQ(call.err,
              repeated(call_failed(kJoin, "CLI_ComRecv"), 9) + console(kJoin, "ZigBee Recv Times out"));
    EXPECT_EQ(call.waited, arrives(500 * kMillisecond, version) + 15 * kSecond);

    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.messages(), Lines{" INFO CLI_GetZigbeeSensorInfo: Bad ZigBee modules"});
    EXPECT_EQ(shown.out, "Bad ZigBee modules\r\n");
    const Call text = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.messages(), Lines{" INFO CLI_GetZigbeeVersion:  Software: ZB-2.1.7"});
    EXPECT_EQ(text.out, " Software: ZB-2.1.7\r\n");
}

TEST_F(Join, ARefusedPermitJoiningLetsNoSensorIn)
{
    sim::ZigbeeSetup setup = with_reports({sim::ZigbeeReport::climate(kSecond, 2345, 5678)});
    setup.refusals = {{0x0049, 0x05}};
    hang_coordinator(setup);
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    // The refusal's status frame is read and refused; then nothing comes.
    EXPECT_EQ(call.messages(), concat_lines({{kPrompt},
                                             received(clitest::zb_frame(0x8000, {0x05, 0x00, 0x00, 0x49})),
                                             {"ERROR CLI_ZigBeeDataDealNew: data len 10 too short"},
                                             kFirstReceiveFailed,
                                             repeated(kLaterReceiveFailed, 8),
                                             {kTimesOut}}));
    ASSERT_NE(coordinator(), nullptr);
    ASSERT_EQ(coordinator()->heard().size(), 5u);
    EXPECT_TRUE(coordinator()->heard()[4].refused);
    EXPECT_EQ(coordinator()->joins(), 0u);

    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.out, "Init State or Bad ZigBee\r\n") << "nothing decoded: the state stays -1";
}

TEST_F(Join, ASensorWithAnotherKeyNeverJoins)
{
    sim::ZigbeeSetup setup = with_reports({sim::ZigbeeReport::climate(kSecond, 2345, 5678)});
    const std::string other = "0123456789ABCDEF";
    std::copy(other.begin(), other.end(), setup.sensor_key.begin());
    hang_coordinator(setup);
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages().back(), kTimesOut);
    ASSERT_NE(coordinator(), nullptr);
    EXPECT_EQ(coordinator()->joins(), 0u);
}

TEST_F(Join, AnUnknownReportIsRefusedAndTheStateSaysTheModuleWasHeard)
{
    sim::ZigbeeReport odd;
    odd.at = kSecond;
    odd.command = 0x17;
    odd.data = {1, 2, 3, 4};
    hang_coordinator(with_reports({odd}));
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_GE(messages.size(), 4u);
    EXPECT_EQ(messages[3], "ERROR CLI_ZigBeeDataDealNew: unknow Cmd type 23");
    EXPECT_EQ(call.err.substr(0, console("CLI_ZigBeeDataDealNew", "unknow Cmd type 23").size()),
              console("CLI_ZigBeeDataDealNew", "unknow Cmd type 23"));
    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.out, "Bad ZigBee modules\r\n") << "a frame passed the head check: state 0";
}

TEST_F(Join, ACoordinatorSendingNoiseNeverGivesAReport)
{
    hang_coordinator(with_reports({sim::ZigbeeReport::climate(kSecond, 2345, 5678)}),
                     {.mode = sim::Misbehaviour::Mode::Garbage, .garbage_seed = 7});
    const Call call = run([] { return CLI_NetAccess(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages().back(), kTimesOut);
    for (const std::string &line : call.messages())
        EXPECT_EQ(line.find("info get"), std::string::npos) << line;
    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.status, 1);
}

// ---- Failures of the link ----------------------------------------------------------------------

TEST_F(Join, EachCommandThatCannotBeSentIsNamedAndTheLinkIsClosedTwice)
{
    const std::vector<Bytes> commands = {
        hub_frame(kHubPortZigbee, kHubPass, kCmd1), hub_frame(kHubPortZigbee, kHubPass, kCmd2),
        hub_frame(kHubPortZigbee, kHubPass, kCmd3), hub_frame(kHubPortZigbee, kHubPass, kCmd4),
        hub_frame(kHubPortZigbee, kHubPass, kCmd5)};
    for (int failing = 1; failing <= 5; ++failing) {
        SCOPED_TRACE("Cmd" + std::to_string(failing));
        hang_coordinator({});
        faults() = clitest::Faults{};
        // Sent first: the channel's open and rate, the GPS and RFID channels closed, the commands
        // before the one that fails.
        faults().com_send.arm(4 + failing - 1, 1);
        const Call call = run([] { return CLI_NetAccess(1); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(),
                  (Lines{"ERROR CLI_ZigBeeNetAllowance: Send Cmd" + std::to_string(failing) + " fail",
                         "ERROR CLI_NetAccess: set net allowance fail"}));
        EXPECT_EQ(call.out, "") << "no prompt";
        EXPECT_EQ(call.err, "");
        const std::vector<Bytes> set_up = hub_set_up_frames();
        std::vector<Bytes> expected(set_up.begin(), set_up.begin() + 4);
        expected.insert(expected.end(), commands.begin(), commands.begin() + failing - 1);
        expected.push_back(hub_frame(kHubPortZigbee, kHubClose)); // the allowance's close
        EXPECT_EQ(writes(call), expected);
        // The second close is made and reaches nothing: its frame is sent to the forgotten
        // descriptor, and the line was closed once.
        EXPECT_EQ(faults().com_send.calls, 4 + failing + 2);
        EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
        EXPECT_TRUE(call.of(sim::Kind::Sleep).empty());
    }
}

TEST_F(Join, AnAllowanceThatFailsClosesTheLinkItWasGiven)
{
    hang_coordinator({});
    int fd = open_link(COM_TYPE_ZIGBEE);
    faults().com_send.arm(2, 1);
    const Call call = run([&] { return CLI_ZigBeeNetAllowance(fd); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_ZigBeeNetAllowance: Send Cmd3 fail"});
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), (std::vector<Bytes>{hub_frame(kHubPortZigbee, kHubPass, kCmd1),
                                                hub_frame(kHubPortZigbee, kHubPass, kCmd2),
                                                hub_frame(kHubPortZigbee, kHubClose)}));
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
}

TEST_F(Join, ACoordinatorNotDeclaredCannotBeOpened)
{
    hang_coordinator({});
    declare(COM_TYPE_ZIGBEE, 0, kZigbeeRate);
    const Call call = run([] { return CLI_NetAccess(5); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_ComOpen: Device unsupport this Type 1",
                                      "ERROR CLI_NetAccess: open Zigbee fail"}));
    EXPECT_EQ(call.err, console("CLI_ComOpen", "Device unsupport this Type 1"));
    EXPECT_TRUE(written().empty());
    EXPECT_TRUE(call.of(sim::Kind::Sleep).empty());
}

TEST_F(Join, ALineThatWillNotOpen)
{
    scenario().ports[kLink].open_errno = EBUSY;
    restart();
    traffic_camera_link();
    const Call call = run([] { return CLI_NetAccess(5); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_ComOpen: Open file /dev/ttyC0 error",
                                      "ERROR CLI_NetAccess: open Zigbee fail"}));
    EXPECT_EQ(call.err, console("CLI_ComOpen", "Open file /dev/ttyC0 error"));
}

TEST_F(Join, ALineWhoseRateCannotBeSetIsLeftOpenAsTheLinkLeavesIt)
{
    allow_left_open(clitest::LeftOpen::PeripheralLinkAfterRate);
    hang_coordinator({});
    faults().tcsetattr.arm(0, 1);
    const Call call = run([] { return CLI_NetAccess(5); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                      "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed",
                                      "ERROR CLI_NetAccess: open Zigbee fail"}));
    EXPECT_TRUE(written().empty());
}

// ---- The coordinator wired straight to the line ------------------------------------------------

// Straight on the line the link reads the ZigBee radio's shape, which starts with 0xAA, while a
// coordinator's frames start with 0x01: receives find nothing, and the join never decodes a
// report though the coordinator was set up and the sensor joined.
TEST_F(Join, ACoordinatorWiredStraightToTheLineNeverGivesAReport)
{
    const ZbBytes report = zb_climate(2345, 5678);
    ASSERT_EQ(report.size(), 34u);
    hang_coordinator_on_the_line(with_reports({sim::ZigbeeReport::climate(2 * kSecond, 2345, 5678),
                                               sim::ZigbeeReport::climate(3 * kSecond, 2345, 5678),
                                               sim::ZigbeeReport::climate(4 * kSecond, 2345, 5678),
                                               sim::ZigbeeReport::climate(5 * kSecond, 2345, 5678)}));
    const Call call = run([] { return CLI_NetAccess(1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(writes(call), (std::vector<Bytes>{kCmd1, kCmd2, kCmd3, kCmd4, kCmd5})) << "no hub frames";
    // Each receive takes ten pairs of bytes, none starting 0xAA, and finds nothing: the decoder
    // sees the cleared buffer. The 136 bytes of the four reports make six such receives; the
    // seventh runs out of bytes and waits its 15 s.
    EXPECT_EQ(call.messages(),
              concat_lines({{kPrompt},
                            repeated(Lines{"ERROR CLI_ZigBeeDataDealNew: first word[0x0] != 0x1"}, 6),
                            kFirstReceiveFailed,
                            repeated(kLaterReceiveFailed, 3),
                            {kTimesOut}}));
    EXPECT_EQ(call.waited, 5 * kSecond + 34 * kByte + 15 * kSecond);
    ASSERT_NE(coordinator(), nullptr);
    EXPECT_EQ(coordinator()->joins(), 1u);
    for (const sim::ZigbeeHeard &frame : coordinator()->heard())
        EXPECT_TRUE(frame.carried_out);
    const Call shown = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(shown.out, "Init State or Bad ZigBee\r\n");
}

TEST_F(Join, TheRateSetForTheCoordinatorIsTakenAtTheNextOpen)
{
    hang_coordinator({});
    const Call set = run([] { return CLI_SetZigbeeRate(38400); });
    EXPECT_EQ(set.status, 0);
    EXPECT_TRUE(set.messages().empty());
    EXPECT_EQ(set.out, "");
    EXPECT_TRUE(set.journal.empty()) << "nothing touched until the link is opened";
    const Call call = run([] { return CLI_NetAccess(999); });
    ASSERT_GE(writes(call).size(), 2u);
    EXPECT_EQ(writes(call)[1], hub_frame(kHubPortZigbee, kHubSetRate, {0x00, 0x00, 0x96, 0x00}));
    EXPECT_EQ(line_baud(), kHubRate) << "the line itself runs at the hub's rate";
}

} // namespace
