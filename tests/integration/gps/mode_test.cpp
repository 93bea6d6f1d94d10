// CLI_SetGpsMode and CLI_SetGpsRate through libclidriver.so on the simulated camera: the MediaTek
// sentences on the wire for every mode, straight and behind the hub, the second of sleep after
// each, what the receiver makes of them, the refusal of a mode above 2, and the rate the next open
// of the GPS link takes.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "gps_fixture.h"

namespace
{

using namespace gpstest;

struct ModeRow {
    const char *name;
    uint32_t mode;
    const char *talker; // what the receiver calls its sentences afterwards
};

// Rows show by name in test listings.
void PrintTo(const ModeRow &row, std::ostream *out)
{
    *out << row.name;
}

class SetGpsMode : public GpsTest, public ::testing::WithParamInterface<ModeRow>
{
};

TEST_P(SetGpsMode, SendsTheTestSentenceThenTheModeEachFollowedByASecond)
{
    const ModeRow &row = GetParam();
    hang_receiver({.sentences = {"$GPGSV,1,1,00*79"}});
    rs_init();
    int fd = -1;
    ASSERT_EQ(CLI_ComOpen(COM_TYPE_GPS, &fd), 0u);
    const Call call = run([&] { return CLI_SetGpsMode(fd, row.mode); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines{cmd_line(row.mode)});
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call),
              (std::vector<Bytes>{bytes_of("$PMTK000*32\r\n"), bytes_of(mode_command(row.mode))}));
    const auto written = call.of(sim::Kind::SerialWrite, kLink);
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[1].time - written[0].time, kSecond) << "the mode a second after the test sentence";
    EXPECT_EQ(sleeps(call), (std::vector<sim::Nanos>{kSecond, kSecond}));
    EXPECT_EQ(call.waited, 2 * kSecond);
    EXPECT_EQ(receiver()->heard(), (Lines{"$PMTK000*32", std::string(mode_command(row.mode)).substr(0, 21)}));
    EXPECT_EQ(receiver()->acknowledged(), (Lines{"$PMTK001,0,3*30", "$PMTK001,353,3*35"}))
        << "a MediaTek receiver takes both, one-digit checksums or not";
    EXPECT_EQ(receiver()->talker(), row.talker);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

INSTANTIATE_TEST_SUITE_P(Modes, SetGpsMode,
                         ::testing::Values(ModeRow{"GpsOnly", 0, "GP"}, ModeRow{"BeidouOnly", 1, "BD"},
                                           ModeRow{"GpsAndBeidou", 2, "GN"}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(GpsTest, BehindTheHubTheSentencesGoToTheReceiversPort)
{
    hang_hub_with_receiver({});
    rs_init();
    declare_hub(115200);
    int fd = -1;
    ASSERT_EQ(CLI_ComOpen(COM_TYPE_GPS, &fd), 0u);
    const Call call = run([&] { return CLI_SetGpsMode(fd, 2); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines{cmd_line(2)});
    EXPECT_EQ(writes(call),
              (std::vector<Bytes>{hub_frame(kHubPortGps, kHubPass, bytes_of("$PMTK000*32\r\n")),
                                  hub_frame(kHubPortGps, kHubPass, bytes_of(mode_command(2)))}));
    EXPECT_EQ(call.waited, 2 * kSecond);
    EXPECT_EQ(receiver()->talker(), "GN");
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

class SetGpsModeRefused : public GpsTest, public ::testing::WithParamInterface<uint32_t>
{
};

TEST_P(SetGpsModeRefused, AModeAbove2SendsNothingAndReturnsTheConsoleLinesLength)
{
    hang_receiver({});
    rs_init();
    int fd = -1;
    ASSERT_EQ(CLI_ComOpen(COM_TYPE_GPS, &fd), 0u);
    const Call call = run([&] { return CLI_SetGpsMode(fd, GetParam()); });
    const std::string line = console("CLI_SetGpsMode", "ulPortNum Invalid");
    EXPECT_EQ(call.err, line);
    EXPECT_EQ(call.status, static_cast<long long>(line.size())) << "64 characters";
    EXPECT_EQ(call.status, 64);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_SetGpsMode: ulPortNum Invalid"});
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(writes(call).empty());
    EXPECT_TRUE(sleeps(call).empty());
    EXPECT_EQ(call.waited, 0);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

INSTANTIATE_TEST_SUITE_P(Modes, SetGpsModeRefused, ::testing::Values(3u, 4u, 0xFFFFFFFFu));

// ---- CLI_SetGpsRate -----------------------------------------------------------------------------

TEST_F(GpsTest, SetGpsRateStoresTheRateSilently)
{
    rs_init();
    for (uint32_t rate : {19200u, 4800u, 0u, 0xFFFFFFFFu}) {
        const Call call = run([&] { return CLI_SetGpsRate(rate); });
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.messages().empty());
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(call.err, "");
        EXPECT_TRUE(call.journal.empty()) << "nothing reaches the camera";
        EXPECT_EQ(gastComCap.astDev[COM_TYPE_GPS].ulRate, rate);
        EXPECT_EQ(gastComCap.astDev[COM_TYPE_GPS].ulSupport, 1u) << "presence is not touched";
    }
}

struct RateRow {
    const char *name;
    uint32_t rate;
    unsigned line; // what the line runs at afterwards
};

// Rows show by name in test listings.
void PrintTo(const RateRow &row, std::ostream *out)
{
    *out << row.name;
}

class SetGpsRateOpen : public GpsTest, public ::testing::WithParamInterface<RateRow>
{
};

TEST_P(SetGpsRateOpen, TheNextOpenOfTheLinkTakesIt)
{
    hang_receiver({});
    rs_init();
    ASSERT_EQ(CLI_SetGpsRate(GetParam().rate), 0u);
    int fd = -1;
    ASSERT_EQ(CLI_ComOpen(COM_TYPE_GPS, &fd), 0u);
    EXPECT_EQ(line()->baud(), GetParam().line);
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

INSTANTIATE_TEST_SUITE_P(Rates, SetGpsRateOpen,
                         ::testing::Values(RateRow{"Fast", 115200, 115200}, RateRow{"Medium", 38400, 38400},
                                           RateRow{"Slow", 4800, 9600}, RateRow{"Default", 9600, 9600}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(GpsTest, BehindTheHubTheRateIsWhatTheHubIsTold)
{
    hang_hub_with_receiver({});
    rs_init();
    declare_hub(115200);
    ASSERT_EQ(CLI_SetGpsRate(19200), 0u);
    int fd = -1;
    const Call call = run([&] { return CLI_ComOpen(COM_TYPE_GPS, &fd); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call),
              (std::vector<Bytes>{hub_frame(kHubPortGps, kHubOpen),
                                  hub_frame(kHubPortGps, kHubSetRate, clitest::big_endian_rate(19200))}));
    EXPECT_EQ(line()->baud(), 115200u) << "the line runs at the hub's rate";
    CLI_ComClose(COM_TYPE_GPS, &fd);
}

} // namespace
