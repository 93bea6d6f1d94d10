// CLI_GetVersionAll on a camera whose firmware brings its own sensor report: the library calls
// CLI_GetSensorVersion by its exported name, so the definition this executable exports (as a
// firmware library loaded ahead of libclidriver would) is the one that runs, between the software
// report and the uplink report, and its failure does not change the verdict.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "core/journal.h"

namespace
{

int g_sensor_calls = 0;
uint64_t g_sensor_seq = 0; // the journal position when the sensor report ran

} // namespace

// The firmware's own sensor report: it prints what the library's silent one never would, and
// fails, which the whole-version command must ignore.
uint32_t CLI_GetSensorVersion(void)
{
    ++g_sensor_calls;
    g_sensor_seq = sim::journal().next_seq();
    fputs("Sensor              : IMX290\r\n", stdout);
    return 1;
}

namespace
{

class VersionAllOverride : public clitest::SimTest
{
};

TEST_F(VersionAllOverride, RunsTheSensorReportTheProcessProvides)
{
    const clitest::Call call = run([] { return CLI_GetVersionAll(); });
    EXPECT_EQ(call.status, 0) << "the sensor report's failure is ignored";
    EXPECT_EQ(g_sensor_calls, 1);
    EXPECT_EQ(call.out, "Software            : 2.1.3-20261020\r\n"
                        "Sensor              : IMX290\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(call.printed.empty());

    // Software first, then the sensor, then the uplink.
    uint64_t software_done = 0, uplink_opened = 0;
    for (const sim::Entry &entry : call.journal) {
        if (entry.kind == sim::Kind::Close && entry.name == "/program/factory/version")
            software_done = entry.seq;
        if (entry.kind == sim::Kind::Open && entry.name == "/dev/NetUsrDrv")
            uplink_opened = entry.seq;
    }
    ASSERT_NE(software_done, 0u);
    ASSERT_NE(uplink_opened, 0u);
    EXPECT_LT(software_done, g_sensor_seq);
    EXPECT_GE(uplink_opened, g_sensor_seq);
}

TEST_F(VersionAllOverride, LibraryDefaultStaysCallableUnderItsOwnName)
{
    const clitest::Call call = run([] { return __CLI_GetSensorVersion(); });
    EXPECT_EQ(g_sensor_calls, 0);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{" INFO __CLI_GetSensorVersion: unsupport this function"});
}

} // namespace
