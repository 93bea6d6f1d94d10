// The simulated clock: sleeps, alarms, the wall clock and two threads waiting at once.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "core/journal.h"
#include "core/sim.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;

class Clock : public clitest::SimTest
{
};

TEST_F(Clock, SleepsCostSimulatedTimeOnly)
{
    const auto call = run([] {
        sleep(2);
        usleep(250000);
        const timespec wanted = {1, 500};
        nanosleep(&wanted, nullptr);
    });
    EXPECT_EQ(call.waited, 2 * kSecond + 250 * kMillisecond + kSecond + 500);
    EXPECT_EQ(call.of(sim::Kind::Sleep).size(), 3u);
}

TEST_F(Clock, WallClockFollowsSimulatedTime)
{
    timeval before{}, after{};
    gettimeofday(&before, nullptr);
    EXPECT_EQ(before.tv_sec, sim::kDefaultBootEpochSeconds);
    EXPECT_EQ(before.tv_usec, 0);
    usleep(1500042);
    gettimeofday(&after, nullptr);
    EXPECT_EQ(after.tv_sec, sim::kDefaultBootEpochSeconds + 1);
    EXPECT_EQ(after.tv_usec, 500042);
}

TEST_F(Clock, ScenarioChoosesTheBootTime)
{
    scenario().boot_epoch = 1700000000;
    restart();
    timeval now{};
    gettimeofday(&now, nullptr);
    EXPECT_EQ(now.tv_sec, 1700000000);
}

TEST_F(Clock, InvalidNanosleepIsRefused)
{
    const timespec wanted = {0, 1000000000};
    errno = 0;
    EXPECT_EQ(nanosleep(&wanted, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sim::clock().now(), 0);
}

// The sniff test's pattern: clear the flag, arm the alarm, poll the flag in a loop that sleeps.
TEST_F(Clock, AlarmFiresInsideAPollingLoopAfter56SimulatedSeconds)
{
    gulCliTimeOut = 0;
    signal(SIGALRM, CLI_SignalDeal);
    long passes = 0;
    const auto start = std::chrono::steady_clock::now();
    const auto call = run([&] {
        alarm(56);
        while (__atomic_load_n(&gulCliTimeOut, __ATOMIC_RELAXED) == 0) {
            usleep(1000);
            ++passes;
        }
    });
    const auto wall = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(call.waited, 56 * kSecond);
    EXPECT_EQ(passes, 56000);
    EXPECT_EQ(gulCliTimeOut, 1u);
    ASSERT_EQ(call.of(sim::Kind::Alarm).size(), 2u);
    EXPECT_EQ(call.of(sim::Kind::Alarm)[1].text, "SIGALRM delivered");
    RecordProperty("wall_ms",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(wall).count()));
}

TEST_F(Clock, AlarmInterruptsASleepAndSleepReportsWhatIsLeft)
{
    signal(SIGALRM, CLI_SignalDeal);
    gulCliTimeOut = 0;
    alarm(3);
    EXPECT_EQ(sleep(10), 7u);
    EXPECT_EQ(sim::clock().now(), 3 * kSecond);
    EXPECT_EQ(gulCliTimeOut, 1u);
}

TEST_F(Clock, AlarmReturnsTheSecondsLeftOfThePreviousOneAndZeroCancels)
{
    EXPECT_EQ(alarm(10), 0u);
    sleep(4);
    EXPECT_EQ(alarm(20), 6u);
    EXPECT_EQ(alarm(0), 20u);
    sleep(30); // nothing fires: the alarm was cancelled
    EXPECT_EQ(sim::clock().now(), 34 * kSecond);
}

TEST_F(Clock, InterruptedUsleepSaysEintr)
{
    signal(SIGALRM, CLI_SignalDeal);
    alarm(1);
    errno = 0;
    EXPECT_EQ(usleep(5000000), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(sim::clock().now(), kSecond);
}

struct Ticker {
    sim::Nanos period;
    int ticks;
    std::vector<sim::Nanos> seen;
};

void *tick(void *raw)
{
    auto *ticker = static_cast<Ticker *>(raw);
    for (int i = 0; i < ticker->ticks; ++i) {
        usleep(static_cast<useconds_t>(ticker->period / 1000));
        ticker->seen.push_back(sim::clock().now());
    }
    return nullptr;
}

// Two threads of the product waiting at once (a search thread beside the caller): each wakes at
// exactly its own simulated times, whatever the real scheduler does.
TEST_F(Clock, TwoThreadsWaitingAtOnceBothProgress)
{
    Ticker fast{300 * kMillisecond, 10, {}};
    Ticker slow{kSecond, 3, {}};
    pthread_t a, b;
    ASSERT_EQ(pthread_create(&a, nullptr, tick, &fast), 0);
    ASSERT_EQ(pthread_create(&b, nullptr, tick, &slow), 0);
    sleep(5); // the caller waits too; time moves only while all three wait
    pthread_join(a, nullptr);
    pthread_join(b, nullptr);
    ASSERT_EQ(fast.seen.size(), 10u);
    ASSERT_EQ(slow.seen.size(), 3u);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(fast.seen[static_cast<size_t>(i)], (i + 1) * 300 * kMillisecond);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(slow.seen[static_cast<size_t>(i)], (i + 1) * kSecond);
    EXPECT_EQ(sim::clock().now(), 5 * kSecond);
}

// A thread of the product does not run ahead of the caller: while the caller is busy (not
// waiting), simulated time stands still for everyone.
TEST_F(Clock, TimeStandsStillWhileTheCallerRuns)
{
    static Ticker forever{500 * kMillisecond, 1000, {}}; // outlives the test: the thread never ends
    pthread_t flasher;
    ASSERT_EQ(pthread_create(&flasher, nullptr, tick, &forever), 0);
    pthread_detach(flasher);
    usleep(10000); // real time passes below, simulated time must not
    const sim::Nanos frozen = sim::clock().now();
    struct timespec real_pause = {0, 50 * 1000 * 1000};
    syscall(SYS_nanosleep, &real_pause, nullptr);
    EXPECT_EQ(sim::clock().now(), frozen);
    sleep(2);
    EXPECT_EQ(sim::clock().now(), frozen + 2 * kSecond);
}

} // namespace

