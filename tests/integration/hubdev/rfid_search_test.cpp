// The RFID tag search through libclidriver.so on the simulated camera, with a reader straight on
// the peripheral link: start, list and stop with everything each prints, the search thread's
// lines as the reader's reports arrive (each at the simulated time the line delivers it), the same
// tag again and again, the ID's text, a full table, listing while the search runs, stopping twice,
// unknown options, a thread that cannot be created, a line that will not open, frames that are no
// tag report, a silent reader and a line that hangs up.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fault_injection.h"
#include "rfid_fixture.h"

namespace
{

using namespace rfidtest;

TEST_F(RfidTest, TheSameTagFiftyTimesIsStoredOnceAndEachReportIsLogged)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond, 50, 100 * kMillisecond)}});
    const Call started = start();
    EXPECT_EQ(started.status, 0);
    EXPECT_TRUE(started.messages().empty());
    EXPECT_EQ(started.out, "");
    EXPECT_EQ(started.err, "");
    EXPECT_EQ(started.of(sim::Kind::Thread).size(), 1u);

    const Call searched = wait(6 * kSecond);
    EXPECT_EQ(searched.messages(), Lines(50, search_line("001A2BFF")));
    EXPECT_EQ(searched.out, "") << "the search writes nothing on standard output";
    EXPECT_EQ(reader()->reports(), 50u);

    const Call listed = list();
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.messages(), list_lines({"001A2BFF"}));
    EXPECT_EQ(listed.out, list_out({"001A2BFF"}));
    EXPECT_EQ(listed.waited, 0);
    EXPECT_EQ(gstCliRfidTable.ulCount, 1u);
    end_search();
}

TEST_F(RfidTest, EachReportArrivesWhenTheLineHasCarriedIt)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond),
                          tag({0xDE, 0xAD, 0xBE, 0xEF}, 700 * kMillisecond)}});
    start();
    const Call searched = wait(kSecond);
    std::vector<sim::Nanos> times;
    for (const sim::Entry &entry : searched.of(sim::Kind::Print))
        times.push_back(entry.time);
    // The thread opened the line at 0, when the reader began its inventory: each report is logged
    // the moment its twelfth byte is in.
    EXPECT_EQ(times, (std::vector<sim::Nanos>{100 * kMillisecond + kReportOnLine,
                                              700 * kMillisecond + kReportOnLine}));
    EXPECT_EQ(searched.messages(), (Lines{search_line("001A2BFF"), search_line("DEADBEEF")}));
    end_search();
}

TEST_F(RfidTest, TagBytesShowAsEightUpperCaseHexDigits)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond),
                          tag({0x0a, 0x0b, 0xc0, 0x0d}, 200 * kMillisecond),
                          tag({0x00, 0x00, 0x00, 0x00}, 300 * kMillisecond)}});
    start();
    EXPECT_EQ(wait(kSecond).messages(),
              (Lines{search_line("001A2BFF"), search_line("0A0BC00D"), search_line("00000000")}));
    const Call listed = list();
    EXPECT_EQ(listed.out, list_out({"001A2BFF", "0A0BC00D", "00000000"}));
    // The table's own bytes: eight digits and two zero bytes per slot.
    EXPECT_EQ(std::string(gstCliRfidTable.aacId[0], 10), std::string("001A2BFF\0\0", 10));
    end_search();
}

TEST_F(RfidTest, AHundredAndFirstTagIsLoggedButNotStoredAndTheCountStaysAtAHundred)
{
    sim::RfidSetup setup;
    std::vector<std::string> stored;
    for (int i = 0; i <= 100; ++i) {
        setup.tags.push_back(tag({0x10, 0x00, 0x00, static_cast<uint8_t>(i)}, (i + 1) * 20 * kMillisecond));
        char id[9];
        snprintf(id, sizeof id, "100000%02X", i);
        if (i < 100)
            stored.push_back(id);
    }
    hang_reader(setup);
    start();
    const Call searched = wait(3 * kSecond);
    Lines expected;
    for (const std::string &id : stored)
        expected.push_back(search_line(id));
    expected.push_back(search_line("10000064"));
    expected.push_back(" INFO CLI_RfidDataDeal: ID table full, 10000064 not stored");
    EXPECT_EQ(searched.messages(), expected);
    EXPECT_EQ(gstCliRfidTable.ulCount, 100u);
    const Call listed = list();
    EXPECT_EQ(listed.messages(), list_lines(stored));
    EXPECT_EQ(listed.out, list_out(stored));
    end_search();
}

