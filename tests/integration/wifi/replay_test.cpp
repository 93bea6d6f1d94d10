// The real captures of tests/data/wifi replayed on the simulated camera's air. Their radio-tap
// layouts are not the camera driver's, yet each record takes bytes 6-14 at the fixed offsets 22
// and 8; what each record must hold is worked out here by a reader of our own of the capture file.
// tcpdump's decoding of one capture confirms which frames that reader takes for probe requests.
// Then the sniff test finds real stations among them.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/clock.h"
#include "wifi_fixture.h"

namespace
{

using namespace wifitest;

const std::string kData = CLIDRIVER_SOURCE_DIR "/tests/data/wifi/";

// One record of a classic little-endian pcap file.
struct Frame {
    size_t number = 0; // 1-based, as tcpdump counts
    double at = 0;     // seconds after the file's first record
    uint32_t on_air = 0;
    Bytes data;
};

std::vector<Frame> read_pcap(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    const Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto u32 = [&](size_t at) {
        return static_cast<uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
                                     static_cast<uint32_t>(bytes[at + 3]) << 24);
    };
    std::vector<Frame> frames;
    if (bytes.size() < 24 || u32(0) != 0xA1B2C3D4 || u32(20) != 127)
        return frames;
    double first = -1;
    for (size_t at = 24; at + 16 <= bytes.size();) {
        const uint32_t captured = u32(at + 8);
        if (at + 16 + captured > bytes.size())
            break;
        Frame frame;
        frame.number = frames.size() + 1;
        const double stamp = u32(at) + u32(at + 4) / 1e6;
        if (first < 0)
            first = stamp;
        frame.at = stamp - first;
        frame.on_air = u32(at + 12);
        frame.data.assign(bytes.begin() + static_cast<long>(at + 16),
                          bytes.begin() + static_cast<long>(at + 16 + captured));
        frames.push_back(frame);
        at += 16 + captured;
    }
    return frames;
}

// A probe request by its 802.11 header, where the whole radio-tap length puts it (as libpcap's
// filter finds it): management type, subtype 4.
bool is_probe_request(const Frame &frame)
{
    if (frame.data.size() < 4)
        return false;
    const size_t radiotap = frame.data[2] | frame.data[3] << 8;
    return frame.data.size() > radiotap && (frame.data[radiotap] & 0xFC) == 0x40;
}

std::vector<Frame> probe_requests(const std::vector<Frame> &frames)
{
    std::vector<Frame> probes;
    for (const Frame &frame : frames)
        if (is_probe_request(frame))
            probes.push_back(frame);
    return probes;
}

// The transmitter as the 802.11 header gives it, for people and for the sniff.
std::string station_of(const Frame &frame)
{
    const size_t radiotap = frame.data[2] | frame.data[3] << 8;
    return clitest::mac_text(frame.data.data() + radiotap + 10);
}

struct RealCapture {
    const char *name;
    const char *file;
    size_t probes; // as tests/data/README.md lists them
};
void PrintTo(const RealCapture &row, std::ostream *os)
{
    *os << row.name;
}

const RealCapture kCaptures[] = {
    {"AircrackTest1", "aircrack-ng_test1.pcap", 5},
    {"AircrackWpa3", "aircrack-ng_wpa3-psk.pcap", 1},
    {"TcpdumpExtendedHeader", "tcpdump_ieee802.11_exthdr.pcap", 6},
    {"IPhone11ProbingPatterns", "ProbingPatternsDataset_iPhone11-F_anonymized.pcap", 106},
    {"ZeekDataFramesOnly", "zeek_radiotap.pcap", 0},
};

class Replay : public WifiTest
{
  protected:
    void play(const std::string &file)
    {
        scenario().capture = sim::CaptureScript{};
        scenario().capture.file = kData + file;
        restart();
    }
};

class EveryCapture : public Replay, public ::testing::WithParamInterface<RealCapture>
{
};

TEST_P(EveryCapture, EachProbeRequestBecomesItsRecordAtTheFixedOffsets)
{
    const RealCapture &row = GetParam();
    const std::vector<Frame> probes = probe_requests(read_pcap(kData + row.file));
    ASSERT_EQ(probes.size(), row.probes);
    Bytes want;
    for (const Frame &probe : probes) {
        // Every real probe request lies inside the bounds on the air, and 128 captured bytes hold
        // its address, the byte at 22 and the 8 bytes at 8.
        const size_t rt = probe.data[2];
        ASSERT_GE(probe.on_air, rt + 22) << probe.number;
        ASSERT_LE(probe.on_air, rt + 300) << probe.number;
        ASSERT_LE(rt + 16, 128u) << probe.number;
        want.insert(want.end(), probe.data.begin() + static_cast<long>(rt + 10),
                    probe.data.begin() + static_cast<long>(rt + 16));
        want.push_back(probe.data[22]);
        want.insert(want.end(), probe.data.begin() + 8, probe.data.begin() + 16);
    }

    play(row.file);
    ulink_capture capture{};
    ASSERT_EQ(ulink_recv_open("wlan0", 1000, &capture), 0);
    Bytes got;
    std::string printed;
    // Receive as the sniff loop does until the last probe request's time has passed.
    const sim::Nanos end = probes.empty() ? 0 : static_cast<sim::Nanos>(probes.back().at * 1e9) + 2 * kSecond;
    for (int pass = 0; pass < 2000 && sim::clock().now() < end; ++pass) {
        uint8_t buffer[256];
        uint32_t length = 0;
        const Call call = run([&] { return ulink_recv(3, buffer, &length, &capture); });
        ASSERT_EQ(call.status, 0);
        ASSERT_LE(length, 45u) << "at most three records a receive";
        got.insert(got.end(), buffer, buffer + length);
        printed += call.out;
    }
    ulink_recv_close(&capture);
    EXPECT_EQ(got, want);
    EXPECT_EQ(printed, "") << "the filter passes probe requests only";
}

