// The ZigBee coordinator's frames as pure logic, compiled straight into the test: unstuffing with
// its every ending, stuffing and whole frames against bytes written out by hand (and read back by
// the tests' own reader), and the sensor frame a report carries, with the bounds of every field.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "zigbee_frame.h"
#include "zigbee_wire.h"

namespace
{

using Bytes = std::vector<uint8_t>;
using clitest::zb_bytes;

// ---- Unstuffing --------------------------------------------------------------------------------

struct UnstuffRow {
    const char *name;
    Bytes input;
    uint32_t capacity; // 0: as large as the input
    CliZigbeeUnstuffed ending;
    Bytes output;
};

void PrintTo(const UnstuffRow &row, std::ostream *out)
{
    *out << row.name;
}

class Unstuff : public ::testing::TestWithParam<UnstuffRow>
{
};

TEST_P(Unstuff, EndsAsTheRowSaysAndStoresNoMoreThanItsCapacity)
{
    const UnstuffRow &row = GetParam();
    const uint32_t capacity = row.capacity != 0 ? row.capacity : static_cast<uint32_t>(row.input.size());
    Bytes out(capacity + 8, 0xEE);
    uint32_t length = 0xA5A5;
    EXPECT_EQ(cli_zigbee_unstuff(row.input.data(), static_cast<uint32_t>(row.input.size()), out.data(),
                                 capacity, &length),
              row.ending);
    ASSERT_EQ(length, row.output.size());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + length), row.output);
    for (size_t i = capacity; i < out.size(); ++i)
        ASSERT_EQ(out[i], 0xEE) << "nothing past the capacity, at " << i;
}

