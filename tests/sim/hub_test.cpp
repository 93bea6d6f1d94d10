// The simulated peripheral hub: reading the product's frames, channels and rates, routing to the
// devices behind its ports and to the peripheral box on its own port, acknowledgements, silence,
// frames wrong on purpose, and its scenario keys. Most cases drive the peer directly on a line of
// known speed; the last ones go through a real pty as the product would.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "camera_line.h"
#include "core/clock.h"
#include "devices/serial.h"
#include "hub_wire.h"
#include "peripherals/box.h"
#include "peripherals/hub.h"
#include "peripherals/scripted_peer.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;

// A line whose speed the test chooses.
class FixedLine : public sim::PortLine
{
  public:
    explicit FixedLine(unsigned baud) : baud_(baud) {}
    const std::string &path() const override { return path_; }
    unsigned baud() const override { return baud_; }
    bool open_by_product() const override { return true; }

  private:
    std::string path_ = "/dev/ttyC0";
    unsigned baud_;
};

Bytes text(const std::string &characters)
{
    return Bytes(characters.begin(), characters.end());
}

using clitest::hub_frame;

using clitest::big_endian_rate;

constexpr sim::Nanos byte_at(unsigned baud)
{
    return 10 * kSecond / baud;
}

// Everything the hub sends until `until`, in order.
Bytes drain(sim::Peer &peer, sim::Nanos until)
{
    Bytes all;
    while (peer.next_send() <= until) {
        const Bytes due = peer.take(peer.next_send());
        all.insert(all.end(), due.begin(), due.end());
    }
    return all;
}

class Hub : public ::testing::Test
{
  protected:
    void SetUp() override { hub.attach(&line); }

    // A scripted device behind `port`; the hub owns it, the test keeps a pointer.
    sim::ScriptedPeer *device_at(uint16_t port)
    {
        auto device = std::make_unique<sim::ScriptedPeer>();
        sim::ScriptedPeer *kept = device.get();
        hub.add_device(port, std::move(device));
        return kept;
    }

    FixedLine line{115200};
    sim::HubPeer hub;
};

TEST_F(Hub, ReadsFramesWholeOrInPiecesAndSkipsWhatIsNoFrame)
{
    const Bytes open = hub_frame(sim::kHubPortGps, sim::kHubOpen);
    const Bytes rated = hub_frame(sim::kHubPortGps, sim::kHubSetRate, big_endian_rate(9600));
    Bytes stream = {0x00, 0x13};
    stream.insert(stream.end(), open.begin(), open.end());
    stream.insert(stream.end(), rated.begin(), rated.end());
    for (size_t i = 0; i < stream.size(); ++i) // one byte at a time, as a slow UART hands them over
        hub.receive({stream[i]}, static_cast<sim::Nanos>(i));
    ASSERT_EQ(hub.heard().size(), 2u);
    EXPECT_EQ(hub.heard()[0].command, sim::kHubOpen);
    EXPECT_EQ(hub.heard()[0].port, sim::kHubPortGps);
    EXPECT_EQ(hub.heard()[1].payload, big_endian_rate(9600));
    EXPECT_EQ(hub.skipped(), 2u);
    EXPECT_TRUE(hub.channel_open(sim::kHubPortGps));
    EXPECT_EQ(hub.channel_rate(sim::kHubPortGps), 9600u);
    EXPECT_FALSE(hub.channel_open(sim::kHubPortRfid));
}

TEST_F(Hub, AFrameItCannotTrustIsHeardButNotActedOn)
{
    Bytes wrong_sum = hub_frame(sim::kHubPortGps, sim::kHubOpen);
    wrong_sum.back() ^= 1;
    Bytes wrong_kind = hub_frame(sim::kHubPortGps, sim::kHubOpen);
    wrong_kind[3] = 0x02;
    wrong_kind.back() += 1; // keep the sum right: only the kind is wrong
    hub.receive(wrong_sum, 0);
    hub.receive(wrong_kind, 0);
    ASSERT_EQ(hub.heard().size(), 2u);
    EXPECT_FALSE(hub.heard()[0].checksum_ok);
    EXPECT_TRUE(hub.heard()[1].checksum_ok);
    EXPECT_FALSE(hub.heard()[1].kind_ok);
    EXPECT_FALSE(hub.channel_open(sim::kHubPortGps));
}

