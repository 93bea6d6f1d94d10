// The peripheral link in hub mode through libclidriver.so: a simulated hub on /dev/ttyC0 with
// devices behind its ports. The bytes of every frame on the wire, the open / rate / close
// sequence per device type, each failure point of opening and closing, and the receive side
// against frames that are right, wrong on purpose, too long, cut short or absent.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "fault_injection.h"
#include "link_fixture.h"
#include "peripherals/box.h"

namespace
{

using namespace clitest;
using clitest::Call;

constexpr uint32_t kHubRate = 115200;

class HubLink : public LinkTest
{
  protected:
    // Hub mode as a platform with a hub declares it, the GPS present at 9600.
    void SetUp() override
    {
        LinkTest::SetUp();
        declare(COM_TYPE_HUB, 1, kHubRate);
        declare(COM_TYPE_GPS, 1, 9600);
    }

    static std::vector<sim::Kind> kinds(const Call &call)
    {
        std::vector<sim::Kind> result;
        for (const sim::Entry &entry : call.journal)
            if (entry.kind == sim::Kind::Open || entry.kind == sim::Kind::Close ||
                entry.kind == sim::Kind::SerialWrite)
                result.push_back(entry.kind);
        return result;
    }
};

// ---- Opening and closing ----------------------------------------------------------------------

TEST_F(HubLink, AGpsOpenSendsTheOpenFrameThenTheRateFrame)
{
    hang_hub();
    int fd = -1;
    const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "");
    const std::vector<Bytes> expected = {
        {0xFE, 0x00, 0x04, 0x01, 0x00, 0x5B, 0x04, 0x00, 0x60},
        {0xFE, 0x00, 0x08, 0x01, 0x00, 0x5B, 0x06, 0x00, 0x00, 0x25, 0x80, 0x01, 0x07},
    };
    EXPECT_EQ(writes(call), expected);
    EXPECT_EQ(line_baud(), kHubRate) << "the line runs at the hub's rate";
    ASSERT_NE(hub(), nullptr);
    EXPECT_TRUE(hub()->channel_open(kHubPortGps));
    EXPECT_EQ(hub()->channel_rate(kHubPortGps), 9600u);
    ASSERT_EQ(hub()->heard().size(), 2u);
    for (const sim::HeardFrame &frame : hub()->heard())
        EXPECT_TRUE(frame.kind_ok && frame.checksum_ok);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

struct HubDeviceRow {
    const char *name;
    uint32_t type;
    uint32_t rate; // the device's own entry
};

// Rows show by name in test listings.
void PrintTo(const HubDeviceRow &row, std::ostream *out)
{
    *out << row.name;
}

class HubLinkPerDevice : public HubLink, public ::testing::WithParamInterface<HubDeviceRow>
{
};

TEST_P(HubLinkPerDevice, OpenRateAndCloseFramesGoToTheDevicesPort)
{
    const HubDeviceRow &row = GetParam();
    hang_hub();
    declare(COM_TYPE_HUB, 1, 57600);
    declare(row.type, 1, row.rate);
    const uint16_t port = kHubPortOf[row.type];
    int fd = -1;
    const Call opening = run([&] { return CLI_ComOpen(row.type, &fd); });
    EXPECT_EQ(opening.status, 0);
    EXPECT_EQ(kinds(opening),
              (std::vector<sim::Kind>{sim::Kind::Open, sim::Kind::SerialWrite, sim::Kind::SerialWrite}));
    EXPECT_EQ(writes(opening),
              (std::vector<Bytes>{hub_frame(port, 4), hub_frame(port, 6, big_endian_rate(row.rate))}));
    EXPECT_EQ(line_baud(), 57600u);

    const Call closing = run([&] { return CLI_ComClose(row.type, &fd); });
    EXPECT_EQ(closing.status, 0);
    EXPECT_TRUE(closing.messages().empty());
    EXPECT_EQ(kinds(closing), (std::vector<sim::Kind>{sim::Kind::SerialWrite, sim::Kind::Close}));
    EXPECT_EQ(writes(closing), std::vector<Bytes>{hub_frame(port, 5)});
    EXPECT_EQ(fd, -1);
    EXPECT_FALSE(hub()->channel_open(port));
}

INSTANTIATE_TEST_SUITE_P(Devices, HubLinkPerDevice,
                         ::testing::Values(HubDeviceRow{"PeripheralBox", COM_TYPE_HUB, 57600},
                                           HubDeviceRow{"Zigbee", COM_TYPE_ZIGBEE, 38400},
                                           HubDeviceRow{"Gps", COM_TYPE_GPS, 4800},
                                           HubDeviceRow{"Rfid", COM_TYPE_RFID, 19200}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(HubLink, ADeviceNotDeclaredIsRefusedEvenWithTheHubPresent)
{
    hang_hub();
    int fd = -7;
    const Call call = run([&] { return CLI_ComOpen(COM_TYPE_RFID, &fd); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComOpen: Device unsupport this Type 3"});
    EXPECT_TRUE(written().empty());
}

TEST_F(HubLink, EachFailurePointOfTheOpenEndsWithTheLineClosed)
{
    struct Step {
        int pass; // sends that go through first
        int fail; // sends that fail after them
        std::vector<Bytes> wire;
        std::vector<std::string> messages;
        std::string err;
    };
    const std::string call_failed = "[src/cli_libfun.cpp CLI_ComOpen]: CLI_ComSend call failed\r\n";
    const std::vector<Step> steps = {
        {0, 1, {}, {"ERROR CLI_ComOpen: Function CLI_ComSend call failed"}, call_failed},
        {1,
         1,
         {hub_frame(kHubPortGps, 4), hub_frame(kHubPortGps, 5)},
         {"ERROR CLI_ComOpen: Function CLI_ComSend call failed"},
         call_failed},
        {1,
         2,
         {hub_frame(kHubPortGps, 4)},
         {"ERROR CLI_ComOpen: Function CLI_ComSend call failed", "ERROR CLI_ComClose: open Com fail"},
         call_failed + "[ERROR]:open Com fail\t@[src/cli_libfun.cpp CLI_ComClose]\r\n"},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE("pass " + std::to_string(step.pass) + ", fail " + std::to_string(step.fail));
        hang_hub();
        faults().com_send.arm(step.pass, step.fail);
        int fd = -1;
        const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), step.messages);
        EXPECT_EQ(call.err, step.err);
        EXPECT_EQ(writes(call), step.wire);
        EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u) << "the line is closed again";
        EXPECT_EQ(fd, -1);
    }
}

TEST_F(HubLink, ALineWhoseRateCannotBeSetSendsNoFrameAndStaysOpen)
{
    allow_left_open(clitest::LeftOpen::PeripheralLinkAfterRate);
    hang_hub();
    faults().tcsetattr.arm(0, 1);
    int fd = -1;
    const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                        "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed"}));
    EXPECT_TRUE(written().empty());
    EXPECT_GE(fd, 0);
}

