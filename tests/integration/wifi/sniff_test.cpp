// The MAC sniff test through libclidriver.so on the simulated camera: matching probe records with
// CLI_WifiDataProc, the sniff loop of CLI_MonitorTest (the driver's configuration record, the
// channel, the capture, each pass's line), and CLI_SniffMac with its 56-second alarm on the
// simulated clock: found, found in a later batch, timed out, and the alarm left armed after a
// success.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "core/clock.h"
#include "wifi_fixture.h"

namespace
{

using namespace wifitest;

constexpr Mac kPhone = {0x02, 0xAB, 0xCD, 0xEF, 0x00, 0x01};
constexpr Mac kOther = {0x02, 0x12, 0x34, 0x56, 0x78, 0x9A};
const std::string kPhoneText = "02:ab:cd:ef:00:01";
const std::string kAbsent = "02:00:00:00:00:99";

// Probe records laid end to end, as a receive hands them over.
Bytes records_of(const std::vector<Mac> &stations)
{
    Bytes records;
    for (const Mac &station : stations) {
        records.insert(records.end(), station.begin(), station.end());
        records.push_back(0xC3);                // signal
        records.insert(records.end(), 8, 0x11); // TSFT
    }
    return records;
}

// ---- CLI_WifiDataProc --------------------------------------------------------------------------

class DataProc : public WifiTest
{
};

TEST_F(DataProc, NoDataIsRefusedWithAConsoleLine)
{
    const Call call = run([] { return CLI_WifiDataProc(15, nullptr, "02:ab:cd:ef:00:01"); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines({"ERROR CLI_WifiDataProc: Wifi pucUlinkData NULL"}));
    EXPECT_EQ(call.err, "[ERROR]:Wifi pucUlinkData NULL\t@[src/cli_libfun.cpp CLI_WifiDataProc]\r\n");
    EXPECT_EQ(call.out, "");
}

TEST_F(DataProc, ZeroBytesMatchNothingWithoutAWord)
{
    const Bytes records = records_of({kPhone});
    const Call call = run([&] { return CLI_WifiDataProc(0, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.lines.empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
}

TEST_F(DataProc, SixteenBytesAreNotWholeRecords)
{
    const Bytes records = records_of({kPhone, kOther});
    const Call call = run([&] { return CLI_WifiDataProc(16, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines({"ERROR CLI_WifiDataProc: Wifi Data Invalid"}));
    EXPECT_EQ(call.err, "[ERROR]:Wifi Data Invalid\t@[src/cli_libfun.cpp CLI_WifiDataProc]\r\n");
}

TEST_F(DataProc, ANegativeCountIsInvalidUnlessAMultipleOfFifteen)
{
    const Bytes records = records_of({kPhone});
    const Call sixteen = run([&] { return CLI_WifiDataProc(-16, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(sixteen.status, 1);
    EXPECT_EQ(sixteen.messages(), Lines({"ERROR CLI_WifiDataProc: Wifi Data Invalid"}));
    const Call fifteen = run([&] { return CLI_WifiDataProc(-15, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(fifteen.status, 1);
    EXPECT_TRUE(fifteen.lines.empty()) << "no bytes remain: nothing to match";
}

TEST_F(DataProc, AnUpperCaseMacMatchesARecordPrintedInLowerCase)
{
    const Bytes records = records_of({kOther, kPhone});
    const Call call = run([&] { return CLI_WifiDataProc(30, records.data(), "02:AB:CD:EF:00:01"); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({heard(kPhoneText)}));
    EXPECT_EQ(call.out, heard_out(kPhoneText));
    EXPECT_EQ(call.err, "");
}

TEST_F(DataProc, TheFirstMatchingRecordIsReportedOnce)
{
    const Bytes records = records_of({kPhone, kOther, kPhone});
    const Call call = run([&] { return CLI_WifiDataProc(45, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({heard(kPhoneText)}));
}

TEST_F(DataProc, RecordsPastTheCountAreNotLookedAt)
{
    const Bytes records = records_of({kOther, kPhone});
    const Call call = run([&] { return CLI_WifiDataProc(15, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.lines.empty());
}

TEST_F(DataProc, NoMatchAmongSeventeenRecordsIsSilent)
{
    const Bytes records = records_of(std::vector<Mac>(17, kOther));
    const Call call = run([&] { return CLI_WifiDataProc(255, records.data(), kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.lines.empty());
    EXPECT_EQ(call.out, "");
}

TEST_F(DataProc, SeventeenCharactersAreCompared)
{
    const Bytes records = records_of({kPhone});
    EXPECT_EQ(
        run([&] { return CLI_WifiDataProc(15, records.data(), "02:ab:cd:ef:00:01 (test phone)"); }).status,
        0);
    EXPECT_EQ(run([&] { return CLI_WifiDataProc(15, records.data(), "02:ab:cd:ef:00"); }).status, 1);
    EXPECT_EQ(run([&] { return CLI_WifiDataProc(15, records.data(), "02-ab-cd-ef-00-01"); }).status, 1);
    EXPECT_EQ(run([&] { return CLI_WifiDataProc(15, records.data(), ""); }).status, 1);
}

TEST_F(DataProc, NoMacMatchesNothing)
{
    const Bytes records = records_of({kPhone});
    const Call call = run([&] { return CLI_WifiDataProc(15, records.data(), nullptr); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.lines.empty());
}

// ---- CLI_MonitorTest -------------------------------------------------------------------------

class Monitor : public WifiTest
{
};

TEST_F(Monitor, HandsTheDriverItsConfigurationRecordWordByWord)
{
    on_air({probe(kPhone, 0.5)});
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    const auto configured = call.of(sim::Kind::Platform, "DRV_SetWifiCfg");
    ASSERT_EQ(configured.size(), 1u);
    ASSERT_EQ(configured[0].values.size(), 3u);
    EXPECT_EQ(configured[0].values[1], 0);
    EXPECT_EQ(configured[0].values[2], 2);
    ASSERT_EQ(configured[0].records.size(), 1u);
    ASSERT_EQ(configured[0].records[0].size(), 1116u);
    const std::vector<uint32_t> words = clitest::record_words(configured[0].records[0]);
    ASSERT_EQ(words.size(), 279u);
    std::vector<uint32_t> want(279, 0);
    want[0] = 1;
    want[3] = 2;
    EXPECT_EQ(words, want);
    // Configured first, then tuned, then the capture opened.
    EXPECT_LT(configured[0].seq, call.of(sim::Kind::SocketIoctl).at(0).seq);
    EXPECT_LT(call.of(sim::Kind::SocketIoctl).at(0).seq, call.of(sim::Kind::Capture).at(0).seq);
}

TEST_F(Monitor, ARefusedConfigurationStopsBeforeTheRadioIsTouched)
{
    scenario().platform["DRV_SetWifiCfg"].result = 1;
    restart();
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines({"ERROR CLI_MonitorTest: Function DRV_SetWifiCfg call failed"}));
    EXPECT_EQ(call.err, call_failed_err("CLI_MonitorTest", "DRV_SetWifiCfg"));
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(channel_requests(call).empty());
    EXPECT_TRUE(capture_calls(call).empty());
}

TEST_F(Monitor, OnlyOneCountsAsARefusedConfiguration)
{
    for (int64_t answer : {-1, 2, 0x7FFFFFFF}) {
        scenario().platform["DRV_SetWifiCfg"].result = answer;
        on_air({probe(kPhone, 0.5)});
        const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
        EXPECT_EQ(call.status, 0) << answer;
        EXPECT_EQ(call.messages(), Lines({sniffing_on(1), heard(kPhoneText)})) << answer;
    }
}

TEST_F(Monitor, ACaptureThatWillNotOpenIsACallFailure)
{
    scenario().capture.open_error = "wlan0: no such device";
    restart();
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              Lines({sniffing_on(1), "ERROR CLI_MonitorTest: Function ulink_recv_open call failed"}));
    EXPECT_EQ(call.err, call_failed_err("CLI_MonitorTest", "ulink_recv_open"));
    EXPECT_EQ(call.out, "change channel to 1 ok\n");
}

TEST_F(Monitor, AFilterThatWillNotCompileIsACallFailure)
{
    scenario().capture.fail_compile = true;
    restart();
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              Lines({sniffing_on(1), "ERROR CLI_MonitorTest: Function ulink_recv_open call failed"}));
    EXPECT_EQ(call.out,
              "change channel to 1 ok\npcap_compile failed: can't parse filter expression: syntax error");
}

TEST_F(Monitor, WithTheFlagLeftUpByAnEarlierExpiryItOpensAndClosesWithoutAReceive)
{
    quiet_air();
    ASSERT_EQ(run([] { return CLI_SniffMac("02:00:00:00:00:99"); }).status, 1) << "the earlier sniff expires";
    ASSERT_EQ(timeout_flag(), 1u);
    on_air({probe(kPhone, 0.0)});
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1)}));
    EXPECT_EQ(capture_calls(call), Lines({"pcap_open_live(wlan0, 128, 1, 1000)",
                                          "pcap_compile(\"type mgt subtype probe-req\") -> 0",
                                          "pcap_setfilter -> 0", "pcap_close"}));
    EXPECT_EQ(call.out, "change channel to 1 ok\n");
    EXPECT_EQ(call.waited, 0);
    EXPECT_EQ(timeout_flag(), 1u) << "the flag is not its to touch";
    EXPECT_TRUE(call.of(sim::Kind::Alarm).empty());
}

TEST_F(Monitor, WithoutAnAlarmItListensUntilTheStationIsHeard)
{
    on_air({probe(kPhone, 2.5)});
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    // Passes of 1 s plus a 1 ms rest: 0-1 s, 1.001-2.001 s quiet; 2.002-3.002 s hears the phone.
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), catch_timeout(), catch_timeout(), heard(kPhoneText)}));
    EXPECT_EQ(call.out, "change channel to 1 ok\n" + heard_out(kPhoneText));
    EXPECT_EQ(call.waited, 3 * kSecond + 2 * kMillisecond);
    EXPECT_TRUE(call.of(sim::Kind::Alarm).empty());
    EXPECT_EQ(capture_calls(call).back(), "pcap_close");
}

TEST_F(Monitor, FailedReceivesAreLoggedAndRetried)
{
    scenario().capture.dispatch_errors = {-1, -3};
    on_air({probe(kPhone, 0.5)});
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), recv_fail(), recv_fail(), heard(kPhoneText)}));
    EXPECT_EQ(call.err, "") << "the loop's lines have no console line";
    // Two failed receives at once, each followed by its 1 ms rest; the third listens from 2 ms.
    EXPECT_EQ(call.waited, kSecond + 2 * kMillisecond);
}

TEST_F(Monitor, TheSniffChannelIsAppliedAgain)
{
    ASSERT_EQ(run([] { return CLI_WiFiSetChannel(149); }).status, 0);
    on_air({probe(kPhone, 0.5)});
    const Call call = run([&] { return CLI_MonitorTest(kPhoneText.c_str()); });
    EXPECT_EQ(channel_requests(call),
              std::vector<ChannelRequest>({ChannelRequest{"wlan0", 149, 0, 0, 0, 0}}));
    EXPECT_EQ(call.messages().at(0), sniffing_on(149));
}

// ---- CLI_SniffMac ----------------------------------------------------------------------------

class Sniff : public WifiTest
{
};

TEST_F(Sniff, AStationHeardInTheFirstBatchIsFound)
{
    on_air({probe(kOther, 0.2), probe(kPhone, 0.5)});
    const Call call = run([&] { return CLI_SniffMac("02:AB:CD:EF:00:01"); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), heard(kPhoneText)}));
    EXPECT_EQ(call.out, "change channel to 1 ok\n" + heard_out(kPhoneText));
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, kSecond);
    const auto alarms = call.of(sim::Kind::Alarm, "alarm");
    ASSERT_EQ(alarms.size(), 1u);
    EXPECT_EQ(alarms[0].values.at(0), 56);
    EXPECT_TRUE(call.of(sim::Kind::Alarm, "SIGALRM").empty());
    clitest::expect_reported_by_command_unit(call);
}

TEST_F(Sniff, AStationHeardInTheSecondBatchFollowsANotMatch)
{
    on_air({probe(kOther, 0.5), probe(kPhone, 1.5)});
    const Call call = run([&] { return CLI_SniffMac(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), not_match(), heard(kPhoneText)}));
    EXPECT_EQ(call.out, "change channel to 1 ok\n" + heard_out(kPhoneText));
    EXPECT_EQ(call.waited, 2 * kSecond + kMillisecond);
}

TEST_F(Sniff, NoProbeInFiftySixSecondsIsATimeOut)
{
    quiet_air();
    const Call call = run([&] { return CLI_SniffMac(kAbsent.c_str()); });
    EXPECT_EQ(call.status, 1);
    // 56 passes of a 1 s receive and a 1 ms rest; the alarm cuts the 56th receive short at 56 s.
    Lines want = {sniffing_on(1)};
    want.insert(want.end(), 56, catch_timeout());
    want.push_back(" INFO CLI_SniffMac: sniff " + kAbsent + " timeout");
    EXPECT_EQ(call.messages(), want);
    EXPECT_EQ(call.out, "change channel to 1 ok\nsniff " + kAbsent + " timeout\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, 56 * kSecond + kMillisecond);
    const auto delivered = call.of(sim::Kind::Alarm, "SIGALRM");
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0].time, 56 * kSecond);
    EXPECT_EQ(capture_calls(call).back(), "pcap_close") << "the capture is closed after a time-out too";
    EXPECT_EQ(timeout_flag(), 1u);
}

TEST_F(Sniff, StationsHeardButNotTheOneAskedForStillTimeOut)
{
    on_air({probe(kOther, 10.5), probe(kOther, 30.5)});
    const Call call = run([&] { return CLI_SniffMac(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(count_of(call.messages(), not_match()), 2u);
    EXPECT_EQ(count_of(call.messages(), catch_timeout()), 54u);
    EXPECT_EQ(call.messages().back(), " INFO CLI_SniffMac: sniff " + kPhoneText + " timeout");
    EXPECT_EQ(call.waited, 56 * kSecond + kMillisecond);
}

TEST_F(Sniff, ARefusedConfigurationIsReportedByBothCommands)
{
    scenario().platform["DRV_SetWifiCfg"].result = 1;
    restart();
    const Call call = run([&] { return CLI_SniffMac(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines({"ERROR CLI_MonitorTest: Function DRV_SetWifiCfg call failed",
                                      "ERROR CLI_SniffMac: Function CLI_MonitorTest call failed"}));
    EXPECT_EQ(call.err, call_failed_err("CLI_MonitorTest", "DRV_SetWifiCfg") +
                            call_failed_err("CLI_SniffMac", "CLI_MonitorTest"));
    EXPECT_EQ(call.out, "");
}

TEST_F(Sniff, ACaptureThatWillNotOpenIsReportedByBothCommands)
{
    scenario().capture.fail_setfilter = true;
    restart();
    const Call call = run([&] { return CLI_SniffMac(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              Lines({sniffing_on(1), "ERROR CLI_MonitorTest: Function ulink_recv_open call failed",
                     "ERROR CLI_SniffMac: Function CLI_MonitorTest call failed"}));
    EXPECT_EQ(call.err, call_failed_err("CLI_MonitorTest", "ulink_recv_open") +
                            call_failed_err("CLI_SniffMac", "CLI_MonitorTest"));
    EXPECT_EQ(call.out, "change channel to 1 ok\npcap_setfilter failed: Generic error");
    EXPECT_EQ(call.waited, 0);
}

TEST_F(Sniff, TheAlarmIsLeftArmedAfterASuccess)
{
    on_air({probe(kPhone, 0.5)});
    ASSERT_EQ(run([&] { return CLI_SniffMac(kPhoneText.c_str()); }).status, 0);
    EXPECT_EQ(sim::clock().now(), kSecond);
    // The handler stays installed ...
    struct sigaction installed {
    };
    ASSERT_EQ(sigaction(SIGALRM, nullptr, &installed), 0);
    EXPECT_EQ(installed.sa_handler, &CLI_SignalDeal);
    EXPECT_EQ(timeout_flag(), 0u);
    // ... and the alarm still comes, 56 s after the sniff began, and only sets the flag.
    sim::clock().advance(100 * kSecond);
    EXPECT_EQ(sim::clock().now(), 56 * kSecond);
    EXPECT_EQ(timeout_flag(), 1u);
    EXPECT_EQ(sim::journal().select(sim::Kind::Alarm, "SIGALRM").size(), 1u);
}

TEST_F(Sniff, TheNextSniffClearsTheFlagThatTheLeftAlarmSet)
{
    on_air({probe(kPhone, 0.5)});
    ASSERT_EQ(run([&] { return CLI_SniffMac(kPhoneText.c_str()); }).status, 0);
    sim::clock().advance(100 * kSecond); // the left alarm fires
    ASSERT_EQ(timeout_flag(), 1u);
    const Call call = run([&] { return CLI_SniffMac(kPhoneText.c_str()); });
    EXPECT_EQ(call.status, 0) << "found, not taken for a time-out";
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), heard(kPhoneText)}));
}

TEST_F(Sniff, ALaterSniffIsNotCutShortByTheAlarmAnEarlierSuccessLeft)
{
    on_air({probe(kPhone, 0.5)});
    ASSERT_EQ(run([&] { return CLI_SniffMac(kPhoneText.c_str()); }).status, 0);
    sim::clock().advance(40 * kSecond); // 41 s: the left alarm is due at 56 s
    ASSERT_EQ(sim::clock().now(), 41 * kSecond);
    const Call call = run([&] { return CLI_SniffMac(kAbsent.c_str()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.waited, 56 * kSecond + kMillisecond) << "a whole 56 s of its own";
    EXPECT_EQ(count_of(call.messages(), not_match()), 1u) << "the phone again, in the first batch";
    EXPECT_EQ(count_of(call.messages(), catch_timeout()), 55u);
    const auto delivered = call.of(sim::Kind::Alarm, "SIGALRM");
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0].time, 97 * kSecond);
}

TEST_F(Sniff, NoMacRunsToTheTimeOutWithoutACrash)
{
    on_air({probe(kPhone, 0.5)});
    const Call call = run([&] { return CLI_SniffMac(nullptr); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages().back(), " INFO CLI_SniffMac: sniff (null) timeout");
}

} // namespace