TEST_F(Hub, ALengthTooShortForAFrameIsSkippedAndTheNextHeadFound)
{
    Bytes stream = {0xFE, 0x00, 0x02};
    const Bytes open = hub_frame(sim::kHubPortRfid, sim::kHubOpen);
    stream.insert(stream.end(), open.begin(), open.end());
    hub.receive(stream, 0);
    ASSERT_EQ(hub.heard().size(), 1u);
    EXPECT_EQ(hub.heard()[0].port, sim::kHubPortRfid);
}

TEST_F(Hub, PayloadsReachAnOpenChannelsDeviceOnly)
{
    sim::ScriptedPeer *gps = device_at(sim::kHubPortGps);
    gps->add_rule({text("?"), text("!")});
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubPass, text("?")), 0);
    EXPECT_FALSE(hub.heard().back().delivered) << "the channel is not open yet";
    EXPECT_EQ(hub.next_send(), sim::kNever);

    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubSetRate, big_endian_rate(4800)), 0);
    hub.receive(hub_frame(sim::kHubPortRfid, sim::kHubPass, text("?")), 0);
    EXPECT_FALSE(hub.heard().back().delivered) << "nothing hangs behind the RFID port";
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubPass, text("?")), 10 * kMillisecond);
    EXPECT_TRUE(hub.heard().back().delivered);

    // The device answers at the 4800 baud its channel was told; the hub forwards the byte in a
    // frame from the device's port at the line's 115200.
    const sim::Nanos answered = 10 * kMillisecond + byte_at(4800);
    EXPECT_EQ(hub.next_send(), answered);
    EXPECT_TRUE(hub.take(answered).empty()) << "the frame is only now going out";
    const Bytes expected = hub_frame(sim::kHubPortGps, sim::kHubPass, text("!"));
    EXPECT_EQ(hub.next_send(), answered + static_cast<sim::Nanos>(expected.size()) * byte_at(115200));
    EXPECT_EQ(drain(hub, kSecond), expected);
}

TEST_F(Hub, TheDevicesLineShowsItsChannelsRateAndState)
{
    struct Probe : sim::ScriptedPeer {
        const sim::PortLine *seen() const { return line_; }
    };
    auto probe = std::make_unique<Probe>();
    Probe *kept = probe.get();
    hub.add_device(sim::kHubPortZigbee, std::move(probe));
    ASSERT_NE(kept->seen(), nullptr);
    EXPECT_EQ(kept->seen()->baud(), 0u) << "not told yet";
    EXPECT_FALSE(kept->seen()->open_by_product());
    hub.receive(hub_frame(sim::kHubPortZigbee, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortZigbee, sim::kHubSetRate, big_endian_rate(38400)), 0);
    EXPECT_EQ(kept->seen()->baud(), 38400u);
    EXPECT_TRUE(kept->seen()->open_by_product());
    EXPECT_EQ(kept->seen()->path(), "hub port 0x005D");
    hub.receive(hub_frame(sim::kHubPortZigbee, sim::kHubClose), 0);
    EXPECT_FALSE(kept->seen()->open_by_product());
}

TEST_F(Hub, AClosedChannelDropsWhatItsDeviceSends)
{
    sim::ScriptedPeer *rfid = device_at(sim::kHubPortRfid);
    rfid->announce(100 * kMillisecond, text("lost"));
    rfid->announce(300 * kMillisecond, text("kept"));
    EXPECT_TRUE(drain(hub, 200 * kMillisecond).empty());
    hub.receive(hub_frame(sim::kHubPortRfid, sim::kHubOpen), 200 * kMillisecond);
    EXPECT_EQ(drain(hub, kSecond), hub_frame(sim::kHubPortRfid, sim::kHubPass, text("kept")));
}

TEST_F(Hub, LongDeviceDataIsSplitIntoFramesOfTheLargestPayload)
{
    hub.set_max_payload(6);
    sim::ScriptedPeer *gps = device_at(sim::kHubPortGps);
    gps->announce(0, text("$GPGGA,1"));
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubOpen), 0);
    Bytes expected = hub_frame(sim::kHubPortGps, sim::kHubPass, text("$GPGGA"));
    const Bytes second = hub_frame(sim::kHubPortGps, sim::kHubPass, text(",1"));
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(drain(hub, kSecond), expected);
}

