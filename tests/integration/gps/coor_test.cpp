// CLI_GetGpsCoor through libclidriver.so with a GPS receiver straight on the peripheral link:
// which sentence gives the position (RMC before GGA before GLL, the mode's talker, any talker in
// mode 2, nothing in the last 128 bytes of a block), what the operator sees for each, the six
// tries and the simulated time they cost, and every failure: a silent receiver, a receiver at
// another rate, noise, a cold start, a mode above 2, a link that will not open or reopen.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "fault_injection.h"
#include "gps_fixture.h"
#include "nmea_sentence.h"

namespace
{

using namespace gpstest;

// Sentences from real logs (mt3339, nd-1005, bu353-glonass, humminbird-M37) and hand-made BeiDou
// ones, which no real log has.
const std::string kRmc = "$GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73";
const std::string kRmcShown = "Longitude:W 121.188515\nLatitude:N 44.041306";
const std::string kGga = "$GPGGA,110518.000,5709.8067,N,00207.2822,W,1,08,1.0,59.3,M,48.2,M,,0000*77";
const std::string kGgaShown = "Longitude:W 002.072822\nLatitude:N 57.098067";
const std::string kGll = "$GPGLL,5709.8067,N,00207.2822,W,110518.000,A,A*4A";
const std::string kRmcNoFix = "$GPRMC,,V,,,,,,,,,,N*53";
const std::string kGnRmc = "$GNRMC,081411.000,A,5541.1955,N,03737.2872,E,0.60,301.29,260514,,,A*74";
const std::string kGnRmcShown = "Longitude:E 037.372872\nLatitude:N 55.411955";
const std::string kInRmc = "$INRMC,194101,A,4426.1130,N,07140.5596,W,5.2,77.3,160906,15.8,W*60";
const std::string kInRmcShown = "Longitude:W 071.405596\nLatitude:N 44.261130";
const std::string kBdRmc =
    clitest::with_nmea_checksum("$BDRMC,092204.000,A,3150.7816,N,11711.9323,E,0.00,0.00,220304,,,A");
const std::string kBdRmcShown = "Longitude:E 117.119323\nLatitude:N 31.507816";
const std::string kBdGga =
    clitest::with_nmea_checksum("$BDGGA,092204.000,3150.7816,N,11711.9323,E,1,07,1.2,20.0,M,0.0,M,,");
const std::string kGsv = "$GPGSV,3,1,12,09,88,089,31,07,60,281,44,23,55,123,33,10,44,274,32*78";

struct CoorRow {
    const char *name;
    uint32_t mode;
    std::vector<std::string> blocks; // the receiver's designed blocks, in turn
    int tries;                       // blocks the command reads (6 and no position: it gives up)
    long long status;
    Lines result; // the lines after the last block's (or after the last "Left" and "Cmd")
    std::string out;
    std::string err;
};

// Rows show by name in test listings.
void PrintTo(const CoorRow &row, std::ostream *out)
{
    *out << row.name;
}

const std::string kIllegalErr = console("CLI_GetGpsCoor", "Data info Analyse failed");
const Lines kIllegal = {" INFO CLI_InfoAnalyse: Coordinate Info illegal",
                        "ERROR CLI_GetGpsCoor: Data info Analyse failed"};
const Lines kGiveUp = {"ERROR CLI_GetGpsCoor: Get Coordinate failed,please check rate"};

CoorRow found(const char *name, uint32_t mode, std::vector<std::string> blocks, int tries,
              const std::string &shown)
{
    return {name, mode, std::move(blocks), tries, 0, {" INFO CLI_InfoAnalyse: " + shown}, shown + "\r\n", ""};
}

CoorRow illegal(const char *name, uint32_t mode, std::vector<std::string> blocks)
{
    return {name, mode, std::move(blocks), 1, 1, kIllegal, "Coordinate Info illegal\r\n", kIllegalErr};
}

CoorRow gives_up(const char *name, uint32_t mode, std::vector<std::string> blocks)
{
    return {name,
            mode,
            std::move(blocks),
            6,
            1,
            kGiveUp,
            "",
            console("CLI_GetGpsCoor", "Get Coordinate failed,please check rate")};
}

const CoorRow kCoorRows[] = {
    // GGA and GLL come first in the block, yet RMC is taken.
    found("RmcBeforeGgaAndGll", 0, {designed_block({kGga, kGll, kRmc})}, 1, kRmcShown),
    found("GgaWithoutRmc", 0, {designed_block({kGll, kGga})}, 1, kGgaShown),
    // GLL has seven fields: fields 8 and 9 are empty whatever the fix.
    illegal("GllIsAlwaysIllegal", 0, {designed_block({kGll})}),
    // The RMC is taken because it comes first in the order, and it has no fix.
    illegal("RmcWithoutAFixDespiteAGoodGga", 0, {designed_block({kGga, kRmcNoFix})}),
    {"LatitudeWithItsPointAtTwo",
     0,
     {designed_block({"$GPRMC,202640.000,A,12.5,N,12118.8515,W,0.03,225.97,130415,,,D*00"})},
     1,
     0,
     {" INFO CLI_StringConvert: error date 12.5",
      " INFO CLI_InfoAnalyse: Longitude:W 121.188515\nLatitude:N "},
     "Longitude:W 121.188515\nLatitude:N \r\n",
     ""},
    // The mode's talker: BeiDou sentences in mode 1, GPS ones in mode 0, whichever comes first.
    found("BeidouOnlyTakesTheBeidouRmc", 1, {designed_block({kRmc, kBdGga, kBdRmc})}, 1, kBdRmcShown),
    found("GpsOnlyPassesOverBeidou", 0, {designed_block({kBdRmc, kRmc})}, 1, kRmcShown),
    gives_up("BeidouOnlyFindsNoGpsSentence", 1, {designed_block({kRmc, kGga, kGll})}),
    // Mode 2: any talker, the first RMC in the block.
    found("AnyTalkerGn", 2, {designed_block({kBdGga, kGnRmc, kRmc})}, 1, kGnRmcShown),
    found("AnyTalkerGp", 2, {designed_block({kRmc, kGnRmc})}, 1, kRmcShown),
    found("AnyTalkerEvenAnInstrumentsOwn", 2, {designed_block({kInRmc, kRmc})}, 1, kInRmcShown),
    // An RMC starting within the last 128 bytes of the block does not count; the next try reads
    // another block. The position query reads pieces 4 and 8: blocks 0 and 1 of three.
    found("RmcInTheLast128BytesWaitsForTheNextBlock", 0,
          {designed_block({kRmc}, kBlock, true), designed_block({kGnRmc, kRmc}), designed_block({})}, 2,
          kRmcShown),
    // Each sentence type has its own first match: a late RMC does not hide an early GGA.
    found("LateRmcEarlyGga", 0, {designed_block({kGga}).replace(kBlock - 72, 72, kRmc + "\r\n")}, 1,
          kGgaShown),
    gives_up("NoPositionSentenceSixTries", 0, {designed_block({kGsv})}),
};

class GetGpsCoor : public GpsTest, public ::testing::WithParamInterface<CoorRow>
{
};

TEST_P(GetGpsCoor, ReadsBlocksUntilAPositionSentenceAndShowsIt)
{
    const CoorRow &row = GetParam();
    hang_receiver(designed_receiver(row.blocks));
    rs_init();
    const Call call = run([&] { return CLI_GetGpsCoor(row.mode); });

    Lines expected = {cmd_line(row.mode)};
    for (int k = 0; k < row.tries; ++k) {
        expected.push_back(
            " INFO CLI_GetGpsCoor: " +
            c_text(row.blocks[static_cast<size_t>(kPositionBlock[k] - 1) % row.blocks.size()]));
        if (k + 1 < row.tries || row.result == kGiveUp) {
            expected.push_back(" INFO CLI_GetGpsCoor: Left " + std::to_string(5 - k) + " chance to try");
            expected.push_back(cmd_line(row.mode));
        }
    }
    expected.insert(expected.end(), row.result.begin(), row.result.end());
    EXPECT_EQ(call.messages(), expected);
    EXPECT_EQ(call.status, row.status);
    EXPECT_EQ(call.out, row.out);
    EXPECT_EQ(call.err, row.err);

    const bool gave_up = row.result == kGiveUp;
    EXPECT_EQ(call.waited, kPositionEnd[row.tries - 1] + (gave_up ? kAfterMiss : 0));
    const size_t settings = 1 + static_cast<size_t>(gave_up ? row.tries : row.tries - 1);
    std::vector<Bytes> expected_writes;
    for (size_t i = 0; i < settings; ++i) {
        expected_writes.push_back(bytes_of("$PMTK000*32\r\n"));
        expected_writes.push_back(bytes_of(mode_command(row.mode)));
    }
    EXPECT_EQ(writes(call), expected_writes);
    EXPECT_EQ(call.of(sim::Kind::Open, kLink).size(), settings + 1);
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), settings + 1) << "the link is closed at the end";
}