TEST_F(RfidTest, ListingWhileTheSearchRunsShowsWhatWasSeenSoFar)
{
    hang_reader({.tags = {tag({0x00, 0x00, 0x00, 0x01}, 100 * kMillisecond),
                          tag({0x00, 0x00, 0x00, 0x02}, 1200 * kMillisecond),
                          tag({0x00, 0x00, 0x00, 0x03}, 2600 * kMillisecond)}});
    start();
    wait(1500 * kMillisecond);
    const Call first = list();
    EXPECT_EQ(first.out, list_out({"00000001", "00000002"}));
    EXPECT_EQ(first.messages(), list_lines({"00000001", "00000002"}));
    wait(1500 * kMillisecond);
    EXPECT_EQ(list().out, list_out({"00000001", "00000002", "00000003"}));
    EXPECT_EQ(gulCliRfidSearch, 1) << "listing leaves the search running";
    end_search();
}

TEST_F(RfidTest, ListingWhenNoSearchWasEverStartedShowsATotalOfNothing)
{
    const Call listed = list();
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.messages(), (Lines{" INFO CLI_GetRfidIDInfo: Total Number: 0"}));
    EXPECT_EQ(listed.out, "Total Number: 0\r\n");
    EXPECT_EQ(listed.err, "");
    EXPECT_TRUE(listed.of(sim::Kind::Open).empty()) << "a list reads the table, not the reader";
}

TEST_F(RfidTest, AStopWaitsOneSecondThenEmptiesTheTable)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond, 0, 300 * kMillisecond)}});
    start();
    wait(kSecond);
    const Call stopped = stop();
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.out, "");
    EXPECT_EQ(stopped.err, "");
    EXPECT_EQ(stopped.waited, kSecond);
    ASSERT_EQ(stopped.of(sim::Kind::Sleep).size(), 1u);
    EXPECT_EQ(stopped.of(sim::Kind::Sleep)[0].values.at(0), kSecond);
    EXPECT_EQ(gulCliRfidSearch, 0);
    EXPECT_EQ(list().out, "Total Number: 0\r\n") << "a stopped search leaves an empty table";
    // The reader reports every 300 ms, so the thread saw the stop within the second and closed the
    // line: nothing stored after the stop emptied the table.
    EXPECT_EQ(stopped.of(sim::Kind::Close, kLink).size(), 1u);
    EXPECT_FALSE(line_held());
    until_the_line_is_let_go();
}

TEST_F(RfidTest, ASecondStopSaysTheSearchIsNotOn)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    start();
    EXPECT_EQ(stop().status, 0);
    const Call again = stop();
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.messages(), (Lines{" INFO CLI_GetRfidIDInfo: Search ID not start"}));
    EXPECT_EQ(again.out, "Search ID not start\r\n");
    EXPECT_EQ(again.err, "");
    EXPECT_EQ(again.waited, 0);
    until_the_line_is_let_go();
}

TEST_F(RfidTest, AStartWhileTheSearchRunsSaysSoAndStartsNoOtherThread)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    start();
    wait(kSecond);
    const Call again = start();
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.messages(), (Lines{" INFO CLI_GetRfidIDInfo: Search ID already start"}));
    EXPECT_EQ(again.out, "Search ID already start\r\n");
    EXPECT_TRUE(again.of(sim::Kind::Thread).empty());
    EXPECT_EQ(list().out, list_out({"001A2BFF"})) << "the table is kept";
    end_search();
}

struct UnknownOption {
    const char *name;
    uint32_t option;
};

void PrintTo(const UnknownOption &row, std::ostream *os)
{
    *os << row.name;
}

class RfidOptions : public RfidTest, public ::testing::WithParamInterface<UnknownOption>
{
};

