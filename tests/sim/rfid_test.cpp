// The simulated RFID reader, through a real pty as the product uses it: straight on the line it
// reports its tags from the moment the line is opened, behind the hub's port 0x005C only after the
// start-of-inventory command; repeats, scripted frames, its acknowledgement, the end of the
// inventory when the line or channel closes, the misbehaviour every peer has, and its scenario
// keys. Expected frames are written out byte for byte here, their CRCs worked out by hand.
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
#include "peripherals/hub.h"
#include "peripherals/rfid.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;
using Bytes = std::vector<uint8_t>;
using clitest::hub_frame;

constexpr const char *kLink = "/dev/ttyC0";
constexpr uint16_t kRfidPort = 0x005C;

// A byte at 9600 and at 115200 baud: ten bits, whole nanoseconds.
constexpr sim::Nanos kByteAt9600 = 10 * kSecond / 9600;
constexpr sim::Nanos kByteAt115200 = 10 * kSecond / 115200;

// Tag reports as the reader sends them (antenna 1), and its acknowledgement of command 0x10: the
// CRC-16 (polynomial 0x1021, start 0) of the bytes before it, worked out by hand.
const Bytes kReport001A2BFF = {0xFF, 0x0C, 0x00, 0x0C, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF, 0xB4, 0x7C};
const Bytes kReportDEADBEEF = {0xFF, 0x0C, 0x00, 0x0C, 0xF1, 0x01, 0xDE, 0xAD, 0xBE, 0xEF, 0x30, 0x65};
const Bytes kAcknowledgement = {0xFF, 0x0C, 0x00, 0x08, 0x10, 0x00, 0x75, 0x46};
const Bytes kStartInventory = {0xFF, 0x0A, 0x00, 0x07, 0x10, 0xB9, 0xA2};

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

class RfidReader : public clitest::SimTest
{
  protected:
    // The reader straight on the link; the line opened raw at 9600 baud.
    void hang_on_line(const sim::RfidSetup &setup, const sim::Misbehaviour &how = {})
    {
        scenario().ports[kLink].make_peer = [setup, how] { return reader_of(setup, how); };
        restart();
        open_line(B9600);
    }

    // A hub on the link with the reader behind port 0x005C; the line opened raw at 115200 baud.
    void hang_behind_hub(const sim::RfidSetup &setup, const sim::Misbehaviour &how = {})
    {
        scenario().ports[kLink].make_peer = [setup, how] {
            auto hub = std::make_unique<sim::HubPeer>();
            hub->add_device(kRfidPort, reader_of(setup, how));
            return hub;
        };
        restart();
        open_line(B115200);
    }

    static std::unique_ptr<sim::RfidPeer> reader_of(const sim::RfidSetup &setup, const sim::Misbehaviour &how)
    {
        auto reader = std::make_unique<sim::RfidPeer>(setup);
        reader->misbehave(how);
        return reader;
    }

    void open_line(speed_t speed)
    {
        fd_ = clitest::open_raw_line(kLink, speed);
        ASSERT_GE(fd_, 0);
    }

    void close_line()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    void TearDown() override
    {
        close_line();
        SimTest::TearDown();
    }

    void write_bytes(const Bytes &bytes)
    {
        ASSERT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // The camera opens the reader's channel behind the hub at 9600 baud.
    void open_channel()
    {
        write_bytes(hub_frame(kRfidPort, clitest::kHubOpen));
        write_bytes(hub_frame(kRfidPort, clitest::kHubSetRate, clitest::big_endian_rate(9600)));
    }

    // Reads exactly `count` bytes, waiting up to 5 s for each piece.
    Bytes read_exactly(size_t count) const { return clitest::read_exactly(fd_, count, 5 * kSecond); }

    bool readable_within(sim::Nanos timeout) const { return clitest::readable_within(fd_, timeout); }

    static sim::RfidPeer *reader()
    {
        sim::Peer *peer = sim::serial_ports().port(kLink)->peer();
        if (auto *direct = dynamic_cast<sim::RfidPeer *>(peer))
            return direct;
        auto *hub = dynamic_cast<sim::HubPeer *>(peer);
        return hub != nullptr ? dynamic_cast<sim::RfidPeer *>(hub->device(kRfidPort)) : nullptr;
    }

    int fd_ = -1;
};

TEST_F(RfidReader, OnALineItReportsItsTagsFromTheOpenEachAtItsTimesAndRepeats)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond, 2, 500 * kMillisecond},
                           {{0xDE, 0xAD, 0xBE, 0xEF}, 200 * kMillisecond, 1, 100 * kMillisecond}}});
    EXPECT_EQ(read_exactly(12), kReport001A2BFF);
    EXPECT_EQ(sim::clock().now(), 100 * kMillisecond + 12 * kByteAt9600);
    EXPECT_EQ(read_exactly(12), kReportDEADBEEF);
    EXPECT_EQ(sim::clock().now(), 200 * kMillisecond + 12 * kByteAt9600);
    EXPECT_EQ(read_exactly(12), kReport001A2BFF);
    EXPECT_EQ(sim::clock().now(), 600 * kMillisecond + 12 * kByteAt9600);
    EXPECT_FALSE(readable_within(5 * kSecond)) << "every report sent as often as asked";
    EXPECT_EQ(reader()->reports(), 3u);
    EXPECT_TRUE(reader()->heard().empty());
}

