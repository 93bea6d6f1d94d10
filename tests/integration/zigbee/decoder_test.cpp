// Both ZigBee decoders through libclidriver.so: the coordinator's stuffed frames
// (CLI_ZigBeeDataDealNew) and the older unstuffed layout (CLI_ZigBeeDataDeal). Every frame is
// handed over in a heap buffer of exactly the size the decoder is told (the older layout: of
// exactly the K + 4 bytes its count gives), so that a read beyond it shows under the sanitizers;
// the record has guard bytes after it. Each row says what the decoder prints, returns, counts and
// writes into a record whose every field was set to something else first.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "zigbee_fixture.h"

// Under the sanitizers, as with the C library's own allocator, an allocation that cannot be served
// comes back null instead of ending the process: the decoder's refusal of a work buffer it cannot
// have is what one test here shows.
#if defined(__SANITIZE_ADDRESS__)
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
#endif
#if defined(__SANITIZE_THREAD__)
extern "C" const char *__tsan_default_options()
{
    return "allocator_may_return_null=1";
}
#endif

namespace
{

using namespace zbtest;
using clitest::zb_bytes;
using clitest::zb_climate;
using clitest::zb_particulate;
using clitest::zb_report;
using clitest::zb_stuff;
using clitest::zb_version;

// The record a row expects after the call; the marked record is state -7, temperature 11,
// humidity 22, particulate 33, version "old", and the count starts at 5.
struct Record {
    int32_t state = -7;
    uint32_t temperature = 11;
    uint32_t humidity = 22;
    uint32_t particulate = 33;
    std::string version = "old";
};
constexpr uint32_t kCountBefore = 5;

struct DecodeRow {
    const char *name;
    ZbBytes input;
    std::optional<uint32_t> size; // what the decoder may examine; default the whole input
    long long status;
    Lines messages;
    std::string err;
    Record after;
    uint32_t count;
};

void PrintTo(const DecodeRow &row, std::ostream *out)
{
    *out << row.name;
}

std::string row_name(const ::testing::TestParamInfo<DecodeRow> &info)
{
    return info.param.name;
}

std::string forty_characters()
{
    return "ABCDEFGHIJ0123456789abcdefghijKLMNOPQRST";
}

const std::string kDecoder = "CLI_ZigBeeDataDealNew";
const std::string kOldDecoder = "CLI_ZigBeeDataDeal";

// A whole report with the given inside (type, length, checksum, coordinator bytes, sensor frame)
// cut to exactly `content` bytes after the start byte, then closed.
ZbBytes report_inside_cut(uint8_t head, size_t content)
{
    ZbBytes inside = {0x80, 0x02, 0x00, 0x0A, 0x00, 0x00, 0x12, 0x34, 0x01,
                      0x00, 0x00, head, 0x00, 0x08, 0x03, 0x12, 0x34, 0x15};
    inside.resize(content - 1);
    return zb_stuff(inside);
}

class StuffedFrames : public clitest::SimTest, public ::testing::WithParamInterface<DecodeRow>
{
};

TEST_P(StuffedFrames, DecodeAsTheRowSays)
{
    const DecodeRow &row = GetParam();
    const ExactBuffer data(row.input);
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    const Call call = run([&] {
        return CLI_ZigBeeDataDealNew(data.data(), row.size.value_or(data.size()), &held.record, &count);
    });
    EXPECT_EQ(call.status, row.status);
    EXPECT_EQ(call.messages(), row.messages);
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, row.err);
    EXPECT_EQ(held.record.lState, row.after.state);
    EXPECT_EQ(held.record.ulTemperature, row.after.temperature);
    EXPECT_EQ(held.record.ulHumidity, row.after.humidity);
    EXPECT_EQ(held.record.ulParticulate, row.after.particulate);
    EXPECT_TRUE(held.version_terminated());
    EXPECT_EQ(held.version(), row.after.version);
    EXPECT_EQ(count, row.count);
    EXPECT_TRUE(held.guard_intact()) << "nothing written past the record";
    clitest::expect_reported_by_command_unit(call);
}