TEST_P(RfidOptions, AnOptionOtherThanStartListOrStopIsRefused)
{
    const Call call = run([] { return CLI_GetRfidIDInfo(GetParam().option); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{" INFO CLI_GetRfidIDInfo: unknow option"}));
    EXPECT_EQ(call.out, "unknow option\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(call.of(sim::Kind::Thread).empty());
    EXPECT_EQ(gulCliRfidSearch, 0);
}

INSTANTIATE_TEST_SUITE_P(Options, RfidOptions,
                         ::testing::Values(UnknownOption{"Three", 3}, UnknownOption{"Five", 5},
                                           UnknownOption{"Highest", 0xFFFFFFFFu}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(RfidTest, AThreadThatCannotBeCreatedLeavesTheFlagSetUntilAStop)
{
    scenario().threads.fail_next = 1;
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    const Call failed = start();
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.messages(), (Lines{"ERROR CLI_GetRfidIDInfo: Function pthread_create call failed"}));
    EXPECT_EQ(failed.err, call_failed("CLI_GetRfidIDInfo", "pthread_create"));
    EXPECT_EQ(failed.out, "");
    ASSERT_EQ(failed.of(sim::Kind::Thread).size(), 1u);
    EXPECT_EQ(failed.of(sim::Kind::Thread)[0].result, EAGAIN);
    EXPECT_EQ(gulCliRfidSearch, 1);

    const Call refused = start();
    EXPECT_EQ(refused.status, 0);
    EXPECT_EQ(refused.out, "Search ID already start\r\n");
    EXPECT_TRUE(refused.of(sim::Kind::Thread).empty());

    const Call stopped = stop();
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.out, "");
    EXPECT_EQ(stopped.waited, kSecond);
    EXPECT_EQ(gulCliRfidSearch, 0);

    const Call restarted = start(kSecond);
    EXPECT_EQ(restarted.status, 0);
    EXPECT_EQ(restarted.messages(), (Lines{search_line("001A2BFF")}));
    end_search();
}

TEST_F(RfidTest, ALineThatWillNotOpenEndsTheThreadButLeavesTheFlagSetUntilAStop)
{
    scenario().ports[kLink].open_errno = EACCES;
    restart();
    declare(COM_TYPE_RFID, 1, kReaderRate);
    const Call started = start();
    EXPECT_EQ(started.status, 0);
    EXPECT_EQ(started.messages(), (Lines{"ERROR CLI_ComOpen: Open file /dev/ttyC0 error",
                                         "ERROR CLI_SearchRfidID: open com fail"}));
    EXPECT_EQ(started.err, console("CLI_ComOpen", "Open file /dev/ttyC0 error") +
                               console("CLI_SearchRfidID", "open com fail"));
    EXPECT_EQ(started.out, "");
    EXPECT_EQ(gulCliRfidSearch, 1);
    EXPECT_EQ(start().out, "Search ID already start\r\n");
    EXPECT_EQ(list().out, "Total Number: 0\r\n");
    const Call stopped = stop();
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.out, "") << "the flag was still set: the stop takes it down";
    EXPECT_EQ(gulCliRfidSearch, 0);
}

TEST_F(RfidTest, ALineWhoseSpeedWillNotSetIsLetGoByTheThread)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    clitest::faults().tcsetattr.arm(0, 1);
    const Call started = start();
    EXPECT_EQ(started.messages(), (Lines{"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                         "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed",
                                         "ERROR CLI_SearchRfidID: open com fail"}));
    EXPECT_EQ(started.of(sim::Kind::Close, kLink).size(), 1u) << "no descriptor kept by a search that ended";
    EXPECT_EQ(started.err, console("CLI_SetRsRate", "tcsetattr() fail exit") +
                               call_failed("CLI_ComOpen", "CLI_SetRsRate") +
                               console("CLI_SearchRfidID", "open com fail"));
    EXPECT_FALSE(line_held());
    EXPECT_EQ(gulCliRfidSearch, 1);
    EXPECT_EQ(stop().status, 0);
}

TEST_F(RfidTest, StraightOnTheLineTheSearchSendsNothing)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    const Call started = start(kSecond);
    EXPECT_TRUE(writes(started).empty());
    EXPECT_EQ(started.messages(), (Lines{search_line("001A2BFF")}));
    EXPECT_EQ(line_baud(), kReaderRate) << "the line at the reader's own speed";
    const Call stopped = stop();
    const Call ended = until_the_line_is_let_go();
    EXPECT_TRUE(writes(stopped).empty());
    EXPECT_TRUE(writes(ended).empty()) << "nor when it closes";
    EXPECT_EQ(written(), Bytes{});
}

TEST_F(RfidTest, TheRateSetForTheReaderIsTheLinesAtTheNextSearch)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}});
    const Call set = run([] { return CLI_SetRfidRate(19200); });
    EXPECT_EQ(set.status, 0);
    EXPECT_TRUE(set.messages().empty());
    EXPECT_EQ(set.out, "");
    EXPECT_TRUE(set.journal.empty());
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_RFID].ulRate, 19200u);
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_RFID].ulSupport, 1u) << "the reader's presence is not touched";
    // The next search opens the line at the new speed.
    const Call started = start(kSecond);
    EXPECT_EQ(line_baud(), 19200u);
    EXPECT_EQ(started.messages(), (Lines{search_line("001A2BFF")}));
    end_search();
}

