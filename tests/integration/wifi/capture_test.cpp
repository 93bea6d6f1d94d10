// The probe-request capture through libclidriver.so on the simulated camera: ulink_recv_open with
// its filter (and each way it fails, leaving nothing open), ulink_recv over frames of the test's
// own (the length bounds on the air, another subtype, a radio-tap length above 255, captures cut
// short, more packets than the record area holds), failed dispatches, and ulink_recv_close.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "wifi_fixture.h"

namespace
{

using namespace wifitest;

const std::string kOpened = "pcap_open_live(wlan0, 128, 1, 1000)";
const std::string kCompiled = "pcap_compile(\"type mgt subtype probe-req\") -> 0";
const std::string kFiltered = "pcap_setfilter -> 0";

constexpr Mac kStationA = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0A};
constexpr Mac kStationB = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0B};
constexpr Mac kStationC = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0C};
constexpr Mac kStationD = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0D};

// What one ulink_recv handed back: the result, the bytes and the length, and the buffer around
// them (256 bytes, filled with 0xEE first, so a write past the records shows).
struct Received {
    int32_t result = 0;
    uint32_t length = 0;
    std::vector<uint8_t> buffer;
    Bytes records() const { return Bytes(buffer.begin(), buffer.begin() + length); }
};

class Capture : public WifiTest
{
  protected:
    void TearDown() override
    {
        if (open_)
            ulink_recv_close(&capture_);
        WifiTest::TearDown();
    }

    void open()
    {
        ASSERT_EQ(ulink_recv_open("wlan0", 1000, &capture_), 0);
        open_ = true;
    }

    Received receive(int32_t count, Call *call = nullptr)
    {
        Received got;
        got.buffer.assign(256, 0xEE);
        got.length = 0xDEADBEEF;
        const Call done = run([&] {
            got.result = ulink_recv(count, got.buffer.data(), &got.length, &capture_);
            return got.result;
        });
        if (call != nullptr)
            *call = done;
        return got;
    }

    // A probe request of `on_air` bytes behind a radio-tap header of `radiotap` bytes.
    static Packet sized_probe(const Mac &station, uint16_t radiotap, uint32_t on_air, double at)
    {
        FrameShape shape;
        shape.station = station;
        shape.radiotap_field = radiotap;
        shape.on_air = on_air;
        return Packet{at, clitest::make_frame(shape), 0};
    }

    // A beacon that reaches the camera: libpcap's filter reads the whole 16-bit radio-tap length
    // (280) and finds a probe request there; the camera reads its low byte (24) and finds a beacon.
    static Packet beacon_past_the_filter(double at)
    {
        FrameShape shape;
        shape.radiotap_field = 0x0118;
        shape.on_air = 300; // inside 24 + 22 .. 24 + 300
        shape.fc = clitest::kFcBeacon;
        shape.fc_for_filter = clitest::kFcProbeRequest;
        return Packet{at, clitest::make_frame(shape), 0};
    }

    ulink_capture capture_{};
    bool open_ = false;
};

// ---- Opening and closing ---------------------------------------------------------------------

TEST_F(Capture, OpenFiltersProbeRequestsAtTheSnapLengthAndReadTimeOut)
{
    const Call call = run([&] { return ulink_recv_open("wlan0", 1000, &capture_); });
    open_ = call.status == 0;
    EXPECT_EQ(call.status, 0);
    EXPECT_NE(capture_.pstHandle, nullptr);
    EXPECT_EQ(capture_calls(call), Lines({kOpened, kCompiled, kFiltered}));
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(call.lines.empty());
}

TEST_F(Capture, TheSecondArgumentIsIgnored)
{
    const Call call = run([&] { return ulink_recv_open("wlan0", 5, &capture_); });
    open_ = call.status == 0;
    EXPECT_EQ(capture_calls(call), Lines({kOpened, kCompiled, kFiltered})) << "still a 1000 ms read time-out";
}

TEST_F(Capture, CloseFreesTheFilterAndClosesTheHandle)
{
    open();
    const Call call = run([&] { ulink_recv_close(&capture_); });
    open_ = false;
    EXPECT_EQ(capture_calls(call), Lines({"pcap_close"}));
    EXPECT_EQ(capture_.pstHandle, nullptr);
    EXPECT_EQ(capture_.stFilter.bf_insns, nullptr) << "the compiled filter is freed";
    EXPECT_EQ(call.out, "");
    // A second close finds nothing left to close.
    const Call again = run([&] { ulink_recv_close(&capture_); });
    EXPECT_TRUE(capture_calls(again).empty());
}

TEST_F(Capture, AFailedOpenReturnsMinusOneWithoutAWord)
{
    scenario().capture.open_error = "wlan0: That device is not up";
    restart();
    const Call call = run([&] { return ulink_recv_open("wlan0", 1000, &capture_); });
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(capture_.pstHandle, nullptr);
    EXPECT_EQ(call.out, "") << "libpcap's reason is not shown";
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(capture_calls(call), Lines({kOpened}));
}

