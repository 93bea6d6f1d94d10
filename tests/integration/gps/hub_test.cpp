// Both GPS queries through libclidriver.so in hub mode: the receiver behind the hub's GPS port,
// every hub frame the camera writes byte for byte (open and rate, the other devices' channels
// closed, close, reopen, the MediaTek sentences passed through, the last close), blocks that are
// one frame's payload, the 128-byte rule on them (a payload under 128 bytes lets any match
// count), a hub that acknowledges from its own port, and a silent receiver behind the hub.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gps_fixture.h"

namespace
{

using namespace gpstest;

constexpr uint32_t kHubRate = 115200;
const std::string kRmc = "$GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73";
const std::string kRmcShown = "Longitude:W 121.188515\nLatitude:N 44.041306";
const std::string kGga = "$GPGGA,110518.000,5709.8067,N,00207.2822,W,1,08,1.0,59.3,M,48.2,M,,0000*77";
const std::string kGsv = "$GPGSV,3,1,12,09,88,089,31,07,60,281,44,23,55,123,33,10,44,274,32*78";

class GpsBehindTheHub : public GpsTest
{
  protected:
    // The receiver hands its designed blocks to the hub whole, one frame each.
    void hang(const std::vector<std::string> &blocks)
    {
        hang_hub_with_receiver(designed_receiver(blocks));
        rs_init();
        declare_hub(kHubRate);
    }

    // Every frame a query writes when it finds its sentence in the first block.
    static std::vector<Bytes> frames_of_one_try(uint32_t mode)
    {
        const Bytes rate = clitest::big_endian_rate(9600);
        return {hub_frame(kHubPortGps, kHubOpen),
                hub_frame(kHubPortGps, kHubSetRate, rate),
                hub_frame(kHubPortRfid, kHubClose),
                hub_frame(kHubPortZigbee, kHubClose),
                hub_frame(kHubPortGps, kHubClose),
                hub_frame(kHubPortGps, kHubOpen),
                hub_frame(kHubPortGps, kHubSetRate, rate),
                hub_frame(kHubPortGps, kHubPass, bytes_of("$PMTK000*32\r\n")),
                hub_frame(kHubPortGps, kHubPass, bytes_of(mode_command(mode))),
                hub_frame(kHubPortGps, kHubClose)};
    }

    static std::string received(size_t payload)
    {
        const size_t length = payload + 4;
        char line[64];
        snprintf(line, sizeof line, " INFO CLI_ComRecv: len %zu(0x%zx)", length, length);
        return line;
    }
};

TEST_F(GpsBehindTheHub, ThePositionComesInOneFrameAfterEveryChannelFrame)
{
    const std::string block = designed_block({kGga, kRmc}, 1000);
    hang({block});
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), frames_of_one_try(0));
    EXPECT_EQ(call.messages(),
              (Lines{cmd_line(0), " INFO CLI_ComRecv: head 0xfe", received(1000),
                     " INFO CLI_GetGpsCoor: " + block, " INFO CLI_InfoAnalyse: " + kRmcShown}));
    EXPECT_EQ(call.out, kRmcShown + "\r\n");
    EXPECT_EQ(call.err, "");
    // The receiver hands over 1000 bytes at a time: 1000 x 1,041,666 ns at 9600 baud. The flush
    // at 4 s falls within piece 4 (3.84 pieces), which the hub then frames, 1009 bytes at 115200
    // baud (86,805 ns a byte).
    EXPECT_EQ(call.waited, 4 * 1000 * kByteAt9600 + 1009 * kByteAt115200);
    EXPECT_EQ(call.of(sim::Kind::Open, kLink).size(), 2u);
    EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 2u);
    sim::Port *port = line();
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->baud(), kHubRate) << "the line runs at the hub's rate";
}

TEST_F(GpsBehindTheHub, TheLast128BytesOfAPayloadDoNotCount)
{
    // The only RMC starts within the last 128 bytes of each 1000-byte payload: six tries.
    const std::string block = designed_block({kRmc}, 1000, true);
    hang({block});
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 1);
    const Lines messages = call.messages();
    ASSERT_EQ(messages.size(), 1u + 6 * 5 + 1);
    for (size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(messages[1 + 5 * k], " INFO CLI_ComRecv: head 0xfe");
        EXPECT_EQ(messages[2 + 5 * k], received(1000));
        EXPECT_EQ(messages[3 + 5 * k], " INFO CLI_GetGpsCoor: " + block);
        EXPECT_EQ(messages[4 + 5 * k],
                  " INFO CLI_GetGpsCoor: Left " + std::to_string(5 - k) + " chance to try");
    }
    EXPECT_EQ(messages.back(), "ERROR CLI_GetGpsCoor: Get Coordinate failed,please check rate");
}