TEST_F(RfidReader, ATagWithoutAnEndOfRepeatsIsReportedForAsLongAsTheInventoryRuns)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 0, 0, kSecond}}});
    for (int n = 0; n < 20; ++n) {
        EXPECT_EQ(read_exactly(12), kReport001A2BFF) << n;
        EXPECT_EQ(sim::clock().now(), n * kSecond + 12 * kByteAt9600) << n;
    }
}

TEST_F(RfidReader, ReportsDueAtOnceGoOutOneAfterTheOtherAtLineSpeed)
{
    hang_on_line(
        {.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 0, 1, kSecond}, {{0xDE, 0xAD, 0xBE, 0xEF}, 0, 1, kSecond}}});
    EXPECT_EQ(read_exactly(24), joined({kReport001A2BFF, kReportDEADBEEF}));
    EXPECT_EQ(sim::clock().now(), 24 * kByteAt9600);
}

TEST_F(RfidReader, ClosingTheLineEndsTheInventoryAndOpeningItAgainStartsItAfresh)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 300 * kMillisecond, 1, kSecond}}});
    sim::clock().advance(100 * kMillisecond);
    close_line();
    EXPECT_FALSE(reader()->inventory_running());
    sim::clock().advance(kSecond);
    open_line(B9600);
    EXPECT_TRUE(reader()->inventory_running());
    EXPECT_EQ(read_exactly(12), kReport001A2BFF);
    EXPECT_EQ(sim::clock().now(), 1100 * kMillisecond + 300 * kMillisecond + 12 * kByteAt9600);
    EXPECT_EQ(reader()->reports(), 1u) << "the report due while the line was closed was never made";
}

TEST_F(RfidReader, BehindTheHubItWaitsForTheStartOfInventoryAndAcknowledgesIt)
{
    hang_behind_hub(
        {.tags = {{{0xDE, 0xAD, 0xBE, 0xEF}, 50 * kMillisecond, 1, kSecond}}, .acknowledge = true});
    open_channel();
    EXPECT_FALSE(readable_within(3 * kSecond)) << "an open channel alone starts nothing";
    EXPECT_FALSE(reader()->inventory_running());
    const sim::Nanos asked = sim::clock().now();
    write_bytes(hub_frame(kRfidPort, clitest::kHubPass, kStartInventory));
    // The acknowledgement at once, the report 50 ms after the command, each at 9600 baud on the
    // reader's channel and then in a hub frame of its own at 115200 baud.
    const Bytes ack = hub_frame(kRfidPort, clitest::kHubPass, kAcknowledgement);
    EXPECT_EQ(read_exactly(ack.size()), ack);
    EXPECT_EQ(sim::clock().now(), asked + 8 * kByteAt9600 + 17 * kByteAt115200);
    const Bytes report = hub_frame(kRfidPort, clitest::kHubPass, kReportDEADBEEF);
    EXPECT_EQ(read_exactly(report.size()), report);
    EXPECT_EQ(sim::clock().now(), asked + 50 * kMillisecond + 12 * kByteAt9600 + 21 * kByteAt115200);
    ASSERT_EQ(reader()->heard().size(), 1u);
    EXPECT_EQ(reader()->heard()[0].bytes, kStartInventory);
    EXPECT_TRUE(reader()->heard()[0].crc_ok);
}