TEST_F(Hub, AcknowledgesOpenRateAndCloseOnlyWhenAsked)
{
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubOpen), 0);
    EXPECT_EQ(hub.next_send(), sim::kNever);

    hub.acknowledge(5 * kMillisecond, {0x00});
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubSetRate, big_endian_rate(9600)), 0);
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubPass, text("x")), 0);
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubClose), 0);
    Bytes expected;
    for (uint8_t command : {sim::kHubOpen, sim::kHubSetRate, sim::kHubClose}) {
        const Bytes ack = hub_frame(sim::kHubPortGps, command, {0x00});
        expected.insert(expected.end(), ack.begin(), ack.end());
    }
    EXPECT_EQ(drain(hub, kSecond), expected) << "one after the other, the pass payload unanswered";

    hub.acknowledge(0, {}, 0x0000);
    hub.receive(hub_frame(sim::kHubPortRfid, sim::kHubOpen), 2 * kSecond);
    EXPECT_EQ(drain(hub, 3 * kSecond), hub_frame(0x0000, sim::kHubOpen));
}

TEST_F(Hub, ASilentHubSendsNothingOfItsOwnButScheduledFramesStillGo)
{
    sim::ScriptedPeer *gps = device_at(sim::kHubPortGps);
    gps->add_rule({text("?"), text("!")});
    hub.add_device(sim::kHubPortBox, std::make_unique<sim::BoxPeer>(sim::BoxSetup{.temperature = 20}));
    hub.acknowledge(0);
    hub.misbehave({.mode = sim::Misbehaviour::Mode::Silent});
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortGps, sim::kHubPass, text("?")), 0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature), 0);
    sim::HubFrame odd;
    odd.port = 0x1234;
    hub.send_frame(kSecond, odd);
    EXPECT_EQ(drain(hub, 2 * kSecond), hub_frame(0x1234, sim::kHubPass));
    EXPECT_EQ(hub.messages(), 3u) << "the acknowledgement, the device's answer and the box's, all dropped";
}

TEST_F(Hub, EveryFrameForTheBoxsPortGoesToTheBoxAsItStandsAndItsAnswerComesBackAsItIs)
{
    auto box = std::make_unique<sim::BoxPeer>(sim::BoxSetup{.temperature = 0xF6});
    sim::BoxPeer *kept = box.get();
    hub.add_device(sim::kHubPortBox, std::move(box));
    hub.acknowledge(0);
    // The camera's channel commands for the box's port are the box's: the hub opens nothing,
    // takes no rate and acknowledges none of them.
    hub.receive(hub_frame(sim::kHubPortBox, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kHubSetRate, big_endian_rate(115200)), 0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxPrepareHeater, {0x00}), kMillisecond);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxSwitchHeater, {sim::kBoxHeaterOn}), 2 * kMillisecond);
    EXPECT_FALSE(hub.channel_open(sim::kHubPortBox));
    EXPECT_EQ(hub.channel_rate(sim::kHubPortBox), 0u);
    EXPECT_EQ(hub.next_send(), sim::kNever) << "nothing acknowledged";
    EXPECT_TRUE(kept->heater_on());
    ASSERT_EQ(kept->commands().size(), 4u);
    EXPECT_EQ(kept->commands()[1].payload, big_endian_rate(115200));
    EXPECT_EQ(kept->commands()[3].time, 2 * kMillisecond);
    for (const sim::HeardFrame &frame : hub.heard())
        EXPECT_TRUE(frame.delivered);

    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature), 10 * kMillisecond);
    const Bytes answer = hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature, {0xF6});
    EXPECT_EQ(hub.next_send(), 10 * kMillisecond) << "the box answers at once";
    EXPECT_TRUE(hub.take(10 * kMillisecond).empty()) << "the frame is only now going out";
    EXPECT_EQ(hub.next_send(), 10 * kMillisecond + static_cast<sim::Nanos>(answer.size()) * byte_at(115200));
    EXPECT_EQ(drain(hub, kSecond), answer);
}

TEST_F(Hub, WithoutABoxFramesForItsPortAreHeardAndGoUnanswered)
{
    hub.acknowledge(0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kHubOpen), 0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature), 0);
    ASSERT_EQ(hub.heard().size(), 2u);
    EXPECT_FALSE(hub.heard()[1].delivered);
    EXPECT_EQ(hub.next_send(), sim::kNever);
}