namespace
{

// The shell waiting for its operator holds the clock: a product thread waiting meanwhile does
// not move time, and resumes with the next command.
TEST_F(Clock, AHeldClockStandsStillUntilReleased)
{
    static Ticker flasher{500 * kMillisecond, 1000, {}}; // outlives the test: the thread never ends
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, tick, &flasher), 0);
    pthread_detach(thread);
    sim::clock().hold();
    struct timespec real_pause = {0, 100 * 1000 * 1000};
    syscall(SYS_nanosleep, &real_pause, nullptr); // the operator thinks
    EXPECT_EQ(sim::clock().now(), 0);
    EXPECT_TRUE(flasher.seen.empty());
    sim::clock().release();
    usleep(2100000); // past the flasher's fourth tick, not on it: no tie to break
    EXPECT_EQ(sim::clock().now(), 2100 * kMillisecond);
    EXPECT_EQ(flasher.seen.size(), 4u);
}

} // namespace

namespace
{

std::atomic<int> g_stops_reached{0};
std::atomic<sim::Nanos> g_stopped_at{-1};
void note_stop()
{
    g_stopped_at = sim::clock().now();
    ++g_stops_reached;
}

// A station step's limit: time stops at it, whoever was about to move it past. Something due
// exactly at the stop still happens; when the stop's action returns, the stop is lifted and time
// goes on as if nothing had been there.
TEST_F(Clock, TimeStopsAtAStepLimitAndGoesOnOnceLifted)
{
    g_stops_reached = 0;
    sim::clock().stop_at(3 * kSecond, note_stop);
    static Ticker ticker{kSecond, 5, {}}; // a product thread ticking once a second
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, tick, &ticker), 0);
    sleep(10);
    pthread_join(thread, nullptr);
    EXPECT_EQ(g_stops_reached.load(), 1);
    EXPECT_EQ(g_stopped_at.load(), 3 * kSecond);
    ASSERT_EQ(ticker.seen.size(), 5u);
    EXPECT_EQ(ticker.seen[2], 3 * kSecond); // due at the stop itself: not held back
    EXPECT_EQ(ticker.seen[4], 5 * kSecond);
    EXPECT_EQ(sim::clock().now(), 10 * kSecond);
}

// A wait with nothing scheduled after it ends at the stop instead of ending the process.
TEST_F(Clock, AWaitForEverEndsAtTheStop)
{
    g_stops_reached = 0;
    sim::clock().stop_at(7 * kSecond, note_stop);
    sim::clock().wait(sim::kNever, [] { return g_stops_reached.load() > 0; });
    EXPECT_EQ(g_stops_reached.load(), 1);
    EXPECT_EQ(g_stopped_at.load(), 7 * kSecond);
}

// Lifted before it is reached, a stop leaves time alone.
TEST_F(Clock, ALiftedStopIsNeverReached)
{
    g_stops_reached = 0;
    sim::clock().stop_at(kSecond, note_stop);
    sim::clock().clear_stop();
    sleep(3);
    EXPECT_EQ(g_stops_reached.load(), 0);
    EXPECT_EQ(sim::clock().now(), 3 * kSecond);
}

// A shell that starts the camera again keeps the product's running threads: a flash thread half
// way through its 500 ms poll when the camera boots again polls again 300 ms after the new boot,
// and every poll after that is 500 ms apart on the new clock, the caller still waiting with it.
TEST_F(Clock, BootingAgainKeepsARunningThreadAndTheTimeItHadLeft)
{
    static Ticker flasher{500 * kMillisecond, 1000, {}}; // outlives the test: the thread never ends
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, tick, &flasher), 0);
    pthread_detach(thread);
    usleep(1200000); // ticks at 0.5 and 1.0 s; the third is due at 1.5 s
    ASSERT_EQ(flasher.seen.size(), 2u);
    sim::restart(scenario());
    EXPECT_EQ(sim::clock().now(), 0);
    usleep(1000000); // the third tick 300 ms after boot, the fourth at 800 ms
    EXPECT_EQ(sim::clock().now(), kSecond);
    ASSERT_EQ(flasher.seen.size(), 4u);
    EXPECT_EQ(flasher.seen[2], 300 * kMillisecond);
    EXPECT_EQ(flasher.seen[3], 800 * kMillisecond);
}

} // namespace