TEST_F(RfidReader, ACommandWithAWrongCrcOrAnotherCommandStartsNothing)
{
    hang_behind_hub({.tags = {{{0xDE, 0xAD, 0xBE, 0xEF}, 0, 1, kSecond}}, .acknowledge = true});
    open_channel();
    Bytes wrong = kStartInventory;
    wrong.back() ^= 0x01;
    const Bytes other = {0xFF, 0x0A, 0x00, 0x07, 0x11, 0xA9, 0x83}; // command 0x11, its CRC right
    write_bytes(hub_frame(kRfidPort, clitest::kHubPass, joined({{0x00, 0xFF}, wrong, other})));
    EXPECT_FALSE(readable_within(3 * kSecond));
    ASSERT_EQ(reader()->heard().size(), 2u) << "the noise before them skipped";
    EXPECT_FALSE(reader()->heard()[0].crc_ok);
    EXPECT_TRUE(reader()->heard()[1].crc_ok);
    EXPECT_FALSE(reader()->inventory_running());
}

TEST_F(RfidReader, ClosingTheChannelEndsTheInventoryBehindTheHub)
{
    hang_behind_hub({.tags = {{{0xDE, 0xAD, 0xBE, 0xEF}, 0, 0, 200 * kMillisecond}}});
    open_channel();
    write_bytes(hub_frame(kRfidPort, clitest::kHubPass, kStartInventory));
    const Bytes report = hub_frame(kRfidPort, clitest::kHubPass, kReportDEADBEEF);
    EXPECT_EQ(read_exactly(report.size()), report);
    write_bytes(hub_frame(kRfidPort, clitest::kHubClose));
    EXPECT_FALSE(reader()->inventory_running());
    EXPECT_FALSE(readable_within(2 * kSecond));
}

TEST_F(RfidReader, ItsScriptedFramesGoOutAsGivenAmongItsReports)
{
    hang_on_line(
        {.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond, 1, kSecond}},
         .frames = {{200 * kMillisecond, {0xFF, 0x0C, 0x00, 0x06, 0x22, 0x33}}, {0, {0x01, 0x02, 0x03}}}});
    EXPECT_EQ(read_exactly(3), (Bytes{0x01, 0x02, 0x03}));
    EXPECT_EQ(read_exactly(12), kReport001A2BFF);
    EXPECT_EQ(read_exactly(6), (Bytes{0xFF, 0x0C, 0x00, 0x06, 0x22, 0x33}));
    EXPECT_EQ(sim::clock().now(), 200 * kMillisecond + 6 * kByteAt9600);
}

TEST_F(RfidReader, ItsNumberedFramesGetABadCrcOrAnOversizeLength)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 0, 3, 100 * kMillisecond}}},
                 {.bad_checksum = {2}, .oversize = {3}});
    Bytes bad_crc = kReport001A2BFF;
    bad_crc[11] += 1;
    // 1025 bytes claimed, the CRC recomputed for it by hand.
    const Bytes oversize = {0xFF, 0x0C, 0x04, 0x01, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF, 0x51, 0x1B};
    EXPECT_EQ(read_exactly(36), joined({kReport001A2BFF, bad_crc, oversize}));
}

TEST_F(RfidReader, ASilentReaderReportsNothingButKeepsItsInventory)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 0, 3, 100 * kMillisecond}}},
                 {.mode = sim::Misbehaviour::Mode::Silent});
    EXPECT_FALSE(readable_within(2 * kSecond));
    EXPECT_EQ(reader()->reports(), 3u);
    EXPECT_TRUE(reader()->inventory_running());
}

TEST_F(RfidReader, ATricklingReaderSendsEachReportAByteAtATime)
{
    hang_on_line({.tags = {{{0x00, 0x1A, 0x2B, 0xFF}, 0, 1, kSecond}}},
                 {.mode = sim::Misbehaviour::Mode::Trickle, .trickle_gap = 150 * kMillisecond});
    for (size_t i = 0; i < kReport001A2BFF.size(); ++i) {
        EXPECT_EQ(read_exactly(1), Bytes{kReport001A2BFF[i]}) << i;
        EXPECT_EQ(sim::clock().now(), static_cast<sim::Nanos>(i + 1) * 150 * kMillisecond) << i;
    }
}

TEST_F(RfidReader, AScenarioFileDescribesTheReaderBehindTheHub)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "hub"

[ports."/dev/ttyC0".rfid]
peer = "rfid"
acknowledge = true
antenna = 2

[[ports."/dev/ttyC0".rfid.tag]]
id = "00 1A 2B FF"
at_ms = 20
repeat = 2
every_ms = 40.5

