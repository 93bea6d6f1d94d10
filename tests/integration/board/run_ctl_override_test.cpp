// A firmware that brings its own flash pattern: the flash thread calls CLI_ParkLedRunCtl by its
// exported name, so the definition this executable exports (as a firmware library loaded ahead of
// libclidriver would) is the one that runs, at the times the thread's polling says, and the
// library's own cycle never drives a lamp. It replaces a library function for the whole process,
// so it is an executable of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/journal.h"
#include "sim_fixture.h"

namespace
{

// The simulated times (ms) at which the firmware's cycle ran; written by the flash thread and
// read by the test only while the thread waits on the simulated clock.
std::vector<int64_t> g_cycles;

} // namespace

// The firmware's pattern: no lamp of the library's, 300 ms long.
extern "C" int32_t CLI_ParkLedRunCtl(void)
{
    g_cycles.push_back(sim::clock().now() / sim::kMillisecond);
    return usleep(300000);
}

namespace
{

class RunCtlOverride : public clitest::SimTest
{
  protected:
    void until(int ms)
    {
        sim::clock().advance(static_cast<sim::Nanos>(ms) * sim::kMillisecond - sim::clock().now());
    }
};

TEST_F(RunCtlOverride, FlashThreadRunsTheCycleTheProcessProvides)
{
    ASSERT_EQ(run([] { return CLI_ParkLedTestInit(); }).status, 0);
    until(250);
    ASSERT_EQ(run([] { return CLI_ParkLedAlternate(0, 1); }).status, 0);
    until(1500);
    EXPECT_EQ(g_cycles, (std::vector<int64_t>{500, 800, 1100, 1400}));

    // Only CLI_ParkLedAlternate's two requests reached the lamps: the library's cycle never ran.
    std::vector<std::string> requests;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Platform, "DRV_SetParkLed"))
        requests.push_back(entry.text);
    EXPECT_EQ(requests, (std::vector<std::string>{"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0",
                                                  "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0"}));
}

} // namespace