INSTANTIATE_TEST_SUITE_P(
    Frames, Unstuff,
    ::testing::Values(UnstuffRow{"TheResetFrame", zb_bytes("01 02 10 12 02 10 02 10 12 03"), 0,
                                 CLI_ZB_UNSTUFFED_WHOLE, zb_bytes("01 00 12 00 00 12 03")},
                      UnstuffRow{"AnEscapeOf25IsRefused", zb_bytes("01 80 02 25 03"), 0,
                                 CLI_ZB_UNSTUFFED_BAD_ESCAPE, zb_bytes("01 80")},
                      UnstuffRow{"AnEscapeOf1FGives0F", zb_bytes("01 02 1F 03"), 0, CLI_ZB_UNSTUFFED_WHOLE,
                                 zb_bytes("01 0F 03")},
                      UnstuffRow{"AnEscapeOf00Gives10AndIsRefused", zb_bytes("01 02 00 03"), 0,
                                 CLI_ZB_UNSTUFFED_BAD_ESCAPE, zb_bytes("01")},
                      UnstuffRow{"AnEscapedEndByteIsData", zb_bytes("01 02 13 03"), 0, CLI_ZB_UNSTUFFED_WHOLE,
                                 zb_bytes("01 03 03")},
                      UnstuffRow{"AnInputEndingWithAnEscape", zb_bytes("01 80 02"), 0, CLI_ZB_UNSTUFFED_TAIL,
                                 zb_bytes("01 80")},
                      UnstuffRow{"AnInputWithoutAnEndByteIsTakenWhole", zb_bytes("01 80 11"), 0,
                                 CLI_ZB_UNSTUFFED_OPEN, zb_bytes("01 80 11")},
                      UnstuffRow{"TheFirstEndByteEndsTheFrame", zb_bytes("01 80 03 01 80 03"), 0,
                                 CLI_ZB_UNSTUFFED_WHOLE, zb_bytes("01 80 03")},
                      UnstuffRow{"TheFirstByteIsCopiedAsItCame", zb_bytes("02 80 03"), 0,
                                 CLI_ZB_UNSTUFFED_WHOLE, zb_bytes("02 80 03")},
                      UnstuffRow{"NoInput", {}, 4, CLI_ZB_UNSTUFFED_OPEN, {}},
                      UnstuffRow{"NoRoomForTheEndByte", zb_bytes("01 80 11 03"), 3, CLI_ZB_UNSTUFFED_NO_ROOM,
                                 zb_bytes("01 80 11")},
                      UnstuffRow{"NoRoomForAByte", zb_bytes("01 80 11 12 03"), 2, CLI_ZB_UNSTUFFED_NO_ROOM,
                                 zb_bytes("01 80")}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- Building -------------------------------------------------------------------------------------

TEST(ZigbeeEncode, TheSecurityCommandWithTheDefaultKeyIsTwentyEightBytesWithChecksum0E)
{
    const std::string key = "ZigBeeAlliance09";
    Bytes payload = {0x03};
    payload.insert(payload.end(), key.begin(), key.end());
    Bytes wire(64, 0xEE);
    const uint32_t length =
        cli_zigbee_encode(wire.data(), 64, 0x0022, payload.data(), static_cast<uint32_t>(payload.size()));
    Bytes expected = zb_bytes("01 02 10 22 02 10 11 02 1E 02 13");
    expected.insert(expected.end(), key.begin(), key.end());
    expected.push_back(0x03);
    ASSERT_EQ(length, 28u);
    EXPECT_EQ(Bytes(wire.begin(), wire.begin() + length), expected);
    EXPECT_EQ(cli_zigbee_checksum(0x0022, payload.data(), static_cast<uint32_t>(payload.size())), 0x0E);
    const clitest::ZbRead read = clitest::zb_read(expected);
    EXPECT_TRUE(read.whole && read.checksum_right());
}

TEST(ZigbeeEncode, AFrameWithoutPayloadIsTenBytes)
{
    Bytes wire(16, 0xEE);
    ASSERT_EQ(cli_zigbee_encode(wire.data(), 16, 0x0024, nullptr, 0), 10u);
    EXPECT_EQ(Bytes(wire.begin(), wire.begin() + 10), zb_bytes("01 02 10 24 02 10 02 10 24 03"));
}

TEST(ZigbeeEncode, AgreesWithTheTestsOwnWriterOnEveryByteValue)
{
    Bytes payload(256);
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<uint8_t>(i);
    Bytes wire(1024);
    const uint32_t length =
        cli_zigbee_encode(wire.data(), 1024, 0x8102, payload.data(), static_cast<uint32_t>(payload.size()));
    EXPECT_EQ(Bytes(wire.begin(), wire.begin() + length), clitest::zb_frame(0x8102, payload));
}

TEST(ZigbeeEncode, AFrameThatDoesNotFitIsNotBuilt)
{
    const Bytes payload = zb_bytes("00 00 08 00");
    Bytes wire(32, 0xEE);
    // 18 bytes on the wire: 17 do not hold it, whatever part would fit.
    EXPECT_EQ(cli_zigbee_encode(wire.data(), 17, 0x0021, payload.data(), 4), 0u);
    for (size_t i = 17; i < wire.size(); ++i)
        ASSERT_EQ(wire[i], 0xEE) << i;
    EXPECT_EQ(cli_zigbee_encode(wire.data(), 18, 0x0021, payload.data(), 4), 18u);
    EXPECT_EQ(cli_zigbee_encode(wire.data(), 32, 0x0021, nullptr, 4), 0u) << "no payload to send";
    EXPECT_EQ(cli_zigbee_encode(wire.data(), 1, 0x0024, nullptr, 0), 0u);
}

TEST(ZigbeeStuff, EscapesEveryByteBelow10AndNothingElse)
{
    const Bytes inside = zb_bytes("00 01 02 03 0F 10 11 FE FF");
    Bytes wire(32, 0xEE);
    const uint32_t length =
        cli_zigbee_stuff(inside.data(), static_cast<uint32_t>(inside.size()), wire.data(), 32);
    EXPECT_EQ(Bytes(wire.begin(), wire.begin() + length),
              zb_bytes("01 02 10 02 11 02 12 02 13 02 1F 10 11 FE FF 03"));
    EXPECT_EQ(cli_zigbee_stuff(inside.data(), static_cast<uint32_t>(inside.size()), wire.data(), 15), 0u);
}

// ---- The sensor frame ---------------------------------------------------------------------------

// A decoded report: 01, the coordinator's header and six bytes (12 in all), then the sensor frame.
Bytes decoded_report(uint8_t head, uint16_t length, uint8_t type, uint8_t command, const Bytes &data)
{
    Bytes frame = zb_bytes("01 80 02 00 11 00 00 12 34 01 00 00");
    for (const uint8_t byte : {head, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), type,
                               uint8_t{0x12}, uint8_t{0x34}, command})
        frame.push_back(byte);
    frame.insert(frame.end(), data.begin(), data.end());
    return frame;
}

TEST(ZigbeeSensor, AClimateReportGivesItsTwoReadingsUnsigned)
{
    const Bytes frame = decoded_report(0xFE, 8, 3, 0x15, zb_bytes("9C 40 13 88"));
    CliSensorReport report;
    ASSERT_EQ(cli_sensor_read(frame.data(), static_cast<uint32_t>(frame.size()), kZigbeeSensorAt, &report),
              CLI_SENSOR_REPORT);
    EXPECT_EQ(report.ucCommand, 0x15);
    EXPECT_EQ(report.ulTemperature, 40000u);
    EXPECT_EQ(report.ulHumidity, 5000u);
    EXPECT_EQ(report.ulParticulate, 0u);
}

TEST(ZigbeeSensor, AParticulateReportGivesOne32BitReading)
{
    const Bytes frame = decoded_report(0xFE, 8, 3, 0x16, zb_bytes("80 00 04 D2"));
    CliSensorReport report;
    ASSERT_EQ(cli_sensor_read(frame.data(), static_cast<uint32_t>(frame.size()), kZigbeeSensorAt, &report),
              CLI_SENSOR_REPORT);
    EXPECT_EQ(report.ulParticulate, 0x800004D2u);
}

struct VersionRow {
    const char *name;
    uint16_t length;
    std::string text;
    uint32_t claimed;
    uint32_t kept;
};

void PrintTo(const VersionRow &row, std::ostream *out)
{
    *out << row.name;
}

class Version : public ::testing::TestWithParam<VersionRow>
{
};

TEST_P(Version, KeepsWhatItClaimsWithinTheFrameAndThirtyOneCharacters)
{
    const VersionRow &row = GetParam();
    const Bytes frame = decoded_report(0xFE, row.length, 3, 0xFE, Bytes(row.text.begin(), row.text.end()));
    CliSensorReport report;
    ASSERT_EQ(cli_sensor_read(frame.data(), static_cast<uint32_t>(frame.size()), kZigbeeSensorAt, &report),
              CLI_SENSOR_REPORT);
    EXPECT_EQ(report.ulVersionClaimed, row.claimed);
    EXPECT_EQ(report.ulVersionAvailable, row.text.size());
    EXPECT_EQ(report.pucVersion, frame.data() + 19);
    EXPECT_EQ(cli_sensor_version_kept(&report), row.kept);
}

INSTANTIATE_TEST_SUITE_P(
    Reports, Version,
    ::testing::Values(VersionRow{"Length12IsEightCharacters", 12, "ZB1.0.17", 8, 8},
                      VersionRow{"FortyCharactersKeepThirtyOne", 44, std::string(40, 'v'), 40, 31},
                      VersionRow{"ThirtyOneCharactersAreWhole", 35, std::string(31, 'v'), 31, 31},
                      VersionRow{"ALengthBelow4WrapsAndKeepsWhatIsThere", 2, "ZB1.0.17", 0xFFFFFFFEu, 8},
                      VersionRow{"Length0WithFortyCharacters", 0, std::string(40, 'v'), 0xFFFFFFFCu, 31},
                      VersionRow{"AClaimBeyondTheFrame", 32, "ZB1.0.17", 28, 8},
                      VersionRow{"Length4IsEmpty", 4, "", 0, 0}),
    [](const auto &info) { return std::string(info.param.name); });

struct VerdictRow {
    const char *name;
    Bytes frame;
    uint32_t at;
    CliSensorVerdict verdict;
};

void PrintTo(const VerdictRow &row, std::ostream *out)
{
    *out << row.name;
}

class Verdict : public ::testing::TestWithParam<VerdictRow>
{
};

// Each frame is held in a buffer of exactly its length: the reader must look no further.
TEST_P(Verdict, AsTheRowSays)
{
    const VerdictRow &row = GetParam();
    std::unique_ptr<uint8_t[]> exact(new uint8_t[row.frame.size() + 1]);
    memcpy(exact.get(), row.frame.data(), row.frame.size());
    CliSensorReport report;
    EXPECT_EQ(cli_sensor_read(exact.get(), static_cast<uint32_t>(row.frame.size()), row.at, &report),
              row.verdict);
}

Bytes cut(Bytes frame, size_t length)
{
    frame.resize(length);
    return frame;
}

const Bytes kClimate = decoded_report(0xFE, 8, 3, 0x15, zb_bytes("09 C4 13 88"));

INSTANTIATE_TEST_SUITE_P(
    Reports, Verdict,
    ::testing::Values(
        VerdictRow{"AWholeClimateReport", kClimate, kZigbeeSensorAt, CLI_SENSOR_REPORT},
        VerdictRow{"AWrongHead", decoded_report(0xFD, 8, 3, 0x15, zb_bytes("09 C4 13 88")), kZigbeeSensorAt,
                   CLI_SENSOR_HEAD},
        VerdictRow{"AWrongDataType", decoded_report(0xFE, 8, 2, 0x15, zb_bytes("09 C4 13 88")),
                   kZigbeeSensorAt, CLI_SENSOR_HEAD},
        VerdictRow{"AnUnknownCommand", decoded_report(0xFE, 8, 3, 0x17, zb_bytes("09 C4 13 88")),
                   kZigbeeSensorAt, CLI_SENSOR_COMMAND},
        VerdictRow{"EndingBeforeTheDataType", cut(decoded_report(0xFD, 8, 3, 0x15, {}), 15), kZigbeeSensorAt,
                   CLI_SENSOR_SHORT},
        VerdictRow{"EndingAtTheDataTypeIsJudgedByTheHead", cut(decoded_report(0xFD, 8, 3, 0x15, {}), 16),
                   kZigbeeSensorAt, CLI_SENSOR_HEAD},
        VerdictRow{"EndingBeforeTheCommand", cut(kClimate, 18), kZigbeeSensorAt, CLI_SENSOR_SHORT},
        VerdictRow{"AClimateReportWithThreeBytesOfData", cut(kClimate, 22), kZigbeeSensorAt,
                   CLI_SENSOR_SHORT},
        VerdictRow{"AParticulateReportWithThreeBytesOfData",
                   cut(decoded_report(0xFE, 8, 3, 0x16, zb_bytes("00 00 04 D2")), 22), kZigbeeSensorAt,
                   CLI_SENSOR_SHORT},
        VerdictRow{"AVersionMayHaveNoText", decoded_report(0xFE, 4, 3, 0xFE, {}), kZigbeeSensorAt,
                   CLI_SENSOR_REPORT},
        VerdictRow{"TheOlderLayoutReadsAtOffsetFive",
                   zb_bytes("AA F0 0C 00 21 FE 00 08 03 00 00 15 09 C4 13 88"), kZigbeeOldSensorAt,
                   CLI_SENSOR_REPORT},
        VerdictRow{"TheOlderLayoutCutBeforeItsData", zb_bytes("AA F0 08 00 21 FE 00 08 03 00 00 15"),
                   kZigbeeOldSensorAt, CLI_SENSOR_SHORT}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ZigbeeOld, TheFrameIsAsLongAsItsCountSays)
{
    const Bytes frame = zb_bytes("AA F0 0C");
    EXPECT_EQ(cli_zigbee_old_length(frame.data()), 16u);
}

} // namespace
