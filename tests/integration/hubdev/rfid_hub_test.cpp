// The RFID search behind the hub through libclidriver.so: every frame the search writes, byte for
// byte (the reader's channel opened at its rate, the GPS and ZigBee channels closed, the start of
// inventory passed to the reader, the reader's channel closed at the end), the reports coming back
// in hub frames from port 0x005C, a failing start-of-inventory send, and the reader's
// acknowledgement taken for what it is.
#include <gtest/gtest.h>

#include "fault_injection.h"
#include "rfid_fixture.h"

namespace
{

using namespace rfidtest;

// What the search writes before it listens: open and rate for the reader's port, close for the
// GPS and ZigBee ports, the start of inventory for the reader.
std::vector<Bytes> opening_frames(uint32_t rate = kReaderRate)
{
    return {hub_frame(kHubPortRfid, kHubOpen),
            hub_frame(kHubPortRfid, kHubSetRate, clitest::big_endian_rate(rate)),
            hub_frame(kHubPortGps, kHubClose), hub_frame(kHubPortZigbee, kHubClose),
            hub_frame(kHubPortRfid, kHubPass, kStartInventory)};
}

Lines hub_report_lines(const std::string &id)
{
    return {" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 16(0x10)", search_line(id)};
}

TEST_F(RfidTest, BehindTheHubTheSearchClosesTheOtherChannelsAndStartsTheInventory)
{
    hang_reader_behind_hub({.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond)}});
    const Call started = start(500 * kMillisecond);
    EXPECT_EQ(started.status, 0);
    EXPECT_EQ(writes(started), opening_frames());
    EXPECT_EQ(started.messages(), hub_report_lines("DEADBEEF"));
    EXPECT_EQ(started.err, "");
    EXPECT_EQ(line_baud(), kHubRate) << "the line runs at the hub's speed";
    ASSERT_NE(hub(), nullptr);
    EXPECT_EQ(hub()->channel_rate(kHubPortRfid), kReaderRate);
    EXPECT_FALSE(hub()->channel_open(kHubPortGps));
    EXPECT_FALSE(hub()->channel_open(kHubPortZigbee));
    // The report, 100 ms after the command reached the reader, then its way through the hub.
    const std::vector<sim::Entry> printed = started.of(sim::Kind::Print);
    ASSERT_EQ(printed.size(), 3u);
    EXPECT_EQ(printed[2].time, 100 * kMillisecond + kReportBehindHub);
    ASSERT_NE(reader(), nullptr);
    ASSERT_EQ(reader()->heard().size(), 1u);
    EXPECT_TRUE(reader()->heard()[0].crc_ok);

    EXPECT_EQ(list().out, list_out({"DEADBEEF"}));
    const Call stopped = stop();
    const Call ended = until_the_line_is_let_go();
    Bytes after;
    for (const Call *call : {&stopped, &ended})
        for (const Bytes &frame : writes(*call))
            after.insert(after.end(), frame.begin(), frame.end());
    EXPECT_EQ(after, hub_frame(kHubPortRfid, kHubClose)) << "the reader's channel closed at the end";
    EXPECT_FALSE(hub()->channel_open(kHubPortRfid));
}

TEST_F(RfidTest, BehindTheHubTheReaderRateGoesInTheRateFrame)
{
    hang_reader_behind_hub({.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond)}});
    EXPECT_EQ(CLI_SetRfidRate(38400), 0u);
    const Call started = start(500 * kMillisecond);
    EXPECT_EQ(writes(started), opening_frames(38400));
    EXPECT_EQ(line_baud(), kHubRate);
    EXPECT_EQ(started.messages(), hub_report_lines("DEADBEEF"));
    end_search();
}

TEST_F(RfidTest, AFailingStartOfInventoryClosesTheReadersChannelAndTheLine)
{
    hang_reader_behind_hub({.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond)}});
    // Open and rate pass, the two channel closes pass, the start of inventory fails.
    clitest::faults().com_send.arm(4, 1);
    const Call started = start(500 * kMillisecond);
    EXPECT_EQ(started.status, 0) << "the start itself succeeded: the thread runs";
    EXPECT_EQ(started.messages(), (Lines{"ERROR CLI_SearchRfidID: Function CLI_ComSend call failed"}));
    EXPECT_EQ(started.err, call_failed("CLI_SearchRfidID", "CLI_ComSend"));
    EXPECT_EQ(writes(started),
              (std::vector<Bytes>{hub_frame(kHubPortRfid, kHubOpen),
                                  hub_frame(kHubPortRfid, kHubSetRate, clitest::big_endian_rate(kReaderRate)),
                                  hub_frame(kHubPortGps, kHubClose), hub_frame(kHubPortZigbee, kHubClose),
                                  hub_frame(kHubPortRfid, kHubClose)}));
    EXPECT_EQ(started.of(sim::Kind::Close, kLink).size(), 1u);
    EXPECT_FALSE(line_held());
    EXPECT_FALSE(reader()->inventory_running());
    EXPECT_EQ(gulCliRfidSearch, 1) << "only a stop takes the flag down";
    EXPECT_EQ(start().out, "Search ID already start\r\n");
    EXPECT_EQ(stop().status, 0);
}

TEST_F(RfidTest, TheReadersAcknowledgementIsNoTagReport)
{
    hang_reader_behind_hub(
        {.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond)}, .acknowledge = true});
    const Call started = start(500 * kMillisecond);
    Lines expected = {" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 12(0xc)",
                      "ERROR CLI_RfidDataDeal: unknow or unsupport Cmd",
                      "ERROR CLI_SearchRfidID: Data deal fail"};
    for (const std::string &line : hub_report_lines("DEADBEEF"))
        expected.push_back(line);
    EXPECT_EQ(started.messages(), expected);
    const std::vector<sim::Entry> pauses = started.of(sim::Kind::Sleep);
    ASSERT_EQ(pauses.size(), 1u);
    EXPECT_EQ(pauses[0].values.at(0), 20 * kMillisecond);
    // The acknowledgement: eight bytes on the reader's channel, then a hub frame of 17 bytes.
    EXPECT_EQ(pauses[0].time, 8 * kByteAt9600 + 17 * kByteAt115200);
    EXPECT_EQ(list().out, list_out({"DEADBEEF"}));
    end_search();
}

TEST_F(RfidTest, FramesFromOtherPortsArePassedOverBehindTheHub)
{
    hang_hub([](sim::HubPeer &hub) {
        hub.add_device(kHubPortRfid,
                       reader_of({.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 300 * kMillisecond)}}, {}));
        hub.send_frame(100 * kMillisecond, sim::HubFrame::of(kHubPortGps, kHubPass, {0x24, 0x47}));
    });
    declare(COM_TYPE_HUB, 1, kHubRate);
    declare(COM_TYPE_RFID, 1, kReaderRate);
    const Call started = start(500 * kMillisecond);
    Lines expected = {" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 6(0x6)",
                      " INFO CLI_ComRecv: data port 91 unmatch"};
    for (const std::string &line : hub_report_lines("DEADBEEF"))
        expected.push_back(line);
    EXPECT_EQ(started.messages(), expected);
    end_search();
}

} // namespace
