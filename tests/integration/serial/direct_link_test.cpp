// The peripheral link in direct mode through libclidriver.so: one device wired straight to
// /dev/ttyC0. Opening, closing and sending per device type, the three receive shapes chosen by
// which device is present, their bounds, and every refusal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "fault_injection.h"
#include "link_fixture.h"

namespace
{

using namespace clitest;
using clitest::Call;

// ---- CLI_ComOpen and CLI_ComClose ----------------------------------------------------------------

class DirectLink : public LinkTest
{
};

TEST_F(DirectLink, RefusesTypesAboveThreeAndALinkWithoutAPath)
{
    struct Row {
        bool path;
        uint32_t type;
    };
    for (const Row row : {Row{true, 4}, Row{true, 0xFFFFFFFFu}, Row{false, COM_TYPE_GPS}, Row{false, 4}}) {
        gastComCap.pcDevPath = row.path ? kLink : nullptr;
        gastComCap.astDev[COM_TYPE_GPS] = {1, 9600};
        int fd = -7;
        const Call call = run([&] { return CLI_ComOpen(row.type, &fd); });
        const std::string type = std::to_string(row.type);
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComOpen: unsupport Type " + type});
        EXPECT_EQ(call.err, "[ERROR]:unsupport Type " + type + "\t@[src/cli_libfun.cpp CLI_ComOpen]\r\n");
        EXPECT_EQ(fd, -7) << "nothing was opened";
        EXPECT_TRUE(call.of(sim::Kind::Open).empty());
    }
}

TEST_F(DirectLink, RefusesADeviceThePlatformDidNotDeclarePresent)
{
    for (uint32_t flag : {0u, 2u, 0xFFFFFFFFu}) {
        declare(COM_TYPE_RFID, flag, 19200);
        int fd = -7;
        const Call call = run([&] { return CLI_ComOpen(COM_TYPE_RFID, &fd); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(),
                  std::vector<std::string>{"ERROR CLI_ComOpen: Device unsupport this Type 3"});
        EXPECT_EQ(call.err, "[ERROR]:Device unsupport this Type 3\t@[src/cli_libfun.cpp CLI_ComOpen]\r\n");
        EXPECT_EQ(fd, -7);
        EXPECT_TRUE(call.of(sim::Kind::Open).empty());
    }
}

TEST_F(DirectLink, RefusesANullDescriptorRecord)
{
    declare(COM_TYPE_GPS, 1, 9600);
    const Call call = run([] { return CLI_ComOpen(COM_TYPE_GPS, nullptr); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComOpen: null fd pointer"});
    EXPECT_TRUE(call.of(sim::Kind::Open).empty());
    const Call closing = run([] { return CLI_ComClose(COM_TYPE_GPS, nullptr); });
    EXPECT_EQ(closing.status, 0);
    EXPECT_EQ(closing.messages(), std::vector<std::string>{"ERROR CLI_ComClose: null fd pointer"});
}

TEST_F(DirectLink, ALineThatWillNotOpenIsReportedAndTheFailedResultStored)
{
    for (int err : {ENOENT, EBUSY}) {
        if (err == ENOENT)
            scenario().ports[kLink].present = false;
        else
            scenario().ports[kLink] = sim::PortScript{true, EBUSY, nullptr};
        restart();
        declare(COM_TYPE_GPS, 1, 9600);
        int fd = 42;
        const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComOpen: Open file /dev/ttyC0 error"});
        EXPECT_EQ(call.err, "[ERROR]:Open file /dev/ttyC0 error\t@[src/cli_libfun.cpp CLI_ComOpen]\r\n");
        EXPECT_EQ(fd, -1) << "the result of open is stored even when it failed";
    }
}

TEST_F(DirectLink, ALineWhoseRateCannotBeSetStaysOpenForTheCaller)
{
    allow_left_open(clitest::LeftOpen::PeripheralLinkAfterRate);
    declare(COM_TYPE_GPS, 1, 9600);
    faults().tcgetattr.arm(0, 1);
    int fd = -1;
    const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{"ERROR CLI_SetRsRate: tcgetattr() fail exit",
                                        "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed"}));
    EXPECT_EQ(call.err, "[ERROR]:tcgetattr() fail exit\t@[src/cli_libfun.cpp CLI_SetRsRate]\r\n"
                        "tcgetattr:: Input/output error\n"
                        "[src/cli_libfun.cpp CLI_ComOpen]: CLI_SetRsRate call failed\r\n");
    ASSERT_GE(fd, 0);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    EXPECT_TRUE(call.of(sim::Kind::Close).empty());
}

struct DeviceRow {
    const char *name;
    uint32_t type;
    uint32_t rate;
    unsigned line;
};

// Rows show by name in test listings.
void PrintTo(const DeviceRow &row, std::ostream *out)
{
    *out << row.name;
}

class DirectLinkPerDevice : public LinkTest, public ::testing::WithParamInterface<DeviceRow>
{
};

TEST_P(DirectLinkPerDevice, OpensRawAtTheDevicesRateSendsNothingAndCloses)
{
    const DeviceRow &row = GetParam();
    hang_device([](sim::ScriptedPeer &) {});
    declare(row.type, 1, row.rate);
    int fd = -1;
    const Call opening = run([&] { return CLI_ComOpen(row.type, &fd); });
    EXPECT_EQ(opening.status, 0);
    EXPECT_TRUE(opening.messages().empty());
    EXPECT_EQ(opening.err, "");
    const auto opens = opening.of(sim::Kind::Open, kLink);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].values.at(0) & ~static_cast<int64_t>(O_LARGEFILE), O_RDWR | O_NOCTTY);
    EXPECT_EQ(opens[0].result, fd);
    EXPECT_EQ(line_baud(), row.line);
    termios line{};
    ASSERT_TRUE(sim::serial_ports().port(kLink)->line_settings(&line));
    EXPECT_EQ(line.c_lflag & ICANON, 0u) << "raw";