TEST_F(RfidTest, AnyRateIsStoredEvenOneTheLineCannotRunAt)
{
    const Call set = run([] { return CLI_SetRfidRate(4800); });
    EXPECT_EQ(set.status, 0);
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_RFID].ulRate, 4800u);
}

TEST_F(RfidTest, AFrameOfAnotherKindIsNoTagAndTheSearchPausesAfterIt)
{
    hang_reader(
        {.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 300 * kMillisecond)},
         .frames = {{100 * kMillisecond, {0xFF, 0x0C, 0x00, 0x0A, 0x22, 0x01, 0xAA, 0xBB, 0xCC, 0xDD}}}});
    start();
    const Call searched = wait(kSecond);
    EXPECT_EQ(searched.messages(),
              (Lines{"ERROR CLI_RfidDataDeal: unknow or unsupport Cmd",
                     "ERROR CLI_SearchRfidID: Data deal fail", search_line("001A2BFF")}));
    EXPECT_EQ(searched.err, "") << "no console line for a frame that is no tag report";
    const std::vector<sim::Entry> pauses = searched.of(sim::Kind::Sleep);
    ASSERT_EQ(pauses.size(), 1u);
    EXPECT_EQ(pauses[0].values.at(0), 20 * kMillisecond);
    EXPECT_EQ(pauses[0].time, 100 * kMillisecond + 10 * kByteAt9600);
    EXPECT_EQ(list().out, list_out({"001A2BFF"}));
    end_search();
}

TEST_F(RfidTest, AFrameTooShortToBeATagReportIsNotDecoded)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 300 * kMillisecond)},
                 .frames = {{100 * kMillisecond, {0xFF, 0x0C, 0x00, 0x06, 0xF1, 0x01}}}});
    start();
    const Call searched = wait(kSecond);
    EXPECT_EQ(searched.messages(),
              (Lines{"ERROR CLI_SearchRfidID: frame len 6 too short",
                     "ERROR CLI_SearchRfidID: Data deal fail", search_line("001A2BFF")}));
    EXPECT_EQ(list().out, list_out({"001A2BFF"})) << "nothing of the short frame stored";
    end_search();
}

TEST_F(RfidTest, NoiseOnTheLineNeverBecomesATag)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond, 0)}},
                {.mode = sim::Misbehaviour::Mode::Garbage, .garbage_seed = 7});
    start();
    wait(5 * kSecond);
    const Call listed = list();
    // Seeded noise instead of the reports, the same bytes on every run: none of it is a report.
    EXPECT_EQ(listed.out, "Total Number: 0\r\n");
    end_search();
}

TEST_F(RfidTest, ASilentReaderMakesEachReceiveFailAfterItsTimeOut)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}},
                {.mode = sim::Misbehaviour::Mode::Silent});
    start();
    const Call searched = wait(4500 * kMillisecond);
    const Lines one = {"ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                       "ERROR CLI_SearchRfidID: recv com data fail"};
    Lines two = one;
    two.insert(two.end(), one.begin(), one.end());
    EXPECT_EQ(searched.messages(), two);
    EXPECT_EQ(searched.err, "") << "a receive that timed out has no console line";
    std::vector<sim::Nanos> times;
    for (const sim::Entry &entry : searched.of(sim::Kind::Print))
        times.push_back(entry.time);
    // The thread began its first receive at 0; each takes its 2 s time-out, then the 20 ms pause.
    EXPECT_EQ(times, (std::vector<sim::Nanos>{2 * kSecond, 2 * kSecond, 2 * kSecond, 4020 * kMillisecond,
                                              4020 * kMillisecond, 4020 * kMillisecond}));
    end_search();
}

