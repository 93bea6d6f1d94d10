// What the sniffer keeps of a captured frame (src/probe_record.cpp, compiled in): the length rule
// on the length on the air, the subtype check, the fixed offsets, and every read inside the
// captured bytes. Frames are built by the test (tests/support/probe_frame.h).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "probe_frame.h"
#include "probe_record.h"

namespace
{

using clitest::Bytes;
using clitest::FrameShape;

// Runs cli_probe_take on exactly `captured` bytes of `frame`, copied into storage of that size so
// that a read past them is caught by the sanitizers.
struct Taken {
    CliProbeVerdict verdict;
    uint32_t subtype;
    Bytes record;
};

Taken take(const Bytes &frame, size_t captured, uint32_t on_air)
{
    std::unique_ptr<uint8_t[]> exact(new uint8_t[captured > 0 ? captured : 1]);
    if (captured > 0)
        memcpy(exact.get(), frame.data(), captured);
    probe_record record;
    memset(&record, 0xA5, sizeof record);
    Taken taken{};
    taken.subtype = 0xDEAD;
    taken.verdict =
        cli_probe_take(exact.get(), static_cast<uint32_t>(captured), on_air, &record, &taken.subtype);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    taken.record.assign(bytes, bytes + sizeof record);
    return taken;
}

Taken take_whole(const Bytes &frame)
{
    return take(frame, frame.size(), static_cast<uint32_t>(frame.size()));
}

TEST(ProbeRecord, TakesAddressTwoSignalAndTsftAtTheirOffsets)
{
    FrameShape shape;
    shape.radiotap_field = 26;
    shape.on_air = 70;
    shape.station = {0x4C, 0x5E, 0x0C, 0xB0, 0x4F, 0xF7};
    shape.signal = -61;
    shape.tsft = 0x0102030405060708ull;
    const Taken taken = take_whole(clitest::make_frame(shape));
    ASSERT_EQ(taken.verdict, CLI_PROBE_RECORDED);
    EXPECT_EQ(taken.subtype, 4u);
    const Bytes want = {0x4C, 0x5E, 0x0C, 0xB0, 0x4F, 0xF7, 0xC3, 0x08,
                        0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(taken.record, want);
}

TEST(ProbeRecord, LengthBoundsAreRadiotapPlus22AndPlus300OnTheAir)
{
    for (uint16_t rt : {0, 8, 26, 64, 112}) {
        const uint32_t low = rt + 22u, high = rt + 300u;
        FrameShape shape;
        shape.radiotap_field = rt;
        shape.on_air = high + 1;
        const Bytes frame = clitest::make_frame(shape);
        // Captured: the snap length's 128 bytes at most, and no more than is on the air.
        auto captured = [](uint32_t on_air) { return std::min<size_t>(on_air, 128); };
        if (rt >= 8) { // big enough for the header's address behind a real radio-tap header
            EXPECT_EQ(take(frame, captured(low), low).verdict, CLI_PROBE_RECORDED) << "rt " << rt;
            EXPECT_EQ(take(frame, captured(high), high).verdict, CLI_PROBE_RECORDED) << "rt " << rt;
        }
        EXPECT_EQ(take(frame, captured(low - 1), low - 1).verdict, CLI_PROBE_LENGTH) << "rt " << rt;
        EXPECT_EQ(take(frame, captured(high + 1), high + 1).verdict, CLI_PROBE_LENGTH) << "rt " << rt;
    }
}

TEST(ProbeRecord, TheLengthRuleUsesTheLengthOnTheAirNotTheCapturedOne)
{
    FrameShape shape;
    shape.radiotap_field = 26;
    shape.on_air = 400;
    const Bytes frame = clitest::make_frame(shape);
    // 128 bytes captured of 326 on the air: inside the bounds.
    EXPECT_EQ(take(frame, 128, 326).verdict, CLI_PROBE_RECORDED);
    // 128 bytes captured of 327: out, although what was captured would fit.
    EXPECT_EQ(take(frame, 128, 327).verdict, CLI_PROBE_LENGTH);
    // 47 captured and 48 on the air: the length on the air decides, and 47 bytes hold the record.
    EXPECT_EQ(take(frame, 47, 48).verdict, CLI_PROBE_RECORDED);
}

TEST(ProbeRecord, ABeaconInsideTheBoundsIsAnotherSubtype)
{
    FrameShape shape;
    shape.fc = clitest::kFcBeacon;
    const Taken taken = take_whole(clitest::make_frame(shape));
    EXPECT_EQ(taken.verdict, CLI_PROBE_SUBTYPE);
    EXPECT_EQ(taken.subtype, 8u);
    shape.fc = clitest::kFcProbeResponse;
    EXPECT_EQ(take_whole(clitest::make_frame(shape)).subtype, 5u);
}

TEST(ProbeRecord, AFrameOutsideTheBoundsIsDroppedBeforeItsSubtypeIsLookedAt)
{
    FrameShape shape;
    shape.fc = clitest::kFcBeacon;
    shape.radiotap_field = 26;
    shape.on_air = 47;
    const Taken taken = take_whole(clitest::make_frame(shape));
    EXPECT_EQ(taken.verdict, CLI_PROBE_LENGTH);
    EXPECT_EQ(taken.subtype, 0u);
}

TEST(ProbeRecord, OnlyTheLowByteOfTheRadiotapLengthCounts)
{
    FrameShape shape;
    shape.radiotap_field = 0x011E; // 286: the camera looks at 30
    shape.on_air = 300;            // inside 30 + 22 .. 30 + 300
    shape.station = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01};
    const Bytes frame = clitest::make_frame(shape);
    const Taken taken = take(frame, 128, 300);
    ASSERT_EQ(taken.verdict, CLI_PROBE_RECORDED);
    EXPECT_EQ(Bytes(taken.record.begin(), taken.record.begin() + 6),
              Bytes({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01}));
    EXPECT_EQ(Bytes(taken.record.begin(), taken.record.begin() + 6),
              Bytes(frame.begin() + 40, frame.begin() + 46));
}

// ---- Frames cut short: nothing is read past the captured bytes ---------------------------------

TEST(ProbeRecord, TooShortToHoldTheRadiotapLengthIsDropped)
{
    const Bytes frame = clitest::make_frame(FrameShape{});
    for (size_t captured : {0, 1, 2})
        EXPECT_EQ(take(frame, captured, 80).verdict, CLI_PROBE_SHORT) << captured;
    uint32_t subtype = 0xDEAD;
    EXPECT_EQ(cli_probe_take(nullptr, 80, 80, nullptr, &subtype), CLI_PROBE_SHORT);
    EXPECT_EQ(subtype, 0u);
}

TEST(ProbeRecord, CutBeforeTheFrameControlIsDroppedWithoutASubtype)
{
    FrameShape shape;
    shape.radiotap_field = 26;
    const Bytes frame = clitest::make_frame(shape);
    const Taken taken = take(frame, 26, 80);
    EXPECT_EQ(taken.verdict, CLI_PROBE_SHORT);
    EXPECT_EQ(taken.subtype, 0u);
}

TEST(ProbeRecord, CutInsideAddressTwoIsDropped)
{
    FrameShape shape;
    shape.radiotap_field = 26;
    const Bytes frame = clitest::make_frame(shape);
    for (size_t captured = 27; captured < 42; ++captured) {
        const Taken taken = take(frame, captured, 80);
        EXPECT_EQ(taken.verdict, CLI_PROBE_SHORT) << captured;
        EXPECT_EQ(taken.subtype, 4u) << captured;
    }
    EXPECT_EQ(take(frame, 42, 80).verdict, CLI_PROBE_RECORDED);
}

TEST(ProbeRecord, AShortRadiotapHeaderStillNeedsTheSignalAndTsftBytes)
{
    FrameShape shape;
    shape.radiotap_field = 4; // address 2 at 14..19, but the record also reads 22 and 8..15
    const Bytes frame = clitest::make_frame(shape);
    EXPECT_EQ(take(frame, 22, 80).verdict, CLI_PROBE_SHORT);
    EXPECT_EQ(take(frame, 23, 80).verdict, CLI_PROBE_RECORDED);
}

TEST(ProbeRecord, ASnapLengthThatCutsALongRadiotapHeaderDropsTheFrame)
{
    // 120 bytes of radio-tap: the 128 captured bytes hold the frame control but not address 2.
    FrameShape shape;
    shape.radiotap_field = 120;
    shape.on_air = 200;
    const Bytes frame = clitest::make_frame(shape);
    EXPECT_EQ(take(frame, 128, 200).verdict, CLI_PROBE_SHORT);
    // 200 bytes of radio-tap: not even the frame control is captured.
    shape.radiotap_field = 200;
    shape.on_air = 250;
    const Taken taken = take(clitest::make_frame(shape), 128, 250);
    EXPECT_EQ(taken.verdict, CLI_PROBE_SHORT);
    EXPECT_EQ(taken.subtype, 0u);
}

// ---- The collector ---------------------------------------------------------------------------

TEST(ProbeCollector, StartsEmptyWithItsCursorAtTheArea)
{
    ulink_collector collector;
    memset(&collector, 0xA5, sizeof collector);
    int handle = 0;
    cli_probe_collector_start(&collector, &handle, 3);
    EXPECT_EQ(collector.pvHandle, &handle);
    EXPECT_EQ(collector.lCount, 3);
    EXPECT_EQ(collector.pucCursor, collector.aucArea);
    EXPECT_EQ(collector.ulByteCount, 0u);
    for (uint8_t byte : collector.aucArea)
        ASSERT_EQ(byte, 0);
}

TEST(ProbeCollector, RecordsGoEndToEndInArrivalOrder)
{
    ulink_collector collector;
    cli_probe_collector_start(&collector, nullptr, 3);
    FrameShape first, beacon, second;
    first.station = {1, 2, 3, 4, 5, 6};
    beacon.fc = clitest::kFcBeacon;
    second.station = {7, 8, 9, 10, 11, 12};
    uint32_t subtype = 0;
    Bytes want;
    for (const FrameShape &shape : {first, beacon, second}) {
        const Bytes frame = clitest::make_frame(shape);
        const CliProbeVerdict verdict =
            cli_probe_collect(&collector, frame.data(), static_cast<uint32_t>(frame.size()),
                              static_cast<uint32_t>(frame.size()), &subtype);
        if (shape.fc == clitest::kFcProbeRequest) {
            EXPECT_EQ(verdict, CLI_PROBE_RECORDED);
            const Bytes record = clitest::expected_record(frame);
            want.insert(want.end(), record.begin(), record.end());
        } else {
            EXPECT_EQ(verdict, CLI_PROBE_SUBTYPE);
        }
    }
    ASSERT_EQ(collector.ulByteCount, 30u);
    EXPECT_EQ(Bytes(collector.aucArea, collector.aucArea + 30), want);
    EXPECT_EQ(collector.pucCursor, collector.aucArea + 30);
}

TEST(ProbeCollector, TheAreaTakesSeventeenRecordsAndNeverMore)
{
    ulink_collector collector;
    cli_probe_collector_start(&collector, nullptr, 40);
    uint32_t subtype = 0;
    for (int i = 0; i < 40; ++i) {
        FrameShape shape;
        shape.station[5] = static_cast<uint8_t>(i);
        const Bytes frame = clitest::make_frame(shape);
        const CliProbeVerdict verdict =
            cli_probe_collect(&collector, frame.data(), static_cast<uint32_t>(frame.size()),
                              static_cast<uint32_t>(frame.size()), &subtype);
        EXPECT_EQ(verdict, i < 17 ? CLI_PROBE_RECORDED : CLI_PROBE_FULL) << i;
    }
    EXPECT_EQ(collector.ulByteCount, 255u);
    EXPECT_EQ(collector.aucArea[255], 0) << "the last byte of the area is never written";
    EXPECT_EQ(collector.aucArea[15 * 16 + 5], 16) << "the 17th record is the 17th frame";
}

} // namespace