    const Call closing = run([&] { return CLI_ComClose(row.type, &fd); });
    EXPECT_EQ(closing.status, 0);
    EXPECT_TRUE(closing.messages().empty());
    EXPECT_EQ(closing.of(sim::Kind::Close, kLink).size(), 1u);
    EXPECT_EQ(fd, -1) << "the record no longer names a descriptor";
    EXPECT_TRUE(written().empty()) << "direct mode has no channel to open or close";
}

INSTANTIATE_TEST_SUITE_P(Devices, DirectLinkPerDevice,
                         ::testing::Values(DeviceRow{"Gps", COM_TYPE_GPS, 9600, 9600},
                                           DeviceRow{"GpsFast", COM_TYPE_GPS, 115200, 115200},
                                           DeviceRow{"Rfid", COM_TYPE_RFID, 19200, 19200},
                                           DeviceRow{"Zigbee", COM_TYPE_ZIGBEE, 38400, 38400},
                                           DeviceRow{"ZigbeeOddRate", COM_TYPE_ZIGBEE, 14400, 9600}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(DirectLink, ASecondCloseThroughTheSameRecordClosesNothingElse)
{
    declare(COM_TYPE_GPS, 1, 9600);
    int fd = open_link(COM_TYPE_GPS);
    ASSERT_EQ(run([&] { return CLI_ComClose(COM_TYPE_GPS, &fd); }).status, 0);
    const int other = open("/dev/ttyS1", O_RDWR | O_NOCTTY); // may well get the same number
    ASSERT_GE(other, 0);
    const Call again = run([&] { return CLI_ComClose(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(again.status, 0);
    EXPECT_TRUE(again.of(sim::Kind::Close).empty());
    EXPECT_NE(fcntl(other, F_GETFD), -1);
    close(other);
}

// ---- CLI_ComSend ----------------------------------------------------------------------------------

TEST_F(DirectLink, SendsTheBytesAsTheyAreWhateverTheCommand)
{
    hang_device([](sim::ScriptedPeer &) {});
    declare(COM_TYPE_GPS, 1, 9600);
    int fd = open_link(COM_TYPE_GPS);
    const Bytes sentence = bytes_of("$PMTK000*32\r\n");
    const Call call = run([&] { return CLI_ComSend(fd, COM_TYPE_GPS, sentence.data(), 13, 3); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(writes(call), std::vector<Bytes>{sentence});
    const Bytes frame = {0xFF, 0x0A, 0x00, 0x07, 0x10, 0xB9, 0xA2};
    EXPECT_EQ(run([&] { return CLI_ComSend(fd, COM_TYPE_RFID, frame.data(), 7, 0xE1); }).status, 0);
    EXPECT_EQ(run([&] { return CLI_ComSend(fd, COM_TYPE_HUB, nullptr, 0, 5); }).status, 0);
    EXPECT_EQ(written(), concat({sentence, frame}));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(DirectLink, ASendForATypeAboveThreeIsRefusedWithoutAConsoleLine)
{
    hang_device([](sim::ScriptedPeer &) {});
    declare(COM_TYPE_GPS, 1, 9600);
    int fd = open_link(COM_TYPE_GPS);
    const Call call = run([&] { return CLI_ComSend(fd, 4, "x", 1, 3); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComSend: unknow data type"});
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(written().empty());
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(DirectLink, AFailedWriteIsNotASendFailure)
{
    declare(COM_TYPE_GPS, 1, 9600);
    const Call call = run([] { return CLI_ComSend(-1, COM_TYPE_GPS, "abc", 3, 3); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
}

// ---- CLI_ComRecv: the GPS shape -------------------------------------------------------------------

class DirectReceive : public LinkTest
{
  protected:
    // Opens the link for `type` with the peripheral already hung on it.
    int open_with(uint32_t type, std::function<void(sim::ScriptedPeer &)> setup)
    {
        hang_device(std::move(setup));
        return open_link(type);
    }
};

Bytes nmea_burst(size_t size)
{
    const std::string sentence = "$GPRMC,081836,A,3751.65,S,14507.36,E,000.0,360.0,130998,011.3,E*62\r\n";
    std::string burst;
    while (burst.size() < size)
        burst += sentence;
    burst.resize(size);
    return bytes_of(burst);
}

TEST_F(DirectReceive, WithTheGpsPresentEveryTypeReadsOneBlockOf1024Bytes)
{
    const Bytes burst = nmea_burst(1500);
    for (uint32_t type : {COM_TYPE_GPS, COM_TYPE_RFID, COM_TYPE_HUB, COM_TYPE_ZIGBEE}) {
        SCOPED_TRACE(type);
        declare(COM_TYPE_GPS, 1, 9600);
        declare(COM_TYPE_RFID, 1, 9600); // present too, but the GPS shape comes first
        int fd = open_with(COM_TYPE_GPS, [&](sim::ScriptedPeer &peer) { peer.announce(0, burst); });
        GuardedBuffer buffer;
        uint32_t length = kUntouchedLength;
        const Call call = run([&] { return CLI_ComRecv(fd, type, buffer.data(), &length); });
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.messages().empty());
        EXPECT_EQ(length, 1024u);
        EXPECT_EQ(buffer.first(1024), Bytes(burst.begin(), burst.begin() + 1024));
        EXPECT_TRUE(buffer.guard_intact());
        EXPECT_EQ(call.waited, 1024 * kByteAt9600) << "the block is read as the line delivers it, in pieces";
        CLI_ComClose(COM_TYPE_GPS, &fd);
    }
}

struct TimeoutRow {
    uint32_t type;
    sim::Nanos wait;
};

// Rows show by name in test listings.
void PrintTo(const TimeoutRow &row, std::ostream *out)
{
    *out << "link type " << row.type;
}

class DirectReceiveTimeouts : public DirectReceive, public ::testing::WithParamInterface<TimeoutRow>
{
};

TEST_P(DirectReceiveTimeouts, ASilentGpsFailsAfterTheTypesTimeOut)
{
    declare(COM_TYPE_GPS, 1, 9600);
    int fd = open_with(COM_TYPE_GPS, [](sim::ScriptedPeer &) {});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, GetParam().type, buffer.data(), &length); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{"ERROR CLI_Treadn: read Timeout",
                                                         "ERROR CLI_ComRecv: read data fail"}));
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, GetParam().wait);
    EXPECT_EQ(length, kUntouchedLength);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

INSTANTIATE_TEST_SUITE_P(Types, DirectReceiveTimeouts,
                         ::testing::Values(TimeoutRow{COM_TYPE_HUB, 1 * kSecond},
                                           TimeoutRow{COM_TYPE_ZIGBEE, 15 * kSecond},
                                           TimeoutRow{COM_TYPE_GPS, 5 * kSecond},
                                           TimeoutRow{COM_TYPE_RFID, 2 * kSecond}),
                         [](const auto &info) { return "Type" + std::to_string(info.param.type); });

TEST_F(DirectReceive, AGpsBlockCutShortFailsAndTakesTheTimeOutAfterTheLastByte)
{
    declare(COM_TYPE_GPS, 1, 9600);
    const Bytes part = nmea_burst(300);
    int fd = open_with(COM_TYPE_GPS, [&](sim::ScriptedPeer &peer) { peer.announce(0, part); });
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, COM_TYPE_GPS, buffer.data(), &length); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.waited, 300 * kByteAt9600 + 5 * kSecond);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_EQ(buffer.first(300), part);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(DirectReceive, RefusesATypeAboveThreeAndANullBuffer)
{
    declare(COM_TYPE_GPS, 1, 9600);
    int fd = open_with(COM_TYPE_GPS, [](sim::ScriptedPeer &peer) { peer.announce(0, nmea_burst(2000)); });
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    Call call = run([&] { return CLI_ComRecv(fd, 4, buffer.data(), &length); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComRecv: unknow data type"});
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, 0);
    call = run([&] { return CLI_ComRecv(fd, COM_TYPE_GPS, nullptr, &length); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComRecv: null receive buffer"});
    call = run([&] { return CLI_ComRecv(fd, COM_TYPE_GPS, buffer.data(), nullptr); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

TEST_F(DirectReceive, WithNoDevicePresentThereIsNothingToReadAndNoWait)
{
    declare(COM_TYPE_GPS, 0, 9600);
    declare(COM_TYPE_RFID, 2, 9600);
    declare(COM_TYPE_ZIGBEE, 0, 9600);
    hang_device([](sim::ScriptedPeer &peer) { peer.announce(0, nmea_burst(100)); });
    int fd = open("/dev/ttyC0", O_RDWR | O_NOCTTY);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, COM_TYPE_GPS, buffer.data(), &length); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.waited, 0);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    close(fd);
}

// ---- CLI_ComRecv: the RFID shape ------------------------------------------------------------------

Bytes rfid_frame(const Bytes &body)
{
    const size_t total = body.size() + 4;
    return concat({{0xFF, 0x0C, static_cast<uint8_t>(total >> 8), static_cast<uint8_t>(total)}, body});
}

class RfidReceive : public DirectReceive
{
  protected:
    // The reader alone on the line, sending `stream` as soon as the link is open.
    int reader_sends(const Bytes &stream)
    {
        declare(COM_TYPE_RFID, 1, 9600);
        return open_with(COM_TYPE_RFID, [stream](sim::ScriptedPeer &peer) { peer.announce(0, stream); });
    }

    Call receive(int fd, GuardedBuffer &buffer, uint32_t &length)
    {
        return run([&] { return CLI_ComRecv(fd, COM_TYPE_RFID, buffer.data(), &length); });
    }
};

TEST_F(RfidReceive, FindsFf0cAndCopiesTheWholeFrameWithItsHeader)
{
    const Bytes tag = rfid_frame({0xF1, 0x00, 0x00, 0x1A, 0x2B, 0xFF, 0x7E, 0x7E});
    int fd = reader_sends(concat({{0x00, 0x11, 0xFF, 0x0D, 0x0C, 0xFF}, tag}));
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(length, 12u);
    EXPECT_EQ(buffer.first(12), tag);
    EXPECT_TRUE(buffer.untouched_from(12));
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

TEST_F(RfidReceive, AStartSplitAcrossTwoPairsIsNotAStart)
{
    // Pairs are read two bytes at a time: "0C FF" then "0C ..." never pairs up as FF 0C.
    const Bytes tag = rfid_frame({0xF1, 0x00, 0x01, 0x02, 0x03, 0x04});
    int fd = reader_sends(concat({{0x01}, tag, {0x00}, tag}));
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(buffer.first(10), tag) << "the second copy, which lies on a pair boundary";
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

TEST_F(RfidReceive, AFrameOfJustItsHeaderIsAFrame)
{
    int fd = reader_sends({0xFF, 0x0C, 0x00, 0x04});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    EXPECT_EQ(receive(fd, buffer, length).status, 0);
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(buffer.first(4), (Bytes{0xFF, 0x0C, 0x00, 0x04}));
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

TEST_F(RfidReceive, ALengthBelowItsOwnHeaderOrBeyondTheBufferIsDroppedAsAFailedAttempt)
{
    for (const uint16_t total : {uint16_t{0}, uint16_t{3}, uint16_t{1025}, uint16_t{0xFFFF}}) {
        SCOPED_TRACE(total);
        restart();
        const Bytes tag = rfid_frame({0xF1, 0x00, 0xAA, 0xBB, 0xCC, 0xDD});
        int fd = reader_sends(
            concat({{0xFF, 0x0C, static_cast<uint8_t>(total >> 8), static_cast<uint8_t>(total)}, tag}));
        GuardedBuffer buffer;
        uint32_t length = kUntouchedLength;
        const Call call = receive(fd, buffer, length);
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_ComRecv: len " +
                                                            std::to_string(total) + " out of range"});
        EXPECT_EQ(length, 10u) << "the next frame is found";
        EXPECT_EQ(buffer.first(10), tag);
        EXPECT_TRUE(buffer.untouched_from(10));
        CLI_ComClose(COM_TYPE_RFID, &fd);
    }
}

TEST_F(RfidReceive, AFrameFillingTheWholeBufferFitsAndNothingLandsBeyondIt)
{
    Bytes body(1020);
    for (size_t i = 0; i < body.size(); ++i)
        body[i] = static_cast<uint8_t>(i * 7);
    const Bytes tag = rfid_frame(body);
    ASSERT_EQ(tag.size(), 1024u);
    int fd = reader_sends(tag);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    EXPECT_EQ(receive(fd, buffer, length).status, 0);
    EXPECT_EQ(length, 1024u);
    EXPECT_EQ(buffer.first(1024), tag);
    EXPECT_TRUE(buffer.guard_intact());
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

TEST_F(RfidReceive, TenPairsWithoutAStartGiveNothingAndTouchNothing)
{
    Bytes noise(40);
    for (size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<uint8_t>(0x20 + i);
    int fd = reader_sends(noise);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, buffer, length);
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    GuardedBuffer rest;
    EXPECT_EQ(run([&] { return CLI_Treadn(fd, 20, timeval{1, 0}, rest.data()); }).status, 0);
    EXPECT_EQ(rest.first(20), Bytes(noise.begin() + 20, noise.end())) << "exactly ten pairs were taken";
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

TEST_F(RfidReceive, AReaderThatStopsMidFrameFailsAfterTheTimeOut)
{
    int fd = reader_sends({0xFF, 0x0C, 0x00, 0x0A, 0xF1, 0x00});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = receive(fd, buffer, length);
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{"ERROR CLI_Treadn: read Timeout",
                                                         "ERROR CLI_ComRecv: read data fail"}));
    EXPECT_EQ(call.waited, 6 * kByteAt9600 + 2 * kSecond);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0)) << "the frame is gathered apart from the caller's buffer";
    CLI_ComClose(COM_TYPE_RFID, &fd);
}

// ---- CLI_ComRecv: the ZigBee shape ----------------------------------------------------------------

class ZigbeeReceive : public DirectReceive
{
  protected:
    int radio_sends(const Bytes &stream)
    {
        declare(COM_TYPE_ZIGBEE, 1, 38400);
        return open_with(COM_TYPE_ZIGBEE, [stream](sim::ScriptedPeer &peer) { peer.announce(0, stream); });
    }
};

TEST_F(ZigbeeReceive, FindsAaOnAPairBoundaryAndTakesKPlusFourBytes)
{
    // AA, a byte not examined, K = 3, then K + 1 bytes.
    const Bytes report = {0xAA, 0x55, 0x03, 0x10, 0x20, 0x30, 0x40};
    int fd = radio_sends(concat({{0x01, 0xAA, 0x13, 0x14}, report, {0x99}}));
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, COM_TYPE_ZIGBEE, buffer.data(), &length); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(length, 7u);
    EXPECT_EQ(buffer.first(7), report);
    EXPECT_TRUE(buffer.untouched_from(7));
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

TEST_F(ZigbeeReceive, TheLongestFrameTheCountAllowsFitsTheBuffer)
{
    Bytes report = {0xAA, 0x00, 0xFF};
    for (int i = 0; i < 256; ++i)
        report.push_back(static_cast<uint8_t>(i));
    int fd = radio_sends(report);
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    EXPECT_EQ(run([&] { return CLI_ComRecv(fd, COM_TYPE_GPS, buffer.data(), &length); }).status, 0);
    EXPECT_EQ(length, 259u);
    EXPECT_EQ(buffer.first(259), report);
    EXPECT_TRUE(buffer.untouched_from(259));
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

TEST_F(ZigbeeReceive, TenPairsWithoutAaGiveNothingAfterTenReads)
{
    int fd = radio_sends(Bytes(20, 0x55));
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, COM_TYPE_ZIGBEE, buffer.data(), &length); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(length, kUntouchedLength);
    EXPECT_TRUE(buffer.untouched_from(0));
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

TEST_F(ZigbeeReceive, ASilentRadioFailsAfterFifteenSeconds)
{
    int fd = radio_sends({});
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    const Call call = run([&] { return CLI_ComRecv(fd, COM_TYPE_ZIGBEE, buffer.data(), &length); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.waited, 15 * kSecond);
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

TEST_F(ZigbeeReceive, RfidComesBeforeZigbeeWhenBothArePresent)
{
    declare(COM_TYPE_RFID, 1, 38400);
    const Bytes tag = rfid_frame({0xF1, 0x00, 0x01, 0x02, 0x03, 0x04});
    int fd = radio_sends(concat({{0xAA, 0x00, 0x01, 0x00, 0x00}, {0x00}, tag}));
    GuardedBuffer buffer;
    uint32_t length = kUntouchedLength;
    EXPECT_EQ(run([&] { return CLI_ComRecv(fd, COM_TYPE_ZIGBEE, buffer.data(), &length); }).status, 0);
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(buffer.first(10), tag);
    CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
}

// ---- CLI_GetCheckSum ----------------------------------------------------------------------------------

TEST(GetCheckSum, AddsEveryByteWithoutTruncating)
{
    const uint8_t three[] = {1, 2, 3};
    EXPECT_EQ(CLI_GetCheckSum(three, 3), 6);
    EXPECT_EQ(CLI_GetCheckSum(three, 0), 0);
    EXPECT_EQ(CLI_GetCheckSum(nullptr, 100), 0) << "no bytes, no sum, no crash";
    const Bytes ones(300, 0xFF);
    EXPECT_EQ(CLI_GetCheckSum(ones.data(), 300), 76500) << "above 65535: not cut to 16 bits";
    const uint8_t open_gps[] = {0x01, 0x00, 0x5B, 0x04};
    EXPECT_EQ(CLI_GetCheckSum(open_gps, 4), 0x60);
    // 16843010 bytes of 0xFF add up to 2^32 + 254: the 32-bit sum wraps as the camera's does.
    const Bytes lots(16843010, 0xFF);
    EXPECT_EQ(static_cast<uint32_t>(CLI_GetCheckSum(lots.data(), static_cast<uint32_t>(lots.size()))), 254u);
}

} // namespace
