// CLI_GetGpsSatellite through libclidriver.so with a GPS receiver straight on the peripheral link:
// satellites in use from GGA field 7 before satellites in view from GSV field 3, the mode's
// talker, blocks read without a flush (what the receiver sent while its mode was set comes
// first, its answers included), the six tries, and the failures it shares with the position.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "gps_fixture.h"
#include "nmea_sentence.h"

namespace
{

using namespace gpstest;

// From real logs (nd-1005, mt3339, neo-m8n, ublox-lea-5q, skytraq-fixB) and one hand-made.
const std::string kGga = "$GPGGA,110518.000,5709.8067,N,00207.2822,W,1,08,1.0,59.3,M,48.2,M,,0000*77";
const std::string kGgaNoFix = "$GPGGA,,,,,,0,00,99.99,,,,,,*48";
const std::string kGsv = "$GPGSV,3,1,12,09,88,089,31,07,60,281,44,23,55,123,33,10,44,274,32*78";
const std::string kGlGsv = "$GLGSV,3,1,10,66,37,078,27,67,62,349,26,68,20,296,25,75,04,018,*6E";
const std::string kBdGsv = "$BDGSV,1,1,02,214,55,153,40,208,01,299,*67";
const std::string kBdGga =
    clitest::with_nmea_checksum("$BDGGA,092204.000,3150.7816,N,11711.9323,E,1,05,1.2,20.0,M,0.0,M,,");
const std::string kGsvNone = "$GPGSV,1,1,00*79";

struct SatRow {
    const char *name;
    uint32_t mode;
    std::vector<std::string> blocks;
    int tries;
    std::string shown; // the result line; empty: the tries run out
};

// Rows show by name in test listings.
void PrintTo(const SatRow &row, std::ostream *out)
{
    *out << row.name;
}

const SatRow kSatRows[] = {
    {"GgaBeforeGsv", 0, {designed_block({kGsv, kGga})}, 1, "Location Satellite Num:8"},
    {"GsvWithoutGga", 0, {designed_block({kGsv})}, 1, "Satellite Num:12"},
    {"GgaWithoutAFixCountsItsField", 0, {designed_block({kGgaNoFix, kGsv})}, 1, "Location Satellite Num:0"},
    {"EmptyCountIsZero", 0, {designed_block({"$GPGGA,,,,,,0,,,,,,,,*66"})}, 1, "Location Satellite Num:0"},
    {"NoSatellitesInView", 0, {designed_block({kGsvNone})}, 1, "Satellite Num:0"},
    {"BeidouOnly", 1, {designed_block({kGsv, kGga, kBdGsv})}, 1, "Satellite Num:2"},
    {"BeidouOnlyGga", 1, {designed_block({kGga, kBdGsv, kBdGga})}, 1, "Location Satellite Num:5"},
    {"AnyTalkerFirstGsv", 2, {designed_block({kGlGsv, kGsv})}, 1, "Satellite Num:10"},
    {"AnyTalkerGgaFirst", 2, {designed_block({kGlGsv, kGga})}, 1, "Location Satellite Num:8"},
    // A GGA starting within the last 128 bytes does not count, an early GSV does.
    {"LateGgaEarlyGsv",
     0,
     {designed_block({kGsv}).replace(kBlock - kGga.size() - 2, kGga.size() + 2, kGga + "\r\n")},
     1,
     "Satellite Num:12"},
    // Without a flush the satellite query reads pieces 2, 8, 12: blocks 1, 1, 2 of three.
    {"LateGgaOnlyWaitsForAnotherBlock",
     0,
     {designed_block({kGsv}), designed_block({kGga}, kBlock, true), designed_block({kGga})},
     3,
     "Location Satellite Num:8"},
    {"BeidouOnlyFindsNothingOfGps", 1, {designed_block({kGga, kGsv})}, 6, ""},
};

class GetGpsSatellite : public GpsTest, public ::testing::WithParamInterface<SatRow>
{
};

TEST_P(GetGpsSatellite, CountsTheSatellitesOfTheFirstSentenceThatCounts)
{
    const SatRow &row = GetParam();
    hang_receiver(designed_receiver(row.blocks));
    rs_init();
    const Call call = run([&] { return CLI_GetGpsSatellite(row.mode); });

    const bool gave_up = row.shown.empty();
    Lines expected = {cmd_line(row.mode)};
    for (int k = 0; k < row.tries; ++k) {
        const std::string block =
            c_text(row.blocks[static_cast<size_t>(kSatelliteBlock[k] - 1) % row.blocks.size()]);
        expected.push_back(" INFO CLI_GetGpsSatellite: " + std::to_string(block.size()) + "," + block);
        if (k + 1 < row.tries || gave_up) {
            expected.push_back(" INFO CLI_GetGpsSatellite: Left " + std::to_string(5 - k) + " chance to try");
            expected.push_back(cmd_line(row.mode));
        }
    }
    if (gave_up)
        expected.push_back("ERROR CLI_GetGpsSatellite: Get Coordinate failed,please check rate");
    else
        expected.push_back(" INFO CLI_GetGpsSatellite: " + row.shown);
    EXPECT_EQ(call.messages(), expected);
    EXPECT_EQ(call.status, gave_up ? 1 : 0);
    EXPECT_EQ(call.out, gave_up ? "" : row.shown + "\r\n");
    EXPECT_EQ(call.err,
              gave_up ? console("CLI_GetGpsSatellite", "Get Coordinate failed,please check rate") : "");
    EXPECT_EQ(call.waited, kSatelliteEnd[row.tries - 1] + (gave_up ? kAfterMiss : 0));
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), call.of(sim::Kind::Open, kLink).size());
}