TEST_F(HubLink, ACloseWhoseFrameFailsIsReportedAndTheLineClosedAnyway)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    faults().com_send.arm(0, 1);
    const Call call = run([&] { return CLI_ComClose(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComClose: open Com fail"});
    EXPECT_EQ(call.err, "[ERROR]:open Com fail\t@[src/cli_libfun.cpp CLI_ComClose]\r\n");
    EXPECT_TRUE(writes(call).empty());
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
    EXPECT_EQ(fd, -1);
}

TEST_F(HubLink, ACloseForATypeAboveThreeSendsNothingButClosesTheLine)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    const Call call = run([&] { return CLI_ComClose(9, &fd); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{"ERROR CLI_ComSend: unknow data type",
                                                         "ERROR CLI_ComClose: open Com fail"}));
    EXPECT_TRUE(writes(call).empty());
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
}

// ---- Sending --------------------------------------------------------------------------------------

TEST_F(HubLink, AnEmptyPayloadMakesANineByteFrame)
{
    hang_hub();
    declare(COM_TYPE_RFID, 1, 19200);
    int fd = open_link(COM_TYPE_GPS);
    const Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_RFID, nullptr, 0, 5); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(writes(call), (std::vector<Bytes>{{0xFE, 0x00, 0x04, 0x01, 0x00, 0x5C, 0x05, 0x00, 0x62}}));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubLink, APayloadReachesTheDeviceBehindItsPort)
{
    hang_hub([](sim::HubPeer &hub) { hub.add_device(kHubPortGps, std::make_unique<sim::ScriptedPeer>()); });
    int fd = open_link(COM_TYPE_GPS);
    const Bytes sentence = bytes_of("$PMTK000*32\r\n");
    const Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, sentence.data(), 13, 3); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), std::vector<Bytes>{hub_frame(kHubPortGps, 3, sentence)});
    EXPECT_EQ(writes(call)[0].size(), 22u);
    const sim::HeardFrame &heard = hub()->heard().back();
    EXPECT_EQ(heard.payload, sentence);
    EXPECT_TRUE(heard.delivered);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubLink, TheCommandByteIsTheLowByteOfTheCommand)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    const uint8_t zero = 0;
    EXPECT_EQ(run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, &zero, 1, 0x1E1); }).status, 0);
    EXPECT_EQ(hub()->heard().back().command, 0xE1);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubLink, TheChecksumIsTheLowSixteenBitsOfALargerSum)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    const Bytes payload(300, 0xFF); // 76500 with the header bytes: far above 65535
    const Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, payload.data(), 300, 3); });
    const std::vector<Bytes> sent = writes(call);
    ASSERT_EQ(sent.size(), 1u);
    const Bytes &frame = sent[0];
    const unsigned sum = 0x01 + 0x5B + 0x03 + 300 * 0xFF;
    EXPECT_EQ(frame[307], static_cast<uint8_t>(sum >> 8));
    EXPECT_EQ(frame[308], static_cast<uint8_t>(sum));
    EXPECT_TRUE(hub()->heard().back().checksum_ok);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubLink, TheLongestPayloadMakesAFrameOfExactly1024Bytes)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    Bytes payload(1015);
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<uint8_t>(i);
    const Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, payload.data(), 1015, 3); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), std::vector<Bytes>{hub_frame(kHubPortGps, 3, payload)});
    EXPECT_EQ(written().size(), 22u + 1024u);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubLink, APayloadThatCannotFitAFrameIsRefusedAndNothingSent)
{
    hang_hub();
    int fd = open_link(COM_TYPE_GPS);
    const Bytes payload(1016, 0x41);
    Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, payload.data(), 1016, 3); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComSend: data len 1016 too long"});
    EXPECT_TRUE(writes(call).empty());
    call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, nullptr, 5, 3); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComSend: data len 5 without data"});
    EXPECT_TRUE(writes(call).empty());
    call = run([&] { return CLI_ComSend(fd, 4, payload.data(), 3, 3); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComSend: unknow data type"});
    EXPECT_TRUE(writes(call).empty());
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

// ---- Receiving -----------------------------------------------------------------------------------

class HubReceive : public HubLink
{
  protected:
    Call receive(int fd, uint32_t type, GuardedBuffer &buffer, uint32_t &length)
    {
        return run([&] { return CLI_ComRecv(fd, type, buffer.data(), &length); });
    }

    // Opens the GPS channel on a hub that puts `frames` on the line, one after the other, from
    // 10 ms on.
    int gps_with_frames(const std::vector<sim::HubFrame> &frames)
    {
        hang_hub([frames](sim::HubPeer &hub) {
            for (const sim::HubFrame &frame : frames)
                hub.send_frame(10 * kMillisecond, frame);
        });
        return open_link(COM_TYPE_GPS);
    }

    static sim::HubFrame gps_data(const Bytes &payload)
    {
        sim::HubFrame frame;
        frame.port = kHubPortGps;
        frame.payload = payload;
        return frame;
    }
};

TEST_F(HubReceive, TheDevicesAnswerComesBackInHubFramesFromItsPort)
{
    hang_hub([](sim::HubPeer &hub) {
        auto gps = std::make_unique<sim::ScriptedPeer>();
        gps->add_rule({bytes_of("$PMTK000*32\r\n"), bytes_of("$PMTK001,0,3*30\r\n")});
        hub.add_device(kHubPortGps, std::move(gps));
    });
    int fd = open_link(COM_TYPE_GPS);
    ASSERT_EQ(CLI_ComSend(fd, COM_TYPE_GPS, "$PMTK000*32\r\n", 13, 3), 0u);

    // The receiver answers at the 9600 baud the hub was told, sixteen bytes at a time; the hub
    // forwards each piece in a frame of its own at the line's 115200.
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 20(0x14)"}));
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(buffer.first(16), bytes_of("$PMTK001,0,3*30\r"));
    EXPECT_TRUE(buffer.untouched_from(16));
    EXPECT_EQ(call.waited, 16 * kByteAt9600 + 25 * kByteAt115200);

    GuardedBuffer rest;
    length = kUntouchedLength;
    call = receive(fd, COM_TYPE_GPS, rest, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(rest.first(1), bytes_of("\n"));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, AcknowledgementsFromTheHubsOwnPortAndNoiseAreSkipped)
{
    hang_hub([](sim::HubPeer &hub) {
        hub.acknowledge(kMillisecond, {}, 0x0000);
        hub.send_frame(50 * kMillisecond, sim::HubFrame{.head = 0x55, .truncate = 1}); // one byte of noise
        hub.send_frame(60 * kMillisecond, gps_data(bytes_of("$GPGGA")));
    });
    int fd = open_link(COM_TYPE_GPS);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{
                                   " INFO CLI_ComRecv: head 0xfe",
                                   " INFO CLI_ComRecv: len 4(0x4)",
                                   " INFO CLI_ComRecv: data port 0 unmatch",
                                   " INFO CLI_ComRecv: head 0xfe",
                                   " INFO CLI_ComRecv: len 4(0x4)",
                                   " INFO CLI_ComRecv: data port 0 unmatch",
                                   " INFO CLI_ComRecv: head 0x55",
                                   " INFO CLI_ComRecv: head 0xfe",
                                   " INFO CLI_ComRecv: len 10(0xa)",
                               }));
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(buffer.first(6), bytes_of("$GPGGA"));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, AnAcknowledgementFromTheDevicesOwnPortReadsAsAnEmptyMessage)
{
    // The link does not look at the command byte: a hub that acknowledges from the device's
    // port hands the caller an empty message, which callers take as "nothing yet".
    hang_hub([](sim::HubPeer &hub) { hub.acknowledge(kMillisecond); });
    int fd = open_link(COM_TYPE_GPS);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, 0u);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

struct WrongFrameRow {
    const char *name;
    sim::HubFrame wrong;
    std::vector<std::string> messages; // what the wrong frame makes the receive say
};

// Rows show by name in test listings.
void PrintTo(const WrongFrameRow &row, std::ostream *out)
{
    *out << row.name;
}

sim::HubFrame gps_frame(const Bytes &payload)
{
    sim::HubFrame frame;
    frame.port = kHubPortGps;
    frame.payload = payload;
    return frame;
}

sim::HubFrame with(sim::HubFrame frame, const std::function<void(sim::HubFrame &)> &change)
{
    change(frame);
    return frame;
}

const std::string kRecv = "CLI_ComRecv: ";

class HubReceiveWrongFrames : public HubReceive, public ::testing::WithParamInterface<WrongFrameRow>
{
};

TEST_P(HubReceiveWrongFrames, AreDroppedAsFailedAttemptsAndTheNextGoodFrameIsTaken)
{
    const WrongFrameRow &row = GetParam();
    int fd = gps_with_frames({row.wrong, gps_frame(bytes_of("ok"))});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    std::vector<std::string> expected = row.messages;
    expected.push_back(" INFO " + kRecv + "head 0xfe");
    expected.push_back(" INFO " + kRecv + "len 6(0x6)");
    EXPECT_EQ(call.messages(), expected);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(buffer.first(2), bytes_of("ok"));
    EXPECT_TRUE(buffer.untouched_from(2));
    EXPECT_EQ(call.err, "");
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

const std::string kHead = " INFO " + kRecv + "head 0xfe";

INSTANTIATE_TEST_SUITE_P(
    Frames, HubReceiveWrongFrames,
    ::testing::Values(
        WrongFrameRow{"KindNotHub",
                      with(gps_frame(bytes_of("no")), [](sim::HubFrame &f) { f.kind = 0x02; }),
                      {kHead, " INFO " + kRecv + "len 6(0x6)", "ERROR " + kRecv + "date type 2 not hub"}},
        WrongFrameRow{"WrongPort",
                      with(gps_frame(bytes_of("no")), [](sim::HubFrame &f) { f.port = kHubPortRfid; }),
                      {kHead, " INFO " + kRecv + "len 6(0x6)", " INFO " + kRecv + "data port 92 unmatch"}},
        WrongFrameRow{"BadChecksum",
                      with(gps_frame(bytes_of("no")), [](sim::HubFrame &f) { f.checksum = 0x1234; }),
                      {kHead, " INFO " + kRecv + "len 6(0x6)", "ERROR " + kRecv + "checksum error"}},
        WrongFrameRow{"ByteSumOver65535",
                      gps_frame(Bytes(300, 0xFF)),
                      {kHead, " INFO " + kRecv + "len 304(0x130)", "ERROR " + kRecv + "checksum error"}},
        WrongFrameRow{"LengthBelowFour",
                      with(gps_frame({}),
                           [](sim::HubFrame &f) {
                               f.length = 2;
                               f.truncate = 3;
                           }),
                      {kHead, " INFO " + kRecv + "len 2(0x2)", "ERROR " + kRecv + "len 2 out of range"}},
        WrongFrameRow{
            "LengthAboveWhatTheBufferHolds",
            with(gps_frame({}),
                 [](sim::HubFrame &f) {
                     f.length = 1020;
                     f.truncate = 3;
                 }),
            {kHead, " INFO " + kRecv + "len 1020(0x3fc)", "ERROR " + kRecv + "len 1020 out of range"}},
        WrongFrameRow{
            "LengthOfAllOnes",
            with(gps_frame({}),
                 [](sim::HubFrame &f) {
                     f.length = 0xFFFF;
                     f.truncate = 3;
                 }),
            {kHead, " INFO " + kRecv + "len 65535(0xffff)", "ERROR " + kRecv + "len 65535 out of range"}},
        WrongFrameRow{"BadHead",
                      with(gps_frame({}),
                           [](sim::HubFrame &f) {
                               f.head = 0xFD;
                               f.truncate = 1;
                           }),
                      {" INFO " + kRecv + "head 0xfd"}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(HubReceive, TheHubsOwnFaultsOnDeviceDataAreCaughtToo)
{
    hang_hub([](sim::HubPeer &hub) {
        auto gps = std::make_unique<sim::ScriptedPeer>();
        gps->announce(100 * kMillisecond, bytes_of("first"));
        gps->announce(200 * kMillisecond, bytes_of("second"));
        hub.add_device(kHubPortGps, std::move(gps));
        hub.misbehave({.bad_checksum = {1}});
    });
    int fd = open_link(COM_TYPE_GPS);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(buffer.first(6), bytes_of("second"));
    EXPECT_EQ(call.messages()[2], "ERROR " + kRecv + "checksum error");
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, TenBytesWithoutAHeadGiveNothingAndLeaveTheRestOnTheLine)
{
    // Twelve bytes without FE: a frame whose head, port and sum hold none.
    int fd = gps_with_frames({sim::HubFrame{.head = 0x00, .port = 0x0000, .payload = {0x10, 0x11, 0x12}}});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages().size(), 10u) << "one head report per attempt";
    EXPECT_EQ(call.messages()[9], " INFO " + kRecv + "head 0x12");
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, TheLongestFrameFitsAndArrivesInPieces)
{
    Bytes payload(1015); // bytes that add up to less than 65536, or no checksum could match
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<uint8_t>(i % 64);
    int fd = gps_with_frames({gps_frame(payload)});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{kHead, " INFO " + kRecv + "len 1019(0x3fb)"}));
    EXPECT_EQ(length, 1015u);
    EXPECT_EQ(buffer.first(1015), payload);
    EXPECT_TRUE(buffer.untouched_from(1015));
    // Read while it arrives: 64 pieces of sixteen bytes, the last one complete at 1024 byte times.
    EXPECT_EQ(call.waited, 10 * kMillisecond + 1024 * kByteAt115200);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, AFrameTooLongForTheBufferIsNeverReadIntoIt)
{
    // A whole frame with 1016 payload bytes: its length 1020 is refused before its body is read,
    // and the body's bytes are then taken one at a time as candidate heads.
    int fd = gps_with_frames({gps_frame(Bytes(1016, 0x33))});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 0);
    const std::vector<std::string> messages = call.messages();
    ASSERT_EQ(messages.size(), 12u);
    EXPECT_EQ(messages[2], "ERROR " + kRecv + "len 1020 out of range");
    EXPECT_EQ(messages[3], " INFO " + kRecv + "head 0x1") << "the kind byte, read as a head";
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(HubReceive, AFrameCutShortFailsAfterTheTimeOut)
{
    int fd = gps_with_frames({with(gps_frame(bytes_of("data")), [](sim::HubFrame &f) { f.truncate = 8; })});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_GPS, buffer, length);
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{kHead, " INFO " + kRecv + "len 8(0x8)",
                                                         "ERROR CLI_Treadn: read Timeout",
                                                         "ERROR " + kRecv + "read data fail"}));
    EXPECT_EQ(call.waited, 10 * kMillisecond + 8 * kByteAt115200 + 5 * kSecond);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