TEST_F(Hub, FramesCanBeWrongInEveryFieldOnPurpose)
{
    sim::HubFrame base;
    base.port = sim::kHubPortGps;
    base.payload = text("ab");
    EXPECT_EQ(base.bytes(), hub_frame(sim::kHubPortGps, sim::kHubPass, text("ab")));

    sim::HubFrame wrong = base;
    wrong.head = 0x7E;
    wrong.kind = 0x09;
    wrong.length = 1020;
    wrong.checksum = 0xBEEF;
    wrong.command = 0xE1;
    const Bytes bytes = wrong.bytes();
    EXPECT_EQ(bytes, (Bytes{0x7E, 0x03, 0xFC, 0x09, 0x00, 0x5B, 0xE1, 'a', 'b', 0xBE, 0xEF}));
    wrong.truncate = 4;
    EXPECT_EQ(wrong.bytes(), (Bytes{0x7E, 0x03, 0xFC, 0x09}));
    wrong.truncate = 100;
    EXPECT_EQ(wrong.bytes(), bytes) << "cutting beyond the end leaves the frame whole";
}

struct FaultRow {
    const char *name;
    std::optional<sim::HubFault> fault; // the hub's own
    std::optional<int64_t> value;
    sim::Misbehaviour how; // or the misbehaviour every peer has
    Bytes expected;        // the first message: the box's answer {0x14} from port 5, command 7
};

// Rows show by name in test listings.
void PrintTo(const FaultRow &row, std::ostream *out)
{
    *out << row.name;
}

class HubFaults : public Hub, public ::testing::WithParamInterface<FaultRow>
{
};

