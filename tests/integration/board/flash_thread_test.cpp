// The parking lamps' flash pattern on the simulated clock: the thread CLI_ParkLedTestInit starts
// looks at its flag every 500 ms and, while the flag is set, runs 800 ms cycles (colour 1 on and
// off, colour 3 on and off, 200 ms each). Every platform call is checked with its simulated time.
//
// A flash thread never ends, so every test here leaves one polling when it finishes; each test case
// runs in a process of its own, and the thread waits on the simulated clock (which stands still
// once the test's thread stops waiting) until the process exits.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "board_case.h"
#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/journal.h"
#include "platform/board_model.h"

namespace
{

using boardtest::console;

// "500 DRV_SetParkLed({2, 1, 1, 0, 255}) -> 0": each parking-lamp request since the camera
// started, with its simulated time in milliseconds.
std::vector<std::string> lamp_requests()
{
    std::vector<std::string> requests;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Platform, "DRV_SetParkLed"))
        requests.push_back(std::to_string(entry.time / sim::kMillisecond) + " " + entry.text);
    return requests;
}

// "500 parking lamps lit: 1": what the lamps showed after each change.
std::vector<std::string> lamp_changes()
{
    std::vector<std::string> changes;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Note, "parking lamps"))
        changes.push_back(std::to_string(entry.time / sim::kMillisecond) + " " + entry.text);
    return changes;
}

// "0 500": each sleep since the camera started, its start and length in milliseconds.
std::vector<std::string> sleeps()
{
    std::vector<std::string> result;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Sleep))
        result.push_back(std::to_string(entry.time / sim::kMillisecond) + " " +
                         std::to_string(entry.values.at(0) / sim::kMillisecond));
    return result;
}

constexpr const char *kOn1 = "DRV_SetParkLed({2, 1, 1, 0, 255}) -> 0";
constexpr const char *kOff1 = "DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0";
constexpr const char *kOn3 = "DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0";
constexpr const char *kOff3 = "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0";

std::string at(int ms, const char *request)
{
    return std::to_string(ms) + " " + request;
}

// The four requests of one cycle starting at `ms`.
std::vector<std::string> cycle_at(int ms)
{
    return {at(ms, kOn1), at(ms + 200, kOff1), at(ms + 400, kOn3), at(ms + 600, kOff3)};
}

// Both colours off, as CLI_ParkLedAlternate does first.
std::vector<std::string> both_off_at(int ms)
{
    return {at(ms, kOff1), at(ms, kOff3)};
}

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts)
{
    std::vector<std::string> all;
    for (const auto &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

class FlashThread : public clitest::SimTest
{
  protected:
    // Lets simulated time run on to `ms` for the flash threads, as an operator watching would.
    void until(int ms)
    {
        const sim::Nanos target = static_cast<sim::Nanos>(ms) * sim::kMillisecond;
        ASSERT_GE(target, sim::clock().now());
        sim::clock().advance(target - sim::clock().now());
        ASSERT_EQ(sim::clock().now(), target);
    }

    void start_thread()
    {
        const clitest::Call init = run([] { return CLI_ParkLedTestInit(); });
        EXPECT_EQ(init.status, 0);
        EXPECT_EQ(init.messages(), std::vector<std::string>{});
        EXPECT_EQ(init.out + init.err, "");
        ASSERT_EQ(init.of(sim::Kind::Thread).size(), 1u);
        EXPECT_EQ(init.of(sim::Kind::Thread)[0].result, 0);
    }

    void alternate(uint32_t on)
    {
        const clitest::Call call = run([on] { return CLI_ParkLedAlternate(0, on); });
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.messages(), std::vector<std::string>{});
        EXPECT_EQ(call.out + call.err, "");
        EXPECT_EQ(call.waited, 0);
    }
};

TEST_F(FlashThread, CyclesEvery800MsWhileTheFlagIsSetAndPollsEvery500MsOtherwise)
{
    start_thread(); // t=0: the flag is clear, so the thread polls: 0, 500...
    until(250);
    alternate(1); // seen at the next poll, 500
    until(2000);  // cycles at 500 and 1300; the second ends with a sleep until 2100
    alternate(0);
    until(4000); // polls at 2100, 2600, 3100, 3600

    EXPECT_EQ(lamp_requests(), joined({both_off_at(250), cycle_at(500), cycle_at(1300), both_off_at(2000)}));
    EXPECT_EQ(sleeps(), (std::vector<std::string>{"0 500", "500 200", "700 200", "900 200", "1100 200",
                                                  "1300 200", "1500 200", "1700 200", "1900 200", "2100 500",
                                                  "2600 500", "3100 500", "3600 500"}));
    // The lamps as the platform shows them: each colour lit for 200 ms in turn.
    EXPECT_EQ(lamp_changes(),
              (std::vector<std::string>{"500 parking lamps lit: 1", "700 parking lamps lit: none",
                                        "900 parking lamps lit: 3", "1100 parking lamps lit: none",
                                        "1300 parking lamps lit: 1", "1500 parking lamps lit: none",
                                        "1700 parking lamps lit: 3", "1900 parking lamps lit: none"}));
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{});
}