struct HubTimeoutRow {
    uint32_t type;
    sim::Nanos wait;
};

// Rows show by name in test listings.
void PrintTo(const HubTimeoutRow &row, std::ostream *out)
{
    *out << "link type " << row.type;
}

class HubReceiveTimeouts : public HubReceive, public ::testing::WithParamInterface<HubTimeoutRow>
{
};

TEST_P(HubReceiveTimeouts, ASilentHubFailsAfterTheTypesTimeOut)
{
    hang_hub([](sim::HubPeer &hub) {
        hub.acknowledge(0);
        hub.misbehave({.mode = sim::Misbehaviour::Mode::Silent});
    });
    int fd = open_link(COM_TYPE_GPS);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, GetParam().type, buffer, length);
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{"ERROR CLI_Treadn: read Timeout",
                                                         "ERROR " + kRecv + "read data fail"}));
    EXPECT_EQ(call.waited, GetParam().wait);
    EXPECT_EQ(length, kUntouchedLength);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

INSTANTIATE_TEST_SUITE_P(Types, HubReceiveTimeouts,
                         ::testing::Values(HubTimeoutRow{COM_TYPE_HUB, 1 * kSecond},
                                           HubTimeoutRow{COM_TYPE_ZIGBEE, 15 * kSecond},
                                           HubTimeoutRow{COM_TYPE_GPS, 5 * kSecond},
                                           HubTimeoutRow{COM_TYPE_RFID, 2 * kSecond}),
                         [](const auto &info) { return "Type" + std::to_string(info.param.type); });