INSTANTIATE_TEST_SUITE_P(Table, GetGpsCoor, ::testing::ValuesIn(kCoorRows),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- Time and the receiver's own pace ---------------------------------------------------------

TEST_F(GpsTest, SixTriesCostHalfAMinuteOfSimulatedTime)
{
    // A real receiver's pace: 16 bytes at a time, 16 x 1,041,666 ns = 16,666,656 ns a piece, and
    // a read of 1024 bytes takes 64 pieces. The first try flushes at 4 s (240.0003 pieces), reads
    // pieces 241 to 304 and ends at 304 pieces; each miss sleeps 4 s more, so every try ends 304
    // pieces after the one before: the sixth at 1824 pieces, and the command gives up 4 s later.
    hang_receiver({.sentences = {kGsv, "$GPZDA,202640.000,13,04,2015,,*54"}});
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.waited, 6 * 304 * (16 * kByteAt9600) + 4 * kSecond);
    EXPECT_GT(call.waited, 34 * kSecond);
    EXPECT_LT(call.waited, 35 * kSecond);
    std::vector<sim::Nanos> expected_sleeps = {2 * kSecond, kSecond, kSecond};
    for (int k = 0; k < 6; ++k)
        expected_sleeps.insert(expected_sleeps.end(), {kSecond, kSecond, 2 * kSecond});
    EXPECT_EQ(sleeps(call), expected_sleeps);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 20u);
    for (int k = 0; k < 6; ++k)
        EXPECT_EQ(messages[2 + 3 * static_cast<size_t>(k)],
                  " INFO CLI_GetGpsCoor: Left " + std::to_string(5 - k) + " chance to try");
    const std::vector<std::string> blocks = blocks_on_the_line(call, true, 6);
    ASSERT_EQ(blocks.size(), 6u);
    for (size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(blocks[k].size(), kBlock);
        EXPECT_EQ(messages[1 + 3 * k], " INFO CLI_GetGpsCoor: " + blocks[k]) << "try " << k + 1;
    }
    EXPECT_EQ(messages.back(), kGiveUp.back());
    EXPECT_EQ(call.status, 1);
}

