// Live capture on the simulated Wi-Fi interface: a capture file replayed through the real libpcap,
// packets arriving on the simulated clock, the read time-out honoured.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <pcap/pcap.h>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "sim_fixture.h"

namespace
{

using sim::kMillisecond;
using sim::kSecond;

const std::string kCapture = CLIDRIVER_SOURCE_DIR "/tests/data/wifi/aircrack-ng_test1.pcap";

// One record of a classic little-endian pcap file, read without libpcap.
struct Record {
    sim::Nanos stamp;
    uint32_t wire_length;
    std::vector<uint8_t> data;
};

std::vector<Record> read_capture(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<Record> records;
    auto u32 = [&](size_t at) {
        uint32_t v;
        memcpy(&v, &bytes[at], 4);
        return v;
    };
    for (size_t at = 24; at + 16 <= bytes.size();) {
        const uint32_t caplen = u32(at + 8);
        Record record{static_cast<sim::Nanos>(u32(at)) * kSecond +
                          static_cast<sim::Nanos>(u32(at + 4)) * 1000,
                      u32(at + 12),
                      {bytes.begin() + static_cast<long>(at + 16),
                       bytes.begin() + static_cast<long>(at + 16 + caplen)}};
        records.push_back(record);
        at += 16 + caplen;
    }
    return records;
}

// A probe request: 802.11 management frame, subtype 4, right after the radio-tap header.
bool is_probe_request(const Record &record)
{
    const size_t radiotap = record.data[2] | (record.data[3] << 8);
    return record.data.size() > radiotap && record.data[radiotap] == 0x40;
}

struct Seen {
    std::vector<sim::Nanos> when;    // when the callback ran
    std::vector<sim::Nanos> stamped; // the arrival time stamped on the frame
    std::vector<uint32_t> caplen;
    std::vector<uint32_t> len;
    std::vector<uint8_t> frame_control;
};

void collect(u_char *user, const struct pcap_pkthdr *header, const u_char *bytes)
{
    auto *seen = reinterpret_cast<Seen *>(user);
    seen->when.push_back(sim::clock().now());
    seen->stamped.push_back((header->ts.tv_sec - sim::kDefaultBootEpochSeconds) * kSecond +
                            header->ts.tv_usec * 1000);
    seen->caplen.push_back(header->caplen);
    seen->len.push_back(header->len);
    const size_t radiotap = bytes[2] | (bytes[3] << 8);
    seen->frame_control.push_back(bytes[radiotap]);
}

class Capture : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        scenario().capture.file = kCapture;
        restart();
    }

    // Opens and filters the capture as the sniffer does.
    pcap_t *open_probe_capture()
    {
        char errbuf[PCAP_ERRBUF_SIZE] = {};
        pcap_t *handle = pcap_open_live("wlan0", 128, 1, 1000, errbuf);
        EXPECT_NE(handle, nullptr) << errbuf;
        if (handle == nullptr)
            return nullptr;
        EXPECT_EQ(pcap_compile(handle, &filter_, "type mgt subtype probe-req", 1, 0), 0)
            << pcap_geterr(handle);
        EXPECT_EQ(pcap_setfilter(handle, &filter_), 0);
        return handle;
    }
    void close_capture(pcap_t *handle)
    {
        pcap_freecode(&filter_);
        pcap_close(handle);
    }

    bpf_program filter_{};
};

TEST_F(Capture, OnlyProbeRequestsArriveAtTheirRecordedSpacing)
{
    const std::vector<Record> records = read_capture(kCapture);
    ASSERT_EQ(records.size(), 192u);
    std::vector<sim::Nanos> expected;
    for (const Record &record : records)
        if (is_probe_request(record))
            expected.push_back(record.stamp - records.front().stamp);
    ASSERT_EQ(expected.size(), 5u);

    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    // Keep dispatching as the sniff loop does until the file is used up.
    for (int pass = 0; pass < 400 && seen.when.size() < expected.size(); ++pass)
        ASSERT_GE(pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)), 0);
    close_capture(handle);
    ASSERT_EQ(seen.when.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(seen.frame_control[i], 0x40);
        EXPECT_EQ(seen.stamped[i], expected[i] / 1000 * 1000) << "packet " << i;
        // Handed over at the end of the read time-out it arrived in: no sooner, at most 1 s later.
        EXPECT_GE(seen.when[i], seen.stamped[i]);
        EXPECT_LE(seen.when[i], seen.stamped[i] + kSecond);
    }
}

TEST_F(Capture, FramesAreCutToTheSnapshotLengthButKeepTheirWireLength)
{
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    while (seen.when.empty())
        ASSERT_GE(pcap_dispatch(handle, 1, collect, reinterpret_cast<u_char *>(&seen)), 0);
    close_capture(handle);
    EXPECT_EQ(seen.caplen[0], 128u);
    EXPECT_GT(seen.len[0], 128u);
}

