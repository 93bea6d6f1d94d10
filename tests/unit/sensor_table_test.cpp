// The sensor table and the encoder start-up's records (src/sensor_table.cpp), without the camera:
// which picture each sensor text gives, how much of the text is looked at, and every word of
// every record.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sensor_table.h"

namespace
{

struct Picture {
    uint32_t width;
    uint32_t height;
    bool known;
};

// The picture of `text`, looking at `length` bytes of a buffer holding exactly the text's bytes
// (so that a look past them is a read out of bounds under the sanitizers).
Picture picture(const std::string &text, size_t length)
{
    std::unique_ptr<char[]> exact(new char[text.size() == 0 ? 1 : text.size()]);
    memcpy(exact.get(), text.data(), text.size());
    CliVideoNorm norm = {7, 7, 7};
    const bool known = cli_sensor_norm(exact.get(), length, &norm);
    EXPECT_EQ(norm.ulFrameRate, 25u) << text;
    return {norm.ulWidth, norm.ulHeight, known};
}

Picture picture(const std::string &text)
{
    return picture(text, text.size());
}

void expect_picture(const std::string &text, uint32_t width, uint32_t height, bool known)
{
    const Picture got = picture(text);
    EXPECT_EQ(got.width, width) << text;
    EXPECT_EQ(got.height, height) << text;
    EXPECT_EQ(got.known, known) << text;
}

TEST(SensorTable, EachRow)
{
    expect_picture("IMX123", 2048, 1536, true);
    expect_picture("IMX290", 1920, 1080, true);
    expect_picture("IMX185", 1920, 1080, true);
    expect_picture("MN34227", 1920, 1080, true);
    expect_picture("IMX224", 1280, 960, true);
    expect_picture("IMX225", 1280, 960, true);
}

TEST(SensorTable, UnknownOrMissingNameGives1080p)
{
    expect_picture("OV4689\n", 1920, 1080, false);
    expect_picture("", 1920, 1080, false);
    expect_picture("IMX 123", 1920, 1080, false);
    expect_picture("Imx290", 1920, 1080, false);
    expect_picture("MN3422", 1920, 1080, false);
}

TEST(SensorTable, TableOrderBeatsPositionInTheText)
{
    expect_picture("IMX290 IMX123", 2048, 1536, true);
    expect_picture("IMX123 IMX290", 2048, 1536, true);
    expect_picture("IMX224 MN34227", 1920, 1080, true);
    expect_picture("IMX225IMX185", 1920, 1080, true);
}

TEST(SensorTable, NameAnywhereInTheText)
{
    expect_picture("board: hi3516a_imx185_v2\n", 1920, 1080, false); // lower case: not a name
    expect_picture("board: HI3516A_IMX185_V2\n", 1920, 1080, true);
    expect_picture("xxxxxxxxxxIMX224", 1280, 960, true);
}

TEST(SensorTable, OnlyTheGivenLengthIsLookedAt)
{
    EXPECT_FALSE(picture("IMX123", 5).known);
    EXPECT_TRUE(picture("IMX123", 6).known);
    EXPECT_FALSE(picture("IMX123", 0).known);
    const std::string fifty_then_name = std::string(50, '-') + "IMX123";
    EXPECT_FALSE(picture(fifty_then_name, kSensorTextSize).known);
    EXPECT_TRUE(picture(fifty_then_name).known);
}

TEST(SensorTable, TextEndsAtItsFirstZeroByte)
{
    EXPECT_FALSE(picture(std::string("ab\0IMX123", 9)).known);
    EXPECT_TRUE(picture(std::string("IMX123\0junk", 11)).known);
    EXPECT_FALSE(picture(std::string("\0IMX290", 7)).known);
}

TEST(SensorTable, NullTextIsUnknown)
{
    CliVideoNorm norm = {};
    EXPECT_FALSE(cli_sensor_norm(nullptr, 50, &norm));
    EXPECT_EQ(norm.ulWidth, 1920u);
    EXPECT_EQ(norm.ulHeight, 1080u);
    EXPECT_EQ(norm.ulFrameRate, 25u);
}

template <typename Record> std::vector<uint32_t> words_of(const Record &record)
{
    std::vector<uint32_t> words(sizeof record / 4);
    memcpy(words.data(), &record, sizeof record);
    return words;
}

// Every record starts dirty, so that a word left unset would show.
template <typename Record> Record dirty()
{
    Record record;
    memset(&record, 0xA5, sizeof record);
    return record;
}

TEST(EncodeRecords, EncoderRecordFollowsTheNorm)
{
    auto param = dirty<CliVideoEncodeParam>();
    const CliVideoNorm norm = {2048, 1536, 25};
    cli_encode_param_fill(&param, &norm);
    EXPECT_EQ(words_of(param),
              (std::vector<uint32_t>{1, 6, 2048, 1536, 6144, 25, 0, 50, 0, 5, 5, 0, 0, 0, 0, 0}));
    const CliVideoNorm odd = {1, 2, 3};
    cli_encode_param_fill(&param, &odd);
    EXPECT_EQ(words_of(param), (std::vector<uint32_t>{1, 6, 1, 2, 6144, 3, 0, 50, 0, 5, 5, 0, 0, 0, 0, 0}));
}

TEST(EncodeRecords, ExposureRecord)
{
    auto exposure = dirty<CliIspExposure>();
    cli_isp_exposure_fill(&exposure);
    EXPECT_EQ(words_of(exposure), (std::vector<uint32_t>{0, 0, 0, 0, 50, 0, 0, 0, 0, 30, 8000, 0, 36, 0, 30,
                                                         0, 5, 5, 5, 0,  0, 0, 0, 0, 0,  0,    0, 0,  5}));
}

TEST(EncodeRecords, WhiteBalanceRecord)
{
    auto balance = dirty<CliIspWhiteBalance>();
    cli_isp_white_balance_fill(&balance);
    EXPECT_EQ(words_of(balance), (std::vector<uint32_t>{0, 0, 0}));
}

TEST(EncodeRecords, EnhancementRecord)
{
    auto enhance = dirty<CliIspEnhance>();
    cli_isp_enhance_fill(&enhance);
    EXPECT_EQ(words_of(enhance), (std::vector<uint32_t>{0, 128, 128, 128, 128, 0, 128, 128, 0, 0}));
}

TEST(EncodeRecords, SizesAsTheLibrariesTakeThem)
{
    EXPECT_EQ(sizeof(CliVideoNorm), 12u);
    EXPECT_EQ(sizeof(CliVideoEncodeParam), 64u);
    EXPECT_EQ(sizeof(CliIspExposure), 116u);
    EXPECT_EQ(sizeof(CliIspWhiteBalance), 12u);
    EXPECT_EQ(sizeof(CliIspEnhance), 40u);
}

} // namespace