TEST_F(GpsBehindTheHub, InAPayloadUnder128BytesAnyMatchCounts)
{
    // 100 bytes: the RMC starts at byte 29, so fewer than 128 bytes follow it, yet it counts
    // because 100 - 128 wraps round in the unsigned comparison.
    const std::string block = designed_block({kRmc}, 100, true);
    ASSERT_EQ(block.find("GPRMC"), 29u);
    hang({block});
    const Call call = run([] { return CLI_GetGpsCoor(0); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (Lines{cmd_line(0), " INFO CLI_ComRecv: head 0xfe", received(100),
                     " INFO CLI_GetGpsCoor: " + block, " INFO CLI_InfoAnalyse: " + kRmcShown}));
    EXPECT_EQ(call.out, kRmcShown + "\r\n");
    // 100-byte pieces (104,166,600 ns): the flush at 4 s falls within piece 39 (38.4 pieces), then
    // its 109-byte frame at 115200 baud.
    EXPECT_EQ(call.waited, 39 * 100 * kByteAt9600 + 109 * kByteAt115200);
}

TEST_F(GpsBehindTheHub, ASatelliteCountFromTheFrameWaitingInTheLine)
{
    const std::string block = designed_block({kGsv, kGga}, 1000);
    hang({block});
    const Call call = run([] { return CLI_GetGpsSatellite(0); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), frames_of_one_try(0));
    EXPECT_EQ(call.messages(), (Lines{cmd_line(0), " INFO CLI_ComRecv: head 0xfe", received(1000),
                                      " INFO CLI_GetGpsSatellite: 1000," + block,
                                      " INFO CLI_GetGpsSatellite: Location Satellite Num:8"}));
    EXPECT_EQ(call.out, "Location Satellite Num:8\r\n");
    EXPECT_EQ(call.waited, kBeforeFirstTry) << "the frame arrived while the mode was set";
}

TEST_F(GpsBehindTheHub, AcknowledgementsFromTheHubsOwnPortArePassedOver)
{
    const std::string block = designed_block({kGsv}, 1000);
    scenario().ports[kLink].make_peer = [block] {
        auto hub = std::make_unique<sim::HubPeer>();
        hub->acknowledge(0, {}, 0x0000);
        hub->add_device(sim::kHubPortGps, std::make_unique<sim::GpsPeer>(designed_receiver({block})));
        return hub;
    };
    restart();
    rs_init();
    declare_hub(kHubRate);
    const Call call = run([] { return CLI_GetGpsSatellite(0); });
    EXPECT_EQ(call.status, 0);
    // The open and the rate were acknowledged while the mode was set; both answers wait in the
    // line before the receiver's frame.
    EXPECT_EQ(
        call.messages(),
        (Lines{cmd_line(0), " INFO CLI_ComRecv: head 0xfe", received(0),
               " INFO CLI_ComRecv: data port 0 unmatch", " INFO CLI_ComRecv: head 0xfe", received(0),
               " INFO CLI_ComRecv: data port 0 unmatch", " INFO CLI_ComRecv: head 0xfe", received(1000),
               " INFO CLI_GetGpsSatellite: 1000," + block, " INFO CLI_GetGpsSatellite: Satellite Num:12"}));
}

TEST_F(GpsBehindTheHub, ASilentReceiverBehindTheHubFailsTheReadAndTheChannelIsClosed)
{
    hang_hub_with_receiver({}, {.mode = sim::Misbehaviour::Mode::Silent});
    rs_init();
    declare_hub(kHubRate);
    const Call call = run([] { return CLI_GetGpsCoor(1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (Lines{cmd_line(1), "ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                     "ERROR CLI_GetGpsCoor: read date fail"}));
    EXPECT_EQ(call.err, console("CLI_GetGpsCoor", "read date fail"));
    EXPECT_EQ(writes(call), frames_of_one_try(1)) << "the last frame closes the receiver's channel";
    EXPECT_EQ(call.waited, kBeforeFirstTry + 5 * kSecond);
}

} // namespace
