// Tuning the camera's radio through libclidriver.so on the simulated camera: the channel check of
// CLI_WiFiSetChannel (both bands, refusals at INFO then ERROR), the three interface commands, the
// wireless-extensions request with its one retry, and the channel the sniff test uses afterwards.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "wifi_fixture.h"

namespace
{

using namespace wifitest;

const Lines kMonitorMode = {"ifconfig wlan0 down", "iwconfig wlan0 mode Monitor", "ifconfig wlan0 up"};

ChannelRequest tuned(int64_t channel, int64_t result = 0)
{
    return ChannelRequest{"wlan0", channel, 0, 0, 0, result};
}

class Channel : public WifiTest
{
  protected:
    // The channel the sniff test tunes to next: CLI_MonitorTest with the time-out flag already up
    // (as an earlier expiry leaves it) sets the channel and closes the capture again at once.
    uint32_t sniff_channel()
    {
        __atomic_store_n(&gulCliTimeOut, 1u, __ATOMIC_RELAXED);
        const Call call = run([] { return CLI_MonitorTest("00:00:00:00:00:00"); });
        EXPECT_EQ(call.status, 0);
        const std::vector<ChannelRequest> requests = channel_requests(call);
        if (requests.size() != 1 || call.lines.empty())
            return 0;
        EXPECT_EQ(call.messages().at(0), sniffing_on(static_cast<uint32_t>(requests[0].channel)));
        return static_cast<uint32_t>(requests[0].channel);
    }
};

// ---- The channel check -------------------------------------------------------------------------

struct Refused {
    const char *name;
    uint32_t channel;
};
void PrintTo(const Refused &row, std::ostream *os)
{
    *os << row.name;
}

class RefusedChannel : public Channel, public ::testing::WithParamInterface<Refused>
{
};

TEST_P(RefusedChannel, IsLoggedAtInfoThenRefusedAtErrorAndChangesNothing)
{
    const uint32_t channel = GetParam().channel;
    const std::string number = std::to_string(channel);
    const Call call = run([&] { return CLI_WiFiSetChannel(channel); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines({" INFO WifiChannelIsValid: unknown channel [" + number + "]",
                                      "ERROR CLI_WiFiSetChannel: channel " + number + " invalid"}));
    EXPECT_EQ(call.err,
              "[ERROR]:channel " + number + " invalid\t@[src/cli_libfun.cpp CLI_WiFiSetChannel]\r\n");
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(system_commands(call).empty()) << "the interface is left alone";
    EXPECT_TRUE(channel_requests(call).empty());
    EXPECT_EQ(call.waited, 0);
    clitest::expect_reported_by_command_unit(call);
    EXPECT_EQ(sniff_channel(), 1u) << "the sniff channel stays as it was";
}

const Refused kRefused[] = {
    {"Zero", 0}, {"Fifteen", 15}, {"ThirtyThree", 33}, {"OneNinetySeven", 197}, {"Largest", 4294967295u},
};
INSTANTIATE_TEST_SUITE_P(Table, RefusedChannel, ::testing::ValuesIn(kRefused),
                         [](const ::testing::TestParamInfo<Refused> &info) {
                             return std::string(info.param.name);
                         });

struct Accepted {
    const char *name;
    uint32_t channel;
    const char *band;
};
void PrintTo(const Accepted &row, std::ostream *os)
{
    *os << row.name;
}

class AcceptedChannel : public Channel, public ::testing::WithParamInterface<Accepted>
{
};

TEST_P(AcceptedChannel, PutsTheRadioInMonitorModeAndTunesIt)
{
    const Accepted &row = GetParam();
    const std::string number = std::to_string(row.channel);
    const Call call = run([&] { return CLI_WiFiSetChannel(row.channel); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              Lines({" INFO WifiChannelIsValid: channel[" + number + "] valid -> " + row.band + " Hz"}));
    EXPECT_EQ(system_commands(call), kMonitorMode) << "in this order";
    EXPECT_EQ(channel_requests(call), std::vector<ChannelRequest>({tuned(row.channel)}));
    EXPECT_EQ(call.out, "change channel to " + number + " ok\n");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, 0);
    // The interface commands come before the tuning.
    uint64_t last_command = 0, tuning = 0;
    for (const sim::Entry &entry : call.journal) {
        if (entry.kind == sim::Kind::Platform && entry.name == "COMDRV_System")
            last_command = entry.seq;
        if (entry.kind == sim::Kind::SocketIoctl)
            tuning = entry.seq;
    }
    EXPECT_LT(last_command, tuning);
    clitest::expect_reported_by_command_unit(call);
    EXPECT_EQ(sniff_channel(), row.channel) << "the sniff test tunes to the channel set";
}

const Accepted kAccepted[] = {
    {"One", 1, "2.4G"},          {"Six", 6, "2.4G"},          {"Fourteen", 14, "2.4G"},
    {"ThirtyFour", 34, "5G"},    {"ThirtyFive", 35, "5G"}, // every number of the 5 GHz range, assigned or not
    {"OneSixtyFive", 165, "5G"}, {"OneNinetySix", 196, "5G"},
};
INSTANTIATE_TEST_SUITE_P(Table, AcceptedChannel, ::testing::ValuesIn(kAccepted),
                         [](const ::testing::TestParamInfo<Accepted> &info) {
                             return std::string(info.param.name);
                         });

TEST_F(Channel, WithoutAChannelSetTheSniffUsesChannelOne)
{
    EXPECT_EQ(sniff_channel(), 1u);
}

TEST_F(Channel, ALaterRefusalKeepsTheChannelSetBefore)
{
    ASSERT_EQ(run([] { return CLI_WiFiSetChannel(40); }).status, 0);
    ASSERT_EQ(run([] { return CLI_WiFiSetChannel(197); }).status, 1);
    EXPECT_EQ(sniff_channel(), 40u);
}

TEST_F(Channel, AFailedTuningStillSetsTheSniffChannel)
{
    scenario().wireless.channel_errnos = {EIO, EIO};
    restart();
    const Call call = run([] { return CLI_WiFiSetChannel(11); });
    EXPECT_EQ(call.status, 0) << "the tuning's outcome is not the command's";
    EXPECT_EQ(call.out, "change channel to 11 failed. 5, Input/output error\n");
    EXPECT_EQ(call.messages(), Lines({" INFO WifiChannelIsValid: channel[11] valid -> 2.4G Hz"}));
    EXPECT_EQ(sniff_channel(), 11u);
}

TEST_F(Channel, AFailedSocketStillSetsTheSniffChannel)
{
    scenario().wireless.socket_errno = EMFILE;
    restart();
    const Call call = run([] { return CLI_WiFiSetChannel(6); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, "socket failed. 24, Too many open files");
    EXPECT_EQ(system_commands(call), kMonitorMode);
    EXPECT_TRUE(channel_requests(call).empty());
}

// ---- switch_channel --------------------------------------------------------------------------

TEST_F(Channel, SwitchTunesWithTheChannelAsMantissaAndNothingElse)
{
    const Call call = run([] { return switch_channel("wlan0", 149); });
    EXPECT_EQ(call.status, 0) << "the socket's close";
    EXPECT_EQ(channel_requests(call), std::vector<ChannelRequest>({tuned(149)}));
    EXPECT_EQ(call.out, "change channel to 149 ok\n");
    EXPECT_TRUE(call.lines.empty()) << "plain lines only, no diagnostic lines";
}

TEST_F(Channel, ARefusedTuningIsRetriedOnceAfterTenMilliseconds)
{
    scenario().wireless.channel_errnos = {EBUSY};
    restart();
    const Call call = run([] { return switch_channel("wlan0", 6); });
    EXPECT_EQ(call.out, "retry to change channel to 6 ok\n") << "only the retry's line";
    EXPECT_EQ(channel_requests(call), std::vector<ChannelRequest>({tuned(6, -1), tuned(6, 0)}));
    EXPECT_EQ(call.waited, 10 * kMillisecond);
    const auto sleeps = call.of(sim::Kind::Sleep);
    ASSERT_EQ(sleeps.size(), 1u);
    EXPECT_EQ(sleeps[0].values.at(0), 10 * kMillisecond);
}

TEST_F(Channel, ATuningRefusedTwiceReportsTheSecondError)
{
    scenario().wireless.channel_errnos = {EBUSY, EINVAL};
    restart();
    const Call call = run([] { return switch_channel("wlan0", 6); });
    EXPECT_EQ(call.out, "change channel to 6 failed. 22, Invalid argument\n");
    EXPECT_EQ(channel_requests(call), std::vector<ChannelRequest>({tuned(6, -1), tuned(6, -1)}));
    EXPECT_EQ(call.waited, 10 * kMillisecond);
}

TEST_F(Channel, AFailedSocketIsReportedAndNothingIsAsked)
{
    scenario().wireless.socket_errno = ENFILE;
    restart();
    const Call call = run([] { return switch_channel("wlan0", 6); });
    EXPECT_EQ(call.out, "socket failed. 23, Too many open files in system");
    EXPECT_TRUE(channel_requests(call).empty());
    EXPECT_EQ(call.waited, 0);
}

TEST_F(Channel, AnInterfaceWithoutARadioRefusesBothTries)
{
    const Call call = run([] { return switch_channel("eth0", 3); });
    EXPECT_EQ(call.out, "change channel to 3 failed. 19, No such device\n");
    const std::vector<ChannelRequest> requests = channel_requests(call);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].interface, "eth0");
}

TEST_F(Channel, ALongInterfaceNameIsCutToTheKernelsSixteenBytes)
{
    const Call call = run([] { return switch_channel("wlan0-with-a-very-long-name", 3); });
    const std::vector<ChannelRequest> requests = channel_requests(call);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0].interface, "wlan0-with-a-ver");
}

TEST_F(Channel, NoInterfaceNameAsksNothing)
{
    const Call call = run([] { return switch_channel(nullptr, 3); });
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(channel_requests(call).empty());
}

} // namespace