TEST_F(GpsTest, EachTryReadsWhatTheReceiverSentAfterTheFlush)
{
    hang_receiver({.sentences = {kGsv, kGga, "$GPZDA,202640.000,13,04,2015,,*54"}});
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    const std::vector<std::string> blocks = blocks_on_the_line(call, true, 1);
    ASSERT_EQ(blocks.size(), 1u);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[1], " INFO CLI_GetGpsCoor: " + blocks[0]);
    EXPECT_EQ(receiver()->acknowledged(), (Lines{"$PMTK001,0,3*30", "$PMTK001,353,3*35"}));
    EXPECT_EQ(blocks[0].find("PMTK001"), std::string::npos)
        << "the receiver's answers came within a second of the questions and went with the flush";
    EXPECT_EQ(messages[2], " INFO CLI_InfoAnalyse: " + kGgaShown);
    EXPECT_EQ(call.waited, 304 * (16 * kByteAt9600)) << "pieces of 16 bytes: the read ends at piece 304";
}

// ---- Receivers that do not help ---------------------------------------------------------------

TEST_F(GpsTest, ASilentReceiverFailsTheFirstReadAtOnce)
{
    hang_receiver({.sentences = {kRmc}}, {.mode = sim::Misbehaviour::Mode::Silent});
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (Lines{cmd_line(0), "ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                     "ERROR CLI_GetGpsCoor: read date fail"}));
    EXPECT_EQ(call.err, console("CLI_GetGpsCoor", "read date fail"));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.waited, kBeforeFirstTry + 5 * kSecond) << "one wait of 5 s, no further tries";
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 2u) << "the link is closed";
    EXPECT_EQ(receiver()->heard(), (Lines{"$PMTK000*32", "$PMTK353,1,0,0,0,0*2A"}));
}