TEST_F(HubReceive, EachTypeListensOnItsOwnPort)
{
    // The same three frames, one from each of three ports; each type takes the one from its port.
    const std::vector<sim::HubFrame> frames = {
        with(gps_frame(bytes_of("zig")), [](sim::HubFrame &f) { f.port = kHubPortZigbee; }),
        with(gps_frame(bytes_of("tag")), [](sim::HubFrame &f) { f.port = kHubPortRfid; }),
        with(gps_frame(bytes_of("box")), [](sim::HubFrame &f) { f.port = kHubPortBox; }),
    };
    const std::pair<uint32_t, const char *> rows[] = {
        {COM_TYPE_ZIGBEE, "zig"}, {COM_TYPE_RFID, "tag"}, {COM_TYPE_HUB, "box"}};
    for (const auto &[type, expected] : rows) {
        SCOPED_TRACE(expected);
        int fd = gps_with_frames(frames);
        GuardedBuffer buffer;
        uint32_t length = kUntouchedLength;
        EXPECT_EQ(receive(fd, type, buffer, length).status, 0);
        EXPECT_EQ(length, 3u);
        EXPECT_EQ(buffer.first(3), bytes_of(expected));
        CLI_ComClose(COM_TYPE_GPS, &fd);
    }
}

TEST_F(HubReceive, ThePeripheralBoxAnswersItsTemperatureRequest)
{
    hang_hub([](sim::HubPeer &hub) {
        hub.add_device(sim::kHubPortBox, std::make_unique<sim::BoxPeer>(sim::BoxSetup{.temperature = 0xF6}));
    });
    int fd = open_link(COM_TYPE_HUB);
    ASSERT_EQ(CLI_ComSend(fd, COM_TYPE_HUB, nullptr, 0, 7), 0u);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, COM_TYPE_HUB, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(buffer.first(1), Bytes{0xF6});
    CLI_ComClose(COM_TYPE_HUB, &fd);
}

} // namespace
