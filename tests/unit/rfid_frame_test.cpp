// The RFID reader's frames as pure logic, compiled straight into the test: what kind a frame is,
// the ID text of a tag report, and the start-of-inventory command's own check. Each case is a
// row of data; the check is worked out by the test's own CRC.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "rfid_frame.h"

namespace
{

using Bytes = std::vector<uint8_t>;

struct KindRow {
    const char *name;
    Bytes frame;
    CliRfidFrameKind kind;
    const char *id; // the ID text of a whole tag report, else ""
};

void PrintTo(const KindRow &row, std::ostream *out)
{
    *out << row.name;
}

class RfidFrameKind : public ::testing::TestWithParam<KindRow>
{
};

TEST_P(RfidFrameKind, IsTakenFromTheFirstBytesAndTheIdFromBytesSixToNine)
{
    const KindRow &row = GetParam();
    // The frame alone in a buffer of its own size: nothing beyond it may be read.
    std::vector<uint8_t> exact(row.frame);
    EXPECT_EQ(
        cli_rfid_frame_kind(exact.empty() ? nullptr : exact.data(), static_cast<uint32_t>(exact.size())),
        row.kind);
    char id[kRfidIdTextSize + 4];
    memset(id, '#', sizeof id);
    const bool whole = cli_rfid_tag_id(exact.empty() ? nullptr : exact.data(),
                                       static_cast<uint32_t>(exact.size()), id, sizeof id);
    EXPECT_EQ(whole, row.kind == CLI_RFID_TAG_REPORT);
    if (whole) {
        EXPECT_STREQ(id, row.id);
    } else {
        EXPECT_EQ(id[0], '#') << "nothing written for a frame that is no whole report";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, RfidFrameKind,
    ::testing::Values(
        KindRow{"Report",
                {0xFF, 0x0C, 0x00, 0x0C, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF, 0xB4, 0x7C},
                CLI_RFID_TAG_REPORT,
                "001A2BFF"},
        KindRow{"ReportOfJustTenBytes",
                {0xFF, 0x0C, 0x00, 0x0A, 0xF1, 0x00, 0xde, 0xad, 0xbe, 0xef},
                CLI_RFID_TAG_REPORT,
                "DEADBEEF"},
        KindRow{"LengthAndAntennaNotLookedAt",
                {0xFF, 0x0C, 0x77, 0x77, 0xF1, 0x99, 0x0A, 0x0B, 0x0C, 0x0D},
                CLI_RFID_TAG_REPORT,
                "0A0B0C0D"},
        KindRow{
            "Acknowledgement", {0xFF, 0x0C, 0x00, 0x08, 0x10, 0x00, 0x75, 0x46}, CLI_RFID_OTHER_FRAME, ""},
        KindRow{"OtherKindOfTenBytes",
                {0xFF, 0x0C, 0x00, 0x0A, 0xF2, 0x01, 0x00, 0x1A, 0x2B, 0xFF},
                CLI_RFID_OTHER_FRAME,
                ""},
        KindRow{"NotFromTheReader",
                {0xFF, 0x0A, 0x00, 0x0A, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF},
                CLI_RFID_OTHER_FRAME,
                ""},
        KindRow{"NoStart",
                {0xFE, 0x0C, 0x00, 0x0A, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF},
                CLI_RFID_OTHER_FRAME,
                ""},
        KindRow{
            "ShortReport", {0xFF, 0x0C, 0x00, 0x09, 0xF1, 0x01, 0x00, 0x1A, 0x2B}, CLI_RFID_SHORT_REPORT, ""},
        KindRow{"JustTheKindByte", {0xFF, 0x0C, 0x00, 0x05, 0xF1}, CLI_RFID_SHORT_REPORT, ""},
        KindRow{"EndsBeforeTheKindByte", {0xFF, 0x0C, 0x00, 0x04}, CLI_RFID_OTHER_FRAME, ""},
        KindRow{"Nothing", {}, CLI_RFID_OTHER_FRAME, ""}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RfidTagId, NeedsRoomForEightDigitsAndTheirZero)
{
    const Bytes report = {0xFF, 0x0C, 0x00, 0x0A, 0xF1, 0x01, 0x00, 0x1A, 0x2B, 0xFF};
    char id[kRfidIdTextSize];
    memset(id, '#', sizeof id);
    EXPECT_FALSE(
        cli_rfid_tag_id(report.data(), static_cast<uint32_t>(report.size()), id, kRfidIdTextSize - 1));
    EXPECT_EQ(id[0], '#');
    EXPECT_FALSE(cli_rfid_tag_id(report.data(), static_cast<uint32_t>(report.size()), nullptr, sizeof id));
    EXPECT_TRUE(cli_rfid_tag_id(report.data(), static_cast<uint32_t>(report.size()), id, sizeof id));
    EXPECT_EQ(std::string(id, sizeof id), std::string("001A2BFF\0", 9));
}

// CRC-16 as the reader computes it: polynomial 0x1021, start 0, no reflection, no final XOR.
uint16_t crc16(const uint8_t *data, size_t size)
{
    uint16_t crc = 0;
    for (size_t i = 0; i < size; ++i) {
        crc ^= static_cast<uint16_t>(data[i] << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

TEST(RfidStartInventory, IsSevenBytesWithItsLengthAndTheReadersCheckAtTheEnd)
{
    ASSERT_EQ(kRfidStartInventorySize, 7u);
    const Bytes command(kRfidStartInventory, kRfidStartInventory + kRfidStartInventorySize);
    EXPECT_EQ(command, (Bytes{0xFF, 0x0A, 0x00, 0x07, 0x10, 0xB9, 0xA2}));
    EXPECT_EQ((command[2] << 8) | command[3], 7) << "its length counts the whole frame";
    EXPECT_EQ(crc16(command.data(), 5), (command[5] << 8) | command[6]);
}

} // namespace