TEST_F(RfidTest, ALineThatHangsUpKeepsTheSearchPacedUntilTheStop)
{
    hang_reader({.tags = {tag({0x00, 0x1A, 0x2B, 0xFF}, 100 * kMillisecond)}},
                {.hang_up_at = 500 * kMillisecond});
    start();
    const Call searched = wait(kSecond);
    // From the hang-up at 500 ms every receive fails at once; the search pauses 20 ms after each,
    // up to the end of the wait at 1.001 s: 26 failures.
    Lines expected = {search_line("001A2BFF")};
    for (int n = 0; n < 26; ++n)
        for (const char *line : {"ERROR CLI_Treadn: read data fail 0", "ERROR CLI_ComRecv: read data fail",
                                 "ERROR CLI_SearchRfidID: recv com data fail"})
            expected.push_back(line);
    EXPECT_EQ(searched.messages(), expected);
    const std::vector<sim::Entry> pauses = searched.of(sim::Kind::Sleep);
    ASSERT_EQ(pauses.size(), 26u);
    for (size_t n = 0; n < pauses.size(); ++n) {
        EXPECT_EQ(pauses[n].time, 500 * kMillisecond + static_cast<sim::Nanos>(n) * 20 * kMillisecond) << n;
        EXPECT_EQ(pauses[n].values.at(0), 20 * kMillisecond) << n;
    }
    end_search();
}

} // namespace

namespace
{

using namespace rfidtest;

// ---- The decoder on its own, through its exported name ----------------------------------------

// A table with guard bytes after it, and frames of exactly ten bytes: the decoder may neither
// write past the table nor read past the part of a frame it decodes.
struct GuardedTable {
    CliRfidTable table;
    uint8_t guard[64];
};

class RfidDataDeal : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        memset(&held_, 0, sizeof held_);
        memset(held_.guard, 0xEE, sizeof held_.guard);
    }

    bool guard_intact() const
    {
        for (const uint8_t byte : held_.guard)
            if (byte != 0xEE)
                return false;
        return true;
    }

    Call deal(std::array<uint8_t, 10> frame)
    {
        return run([this, frame] { return CLI_RfidDataDeal(frame.data(), &held_.table); });
    }

    static std::array<uint8_t, 10> report(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
    {
        return {0xFF, 0x0C, 0x00, 0x0A, 0xF1, 0x01, a, b, c, d};
    }

    GuardedTable held_;
};

TEST_F(RfidDataDeal, AHundredAndOneTagsFillTheTableAndNothingLandsPastIt)
{
    for (int n = 0; n < 100; ++n)
        ASSERT_EQ(deal(report(0x10, 0, 0, static_cast<uint8_t>(n))).status, 0) << n;
    const Call last = deal(report(0x10, 0, 0, 100));
    EXPECT_EQ(last.status, 0) << "a tag report, though not stored";
    EXPECT_EQ(last.messages(),
              (Lines{search_line("10000064"), " INFO CLI_RfidDataDeal: ID table full, 10000064 not stored"}));
    EXPECT_EQ(held_.table.ulCount, 100u);
    EXPECT_EQ(std::string(held_.table.aacId[99], 10), std::string("10000063\0\0", 10));
    EXPECT_TRUE(guard_intact());
}

TEST_F(RfidDataDeal, AFrameThatIsNoTagReportIsRefusedWithoutAConsoleLine)
{
    for (const std::array<uint8_t, 10> &frame :
         {std::array<uint8_t, 10>{0xFF, 0x0C, 0x00, 0x08, 0x10, 0x00, 0x75, 0x46, 0x00, 0x00},
          std::array<uint8_t, 10>{0xFE, 0x0C, 0x00, 0x0A, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF},
          std::array<uint8_t, 10>{0xFF, 0x0D, 0x00, 0x0A, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF}}) {
        const Call call = deal(frame);
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_RfidDataDeal: unknow or unsupport Cmd"}));
        EXPECT_EQ(call.err, "");
        EXPECT_EQ(call.out, "");
    }
    EXPECT_EQ(held_.table.ulCount, 0u);
}

TEST_F(RfidDataDeal, NoFrameOrNoTableIsRefused)
{
    const std::array<uint8_t, 10> frame = report(0, 0x1A, 0x2B, 0xFF);
    const Call no_frame = run([this] { return CLI_RfidDataDeal(nullptr, &held_.table); });
    EXPECT_EQ(no_frame.status, 1);
    EXPECT_EQ(no_frame.messages(), (Lines{"ERROR CLI_RfidDataDeal: null frame or table"}));
    const Call no_table = run([&frame] { return CLI_RfidDataDeal(frame.data(), nullptr); });
    EXPECT_EQ(no_table.status, 1);
}

TEST_F(RfidDataDeal, AKnownTagIsLoggedEveryTimeAndStoredOnce)
{
    for (int n = 0; n < 3; ++n) {
        const Call call = deal(report(0xDE, 0xAD, 0xBE, 0xEF));
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.messages(), (Lines{search_line("DEADBEEF")}));
        EXPECT_EQ(call.out, "");
    }
    EXPECT_EQ(held_.table.ulCount, 1u);
}

} // namespace