TEST_F(Capture, ADispatchWithoutPacketsReturnsAfterTheReadTimeOut)
{
    scenario().capture.file.clear(); // a quiet channel
    restart();
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    EXPECT_EQ(pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)), 0);
    EXPECT_EQ(sim::clock().now(), kSecond);
    EXPECT_EQ(pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)), 0);
    EXPECT_EQ(sim::clock().now(), 2 * kSecond);
    close_capture(handle);
}

TEST_F(Capture, TheEndOfTheFileIsAQuietChannel)
{
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    int quiet = 0;
    for (int pass = 0; pass < 400 && quiet < 3; ++pass) {
        const sim::Nanos before = sim::clock().now();
        if (pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)) == 0 &&
            seen.when.size() == 5u) {
            EXPECT_EQ(sim::clock().now() - before, kSecond);
            ++quiet;
        }
    }
    EXPECT_EQ(quiet, 3);
    close_capture(handle);
}

TEST_F(Capture, FirstArrivalDelaysTheWholeFile)
{
    const std::vector<Record> records = read_capture(kCapture);
    sim::Nanos first_probe = 0;
    for (const Record &record : records)
        if (is_probe_request(record)) {
            first_probe = record.stamp - records.front().stamp;
            break;
        }
    scenario().capture.first_arrival = 30 * kSecond;
    restart();
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    while (seen.when.empty())
        ASSERT_GE(pcap_dispatch(handle, 1, collect, reinterpret_cast<u_char *>(&seen)), 0);
    close_capture(handle);
    EXPECT_EQ(seen.stamped[0], 30 * kSecond + first_probe / 1000 * 1000);
}

TEST_F(Capture, OpenFailureGivesTheScriptedErrorText)
{
    scenario().capture.open_error = "wlan0: You don't have permission to capture on that device";
    restart();
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    EXPECT_EQ(pcap_open_live("wlan0", 128, 1, 1000, errbuf), nullptr);
    EXPECT_STREQ(errbuf, "wlan0: You don't have permission to capture on that device");
}

TEST_F(Capture, CompileFailureIsLibpcapsOwn)
{
    scenario().capture.fail_compile = true;
    restart();
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t *handle = pcap_open_live("wlan0", 128, 1, 1000, errbuf);
    ASSERT_NE(handle, nullptr);
    bpf_program program{};
    EXPECT_EQ(pcap_compile(handle, &program, "type mgt subtype probe-req", 1, 0), -1);
    EXPECT_NE(std::string(pcap_geterr(handle)).find("syntax error"), std::string::npos)
        << pcap_geterr(handle);
    pcap_close(handle);
}

TEST_F(Capture, SetFilterFailureOnDemand)
{
    scenario().capture.fail_setfilter = true;
    restart();
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t *handle = pcap_open_live("wlan0", 128, 1, 1000, errbuf);
    ASSERT_NE(handle, nullptr);
    bpf_program program{};
    ASSERT_EQ(pcap_compile(handle, &program, "type mgt subtype probe-req", 1, 0), 0);
    EXPECT_EQ(pcap_setfilter(handle, &program), -1);
    pcap_freecode(&program);
    pcap_close(handle);
}

TEST_F(Capture, DispatchErrorsOnDemandLeaveTheCaptureUsable)
{
    scenario().capture.dispatch_errors = {-1, 0};
    restart();
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    Seen seen;
    EXPECT_EQ(pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)), -1);
    EXPECT_EQ(sim::clock().now(), 0) << "an error comes back at once";
    EXPECT_GE(pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen)), 0);
    close_capture(handle);
}

TEST_F(Capture, OtherInterfacesAreNotSimulated)
{
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t *handle = pcap_open_live("clidriver-no-such-if0", 128, 1, 1000, errbuf);
    EXPECT_EQ(handle, nullptr) << "the PC has no such interface";
    EXPECT_NE(errbuf[0], '\0');
}

// The sniff loop: dispatch, nap, until the 56-second alarm ends it; nothing on the air.
TEST_F(Capture, AnAlarmEndsACaptureLoopOnTime)
{
    scenario().capture.file.clear();
    restart();
    gulCliTimeOut = 0;
    signal(SIGALRM, CLI_SignalDeal);
    pcap_t *handle = open_probe_capture();
    ASSERT_NE(handle, nullptr);
    alarm(56);
    Seen seen;
    int passes = 0;
    while (__atomic_load_n(&gulCliTimeOut, __ATOMIC_RELAXED) == 0) {
        pcap_dispatch(handle, 3, collect, reinterpret_cast<u_char *>(&seen));
        usleep(1000);
        ++passes;
    }
    close_capture(handle);
    // Each pass listens one second and rests one millisecond; the alarm cuts the 56th listening
    // short at 56 s, and its rest follows.
    EXPECT_EQ(sim::clock().now(), 56 * kSecond + kMillisecond);
    EXPECT_EQ(passes, 56);
}

} // namespace
