// The frames of the peripheral link as pure logic, compiled straight into the test: building a
// hub frame into a bounded buffer, checking a received one (built by the tests' own writer), and
// the length checks of the frames that devices wired straight to the line send. Each case is a
// row of data.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "hub_frame.h"
#include "hub_wire.h"

namespace
{

using Bytes = std::vector<uint8_t>;

struct BuildRow {
    const char *name;
    uint16_t port;
    uint8_t command;
    Bytes payload;
    Bytes wire; // written out by hand
};

// Rows show by name in test listings.
void PrintTo(const BuildRow &row, std::ostream *out)
{
    *out << row.name;
}

class HubFrameBuild : public ::testing::TestWithParam<BuildRow>
{
};

TEST_P(HubFrameBuild, PutsTheFieldsMostSignificantByteFirstAndTheSumAfterThePayload)
{
    const BuildRow &row = GetParam();
    uint8_t buffer[kHubBufferSize + 16];
    memset(buffer, 0xEE, sizeof buffer);
    const uint32_t size = cli_hub_frame_build(buffer, kHubBufferSize, row.port, row.command,
                                              row.payload.empty() ? nullptr : row.payload.data(),
                                              static_cast<uint32_t>(row.payload.size()));
    ASSERT_EQ(size, row.wire.size());
    EXPECT_EQ(Bytes(buffer, buffer + size), row.wire);
    for (size_t i = size; i < kHubBufferSize; ++i)
        ASSERT_EQ(buffer[i], 0) << "the rest of the frame buffer is zeroed, at " << i;
    for (size_t i = kHubBufferSize; i < sizeof buffer; ++i)
        ASSERT_EQ(buffer[i], 0xEE) << "nothing past the capacity, at " << i;
}

INSTANTIATE_TEST_SUITE_P(
    Frames, HubFrameBuild,
    ::testing::Values(
        BuildRow{"OpenGps", 0x005B, 4, {}, {0xFE, 0x00, 0x04, 0x01, 0x00, 0x5B, 0x04, 0x00, 0x60}},
        BuildRow{"RateGps9600",
                 0x005B,
                 6,
                 {0x00, 0x00, 0x25, 0x80},
                 {0xFE, 0x00, 0x08, 0x01, 0x00, 0x5B, 0x06, 0x00, 0x00, 0x25, 0x80, 0x01, 0x07}},
        BuildRow{"CloseRfid", 0x005C, 5, {}, {0xFE, 0x00, 0x04, 0x01, 0x00, 0x5C, 0x05, 0x00, 0x62}},
        BuildRow{"BoxTemperature", 0x0005, 7, {}, {0xFE, 0x00, 0x04, 0x01, 0x00, 0x05, 0x07, 0x00, 0x0D}},
        BuildRow{"HeadByteInsideThePayload",
                 0x005D,
                 3,
                 {0xFE, 0xFE},
                 {0xFE, 0x00, 0x06, 0x01, 0x00, 0x5D, 0x03, 0xFE, 0xFE, 0x02, 0x5D}},
        BuildRow{"SumAbove65535KeepsItsLowBits", 0x005B, 3, Bytes(300, 0xFF),
                 [] {
                     Bytes wire = {0xFE, 0x01, 0x30, 0x01, 0x00, 0x5B, 0x03};
                     wire.insert(wire.end(), 300, 0xFF);
                     const unsigned sum = 0x01 + 0x5B + 0x03 + 300 * 0xFF; // 76595 = 0x12B33
                     wire.push_back(static_cast<uint8_t>(sum >> 8));
                     wire.push_back(static_cast<uint8_t>(sum));
                     return wire;
                 }()}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(HubFrameBuildBounds, TheLongestPayloadFillsTheBufferExactly)
{
    Bytes payload(kHubMaxPayload, 0x41);
    uint8_t buffer[kHubBufferSize];
    EXPECT_EQ(cli_hub_frame_build(buffer, sizeof buffer, 0x5B, 3, payload.data(), kHubMaxPayload), 1024u);
    EXPECT_EQ(buffer[1], 0x03);
    EXPECT_EQ(buffer[2], 0xFB) << "L = 1019";
}

TEST(HubFrameBuildBounds, WhatDoesNotFitIsNotWrittenAtAll)
{
    Bytes payload(kHubMaxPayload + 1, 0x41);
    uint8_t buffer[kHubBufferSize + 16];
    memset(buffer, 0xEE, sizeof buffer);
    EXPECT_EQ(cli_hub_frame_build(buffer, sizeof buffer, 0x5B, 3, payload.data(), kHubMaxPayload + 1), 0u)
        << "no payload above 1015 bytes, whatever the buffer";
    EXPECT_EQ(cli_hub_frame_build(buffer, 20, 0x5B, 3, payload.data(), 12), 0u) << "21 bytes into 20";
    EXPECT_EQ(cli_hub_frame_build(buffer, 8, 0x5B, 4, nullptr, 0), 0u);
    EXPECT_EQ(cli_hub_frame_build(buffer, sizeof buffer, 0x5B, 3, nullptr, 4), 0u)
        << "bytes promised, none given";
    EXPECT_EQ(cli_hub_frame_build(nullptr, 64, 0x5B, 4, nullptr, 0), 0u);
    for (uint8_t byte : buffer)
        ASSERT_EQ(byte, 0xEE);
    EXPECT_EQ(cli_hub_frame_build(buffer, 21, 0x5B, 3, payload.data(), 12), 21u) << "exactly enough";
}

struct CheckRow {
    const char *name;
    Bytes frame;
    uint16_t expected_port;
    CliHubVerdict verdict;
};

// Rows show by name in test listings.
void PrintTo(const CheckRow &row, std::ostream *out)
{
    *out << row.name;
}

// Received frames are built by the tests' own writer, apart from the library's builder, so that
// the checker is not judged by frames from the code next to it.
Bytes frame_of(uint16_t port, uint8_t command, const Bytes &payload)
{
    return clitest::hub_frame(port, command, payload);
}

Bytes changed(Bytes frame, size_t at, uint8_t value)
{
    frame.at(at) = value;
    return frame;
}

class HubFrameCheck : public ::testing::TestWithParam<CheckRow>
{
};

TEST_P(HubFrameCheck, TellsKindPortChecksumAndLengthInThatOrder)
{
    const CheckRow &row = GetParam();
    EXPECT_EQ(
        cli_hub_frame_check(row.frame.data(), static_cast<uint32_t>(row.frame.size()), row.expected_port),
        row.verdict);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, HubFrameCheck,
    ::testing::Values(
        CheckRow{"Good", frame_of(0x5B, 3, {'o', 'k'}), 0x5B, CLI_HUB_FRAME_OK},
        CheckRow{"GoodEmpty", frame_of(0x5C, 5, {}), 0x5C, CLI_HUB_FRAME_OK},
        CheckRow{"KindNotHub", changed(frame_of(0x5B, 3, {'o', 'k'}), 3, 0x02), 0x5B, CLI_HUB_FRAME_NOT_HUB},
        CheckRow{"KindCheckedBeforePort", changed(frame_of(0x5C, 3, {}), 3, 0x00), 0x5B, CLI_HUB_FRAME_NOT_HUB},
        CheckRow{"OtherPort", frame_of(0x5C, 3, {'o', 'k'}), 0x5B, CLI_HUB_FRAME_PORT},
        CheckRow{"HighPortByteCounts", frame_of(0x015B, 3, {}), 0x5B, CLI_HUB_FRAME_PORT},
        CheckRow{"PortCheckedBeforeSum", changed(frame_of(0x5C, 3, {}), 8, 0x00), 0x5B, CLI_HUB_FRAME_PORT},
        CheckRow{"BadChecksum", changed(frame_of(0x5B, 3, {'o', 'k'}), 10, 0x00), 0x5B, CLI_HUB_FRAME_CHECKSUM},
        CheckRow{"SumAbove65535NeverMatches", frame_of(0x5B, 3, Bytes(300, 0xFF)), 0x5B, CLI_HUB_FRAME_CHECKSUM},
        CheckRow{"SumOfExactly65535Matches",
                 [] {
                     // 1 + 0x5B + 3 + 256 * 0xFF + 0xA0 = 65535: the largest sum that can match.
                     Bytes payload(256, 0xFF);
                     payload.push_back(0xA0);
                     return frame_of(0x5B, 3, payload);
                 }(),
                 0x5B, CLI_HUB_FRAME_OK},
        CheckRow{"LengthBelowFour", {0xFE, 0x00, 0x03, 0x01, 0x00, 0x5B, 0x03, 0x00, 0x5F}, 0x5B,
                 CLI_HUB_FRAME_LENGTH},
        CheckRow{"LengthAbove1019", changed(changed(frame_of(0x5B, 3, {}), 1, 0x03), 2, 0xFC), 0x5B,
                 CLI_HUB_FRAME_LENGTH},
        CheckRow{"FewerBytesThanTheLengthSays",
                 [] {
                     Bytes frame = frame_of(0x5B, 3, {'a', 'b', 'c'});
                     frame.resize(10); // the length says 12
                     return frame;
                 }(),
                 0x5B, CLI_HUB_FRAME_LENGTH},
        CheckRow{"ShorterThanAnyFrame", {0xFE, 0x00, 0x04, 0x01}, 0x5B, CLI_HUB_FRAME_LENGTH}),
    [](const auto &info) { return std::string(info.param.name); });

// The longest frame the length field allows fills the receive buffer exactly.
static_assert(kHubMaxLength + 5 == kHubBufferSize);

TEST(HubFrameLength, AcceptsFourTo1019)
{
    EXPECT_FALSE(cli_hub_length_fits(0));
    EXPECT_FALSE(cli_hub_length_fits(3));
    EXPECT_TRUE(cli_hub_length_fits(4));
    EXPECT_TRUE(cli_hub_length_fits(1019));
    EXPECT_FALSE(cli_hub_length_fits(1020));
    EXPECT_FALSE(cli_hub_length_fits(0xFFFF));
}

TEST(DirectFrameLength, RfidTotalsFromItsHeaderToTheBuffer)
{
    EXPECT_FALSE(cli_rfid_length_fits(0, 1024));
    EXPECT_FALSE(cli_rfid_length_fits(3, 1024));
    EXPECT_TRUE(cli_rfid_length_fits(4, 1024));
    EXPECT_TRUE(cli_rfid_length_fits(1024, 1024));
    EXPECT_FALSE(cli_rfid_length_fits(1025, 1024));
    EXPECT_FALSE(cli_rfid_length_fits(0xFFFF, 1024));
    EXPECT_FALSE(cli_rfid_length_fits(64, 63)) << "the capacity decides, not a fixed number";
}

TEST(DirectFrameLength, ZigbeeCountsPlusFourWithinTheBuffer)
{
    // With the link's 1024-byte buffer every count a byte can hold fits: K + 4 is at most 259.
    for (uint32_t count = 0; count <= 255; ++count)
        EXPECT_TRUE(cli_zigbee_length_fits(count, 1024)) << count;
    // The check is still a real one: in a smaller buffer the largest counts do not fit.
    EXPECT_TRUE(cli_zigbee_length_fits(252, 256));
    EXPECT_FALSE(cli_zigbee_length_fits(253, 256));
    EXPECT_FALSE(cli_zigbee_length_fits(0, 3));
    EXPECT_TRUE(cli_zigbee_length_fits(0, 4));
}

TEST(ByteSum, AddsWithoutTruncatingAndWrapsOnlyAt32Bits)
{
    const uint8_t bytes[] = {0x01, 0x00, 0x5B, 0x04};
    EXPECT_EQ(cli_byte_sum(bytes, 4), 0x60u);
    EXPECT_EQ(cli_byte_sum(bytes, 0), 0u);
    EXPECT_EQ(cli_byte_sum(nullptr, 10), 0u);
    const Bytes ones(1000, 0xFF);
    EXPECT_EQ(cli_byte_sum(ones.data(), 1000), 255000u);
}

} // namespace