TEST_F(GpsTest, AReceiverAtAnotherRateGivesNoiseAndTheTriesRunOut)
{
    hang_receiver(designed_receiver({designed_block({kRmc})}));
    rs_init();
    ASSERT_EQ(CLI_SetGpsRate(19200), 0u);
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(line()->baud(), 19200u);
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 20u);
    const std::vector<std::string> blocks = blocks_on_the_line(call, true, 6);
    ASSERT_EQ(blocks.size(), 6u);
    for (size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(messages[1 + 3 * k], " INFO CLI_GetGpsCoor: " + blocks[k]);
        for (const char c : blocks[k])
            ASSERT_GE(static_cast<unsigned char>(c), 0x80u) << "8-bit noise, try " << k + 1;
    }
    EXPECT_EQ(messages.back(), kGiveUp.back());
    EXPECT_EQ(call.err, console("CLI_GetGpsCoor", "Get Coordinate failed,please check rate"));
    EXPECT_EQ(call.waited, kPositionEnd[5] + kAfterMiss);
}

TEST_F(GpsTest, NoiseOnTheLineIsReportedAsFarAsItReadsAsText)
{
    hang_receiver({}, {.mode = sim::Misbehaviour::Mode::Garbage, .garbage_seed = 11});
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(2); });
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 20u);
    const std::vector<std::string> blocks = blocks_on_the_line(call, true, 6);
    ASSERT_EQ(blocks.size(), 6u);
    for (size_t k = 0; k < 6; ++k)
        EXPECT_EQ(messages[1 + 3 * k], " INFO CLI_GetGpsCoor: " + c_text(blocks[k])) << "up to a zero byte";
    EXPECT_EQ(messages.back(), kGiveUp.back());
}

TEST_F(GpsTest, AColdReceiverIsWaitedForByTheTries)
{
    // Until 10 s after boot it reports satellites in view but no position; it starts between the
    // second try (8.5 s) and the third (12.8 s).
    sim::GpsSetup setup = designed_receiver({designed_block({kRmc})});
    setup.cold_sentences = as_sentences(designed_block({kGsv}));
    setup.cold_start = 10 * kSecond;
    hang_receiver(setup);
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.messages(), (Lines{cmd_line(0), " INFO CLI_GetGpsCoor: " + designed_block({kGsv}),
                                      " INFO CLI_GetGpsCoor: Left 5 chance to try", cmd_line(0),
                                      " INFO CLI_GetGpsCoor: " + designed_block({kGsv}),
                                      " INFO CLI_GetGpsCoor: Left 4 chance to try", cmd_line(0),
                                      " INFO CLI_GetGpsCoor: " + designed_block({kRmc}),
                                      " INFO CLI_InfoAnalyse: " + kRmcShown}));
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, kRmcShown + "\r\n");
    EXPECT_EQ(call.waited, kPositionEnd[2]);
}

TEST_F(GpsTest, AColdSilentReceiverFailsTheFirstRead)
{
    hang_receiver({.sentences = {kRmc}, .cold_start = 20 * kSecond});
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages().back(), "ERROR CLI_GetGpsCoor: read date fail");
    EXPECT_EQ(call.waited, kBeforeFirstTry + 5 * kSecond);
}

