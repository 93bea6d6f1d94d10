// The sensor queries through libclidriver.so, after joins on the simulated camera that leave the
// sensor record in each state worth showing: before any join, nothing decoded, readings at the
// edges of their display, a version alone. Each row joins with four reports (so that the join ends
// at once) and then asks.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "zigbee_fixture.h"

namespace
{

using namespace zbtest;
using sim::ZigbeeReport;

const std::string kInfo = " INFO CLI_GetZigbeeSensorInfo: ";
const std::string kVersion = " INFO CLI_GetZigbeeVersion: ";

class Queries : public ZigbeeTest
{
  protected:
    // A join in which the sensor sends `reports` one second apart.
    void join_with(const std::vector<ZigbeeReport> &reports)
    {
        sim::ZigbeeSetup setup;
        sim::Nanos at = kSecond;
        for (ZigbeeReport report : reports) {
            report.at = at;
            at += kSecond;
            setup.reports.push_back(report);
        }
        hang_coordinator(setup);
        (void)run([] { return CLI_NetAccess(0); });
    }
};

TEST_F(Queries, BeforeAnyJoinAnEmptyRecordIsABadModule)
{
    const Call info = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(info.status, 1);
    EXPECT_EQ(info.messages(), Lines{kInfo + "Bad ZigBee modules"});
    EXPECT_EQ(info.out, "Bad ZigBee modules\r\n");
    EXPECT_EQ(info.err, "");
    EXPECT_TRUE(info.journal.size() == info.printed.size()) << "a query touches nothing but the record";
    const Call version = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(version.status, 1);
    EXPECT_EQ(version.messages(), Lines{kVersion + "Init State or Bad ZigBee"});
    EXPECT_EQ(version.out, "Init State or Bad ZigBee\r\n");
    EXPECT_EQ(version.err, "");
}

TEST_F(Queries, AfterAJoinInWhichNothingDecodedTheStateIsStillInitial)
{
    join_with({});
    const Call info = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(info.status, 1);
    EXPECT_EQ(info.messages(), Lines{kInfo + "Init State or Bad ZigBee"});
    EXPECT_EQ(info.out, "Init State or Bad ZigBee\r\n");
}

TEST_F(Queries, AfterAVersionAloneTheModuleIsBadButItsVersionIsShown)
{
    join_with({ZigbeeReport::version(0, "ZB-2.1.7")});
    const Call info = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(info.status, 1);
    EXPECT_EQ(info.messages(), Lines{kInfo + "Bad ZigBee modules"});
    EXPECT_EQ(info.out, "Bad ZigBee modules\r\n");
    const Call version = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.messages(), Lines{kVersion + " Software: ZB-2.1.7"});
    EXPECT_EQ(version.out, " Software: ZB-2.1.7\r\n");
}

TEST_F(Queries, AnEmptyVersionTextIsNoVersion)
{
    join_with({ZigbeeReport::version(0, ""), ZigbeeReport::climate(0, 1, 1), ZigbeeReport::climate(0, 1, 1),
               ZigbeeReport::climate(0, 1, 1)});
    const Call version = run([] { return CLI_GetZigbeeVersion(); });
    EXPECT_EQ(version.status, 1);
    EXPECT_EQ(version.out, "Init State or Bad ZigBee\r\n");
}

struct ShownRow {
    const char *name;
    std::vector<ZigbeeReport> reports;
    Lines messages;
    std::string out;
};

void PrintTo(const ShownRow &row, std::ostream *out)
{
    *out << row.name;
}

class Shown : public Queries, public ::testing::WithParamInterface<ShownRow>
{
};

TEST_P(Shown, AsTheRowSays)
{
    const ShownRow &row = GetParam();
    join_with(row.reports);
    const Call info = run([] { return CLI_GetZigbeeSensorInfo(); });
    EXPECT_EQ(info.status, 0);
    EXPECT_EQ(info.messages(), row.messages);
    EXPECT_EQ(info.out, row.out);
    EXPECT_EQ(info.err, "");
}

std::vector<ZigbeeReport> four(const ZigbeeReport &report)
{
    return {report, report, report, report};
}

INSTANTIATE_TEST_SUITE_P(Queries, Shown,
                         ::testing::Values(
                             // 2345 hundredths are shown by "%.1lf" of 2345 / 100.0: the double nearest 23.45
                             // lies just below it (23.449999...), so one decimal reads 23.4.
                             ShownRow{"ATemperatureWithOneDecimal",
                                      four(ZigbeeReport::climate(0, 2345, 5000)),
                                      {kInfo + " Temperature: 23.4\n Humidity: 50.0"},
                                      " Temperature: 23.4\n Humidity: 50.0\r\n"},
                             ShownRow{"ReadingsAbove32767AreShownPositive",
                                      four(ZigbeeReport::climate(0, 40000, 65535)),
                                      {kInfo + " Temperature: 400.0\n Humidity: 655.4"},
                                      " Temperature: 400.0\n Humidity: 655.4\r\n"},
                             ShownRow{"OnlyTheHumidityNonZeroShowsBoth",
                                      four(ZigbeeReport::climate(0, 0, 5000)),
                                      {kInfo + " Temperature: 0.0\n Humidity: 50.0"},
                                      " Temperature: 0.0\n Humidity: 50.0\r\n"},
                             ShownRow{"ParticulateAloneWithTwoDecimals",
                                      four(ZigbeeReport::particulate(0, 1234)),
                                      {kInfo + " PM2.5: 12.34"},
                                      " PM2.5: 12.34\r\n"},
                             ShownRow{"ClimateThenParticulate",
                                      {ZigbeeReport::climate(0, 2350, 5600), ZigbeeReport::particulate(0, 1),
                                       ZigbeeReport::version(0, "ZB-2.1.7"), ZigbeeReport::particulate(0, 1)},
                                      {kInfo + " Temperature: 23.5\n Humidity: 56.0", kInfo + " PM2.5: 0.01"},
                                      " Temperature: 23.5\n Humidity: 56.0\r\n PM2.5: 0.01\r\n"},
                             ShownRow{"AParticulateReadingAbove2To31IsShownAsASignedWord",
                                      four(ZigbeeReport::particulate(0, 0x80000000u)),
                                      {kInfo + " PM2.5: -21474836.48"},
                                      " PM2.5: -21474836.48\r\n"}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