[[ports."/dev/ttyC0".rfid.frame]]
at_ms = 10
bytes_text = "hi"
)",
                                     "rfid.toml", ".");
    restart();
    open_line(B115200);
    open_channel();
    write_bytes(hub_frame(kRfidPort, clitest::kHubPass, kStartInventory));
    // Antenna 2: the CRC worked out by hand for FF 0C 00 0C F1 02 00 1A 2B FF.
    const Bytes report = {0xFF, 0x0C, 0x00, 0x0C, 0xF1, 0x02, 0x00, 0x1A, 0x2B, 0xFF, 0x5A, 0xAE};
    const Bytes expected = joined({hub_frame(kRfidPort, clitest::kHubPass, kAcknowledgement),
                                   hub_frame(kRfidPort, clitest::kHubPass, {'h', 'i'}),
                                   hub_frame(kRfidPort, clitest::kHubPass, report),
                                   hub_frame(kRfidPort, clitest::kHubPass, report)});
    EXPECT_EQ(read_exactly(expected.size()), expected);
    EXPECT_EQ(sim::clock().now(), 20 * kMillisecond + 40 * kMillisecond + 500 * sim::kMicrosecond +
                                      12 * kByteAt9600 + 21 * kByteAt115200);
}

TEST_F(RfidReader, AScenarioCanMakeAReaderOnTheLineWaitForTheCommand)
{
    scenario() = sim::parse_scenario(R"(
[ports."/dev/ttyC0"]
peer = "rfid"
inventory = "on_command"
[[ports."/dev/ttyC0".tag]]
id = "DEADBEEF"
)",
                                     "rfid.toml", ".");
    restart();
    open_line(B9600);
    EXPECT_FALSE(readable_within(2 * kSecond));
    write_bytes(kStartInventory);
    EXPECT_EQ(read_exactly(12), kReportDEADBEEF);
}

class RfidScenarioErrors : public ::testing::TestWithParam<clitest::ScenarioMistake>
{
};

TEST_P(RfidScenarioErrors, NameTheFileLineAndKey)
{
    EXPECT_EQ(clitest::scenario_error(GetParam().text, "."), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RfidScenarioErrors,
    ::testing::Values(
        clitest::ScenarioMistake{
            "UnknownKey", "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\ntags = 3\n",
            "bad.toml:3: ports./dev/ttyC0.tags: unknown key (expected one of: peer, absent, open_errno, "
            "inventory, antenna, acknowledge, tag, frame, mode, trickle_gap_ms, garbage_every_ms, "
            "garbage_chunk, garbage_seed, hang_up_after, hang_up_at_ms, bad_checksum, oversize)"},
        clitest::ScenarioMistake{"TagWithoutId",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".tag]]\n"
                                 "at_ms = 5\n",
                                 "bad.toml:3: ports./dev/ttyC0.tag[0].id: a tag needs its ID, eight "
                                 "hexadecimal digits such as \"001A2BFF\""},
        clitest::ScenarioMistake{"IdTooShort",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".tag]]\n"
                                 "id = \"1A2BFF\"\n",
                                 "bad.toml:4: ports./dev/ttyC0.tag[0].id: expected eight hexadecimal "
                                 "digits, such as \"001A2BFF\""},
        clitest::ScenarioMistake{"IdNotHex",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".tag]]\n"
                                 "id = \"001A2BFG\"\n",
                                 "bad.toml:4: ports./dev/ttyC0.tag[0].id: expected eight hexadecimal "
                                 "digits, such as \"001A2BFF\""},
        clitest::ScenarioMistake{"NoTimeBetweenReports",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".tag]]\n"
                                 "id = \"001A2BFF\"\nevery_ms = 0.5\n",
                                 "bad.toml:5: ports./dev/ttyC0.tag[0].every_ms: expected a time of 1 ms "
                                 "or more between two reports"},
        clitest::ScenarioMistake{"NegativeRepeat",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".tag]]\n"
                                 "id = \"001A2BFF\"\nrepeat = -1\n",
                                 "bad.toml:5: ports./dev/ttyC0.tag[0].repeat: expected 0..1000000"},
        clitest::ScenarioMistake{"UnknownInventory",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\ninventory = \"now\"\n",
                                 "bad.toml:3: ports./dev/ttyC0.inventory: expected on_open or on_command"},
        clitest::ScenarioMistake{"FrameWithoutBytes",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\n[[ports.\"/dev/ttyC0\".frame]]\n"
                                 "at_ms = 5\n",
                                 "bad.toml:3: ports./dev/ttyC0.frame[0].bytes: a frame needs its bytes "
                                 "(bytes or bytes_text)"},
        clitest::ScenarioMistake{"AntennaOutOfRange",
                                 "[ports.\"/dev/ttyC0\"]\npeer = \"rfid\"\nantenna = 256\n",
                                 "bad.toml:3: ports./dev/ttyC0.antenna: expected 0..255"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