const std::string kClimate =
    "01 80 02 12 02 10 11 24 02 10 12 34 02 11 02 10 02 10 FE 02 10 02 18 02 13 12 34 "
    "15 02 19 C4 13 88 03";

INSTANTIATE_TEST_SUITE_P(
    Decoder, StuffedFrames,
    ::testing::Values(
        // The examples of the coordinator's framing, each written out by hand.
        DecodeRow{"TheResetFrameUnstuffsToSixBytesBeforeItsEndAndIsNoReport",
                  zb_bytes("01 02 10 12 02 10 02 10 12 03"),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data len 6 too short"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"AnEscapeOf25EndsTheDecodingWithoutAWord",
                  zb_bytes("01 80 02 25 03"),
                  {},
                  1,
                  {},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"AnInputEndingWithAnEscapeIsATailError",
                  zb_bytes("01 80 02 10 02"),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data fomat err(tail)"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"ATemperatureAndHumidityReport",
                  zb_bytes(kClimate),
                  {},
                  0,
                  {" INFO " + kDecoder + ": hum info get, hum: 5000 temp: 2500\n"},
                  "",
                  {0, 2500, 5000, 33, "old"},
                  kCountBefore + 1},
        DecodeRow{
            "AParticulateReport",
            zb_bytes("01 80 02 12 02 10 11 A7 02 10 12 34 02 11 02 10 02 10 FE 02 10 02 18 02 13 12 34 16 "
                     "02 10 02 10 02 14 D2 03"),
            {},
            0,
            {" INFO " + kDecoder + ": pm info get: 1234\n"},
            "",
            {0, 11, 22, 1234, "old"},
            kCountBefore + 1},
        DecodeRow{
            "AVersionWithLength12IsEightCharacters",
            zb_bytes("01 80 02 12 02 10 15 86 02 10 12 34 02 11 02 10 02 10 FE 02 10 02 1C 02 13 12 34 FE "
                     "5A 42 31 2E 30 2E 31 37 03"),
            {},
            0,
            {" INFO " + kDecoder + ": ver info get\n"},
            "",
            {0, 11, 22, 33, "ZB1.0.17"},
            kCountBefore + 1},
        DecodeRow{
            "ReadingsAbove32767AreUnsigned",
            zb_bytes("01 80 02 12 02 10 11 AE 02 10 12 34 02 11 02 10 02 10 FE 02 10 02 18 02 13 12 34 15 "
                     "9C 40 FF FF 03"),
            {},
            0,
            {" INFO " + kDecoder + ": hum info get, hum: 65535 temp: 40000\n"},
            "",
            {0, 40000, 65535, 33, "old"},
            kCountBefore + 1},
        DecodeRow{"AParticulateReadingIsPrintedAsASignedWord",
                  zb_particulate(0x80000000u),
                  {},
                  0,
                  {" INFO " + kDecoder + ": pm info get: -2147483648\n"},
                  "",
                  {0, 11, 22, 0x80000000u, "old"},
                  kCountBefore + 1},
        DecodeRow{"AnEscapedByteOf0FIsData",
                  zb_climate(0x0F0F, 0x0010),
                  {},
                  0,
                  {" INFO " + kDecoder + ": hum info get, hum: 16 temp: 3855\n"},
                  "",
                  {0, 3855, 16, 33, "old"},
                  kCountBefore + 1},
        DecodeRow{"OnlyTheFirstFrameOfTheInputIsRead",
                  [] {
                      ZbBytes both = zb_climate(100, 200);
                      const ZbBytes second = zb_particulate(300);
                      both.insert(both.end(), second.begin(), second.end());
                      return both;
                  }(),
                  {},
                  0,
                  {" INFO " + kDecoder + ": hum info get, hum: 200 temp: 100\n"},
                  "",
                  {0, 100, 200, 33, "old"},
                  kCountBefore + 1},
        DecodeRow{"AFrameWithoutItsEndByteIsTakenAsFarAsItGoes",
                  [] {
                      ZbBytes open = zb_bytes(kClimate);
                      open.pop_back();
                      return open;
                  }(),
                  {},
                  0,
                  {" INFO " + kDecoder + ": hum info get, hum: 5000 temp: 2500\n"},
                  "",
                  {0, 2500, 5000, 33, "old"},
                  kCountBefore + 1},

        // Refusals.
        DecodeRow{"AFirstByteOtherThan01",
                  zb_bytes("AA F0 0C 00 21 FE 00 08 03 00 00 15 09 C4 13 88"),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": first word[0xaa] != 0x1"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"AHeadOtherThanFE",
                  zb_report({.head = 0xFD, .command = 0x15, .data = {0x09, 0xC4, 0x13, 0x88}}),
                  {},
                  1,
                  {"ERROR " + kDecoder +
                   ": sens data fomat err, data head[0xfd] should be 0xfe, data type[0x3] should be 0x3"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"ADataTypeOtherThan3",
                  zb_report({.data_type = 4, .command = 0x15, .data = {0x09, 0xC4, 0x13, 0x88}}),
                  {},
                  1,
                  {"ERROR " + kDecoder +
                   ": sens data fomat err, data head[0xfe] should be 0xfe, data type[0x4] should be 0x3"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"AnUnknownCommandLeavesTheState0",
                  zb_report({.command = 0x17, .data = {0x01, 0x02, 0x03, 0x04}}),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": unknow Cmd type 23"},
                  console(kDecoder, "unknow Cmd type 23"),
                  {0, 11, 22, 33, "old"},
                  kCountBefore},

        // Frames too short for what they claim: nothing is read past the decoded frame.
        DecodeRow{"FifteenBytesCannotShowAHead",
                  report_inside_cut(0xFD, 15),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data len 15 too short"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"SixteenBytesAreJudgedByTheirHead",
                  report_inside_cut(0xFD, 16),
                  {},
                  1,
                  {"ERROR " + kDecoder +
                   ": sens data fomat err, data head[0xfd] should be 0xfe, data type[0x3] should be 0x3"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"ARightHeadWithoutACommandIsASensorFrameCutShort",
                  report_inside_cut(0xFE, 18),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data len 18 too short"},
                  "",
                  {0, 11, 22, 33, "old"},
                  kCountBefore},
        DecodeRow{"AClimateReportWithTwoBytesOfData",
                  zb_report({.command = 0x15, .data = {0x09, 0xC4}}),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data len 21 too short"},
                  "",
                  {0, 11, 22, 33, "old"},
                  kCountBefore},
        DecodeRow{"AParticulateReportWithThreeBytesOfData",
                  zb_report({.command = 0x16, .data = {0x00, 0x04, 0xD2}}),
                  {},
                  1,
                  {"ERROR " + kDecoder + ": data len 22 too short"},
                  "",
                  {0, 11, 22, 33, "old"},
                  kCountBefore},
        DecodeRow{"AReportBeyondTheSizeGivenIsNotRead",
                  zb_bytes(kClimate),
                  19,
                  1,
                  {"ERROR " + kDecoder + ": data len 13 too short"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"ASizeThatEndsOnAnEscapeIsATailError",
                  zb_bytes(kClimate),
                  20,
                  1,
                  {"ERROR " + kDecoder + ": data fomat err(tail)"},
                  "",
                  {},
                  kCountBefore},
        DecodeRow{"SizeZero",
                  zb_bytes("01"),
                  0,
                  1,
                  {"ERROR " + kDecoder + ": data len 0 too short"},
                  "",
                  {},
                  kCountBefore},

        // Versions: at most 31 characters and the terminator, never past the frame.
        DecodeRow{"AVersionOfFortyCharactersKeepsThirtyOne",
                  zb_version(forty_characters()),
                  {},
                  0,
                  {"ERROR " + kDecoder + ": ver len 40 out of range, 31 kept",
                   " INFO " + kDecoder + ": ver info get\n"},
                  "",
                  {0, 11, 22, 33, forty_characters().substr(0, 31)},
                  kCountBefore + 1},
        DecodeRow{"AVersionOfThirtyOneCharactersIsWhole",
                  zb_version(forty_characters().substr(0, 31)),
                  {},
                  0,
                  {" INFO " + kDecoder + ": ver info get\n"},
                  "",
                  {0, 11, 22, 33, forty_characters().substr(0, 31)},
                  kCountBefore + 1},
        DecodeRow{
            "ALengthFieldBelow4KeepsWhatTheFrameHolds",
            zb_bytes("01 80 02 12 02 10 15 88 02 10 12 34 02 11 02 10 02 10 FE 02 10 02 12 02 13 12 34 FE "
                     "5A 42 31 2E 30 2E 31 37 03"),
            {},
            0,
            {"ERROR " + kDecoder + ": ver len -2 out of range, 8 kept",
             " INFO " + kDecoder + ": ver info get\n"},
            "",
            {0, 11, 22, 33, "ZB1.0.17"},
            kCountBefore + 1},
        DecodeRow{"ALengthField0WithFortyCharactersKeepsThirtyOne",
                  zb_version(forty_characters(), 0),
                  {},
                  0,
                  {"ERROR " + kDecoder + ": ver len -4 out of range, 31 kept",
                   " INFO " + kDecoder + ": ver info get\n"},
                  "",
                  {0, 11, 22, 33, forty_characters().substr(0, 31)},
                  kCountBefore + 1},
        DecodeRow{"AVersionClaimingMoreThanTheFrameHolds",
                  zb_version("ZB1.0.17", 32),
                  {},
                  0,
                  {"ERROR " + kDecoder + ": ver len 28 out of range, 8 kept",
                   " INFO " + kDecoder + ": ver info get\n"},
                  "",
                  {0, 11, 22, 33, "ZB1.0.17"},
                  kCountBefore + 1},
        DecodeRow{"AnEmptyVersionEmptiesTheText",
                  zb_version(""),
                  {},
                  0,
                  {" INFO " + kDecoder + ": ver info get\n"},
                  "",
                  {0, 11, 22, 33, ""},
                  kCountBefore + 1}),
    row_name);

class DecoderArguments : public clitest::SimTest
{
};

TEST_F(DecoderArguments, NoDataIsRefused)
{
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    const Call call = run([&] { return CLI_ZigBeeDataDealNew(nullptr, 1024, &held.record, &count); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR " + kDecoder + ": data NULL"});
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(count, kCountBefore);
    EXPECT_EQ(held.record.lState, -7);
}

TEST_F(DecoderArguments, NoRecordOrNoCounterIsRefused)
{
    const ExactBuffer data(zb_bytes(kClimate));
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    const Call without_record =
        run([&] { return CLI_ZigBeeDataDealNew(data.data(), data.size(), nullptr, &count); });
    EXPECT_EQ(without_record.status, 1);
    EXPECT_EQ(without_record.messages(), Lines{"ERROR " + kDecoder + ": record NULL"});
    EXPECT_EQ(count, kCountBefore);
    const Call without_count =
        run([&] { return CLI_ZigBeeDataDealNew(data.data(), data.size(), &held.record, nullptr); });
    EXPECT_EQ(without_count.status, 1);
    EXPECT_EQ(without_count.messages(), Lines{"ERROR " + kDecoder + ": record NULL"});
    EXPECT_EQ(held.record.lState, -7);
    EXPECT_EQ(held.record.ulTemperature, 11u);
}

// The work buffer is as large as the size the caller gives. A size the process cannot allocate
// is refused before anything but the first byte is read. The address space is capped for the
// call (each test runs in a process of its own), so that the allocation fails on any machine.
TEST_F(DecoderArguments, AWorkBufferThatCannotBeAllocatedIsRefused)
{
    const ExactBuffer data(zb_bytes("01"));
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    long pages = 0;
    FILE *statm = fopen("/proc/self/statm", "r");
    ASSERT_NE(statm, nullptr);
    ASSERT_EQ(fscanf(statm, "%ld", &pages), 1);
    fclose(statm);
    rlimit capped = before;
    capped.rlim_cur = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (256u << 20);
    if (before.rlim_cur != RLIM_INFINITY && before.rlim_cur < capped.rlim_cur)
        capped.rlim_cur = before.rlim_cur;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &capped), 0);
    const Call call =
        run([&] { return CLI_ZigBeeDataDealNew(data.data(), 0xFFFFFFFFu, &held.record, &count); });
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR " + kDecoder + ": malloc fail, len: 4294967295"});
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(count, kCountBefore);
    EXPECT_EQ(held.record.lState, -7);
}

// ---- The older layout -------------------------------------------------------------------------

// AA F0, the count K, a byte, the device byte, then the sensor frame: FE, length (data type to
// end of data), data type, two bytes, command, data. K makes the frame exactly its own length.
struct OldFrame {
    uint8_t device = 0x21;
    uint8_t start1 = 0xF0;
    uint8_t head = 0xFE;
    std::optional<uint16_t> length{};
    uint8_t data_type = 3;
    uint8_t command = 21;
    ZbBytes data{};
};

ZbBytes old_frame(const OldFrame &frame)
{
    const uint16_t length = frame.length.value_or(static_cast<uint16_t>(frame.data.size() + 4));
    ZbBytes bytes = {0xAA,
                     frame.start1,
                     0x00,
                     0x00,
                     frame.device,
                     frame.head,
                     static_cast<uint8_t>(length >> 8),
                     static_cast<uint8_t>(length),
                     frame.data_type,
                     0x00,
                     0x00,
                     frame.command};
    for (const uint8_t byte : frame.data)
        bytes.push_back(byte);
    bytes[2] = static_cast<uint8_t>(bytes.size() - 4);
    return bytes;
}

ZbBytes text_bytes(const std::string &text)
{
    return ZbBytes(text.begin(), text.end());
}

class OlderFrames : public clitest::SimTest, public ::testing::WithParamInterface<DecodeRow>
{
};

TEST_P(OlderFrames, DecodeAsTheRowSays)
{
    const DecodeRow &row = GetParam();
    const ExactBuffer data(row.input);
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    const Call call = run([&] { return CLI_ZigBeeDataDeal(data.data(), &held.record, &count); });
    EXPECT_EQ(call.status, row.status);
    EXPECT_EQ(call.messages(), row.messages);
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, row.err);
    EXPECT_EQ(held.record.lState, row.after.state);
    EXPECT_EQ(held.record.ulTemperature, row.after.temperature);
    EXPECT_EQ(held.record.ulHumidity, row.after.humidity);
    EXPECT_EQ(held.record.ulParticulate, row.after.particulate);
    EXPECT_TRUE(held.version_terminated());
    EXPECT_EQ(held.version(), row.after.version);
    EXPECT_EQ(count, row.count);
    EXPECT_TRUE(held.guard_intact()) << "nothing written past the record";
    clitest::expect_reported_by_command_unit(call);
}

INSTANTIATE_TEST_SUITE_P(
    Decoder, OlderFrames,
    ::testing::Values(DecodeRow{"ATemperatureAndHumidityReportLogsNothing",
                                zb_bytes("AA F0 0C 00 21 FE 00 08 03 00 00 15 09 C4 13 88"),
                                {},
                                0,
                                {},
                                "",
                                {0x21, 2500, 5000, 33, "old"},
                                kCountBefore + 1},
                      DecodeRow{"AParticulateReport",
                                old_frame({.command = 22, .data = {0x00, 0x00, 0x04, 0xD2}}),
                                {},
                                0,
                                {},
                                "",
                                {0x21, 11, 22, 1234, "old"},
                                kCountBefore + 1},
                      DecodeRow{"AVersionWithLength12IsEightCharacters",
                                old_frame({.device = 0x07, .command = 254, .data = text_bytes("ZB1.0.17")}),
                                {},
                                0,
                                {},
                                "",
                                {0x07, 11, 22, 33, "ZB1.0.17"},
                                kCountBefore + 1},
                      DecodeRow{"ReadingsAbove32767AreUnsigned",
                                old_frame({.device = 0xFF, .data = {0x9C, 0x40, 0xFF, 0xFF}}),
                                {},
                                0,
                                {},
                                "",
                                {0xFF, 40000, 65535, 33, "old"},
                                kCountBefore + 1},
                      DecodeRow{"AVersionOfFortyCharactersKeepsThirtyOne",
                                old_frame({.command = 254, .data = text_bytes(forty_characters())}),
                                {},
                                0,
                                {"ERROR " + kOldDecoder + ": ver len 40 out of range, 31 kept"},
                                "",
                                {0x21, 11, 22, 33, forty_characters().substr(0, 31)},
                                kCountBefore + 1},
                      DecodeRow{"ALengthFieldBelow4KeepsWhatTheFrameHolds",
                                old_frame({.length = 3, .command = 254, .data = text_bytes("ZB1.0.17")}),
                                {},
                                0,
                                {"ERROR " + kOldDecoder + ": ver len -1 out of range, 8 kept"},
                                "",
                                {0x21, 11, 22, 33, "ZB1.0.17"},
                                kCountBefore + 1},
                      DecodeRow{
                          "ALengthField0WithFortyCharactersKeepsThirtyOne",
                          old_frame({.length = 0, .command = 254, .data = text_bytes(forty_characters())}),
                          {},
                          0,
                          {"ERROR " + kOldDecoder + ": ver len -4 out of range, 31 kept"},
                          "",
                          {0x21, 11, 22, 33, forty_characters().substr(0, 31)},
                          kCountBefore + 1},
                      DecodeRow{"AnUnknownCommandAfterTheDeviceByteWasTaken",
                                old_frame({.command = 23, .data = {1, 2, 3, 4}}),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": unknow Cmd type 23"},
                                console(kOldDecoder, "unknow Cmd type 23"),
                                {0x21, 11, 22, 33, "old"},
                                kCountBefore},
                      DecodeRow{"AFirstByteOtherThanAA",
                                zb_bytes("01 02 10 12 02 10 02 10 12 03"),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data head error"},
                                "",
                                {},
                                kCountBefore},
                      DecodeRow{"ASecondByteOtherThanF0",
                                old_frame({.start1 = 0xF1, .data = {0x09, 0xC4, 0x13, 0x88}}),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data head error"},
                                "",
                                {},
                                kCountBefore},
                      DecodeRow{"AHeadOtherThanFE",
                                old_frame({.head = 0xFD, .data = {0x09, 0xC4, 0x13, 0x88}}),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data head error"},
                                "",
                                {},
                                kCountBefore},
                      DecodeRow{"ADataTypeOtherThan3",
                                old_frame({.data_type = 2, .data = {0x09, 0xC4, 0x13, 0x88}}),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data head error"},
                                "",
                                {},
                                kCountBefore},
                      DecodeRow{"AFrameTooShortToHoldItsHead",
                                zb_bytes("AA F0 02 00 21 FE"),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data head error"},
                                "",
                                {},
                                kCountBefore},
                      DecodeRow{"AFrameTooShortForItsCommand",
                                zb_bytes("AA F0 06 00 21 FE 00 08 03 00"),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data len 10 too short"},
                                "",
                                {0x21, 11, 22, 33, "old"},
                                kCountBefore},
                      DecodeRow{"AClimateReportWithTwoBytesOfData",
                                old_frame({.data = {0x09, 0xC4}}),
                                {},
                                1,
                                {"ERROR " + kOldDecoder + ": data len 14 too short"},
                                "",
                                {0x21, 11, 22, 33, "old"},
                                kCountBefore}),
    row_name);

TEST_F(DecoderArguments, NoFrameForTheOlderLayoutIsRefused)
{
    GuardedRecord held = GuardedRecord::marked();
    uint32_t count = kCountBefore;
    const Call call = run([&] { return CLI_ZigBeeDataDeal(nullptr, &held.record, &count); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR " + kOldDecoder + ": data NULL"});
    EXPECT_EQ(count, kCountBefore);
}

} // namespace