// The right answer is FE 00 05 01 00 05 07 14 00 21; the box's answers pass through the hub as
// its messages.
TEST_P(HubFaults, SpoilTheNumberedMessageAndNoOther)
{
    hub.add_device(sim::kHubPortBox, std::make_unique<sim::BoxPeer>(sim::BoxSetup{.temperature = 0x14}));
    if (GetParam().fault)
        hub.add_fault(1, *GetParam().fault, GetParam().value);
    hub.misbehave(GetParam().how);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature), 0);
    hub.receive(hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature), 0);
    Bytes expected = GetParam().expected;
    const Bytes right = hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature, {0x14});
    ASSERT_EQ(right, (Bytes{0xFE, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x21}));
    expected.insert(expected.end(), right.begin(), right.end());
    EXPECT_EQ(drain(hub, kSecond), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, HubFaults,
    ::testing::Values(
        FaultRow{"BadHead",
                 sim::HubFault::BadHead,
                 {},
                 {},
                 {0xFD, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x21}},
        FaultRow{"BadHeadGiven",
                 sim::HubFault::BadHead,
                 0x00,
                 {},
                 {0x00, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x21}},
        FaultRow{"BadKind",
                 sim::HubFault::BadKind,
                 {},
                 {},
                 {0xFE, 0x00, 0x05, 0x02, 0x00, 0x05, 0x07, 0x14, 0x00, 0x22}},
        FaultRow{"WrongPort",
                 sim::HubFault::WrongPort,
                 {},
                 {},
                 {0xFE, 0x00, 0x05, 0x01, 0x00, 0x06, 0x07, 0x14, 0x00, 0x22}},
        FaultRow{"WrongPortGiven",
                 sim::HubFault::WrongPort,
                 0x5B,
                 {},
                 {0xFE, 0x00, 0x05, 0x01, 0x00, 0x5B, 0x07, 0x14, 0x00, 0x77}},
        FaultRow{
            "Truncate", sim::HubFault::Truncate, {}, {}, {0xFE, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0x14}},
        FaultRow{"TruncateGiven", sim::HubFault::Truncate, 3, {}, {0xFE, 0x00, 0x05}},
        FaultRow{"BadChecksum",
                 {},
                 {},
                 {.bad_checksum = {1}},
                 {0xFE, 0x00, 0x05, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x22}},
        FaultRow{"Oversize",
                 {},
                 {},
                 {.oversize = {1}},
                 {0xFE, 0x03, 0xFC, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x21}},
        FaultRow{"OversizeWithABadChecksum",
                 {},
                 {},
                 {.bad_checksum = {1}, .oversize = {1}},
                 {0xFE, 0x03, 0xFC, 0x01, 0x00, 0x05, 0x07, 0x14, 0x00, 0x22}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(Hub, ItsOwnFaultsKeepARightChecksumRightButNotAWrongOne)
{
    Bytes spoiled = hub_frame(sim::kHubPortGps, sim::kHubPass, text("ab"));
    spoiled.back() ^= 0x10;
    Bytes expected = spoiled;
    expected[3] = 0x02;
    sim::spoil_hub_frame(spoiled, sim::HubFault::BadKind, {});
    EXPECT_EQ(spoiled, expected) << "only the kind changed";
    Bytes piece = {0xFE, 0x00, 0x05};
    sim::spoil_hub_frame(piece, sim::HubFault::BadHead, {});
    EXPECT_EQ(piece, (Bytes{0xFE, 0x00, 0x05})) << "a piece too short to be a frame is left alone";
}

// ---- Through a real pty, as the product uses it ------------------------------------------------

class HubOnTheLine : public clitest::SimTest
{
  protected:
    int open_raw(unsigned baud)
    {
        const int fd = clitest::open_raw_line("/dev/ttyC0", baud == 115200 ? B115200 : B9600);
        EXPECT_GE(fd, 0);
        return fd;
    }

    static Bytes read_exactly(int fd, size_t count) { return clitest::read_exactly(fd, count); }

    static sim::HubPeer *hub()
    {
        return dynamic_cast<sim::HubPeer *>(sim::serial_ports().port("/dev/ttyC0")->peer());
    }
};

TEST_F(HubOnTheLine, RoutesARequestToTheDeviceAndItsAnswerBack)
{
    scenario().ports["/dev/ttyC0"].make_peer = [] {
        auto hub = std::make_unique<sim::HubPeer>();
        auto gps = std::make_unique<sim::ScriptedPeer>();
        gps->add_rule({text("$PMTK000*32\r\n"), text("$PMTK001,0,3*30\r\n")});
        hub->add_device(sim::kHubPortGps, std::move(gps));
        return hub;
    };
    restart();
    const int fd = open_raw(115200);
    for (const Bytes &request : {hub_frame(sim::kHubPortGps, sim::kHubOpen),
                                 hub_frame(sim::kHubPortGps, sim::kHubSetRate, big_endian_rate(9600)),
                                 hub_frame(sim::kHubPortGps, sim::kHubPass, text("$PMTK000*32\r\n"))})
        ASSERT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    const Bytes first = hub_frame(sim::kHubPortGps, sim::kHubPass, text("$PMTK001,0,3*30\r"));
    const Bytes second = hub_frame(sim::kHubPortGps, sim::kHubPass, text("\n"));
    Bytes expected = first;
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(read_exactly(fd, expected.size()), expected);
    EXPECT_EQ(hub()->heard().size(), 3u);
    close(fd);
}

TEST_F(HubOnTheLine, AScenarioFileDescribesTheHubItsDevicesAndItsFaults)
{
    const sim::Scenario camera = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "hub"
ack = true
ack_delay_ms = 2
ack_payload = "00"
ack_port = 0
max_payload = 1015
bad_checksum = 3

[ports."/dev/ttyC0".gps]
peer = "script"
[[ports."/dev/ttyC0".gps.rule]]
when_text = "?"
answer_text = "!"

[ports."/dev/ttyC0".box]
peer = "box"
temperature = 25

[[ports."/dev/ttyC0".fault]]
frame = 2
fault = "bad_kind"

[[ports."/dev/ttyC0".frame]]
at_ms = 500
port = 0x5C
kind = 2
payload_text = "odd"
)",
                                                     "hub.toml", ".");
    scenario() = camera;
    restart();
    const int fd = open_raw(115200);
    const Bytes open = hub_frame(sim::kHubPortGps, sim::kHubOpen);
    ASSERT_EQ(write(fd, open.data(), open.size()), static_cast<ssize_t>(open.size()));
    const Bytes ask = hub_frame(sim::kHubPortGps, sim::kHubPass, text("?"));
    ASSERT_EQ(write(fd, ask.data(), ask.size()), static_cast<ssize_t>(ask.size()));
    const Bytes temperature = hub_frame(sim::kHubPortBox, sim::kBoxAskTemperature);
    ASSERT_EQ(write(fd, temperature.data(), temperature.size()), static_cast<ssize_t>(temperature.size()));
    // The acknowledgement from port 0 (message 1, it holds the line first), the box's answer
    // with kind 2 (message 2, its checksum kept right), the GPS device's answer with its checksum
    // spoiled (message 3), then the scheduled frame.
    sim::HubFrame box_answer = sim::HubFrame::of(sim::kHubPortBox, sim::kBoxAskTemperature, {25});
    box_answer.kind = 2;
    Bytes answer = hub_frame(sim::kHubPortGps, sim::kHubPass, text("!"));
    answer.back() += 1;
    sim::HubFrame odd = sim::HubFrame::of(0x5C, sim::kHubPass, text("odd"));
    odd.kind = 2;
    Bytes expected = hub_frame(0x0000, sim::kHubOpen, {0x00});
    for (const Bytes &next : {box_answer.bytes(), answer, odd.bytes()})
        expected.insert(expected.end(), next.begin(), next.end());
    EXPECT_EQ(read_exactly(fd, expected.size()), expected);
    EXPECT_EQ(sim::clock().now(),
              500 * kMillisecond + static_cast<sim::Nanos>(odd.bytes().size()) * byte_at(115200));
    close(fd);
}

class HubScenarioErrors : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(HubScenarioErrors, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, HubScenarioErrors,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownKey", "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\nacks = true\n",
            "bad.toml:3: ports./dev/ttyC0.acks: unknown key (expected one of: peer, absent, open_errno, "
            "ack, ack_delay_ms, ack_payload, ack_payload_text, ack_port, max_payload, gps, rfid, zigbee, "
            "box, fault, frame, mode, trickle_gap_ms, garbage_every_ms, garbage_chunk, garbage_seed, "
            "hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{
            "UnknownFault",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[[ports.\"/dev/ttyC0\".fault]]\nframe = 1\nfault = "
            "\"late\"\n",
            "bad.toml:5: ports./dev/ttyC0.fault[0].fault: expected bad_head, bad_kind, wrong_port or "
            "truncate"},
        clitest::ScenarioMistake{
            "AFaultEveryPeerHas",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[[ports.\"/dev/ttyC0\".fault]]\nframe = 4\nfault = "
            "\"long_length\"\n",
            "bad.toml:5: ports./dev/ttyC0.fault[0].fault: every peer can do this: write oversize = 4 in the "
            "hub's table"},
        clitest::ScenarioMistake{
            "FaultValueOutOfRange",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[[ports.\"/dev/ttyC0\".fault]]\nframe = 1\nfault = "
            "\"bad_head\"\nvalue = 256\n",
            "bad.toml:6: ports./dev/ttyC0.fault[0].value: expected 0..255"},
        clitest::ScenarioMistake{
            "FaultWithoutFrame",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[[ports.\"/dev/ttyC0\".fault]]\nfault = \"bad_head\"\n",
            "bad.toml:3: ports./dev/ttyC0.fault[0].frame: expected the number of the hub's message to spoil, "
            "from 1"},
        clitest::ScenarioMistake{
            "DeviceWithALineKey",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".gps]\npeer = \"script\"\nabsent "
            "= true\n",
            "bad.toml:5: ports./dev/ttyC0.gps.absent: a device behind the hub has no line of its own"},
        clitest::ScenarioMistake{
            "DeviceWithoutPeer", "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".rfid]\n",
            "bad.toml:3: ports./dev/ttyC0.rfid.peer: a device behind the hub needs its peer (e.g. "
            "\"script\")"},
        clitest::ScenarioMistake{
            "HubBehindAHub",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".zigbee]\npeer = \"hub\"\n",
            "bad.toml:4: ports./dev/ttyC0.zigbee.peer: a hub cannot sit behind a hub"},
        clitest::ScenarioMistake{
            "DeviceOptionMisspelt",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[ports.\"/dev/ttyC0\".gps]\npeer = \"script\"\nmood "
            "= \"silent\"\n",
            "bad.toml:5: ports./dev/ttyC0.gps.mood: unknown key (expected one of: peer, absent, "
            "open_errno, rule, announce, mode, trickle_gap_ms, garbage_every_ms, garbage_chunk, "
            "garbage_seed, hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{
            "FrameWithoutPort",
            "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\n[[ports.\"/dev/ttyC0\".frame]]\nat_ms = 3\n",
            "bad.toml:3: ports./dev/ttyC0.frame[0].port: a frame needs the port it comes from"},
        clitest::ScenarioMistake{
            "SilentAsAnOldKey", "[ports.\"/dev/ttyC0\"]\npeer = \"hub\"\nsilent = true\n",
            "bad.toml:3: ports./dev/ttyC0.silent: unknown key (expected one of: peer, absent, "
            "open_errno, ack, ack_delay_ms, ack_payload, ack_payload_text, ack_port, "
            "max_payload, gps, rfid, zigbee, box, fault, frame, mode, trickle_gap_ms, "
            "garbage_every_ms, garbage_chunk, garbage_seed, hang_up_after, hang_up_at_ms, "
            "bad_checksum, oversize)"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
