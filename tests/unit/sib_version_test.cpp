// The control board's version text taken apart into the PCB revision and the MCU version, within
// the 5-byte areas the version command shows them from, whatever the board wrote into its 8 bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>

#include "sib_version.h"

namespace
{

struct VersionCase {
    const char *name;
    std::string area; // the bytes the board wrote (at most 8; the rest of the area stays zero)
    const char *pcb;
    const char *mcu;
};

void PrintTo(const VersionCase &row, std::ostream *os)
{
    *os << row.name;
}

std::string case_name(const ::testing::TestParamInfo<VersionCase> &info)
{
    return info.param.name;
}

class VersionText : public ::testing::TestWithParam<VersionCase>
{
};

// An area the size the command uses, with a guard after it that no scan may touch.
struct Part {
    char text[kSibPartSize];
    char guard[8];
};

TEST_P(VersionText, SplitsIntoPcbAndMcu)
{
    const VersionCase &row = GetParam();
    ASSERT_LE(row.area.size(), kSibVersionSize);
    char area[kSibVersionSize] = {};
    memcpy(area, row.area.data(), row.area.size());

    Part pcb = {};
    Part mcu = {};
    memset(pcb.guard, 'g', sizeof pcb.guard);
    memset(mcu.guard, 'g', sizeof mcu.guard);
    cli_sib_pcb_text(area, sizeof area, pcb.text, sizeof pcb.text);
    cli_sib_mcu_text(area, sizeof area, mcu.text, sizeof mcu.text);

    EXPECT_EQ(std::string(pcb.text, strnlen(pcb.text, sizeof pcb.text)), row.pcb);
    EXPECT_EQ(std::string(mcu.text, strnlen(mcu.text, sizeof mcu.text)), row.mcu);
    EXPECT_NE(memchr(pcb.text, '\0', sizeof pcb.text), nullptr) << "the PCB text stays terminated";
    EXPECT_NE(memchr(mcu.text, '\0', sizeof mcu.text), nullptr) << "the MCU text stays terminated";
    EXPECT_EQ(std::string(pcb.guard, sizeof pcb.guard), std::string(8, 'g'));
    EXPECT_EQ(std::string(mcu.guard, sizeof mcu.guard), std::string(8, 'g'));
}

const VersionCase kVersions[] = {
    {"OneDigitMinor", "1.3A", "A", "13"},
    {"TwoDigitMinor", "2.10B", "B", "210"},
    {"NoCapitalLetterGivesNoPcb", "1.3", "", "13"},
    {"LowerCaseRevisionIsNoPcb", "1.3a", "", "13a"},
    {"LongRevisionIsCutToFourCharacters", "1.3ABCDE", "ABCD", "13"},
    {"RevisionEndsAtABlank", "1.3A B", "A", "13"},
    {"BlankBeforeTheRevisionStaysInTheMcu", "1.3 A", "A", "13 "},
    {"LongMajorIsCutAndLosesTheMinor", "12345.67", "", "1234"},
    {"FourDigitMajorFillsTheArea", "1234.5A", "A", "15"},
    {"TwoDigitMajorIsOverwrittenByTheMinor", "12.3A", "A", "13"},
    {"LongMinorIsCutToThreeCharacters", "1.23456A", "A", "1234"},
    {"LeadingCapitalGivesNoPcb", "A1.3B", "", "A3"},
    {"LeadingDotGivesNoMcu", ".5A", "A", ""},
    {"NoDotGivesTheMajorOnly", "13A", "A", "13A"},
    {"DotThenCapitalKeepsTheMajorOnly", "1.A", "A", "1"},
    {"TrailingDotKeepsTheMajorOnly", "1.", "", "1"},
    {"OnlyACapital", "Z", "", "Z"},
    {"EmptyText", "", "", ""},
    {"FullAreaWithoutTerminator", "9.87654Q", "Q", "9876"},
    {"BytesAboveAsciiAreNotLetters", "1.3\xC3\x84", "", "13\xC3\x84"},
};

INSTANTIATE_TEST_SUITE_P(Board, VersionText, ::testing::ValuesIn(kVersions), case_name);

TEST(VersionTextBounds, ReadsNoFurtherThanTheLengthGiven)
{
    // No terminator anywhere: the scans stop at the length, not at whatever follows.
    const char area[] = {'1', '.', '3', 'A', 'X', 'Y'};
    char pcb[kSibPartSize] = {};
    char mcu[kSibPartSize] = {};
    cli_sib_pcb_text(area, 4, pcb, sizeof pcb);
    cli_sib_mcu_text(area, 3, mcu, sizeof mcu);
    EXPECT_STREQ(pcb, "A");
    EXPECT_STREQ(mcu, "13");
}

TEST(VersionTextBounds, StopsAtTheFirstZeroByte)
{
    const char area[kSibVersionSize] = {'1', '.', '3', '\0', 'A', 'B', '.', '9'};
    char pcb[kSibPartSize] = {};
    char mcu[kSibPartSize] = {};
    cli_sib_pcb_text(area, sizeof area, pcb, sizeof pcb);
    cli_sib_mcu_text(area, sizeof area, mcu, sizeof mcu);
    EXPECT_STREQ(pcb, "") << "what follows the terminator is not read";
    EXPECT_STREQ(mcu, "13");
}

TEST(VersionTextBounds, TinyAreasAreNeverOverrun)
{
    const char area[] = "12.345AB";
    struct {
        char text[3];
        char guard[4];
    } small = {{'x', 'x', 'x'}, {'g', 'g', 'g', 'g'}};
    cli_sib_mcu_text(area, 8, small.text, sizeof small.text);
    EXPECT_EQ(std::string(small.text, 3), std::string("13\0", 3));
    cli_sib_pcb_text(area, 8, small.text, sizeof small.text);
    EXPECT_EQ(std::string(small.text, 3), std::string("AB\0", 3));
    EXPECT_EQ(std::string(small.guard, 4), "gggg");

    char none[1] = {'x'};
    cli_sib_pcb_text(area, 8, none, 0);
    cli_sib_mcu_text(area, 8, none, 0);
    EXPECT_EQ(none[0], 'x') << "an area of no bytes is left alone";
}

} // namespace
