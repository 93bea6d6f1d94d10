// The console UART's seven-byte frames as pure logic, compiled straight into the test: the frames
// the camera sends (written out by hand here), building one into a bounded buffer, the check of a
// received one and the light sensor's reply check, each on exactly the bytes it is told it holds.
#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "lamp_frame.h"

namespace
{

using Bytes = std::vector<uint8_t>;

Bytes bytes_of(const uint8_t (&frame)[kLampFrameSize])
{
    return Bytes(frame, frame + kLampFrameSize);
}

TEST(LampFrames, TheCameraSendsTheseBytes)
{
    EXPECT_EQ(bytes_of(kIrLampFrameOnPort0), (Bytes{0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x49}));
    EXPECT_EQ(bytes_of(kIrLampFrameOnPort1), (Bytes{0xFF, 0x01, 0x20, 0x2D, 0x43, 0xE8, 0x79}));
    EXPECT_EQ(bytes_of(kIrLampFrameOff), (Bytes{0xFF, 0x01, 0x20, 0x2D, 0x50, 0x00, 0x9E}));
    EXPECT_EQ(bytes_of(kLightQueryFrame), (Bytes{0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7A}));
}

TEST(LampFrames, BuildingGivesTheSameFramesAsTheConstants)
{
    uint8_t frame[kLampFrameSize] = {};
    ASSERT_EQ(cli_lamp_frame_build(frame, sizeof frame, 0x01, 0x2D, 0x13E8), 7u);
    EXPECT_EQ(bytes_of(frame), (Bytes{0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x49}));
    ASSERT_EQ(cli_lamp_frame_build(frame, sizeof frame, 0x01, 0x59, 0x0000), 7u);
    EXPECT_EQ(bytes_of(frame), (Bytes{0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7A}));
}

TEST(LampFrames, TheCheckByteWrapsModulo256)
{
    uint8_t frame[kLampFrameSize] = {};
    ASSERT_EQ(cli_lamp_frame_build(frame, sizeof frame, 0xFE, 0xFF, 0xFFFF), 7u);
    // 0xFE + 0x20 + 0xFF + 0xFF + 0xFF = 0x41B
    EXPECT_EQ(frame[6], 0x1B);
    EXPECT_EQ(cli_lamp_check_byte(frame, sizeof frame), 0x1B);
}

TEST(LampFrames, ABufferTooSmallIsLeftAlone)
{
    Bytes buffer(6, 0xA5);
    EXPECT_EQ(cli_lamp_frame_build(buffer.data(), static_cast<uint32_t>(buffer.size()), 0x01, 0x2D, 0x5000),
              0u);
    EXPECT_EQ(buffer, Bytes(6, 0xA5));
    EXPECT_EQ(cli_lamp_frame_build(nullptr, 7, 0x01, 0x2D, 0x5000), 0u);
}

struct CheckRow {
    const char *name;
    Bytes held;
    CliLampVerdict verdict;
    bool light_reply;
};

void PrintTo(const CheckRow &row, std::ostream *out)
{
    *out << row.name;
}

class LampFrameCheck : public ::testing::TestWithParam<CheckRow>
{
};

TEST_P(LampFrameCheck, JudgesOnlyTheBytesItHolds)
{
    const CheckRow &row = GetParam();
    // A copy of exactly the bytes held, so that looking past them is a fault under the sanitizers.
    const Bytes held = row.held;
    const uint8_t *data = held.empty() ? nullptr : held.data();
    EXPECT_EQ(cli_lamp_frame_check(data, static_cast<uint32_t>(held.size())), row.verdict);
    EXPECT_EQ(cli_light_reply_valid(data, static_cast<uint32_t>(held.size())), row.light_reply);
}

const CheckRow kCheckRows[] = {
    {"LampOffFrame", {0xFF, 0x01, 0x20, 0x2D, 0x50, 0x00, 0x9E}, CLI_LAMP_FRAME_OK, false},
    {"LightReplyLevel128", {0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC}, CLI_LAMP_FRAME_OK, true},
    {"LightReplyWithAWrongCheckIsStillTheSensors",
     {0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0x00},
     CLI_LAMP_FRAME_CHECK,
     true},
    {"ReplyToAnotherCommand", {0xFF, 0x01, 0x20, 0x5A, 0x00, 0x80, 0xFB}, CLI_LAMP_FRAME_OK, false},
    {"ReplyFromAnotherAddress", {0xFF, 0x02, 0x20, 0x5B, 0x00, 0x80, 0xFD}, CLI_LAMP_FRAME_OK, false},
    {"ReplyOnAnotherCommandPage", {0xFF, 0x01, 0x21, 0x5B, 0x00, 0x80, 0xFD}, CLI_LAMP_FRAME_OK, false},
    {"NoSync", {0xFE, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC}, CLI_LAMP_FRAME_SYNC, false},
    {"SixBytesOfAReply", {0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80}, CLI_LAMP_FRAME_SHORT, false},
    {"Nothing", {}, CLI_LAMP_FRAME_SHORT, false},
    {"EightBytesJudgeTheFirstSeven",
     {0xFF, 0x01, 0x20, 0x5B, 0x00, 0x80, 0xFC, 0x33},
     CLI_LAMP_FRAME_OK,
     true},
};

INSTANTIATE_TEST_SUITE_P(Rows, LampFrameCheck, ::testing::ValuesIn(kCheckRows),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(LampFrames, TheDataFieldIsMostSignificantByteFirst)
{
    EXPECT_EQ(cli_lamp_data(kIrLampFrameOnPort1), 0x43E8);
    EXPECT_EQ(cli_lamp_data(kIrLampFrameOff), 0x5000);
}

} // namespace