INSTANTIATE_TEST_SUITE_P(Table, GetGpsSatellite, ::testing::ValuesIn(kSatRows),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(GpsTest, WithoutAFlushTheFirstBlockHoldsWhatCameWhileTheModeWasSet)
{
    hang_receiver({.sentences = {kGsv, kGga, "$GPZDA,202640.000,13,04,2015,,*54"}});
    rs_init();
    const Call call = run([] { return CLI_GetGpsSatellite(0); });
    const std::vector<std::string> blocks = blocks_on_the_line(call, false, 1);
    ASSERT_EQ(blocks.size(), 1u);
    ASSERT_EQ(blocks[0].size(), kBlock);
    EXPECT_EQ(call.messages(), (Lines{cmd_line(0), " INFO CLI_GetGpsSatellite: 1024," + blocks[0],
                                      " INFO CLI_GetGpsSatellite: Location Satellite Num:8"}));
    EXPECT_NE(blocks[0].find("\r\n$PMTK001,0,3*30\r\n"), std::string::npos)
        << "the answer to the test sentence, among the sentences, passed over";
    EXPECT_EQ(call.waited, kBeforeFirstTry) << "the block was waiting in the line";
    EXPECT_EQ(call.out, "Location Satellite Num:8\r\n");
}

TEST_F(GpsTest, ASilentReceiverFailsTheSatelliteQueryAtOnce)
{
    hang_receiver({}, {.mode = sim::Misbehaviour::Mode::Silent});
    rs_init();
    const Call call = run([] { return CLI_GetGpsSatellite(2); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (Lines{cmd_line(2), "ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                     "ERROR CLI_GetGpsSatellite: read date fail"}));
    EXPECT_EQ(call.err, console("CLI_GetGpsSatellite", "read date fail"));
    EXPECT_EQ(call.waited, kBeforeFirstTry + 5 * kSecond);
}

TEST_F(GpsTest, TheSatelliteQueryRefusesAModeAbove2)
{
    rs_init();
    const Call call = run([] { return CLI_GetGpsSatellite(3); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_GetGpsSatellite: portnum only support (0|1|2)"});
    EXPECT_EQ(call.err, console("CLI_GetGpsSatellite", "portnum only support (0|1|2)"));
    EXPECT_TRUE(call.of(sim::Kind::Open).empty());
}

TEST_F(GpsTest, TheSatelliteQueryReportsALinkThatWillNotOpen)
{
    const Call call = run([] { return CLI_GetGpsSatellite(0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (Lines{"ERROR CLI_ComOpen: unsupport Type 2", "ERROR CLI_GetGpsSatellite: open com fail"}));
}

} // namespace