TEST_F(FlashThread, CycleUnderWayWhenTheFlagDropsIsFinished)
{
    start_thread();
    until(250);
    alternate(1);
    until(800); // the cycle of 500 has switched colour 1 on and off, and sleeps until 900
    alternate(0);
    until(1000);
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{3}) << "the cycle goes on to colour 3";
    until(3000);

    EXPECT_EQ(lamp_requests(), joined({both_off_at(250),
                                       {at(500, kOn1), at(700, kOff1)},
                                       both_off_at(800),
                                       {at(900, kOn3), at(1100, kOff3)}}));
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{}) << "dark once the cycle has ended";
    const std::vector<std::string> all = sleeps();
    ASSERT_EQ(all.size(), 9u);
    EXPECT_EQ(std::vector<std::string>(all.begin() + 4, all.end()),
              (std::vector<std::string>{"1100 200", "1300 500", "1800 500", "2300 500", "2800 500"}))
        << "back to polling every 500 ms after the last step";
}

TEST_F(FlashThread, AlternateBeforeInitSetsTheFlagButNothingFlashesUntilTheThreadExists)
{
    alternate(1);
    until(5000);
    EXPECT_EQ(lamp_requests(), both_off_at(0)) << "both colours off, and nothing flashes without a thread";

    start_thread(); // the flag is already set: the first cycle starts at once
    until(5700);
    EXPECT_EQ(lamp_requests(), joined({both_off_at(0), cycle_at(5000)}));
}

TEST_F(FlashThread, TwoInitsStartTwoFlashers)
{
    start_thread();
    start_thread();
    until(250);
    alternate(1);
    until(1200);
    // Both threads run the same cycle at the same moments: every step twice.
    EXPECT_EQ(lamp_requests(), joined({both_off_at(250),
                                       {at(500, kOn1), at(500, kOn1), at(700, kOff1), at(700, kOff1),
                                        at(900, kOn3), at(900, kOn3), at(1100, kOff3), at(1100, kOff3)}}));
}

TEST_F(FlashThread, FailedThreadCreationIsReportedAndNothingFlashes)
{
    scenario().threads.fail_next = 1;
    scenario().threads.err = EAGAIN;
    restart();
    const clitest::Call init = run([] { return CLI_ParkLedTestInit(); });
    EXPECT_EQ(init.status, 1);
    EXPECT_EQ(init.messages(),
              std::vector<std::string>{"ERROR CLI_ParkLedTestInit: failed to create stParkLedFlashThreadID"});
    EXPECT_EQ(init.err, console("failed to create stParkLedFlashThreadID", "CLI_ParkLedTestInit"));
    EXPECT_EQ(init.out, "");
    ASSERT_EQ(init.of(sim::Kind::Thread).size(), 1u);
    EXPECT_EQ(init.of(sim::Kind::Thread)[0].result, EAGAIN);
    clitest::expect_reported_by_command_unit(init);

    alternate(1);
    until(3000);
    EXPECT_EQ(lamp_requests(), both_off_at(0));

    start_thread(); // the next init works, and the flag set earlier takes effect
    until(3700);
    EXPECT_EQ(lamp_requests(), joined({both_off_at(0), cycle_at(3000)}));
}