TEST_F(Capture, AFailedCompileClosesTheHandle)
{
    scenario().capture.fail_compile = true;
    restart();
    const Call call = run([&] { return ulink_recv_open("wlan0", 1000, &capture_); });
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.out, "pcap_compile failed: can't parse filter expression: syntax error") << "no newline";
    EXPECT_EQ(capture_calls(call),
              Lines({kOpened, "pcap_compile(\"type mgt subtype probe-req\") -> -1", "pcap_close"}));
    EXPECT_EQ(capture_.pstHandle, nullptr);
    // Nothing is left open: the fixture checks the descriptors after the test.
}

TEST_F(Capture, AFailedFilterFreesTheProgramAndClosesTheHandle)
{
    scenario().capture.fail_setfilter = true;
    restart();
    const Call call = run([&] { return ulink_recv_open("wlan0", 1000, &capture_); });
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.out, "pcap_setfilter failed: Generic error") << "no newline";
    EXPECT_EQ(capture_calls(call), Lines({kOpened, kCompiled, "pcap_setfilter -> -1", "pcap_close"}));
    EXPECT_EQ(capture_.pstHandle, nullptr);
    EXPECT_EQ(capture_.stFilter.bf_insns, nullptr) << "the compiled filter is freed";
}

TEST_F(Capture, NoDeviceOrNoRecordOpensNothing)
{
    const Call call = run(
        [&] { return ulink_recv_open(nullptr, 1000, &capture_) + ulink_recv_open("wlan0", 1000, nullptr); });
    EXPECT_EQ(call.status, -2);
    EXPECT_TRUE(capture_calls(call).empty());
}

// ---- Receiving -------------------------------------------------------------------------------

TEST_F(Capture, AQuietChannelGivesNothingAfterTheReadTimeOut)
{
    quiet_air();
    open();
    Call call;
    const Received got = receive(3, &call);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.length, 0u);
    EXPECT_EQ(got.buffer, std::vector<uint8_t>(256, 0xEE)) << "nothing written";
    EXPECT_EQ(call.waited, kSecond);
    EXPECT_EQ(capture_calls(call), Lines({"pcap_dispatch(3) -> 0"}));
    EXPECT_EQ(call.out, "");
}

TEST_F(Capture, AProbeRequestBecomesItsRecord)
{
    FrameShape shape;
    shape.station = {0x4C, 0x5E, 0x0C, 0xB0, 0x4F, 0xF7};
    shape.signal = -61;
    shape.tsft = 0x0000000A2B3C4D5Eull;
    on_air({Packet{0.25, clitest::make_frame(shape), 0}});
    open();
    Call call;
    const Received got = receive(3, &call);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.records(),
              Bytes({0x4C, 0x5E, 0x0C, 0xB0, 0x4F, 0xF7, 0xC3, 0x5E, 0x4D, 0x3C, 0x2B, 0x0A, 0, 0, 0}));
    EXPECT_EQ(got.buffer[15], 0xEE) << "nothing past the record";
    EXPECT_EQ(call.waited, kSecond) << "fewer than 3 packets: the read time-out ends the receive";
    EXPECT_EQ(call.out, "");
}

TEST_F(Capture, LengthsOnTheAirOfRtPlus22AndRtPlus300AreRecordedRtPlus21AndRtPlus301DroppedSilently)
{
    // rt = 26; the longer frames are cut to the 128-byte snap length, their length on the air kept.
    on_air({sized_probe(kStationA, 26, 48, 0.1), sized_probe(kStationB, 26, 47, 0.2),
            sized_probe(kStationC, 26, 326, 0.3), sized_probe(kStationD, 26, 327, 0.4)});
    open();
    Call call;
    const Received got = receive(4, &call);
    EXPECT_EQ(got.result, 0);
    ASSERT_EQ(got.length, 30u);
    EXPECT_EQ(Bytes(got.buffer.begin(), got.buffer.begin() + 6), Bytes(kStationA.begin(), kStationA.end()));
    EXPECT_EQ(Bytes(got.buffer.begin() + 15, got.buffer.begin() + 21),
              Bytes(kStationC.begin(), kStationC.end()));
    EXPECT_EQ(call.out, "") << "dropped without a word";
    EXPECT_EQ(capture_calls(call), Lines({"pcap_dispatch(4) -> 4"})) << "all four were delivered";
    EXPECT_EQ(call.waited, 400 * kMillisecond) << "the receive ends with its fourth packet";
}

TEST_F(Capture, ABeaconInsideTheBoundsIsNamedAndAddsNothing)
{
    on_air({beacon_past_the_filter(0.1)});
    open();
    Call call;
    const Received got = receive(3, &call);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.length, 0u);
    EXPECT_EQ(call.out, "wifi subtype 8 wrong \r\n");
    EXPECT_TRUE(call.lines.empty());
}

