// The search thread beside the operator's commands, through libclidriver.so: a stop that comes
// while the thread is inside a receive longer than the stop's grace, a start that follows a stop
// while the earlier thread still holds the reader, and a thousand start/list/stop cycles (run
// under ThreadSanitizer too: the flag and the table are shared without a lock).
#include <gtest/gtest.h>

#include <cstring>

#include "rfid_fixture.h"

namespace
{

using namespace rfidtest;

TEST_F(RfidTest, AThreadStillInsideItsReceiveAtTheStopLeavesWithoutTouchingTheTable)
{
    // Every byte 150 ms after the one before: the first report is whole at 1.8 s, the second at
    // 3.6 s, so the receive of the second spans the stop at 2.5 s and its grace until 3.5 s.
    hang_reader(
        {.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 0), tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond)}},
        {.mode = sim::Misbehaviour::Mode::Trickle, .trickle_gap = 150 * kMillisecond});
    start();
    const Call first = wait(2499 * kMillisecond);
    EXPECT_EQ(first.messages(), (Lines{search_line("001A2BFF")}));
    EXPECT_EQ(list().out, list_out({"001A2BFF"}));

    const Call stopped = stop();
    EXPECT_EQ(stopped.waited, kSecond);
    EXPECT_TRUE(stopped.messages().empty());
    EXPECT_TRUE(stopped.of(sim::Kind::Close, kLink).empty()) << "the thread is still inside its receive";

    const Call ended = until_the_line_is_let_go();
    EXPECT_TRUE(ended.messages().empty()) << "the report completed after the stop is not decoded";
    const std::vector<sim::Entry> closes = ended.of(sim::Kind::Close, kLink);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].time, 3600 * kMillisecond) << "closed as soon as its receive came back";
    EXPECT_EQ(gstCliRfidTable.ulCount, 0u);
    const CliRfidTable empty = {};
    EXPECT_EQ(memcmp(&gstCliRfidTable, &empty, sizeof empty), 0) << "not a byte written after the stop";
    EXPECT_EQ(list().out, "Total Number: 0\r\n");
}

TEST_F(RfidTest, AStartRightAfterAStopWaitsUntilTheEarlierSearchHasLetGoOfTheReader)
{
    // The reader reports its tag every 1.5 s; the stop at 0.5 s leaves the thread inside a
    // receive that the report at 1.6 s ends, after the next start at 1.5 s.
    hang_reader_behind_hub(
        {.tags = {tag({0xDE, 0xAD, 0xBE, 0xEF}, 100 * kMillisecond, 0, 1500 * kMillisecond)}});
    start();
    wait(499 * kMillisecond);
    stop();
    const Call again = start(500 * kMillisecond);
    EXPECT_EQ(again.status, 0);

    // The earlier search reads the report, finds itself replaced and closes the reader's channel;
    // only then does the new one open it and start the inventory again.
    std::vector<Bytes> expected = {hub_frame(kHubPortRfid, kHubClose)};
    for (const Bytes &frame : {hub_frame(kHubPortRfid, kHubOpen),
                               hub_frame(kHubPortRfid, kHubSetRate, clitest::big_endian_rate(kReaderRate)),
                               hub_frame(kHubPortGps, kHubClose), hub_frame(kHubPortZigbee, kHubClose),
                               hub_frame(kHubPortRfid, kHubPass, kStartInventory)})
        expected.push_back(frame);
    EXPECT_EQ(writes(again), expected);
    EXPECT_EQ(again.messages(), (Lines{" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 16(0x10)",
                                       " INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 16(0x10)",
                                       search_line("DEADBEEF")}));
    const std::vector<sim::Entry> opens = again.of(sim::Kind::Open, kLink);
    const std::vector<sim::Entry> closes = again.of(sim::Kind::Close, kLink);
    ASSERT_EQ(opens.size(), 1u);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].time, 1600 * kMillisecond + kReportBehindHub);
    EXPECT_GT(opens[0].time, closes[0].time);
    // The new search looks every 20 ms whether the reader is free.
    for (const sim::Entry &pause : again.of(sim::Kind::Sleep))
        EXPECT_EQ(pause.values.at(0), 20 * kMillisecond);
    EXPECT_EQ(opens[0].time, 1620 * kMillisecond);
    EXPECT_EQ(list().out, list_out({"DEADBEEF"}));
    end_search();
}

TEST_F(RfidTest, AThousandStartListStopCyclesEachListTheirTag)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 10 * kMillisecond, 0, 50 * kMillisecond)}});
    int failed = 0;
    for (int cycle = 0; cycle < 1000 && failed == 0; ++cycle) {
        const Call started = start(100 * kMillisecond);
        const Call listed = list();
        const Call stopped = stop();
        if (started.status != 0 || listed.out != list_out({"001A2BFF"}) || stopped.status != 0 ||
            stopped.waited != kSecond || gulCliRfidSearch != 0) {
            ++failed;
            ADD_FAILURE() << "cycle " << cycle << ": start " << started.status << ", list \"" << listed.out
                          << "\", stop " << stopped.status;
        }
        // The reader reports every 50 ms: the thread saw the stop and closed within the grace.
        if (stopped.of(sim::Kind::Close, kLink).size() != 1) {
            ++failed;
            ADD_FAILURE() << "cycle " << cycle << ": the line is still held after the stop";
        }
    }
    EXPECT_EQ(failed, 0);
    until_the_line_is_let_go();
}

} // namespace