TEST_F(FlashThread, OneCycleCalledDirectlyTakes800Ms)
{
    const clitest::Call cycle = run([] { return CLI_ParkLedRunCtl(); });
    EXPECT_EQ(cycle.status, 0) << "the last sleep's result";
    EXPECT_EQ(cycle.waited, 800 * sim::kMillisecond);
    EXPECT_EQ(cycle.messages(), std::vector<std::string>{});
    EXPECT_EQ(cycle.out + cycle.err, "");
    EXPECT_EQ(lamp_requests(), cycle_at(0));
    EXPECT_EQ(sleeps(), (std::vector<std::string>{"0 200", "200 200", "400 200", "600 200"}));
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{});
}

TEST_F(FlashThread, OneCycleReturnsTheLastSleepsResult)
{
    // An alarm due at 1000 ms cuts the cycle's last sleep (950 to 1150) short: that sleep's -1
    // is the cycle's result; the earlier ones were whole.
    signal(SIGALRM, CLI_SignalDeal);
    alarm(1);
    until(350);
    const clitest::Call cycle = run([] { return CLI_ParkLedRunCtl(); });
    EXPECT_EQ(cycle.status, -1);
    EXPECT_EQ(cycle.waited, 650 * sim::kMillisecond);
    EXPECT_EQ(lamp_requests(), cycle_at(350));
    EXPECT_EQ(cycle.of(sim::Kind::Alarm).size(), 1u);
    signal(SIGALRM, SIG_DFL);
}

// A long flashing run with single-lamp commands from the caller meanwhile, some at the very
// moments the flash thread switches a lamp: the flag and the platform are shared by both threads
// (run under ThreadSanitizer in the tsan build).
TEST_F(FlashThread, LongRunBesideSingleLampCommands)
{
    start_thread();
    until(250);
    alternate(1);
    constexpr int kCommands = 300;
    for (int i = 0; i < kCommands; ++i) {
        until(500 + i * 200); // each of the thread's steps
        const uint32_t on = static_cast<uint32_t>(i % 2);
        const clitest::Call single = run([on] { return CLi_ParkLedCtrlSingle(4, on); });
        ASSERT_EQ(single.status, 0) << i;
        ASSERT_EQ(single.messages(), std::vector<std::string>{}) << i;
    }
    // 60300 ms: the last step of the 75th cycle; the flag drops before the thread looks again.
    alternate(0);
    until(62000);

    int colour4 = 0;
    int cycle_steps = 0;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Platform, "DRV_SetParkLed")) {
        EXPECT_EQ(entry.result, 0);
        const std::vector<uint32_t> words = clitest::record_words(entry.records.at(0));
        ASSERT_EQ(words.size(), 5u);
        EXPECT_EQ(words[0], 2u);
        EXPECT_EQ(words[3], 0u);
        EXPECT_EQ(words[4], 255u);
        if (words[1] == 4)
            ++colour4;
        else if (words[1] == 1 || words[1] == 3)
            ++cycle_steps;
        else
            ADD_FAILURE() << entry.text;
    }
    EXPECT_EQ(colour4, kCommands);
    EXPECT_EQ(cycle_steps, 75 * 4 + 2 + 2) << "75 whole cycles and the two pairs of both-off";
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{4}) << "the caller's last command switched it on";
}

} // namespace