TEST_F(Capture, ThreePacketsOfWhichTwoAreProbesGiveThirtyBytesInArrivalOrder)
{
    const Packet first = probe(kStationB, 0.1);
    const Packet second = probe(kStationA, 0.3);
    on_air({first, beacon_past_the_filter(0.2), second});
    open();
    Call call;
    const Received got = receive(3, &call);
    EXPECT_EQ(got.result, 0);
    Bytes want = clitest::expected_record(first.captured);
    const Bytes then = clitest::expected_record(second.captured);
    want.insert(want.end(), then.begin(), then.end());
    EXPECT_EQ(got.records(), want);
    EXPECT_EQ(got.length, 30u);
    EXPECT_EQ(call.out, "wifi subtype 8 wrong \r\n");
    EXPECT_EQ(call.waited, 300 * kMillisecond);
}

TEST_F(Capture, ARadiotapLengthAbove255IsMeasuredByItsLowByte)
{
    FrameShape shape;
    shape.radiotap_field = 0x011E; // 286; the camera starts the 802.11 header at 30
    shape.on_air = 300;            // inside 30 + 22 .. 30 + 300
    shape.station = kStationC;
    const Bytes frame = clitest::make_frame(shape);
    on_air({Packet{0.1, frame, 0}});
    open();
    const Received got = receive(3);
    ASSERT_EQ(got.length, 15u);
    EXPECT_EQ(Bytes(got.buffer.begin(), got.buffer.begin() + 6),
              Bytes(frame.begin() + 40, frame.begin() + 46))
        << "address 2 at 30 + 10";
    EXPECT_EQ(got.records(), clitest::expected_record(frame));
}

TEST_F(Capture, ACaptureCutShortIsDroppedNeverReadPast)
{
    FrameShape cut;
    cut.radiotap_field = 26;
    cut.on_air = 100;
    cut.station = kStationA;
    Bytes head = clitest::make_frame(cut);
    head.resize(30); // captured up to just past the frame control, 100 bytes on the air
    on_air({Packet{0.1, head, 100}, probe(kStationB, 0.2)});
    open();
    Call call;
    const Received got = receive(2, &call);
    EXPECT_EQ(capture_calls(call), Lines({"pcap_dispatch(2) -> 2"}));
    EXPECT_EQ(got.records(), clitest::expected_record(probe(kStationB, 0).captured)) << "only the whole one";
    EXPECT_EQ(call.out, "") << "dropped without a word";
}

TEST_F(Capture, ASnapLengthThatCutsTheAddressDropsTheFrame)
{
    // Radio-tap headers of 120 and 200 bytes: 128 captured bytes hold the first one's frame
    // control but not its address, and not even the second one's frame control.
    on_air({sized_probe(kStationA, 120, 200, 0.1), sized_probe(kStationB, 200, 250, 0.2),
            probe(kStationC, 0.3)});
    open();
    Call call;
    const Received got = receive(3, &call);
    EXPECT_EQ(capture_calls(call), Lines({"pcap_dispatch(3) -> 3"}));
    EXPECT_EQ(got.records(), clitest::expected_record(probe(kStationC, 0).captured));
    EXPECT_EQ(call.out, "");
}

TEST_F(Capture, MoreThanSeventeenPacketsNeverOverflowTheRecords)
{
    std::vector<Packet> packets;
    for (int i = 0; i < 20; ++i) {
        Mac station = kStationA;
        station[5] = static_cast<uint8_t>(i);
        packets.push_back(probe(station, 0.01 * (i + 1)));
    }
    on_air(packets);
    open();
    Call call;
    const Received got = receive(20, &call);
    EXPECT_EQ(capture_calls(call), Lines({"pcap_dispatch(20) -> 20"}));
    ASSERT_EQ(got.length, 255u) << "17 whole records";
    for (int i = 0; i < 17; ++i)
        EXPECT_EQ(got.buffer[static_cast<size_t>(15 * i + 5)], i) << "record " << i;
    EXPECT_EQ(got.buffer[255], 0xEE);
}

TEST_F(Capture, AFailedDispatchIsPassedUpAndLeavesTheOutputUntouched)
{
    scenario().capture.dispatch_errors = {-1};
    on_air({probe(kStationA, 0.5)});
    open();
    Call call;
    const Received failed = receive(3, &call);
    EXPECT_EQ(failed.result, -1);
    EXPECT_EQ(failed.length, 0xDEADBEEFu);
    EXPECT_EQ(failed.buffer, std::vector<uint8_t>(256, 0xEE));
    EXPECT_EQ(call.waited, 0);
    // The capture stays open and can be used again.
    const Received next = receive(3);
    EXPECT_EQ(next.result, 0);
    EXPECT_EQ(next.records(), clitest::expected_record(probe(kStationA, 0).captured));
}

TEST_F(Capture, DispatchErrorsOtherThanMinusOneComeBackAsTheyAre)
{
    scenario().capture.dispatch_errors = {-2};
    quiet_air();
    open();
    EXPECT_EQ(receive(3).result, -2);
}

TEST_F(Capture, ReceivingWithoutAnOpenCaptureAsksNothing)
{
    ulink_capture never{};
    uint8_t buffer[256];
    uint32_t length = 7;
    const Call call =
        run([&] { return ulink_recv(3, buffer, &length, &never) + ulink_recv(3, buffer, &length, nullptr); });
    EXPECT_EQ(call.status, -2);
    EXPECT_EQ(length, 7u);
    EXPECT_TRUE(capture_calls(call).empty());
}

} // namespace