// ---- Refusals and links that will not open ---------------------------------------------------

TEST_F(GpsTest, AModeAbove2TouchesNothing)
{
    hang_receiver({.sentences = {kRmc}});
    rs_init();
    for (uint32_t mode : {3u, 0xFFFFFFFFu}) {
        const Call call = run([&] { return CLI_GetGpsCoor(mode); });
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), Lines{"ERROR CLI_GetGpsCoor: portnum only support (0|1|2)"});
        EXPECT_EQ(call.err, console("CLI_GetGpsCoor", "portnum only support (0|1|2)"));
        EXPECT_EQ(call.out, "");
        EXPECT_TRUE(call.journal.size() == 1 && call.journal[0].kind == sim::Kind::Print) << "only its line";
        EXPECT_EQ(call.waited, 0);
    }
}

TEST_F(GpsTest, WithoutTheLinkTableTheLinkDoesNotOpen)
{
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (Lines{"ERROR CLI_ComOpen: unsupport Type 2", "ERROR CLI_GetGpsCoor: open com fail"}));
    EXPECT_EQ(call.err,
              console("CLI_ComOpen", "unsupport Type 2") + console("CLI_GetGpsCoor", "open com fail"));
    EXPECT_TRUE(call.of(sim::Kind::Open).empty());
}

TEST_F(GpsTest, ALineThatWillNotOpen)
{
    scenario().ports[kLink].present = false;
    restart();
    rs_init();
    const Call call = run([] { return CLI_GetGpsCoor(1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_ComOpen: Open file /dev/ttyC0 error",
                                      "ERROR CLI_GetGpsCoor: open com fail"}));
    EXPECT_EQ(call.err, console("CLI_ComOpen", "Open file /dev/ttyC0 error") +
                            console("CLI_GetGpsCoor", "open com fail"));
    EXPECT_EQ(call.waited, 0);
}

// Every open of the link sets its rate; failing the n-th one fails the command there. Opens: the
// first (point 1), the reopen before the tries (2), the reopen after each of six misses (3..8).
class GpsLinkFailsAtOpen : public GpsTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(GpsLinkFailsAtOpen, ReportsOpenComFailAndKeepsOnlyTheDescriptorTheLinkLeft)
{
    const int point = GetParam();
    hang_receiver(designed_receiver({designed_block({kGsv})}));
    rs_init();
    clitest::faults().tcgetattr.arm(point - 1, 1);
    allow_left_open(point == 1 ? clitest::LeftOpen::PeripheralLinkAfterRate
                               : clitest::LeftOpen::GpsLinkAfterReopen);
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(Lines(messages.end() - 3, messages.end()),
              (Lines{"ERROR CLI_SetRsRate: tcgetattr() fail exit",
                     "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed",
                     "ERROR CLI_GetGpsCoor: open com fail"}));
    const size_t misses = point <= 2 ? 0 : static_cast<size_t>(point - 2);
    EXPECT_EQ(messages.size(), 3 + (point >= 3 ? 1 : 0) + 3 * misses);
    EXPECT_EQ(call.err, console("CLI_SetRsRate", "tcgetattr() fail exit") +
                            "tcgetattr:: Input/output error\n" +
                            "[src/cli_libfun.cpp CLI_ComOpen]: CLI_SetRsRate call failed\r\n" +
                            console("CLI_GetGpsCoor", "open com fail"));
    const sim::Nanos expected = point == 1   ? 0
                                : point == 2 ? 2 * kSecond
                                             : kPositionEnd[misses - 1] + kAfterMiss;
    EXPECT_EQ(call.waited, expected);
    EXPECT_EQ(call.of(sim::Kind::Open, kLink).size(), static_cast<size_t>(point));
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), static_cast<size_t>(point - 1))
        << "every descriptor but the last is closed";
}

INSTANTIATE_TEST_SUITE_P(Points, GpsLinkFailsAtOpen, ::testing::Range(1, 9));

} // namespace
