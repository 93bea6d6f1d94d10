// What the Wi-Fi tests share: the simulated camera with a capture file of the test's own on its
// air (written by tests/support/probe_frame.h, never by the library), removed afterwards; the
// lines the sniff test prints, written out here; and readings of the journal (libpcap calls,
// channel requests, platform calls).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unistd.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "core/journal.h"
#include "core/time.h"
#include "probe_frame.h"
#include "sim_fixture.h"

namespace wifitest
{

using clitest::Bytes;
using clitest::Call;
using clitest::FrameShape;
using clitest::Mac;
using clitest::Packet;
using sim::kMillisecond;
using sim::kSecond;
using Lines = std::vector<std::string>;

constexpr const char *kSource = "src/cli_libfun.cpp";
constexpr const char *kProbeFilter = "type mgt subtype probe-req";

// The lines of the sniff test, as operators see them.
inline std::string not_match()
{
    return "ERROR CLI_MonitorTest: not match";
}
inline std::string catch_timeout()
{
    return "ERROR CLI_MonitorTest: catch timeout";
}
inline std::string recv_fail()
{
    return "ERROR CLI_MonitorTest: recv data fail";
}
inline std::string sniffing_on(uint32_t channel)
{
    return " INFO CLI_MonitorTest: Sniff mac in channel " + std::to_string(channel);
}
inline std::string heard(const std::string &mac)
{
    return " INFO CLI_WifiDataProc: sniff macaddress is: " + mac;
}
inline std::string heard_out(const std::string &mac)
{
    return "sniff macaddress is: " + mac + "\r\n";
}
inline std::string call_failed_err(const std::string &function, const std::string &what)
{
    return std::string("[") + kSource + " " + function + "]: " + what + " call failed\r\n";
}

// The time-out flag as the sniff loop reads it.
inline uint32_t timeout_flag()
{
    return __atomic_load_n(&gulCliTimeOut, __ATOMIC_RELAXED);
}

class WifiTest : public clitest::SimTest
{
  protected:
    void TearDown() override
    {
        SimTest::TearDown();
        for (const std::string &path : files_)
            unlink(path.c_str());
    }

    // Puts `packets` on the air (arrival times from the capture's open, in order) and restarts the
    // camera.
    void on_air(const std::vector<Packet> &packets)
    {
        char pattern[] = "/tmp/clidriver-wifi-XXXXXX";
        const int fd = mkstemp(pattern);
        ASSERT_GE(fd, 0);
        close(fd);
        files_.push_back(pattern);
        ASSERT_TRUE(clitest::write_capture(pattern, packets));
        scenario().capture.file = pattern;
        // The replay counts from the file's first packet; that one comes this long after the open.
        scenario().capture.first_arrival =
            packets.empty() ? 0 : static_cast<sim::Nanos>(packets.front().at_seconds * 1e9 + 0.5);
        restart();
    }

    // A quiet channel: nothing on the air.
    void quiet_air()
    {
        scenario().capture.file.clear();
        restart();
    }

    // One probe request from `station`, arriving `at` seconds after the capture opens.
    static Packet probe(const Mac &station, double at)
    {
        FrameShape shape;
        shape.station = station;
        return Packet{at, clitest::make_frame(shape), 0};
    }

    std::vector<std::string> files_;
};

// The libpcap calls of a call, in order, as the journal shows them: "pcap_open_live(wlan0, 128,
// 1, 1000)" (without the file it replays), "pcap_compile(\"type mgt subtype probe-req\") -> 0",
// "pcap_setfilter -> 0", "pcap_dispatch(3) -> 1", "pcap_close".
inline Lines capture_calls(const Call &call)
{
    Lines calls;
    for (const sim::Entry &entry : call.of(sim::Kind::Capture))
        calls.push_back(entry.name == "pcap_open_live" ? entry.text.substr(0, entry.text.find(" -> "))
                                                       : entry.text);
    return calls;
}

// The channel requests of a call: the channel and what the driver answered.
struct ChannelRequest {
    std::string interface;
    int64_t channel = 0;
    int64_t exponent = 0, index = 0, flags = 0;
    int64_t result = 0;
    bool operator==(const ChannelRequest &) const = default;
};
inline void PrintTo(const ChannelRequest &request, std::ostream *os)
{
    *os << request.interface << " channel " << request.channel << " (e " << request.exponent << " i "
        << request.index << " flags " << request.flags << ") -> " << request.result;
}
inline std::vector<ChannelRequest> channel_requests(const Call &call)
{
    std::vector<ChannelRequest> requests;
    for (const sim::Entry &entry : call.of(sim::Kind::SocketIoctl))
        requests.push_back({entry.name, entry.values.at(0), entry.values.at(1), entry.values.at(2),
                            entry.values.at(3), entry.result});
    return requests;
}

// The shell command lines handed to COMDRV_System, in order.
inline Lines system_commands(const Call &call)
{
    Lines commands;
    for (const sim::Entry &entry : call.of(sim::Kind::Platform, "COMDRV_System")) {
        const size_t open = entry.text.find('"'), close = entry.text.rfind('"');
        commands.push_back(entry.text.substr(open + 1, close - open - 1));
    }
    return commands;
}

// How many times `line` stands in `lines`.
inline size_t count_of(const Lines &lines, const std::string &line)
{
    size_t n = 0;
    for (const std::string &each : lines)
        n += each == line;
    return n;
}

} // namespace wifitest