INSTANTIATE_TEST_SUITE_P(Table, EveryCapture, ::testing::ValuesIn(kCaptures),
                         [](const ::testing::TestParamInfo<RealCapture> &info) {
                             return std::string(info.param.name);
                         });

TEST(TcpdumpDecode, ConfirmsWhichFramesAreProbeRequests)
{
    std::ifstream decoded(kData + "tcpdump_ieee802.11_exthdr.out");
    ASSERT_TRUE(decoded.good());
    std::vector<size_t> theirs;
    const std::regex numbered(R"(^\s*(\d+)\s.*)");
    for (std::string line; std::getline(decoded, line);) {
        std::smatch match;
        if (std::regex_match(line, match, numbered) && line.find(" Probe Request ") != std::string::npos)
            theirs.push_back(std::stoul(match[1]));
    }
    std::vector<size_t> ours;
    for (const Frame &frame : probe_requests(read_pcap(kData + "tcpdump_ieee802.11_exthdr.pcap")))
        ours.push_back(frame.number);
    EXPECT_EQ(ours, theirs);
    EXPECT_EQ(ours, std::vector<size_t>({1, 4, 7, 10, 13, 16}));
}

// ---- Finding real stations -------------------------------------------------------------------

TEST_F(Replay, TheHealthyCamerasAirHasFiveStationsProbing)
{
    // sim/scenarios/default.toml plays the aircrack-ng capture: five stations, one probe each.
    std::vector<std::string> stations;
    for (const Frame &probe : probe_requests(read_pcap(kData + "aircrack-ng_test1.pcap")))
        stations.push_back(station_of(probe));
    EXPECT_EQ(stations, Lines({"4c:5e:0c:b0:4f:f7", "7c:64:56:8a:d6:7c", "ec:d0:9f:05:44:b0",
                               "c0:d3:c0:7d:19:65", "da:a1:19:22:69:42"}));
}

TEST_F(Replay, TheThirdStationOnTheHealthyCamerasAirIsFound)
{
    // Arrivals 5.60 s, 12.09 s and 18.77 s: passes of 1 s and a 1 ms rest hear them in passes 6, 13
    // and 19, which ends at 19.018 s.
    const Call call = run([] { return CLI_SniffMac("EC:D0:9F:05:44:B0"); });
    EXPECT_EQ(call.status, 0);
    Lines want = {sniffing_on(1)};
    want.insert(want.end(), 5, catch_timeout());
    want.push_back(not_match());
    want.insert(want.end(), 6, catch_timeout());
    want.push_back(not_match());
    want.insert(want.end(), 5, catch_timeout());
    want.push_back(heard("ec:d0:9f:05:44:b0"));
    EXPECT_EQ(call.messages(), want);
    EXPECT_EQ(call.out, "change channel to 1 ok\n" + heard_out("ec:d0:9f:05:44:b0"));
    EXPECT_EQ(call.waited, 19 * kSecond + 18 * kMillisecond);
}

TEST_F(Replay, AStationNotOnTheHealthyCamerasAirTimesOutAfterHearingAllFive)
{
    const Call call = run([] { return CLI_SniffMac("02:00:00:00:00:99"); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(count_of(call.messages(), not_match()), 5u);
    EXPECT_EQ(count_of(call.messages(), catch_timeout()), 51u);
    EXPECT_EQ(call.out, "change channel to 1 ok\nsniff 02:00:00:00:00:99 timeout\r\n");
    EXPECT_EQ(call.waited, 56 * kSecond + kMillisecond);
}

TEST_F(Replay, ThreeProbesArriveBeforeTheReadTimeOutAndEndTheFirstReceive)
{
    // tcpdump's capture: the same station probes six times within half a second; the first
    // receive ends with the third probe, 0.267968 s after the first.
    play("tcpdump_ieee802.11_exthdr.pcap");
    const Call call = run([] { return CLI_SniffMac("90:a4:de:c0:46:11"); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), heard("90:a4:de:c0:46:11")}));
    EXPECT_EQ(call.waited, 267968 * sim::kMicrosecond);
}

TEST_F(Replay, APhoneHeardInTheThirdBatchOfThree)
{
    // The iPhone dataset: probes 1-3 (one address), 4-6 (two more), then 7-9, where the ninth,
    // 0.123705 s after the first, is the address asked for.
    const std::vector<Frame> probes =
        probe_requests(read_pcap(kData + "ProbingPatternsDataset_iPhone11-F_anonymized.pcap"));
    ASSERT_GE(probes.size(), 9u);
    ASSERT_EQ(station_of(probes[8]), "8a:f8:09:d4:51:e0");
    for (size_t i = 0; i < 8; ++i)
        ASSERT_NE(station_of(probes[i]), "8a:f8:09:d4:51:e0") << i;
    play("ProbingPatternsDataset_iPhone11-F_anonymized.pcap");
    const Call call = run([] { return CLI_SniffMac("8a:f8:09:d4:51:e0"); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), Lines({sniffing_on(1), not_match(), not_match(), heard("8a:f8:09:d4:51:e0")}));
    EXPECT_EQ(call.waited, 123705 * sim::kMicrosecond);
}

TEST_F(Replay, DataFramesOnlyGiveNothingToMatch)
{
    play("zeek_radiotap.pcap");
    const Call call = run([] { return CLI_SniffMac("02:00:00:00:00:99"); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(count_of(call.messages(), catch_timeout()), 56u);
}

} // namespace
