// NMEA sentences as pure logic, compiled straight into the test with the report code and a print
// sink that keeps every line: the field splitter and its bounds against hostile sentences, the
// checksum and the command sentence built with it, the search of a block with its 128-byte rule,
// the angle rewrite, and both modes of the sentence analysis. Each case is a row of data.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "capture.h"
#include "clidriver/clidriver.h"
#include "diag_line.h"
#include "nmea.h"
#include "print_sink_double.h"

namespace
{

using clitest::printed;
using shell::capture_output;

// "LEVEL function: text" of every line printed since the last clear, without the final newline.
std::vector<std::string> messages()
{
    std::vector<std::string> result;
    for (const std::string &raw : printed()) {
        auto line = clitest::parse_diag_line(raw);
        EXPECT_TRUE(line.has_value()) << raw;
        if (!line)
            continue;
        std::string text = line->text;
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        result.push_back(line->level + " " + line->function + ": " + text);
    }
    return result;
}

std::vector<std::string> fields_of(const CliNmeaFields &table)
{
    std::vector<std::string> fields;
    for (const auto &field : table.aacField)
        fields.emplace_back(field);
    while (!fields.empty() && fields.back().empty())
        fields.pop_back();
    return fields;
}

// ---- Field splitting --------------------------------------------------------------------------------

struct SplitRow {
    const char *name;
    std::string sentence;
    std::vector<std::string> fields; // up to the last non-empty one
};

// Rows show by name in test listings.
void PrintTo(const SplitRow &row, std::ostream *out)
{
    *out << row.name;
}

class NmeaSplit : public ::testing::TestWithParam<SplitRow>
{
};

TEST_P(NmeaSplit, FillsTheTableUpToTheChecksum)
{
    const SplitRow &row = GetParam();
    CliNmeaFields table;
    memset(&table, 0x5A, sizeof table); // whatever was there before is wiped
    cli_nmea_split(row.sentence.c_str(), &table);
    EXPECT_EQ(fields_of(table), row.fields);
    for (uint32_t k = 0; k < kNmeaFieldCount; ++k)
        EXPECT_EQ(table.aacField[k][kNmeaFieldSize - 1], '\0') << "field " << k << " ends in a zero";
}

std::string repeated(const std::string &piece, size_t times, const std::string &separator = ",")
{
    std::string text;
    for (size_t i = 0; i < times; ++i)
        text += (i == 0 ? "" : separator) + piece;
    return text;
}

std::vector<std::string> numbered(size_t count)
{
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i)
        names.push_back("f" + std::to_string(i));
    return names;
}

std::string joined(const std::vector<std::string> &parts)
{
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i)
        text += (i == 0 ? "" : ",") + parts[i];
    return text;
}

const SplitRow kSplitRows[] = {
    {"RmcWithAFix",
     "GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73",
     {"GPRMC", "202640.000", "A", "4404.1306", "N", "12118.8515", "W", "0.03", "225.97", "130415", "", "",
      "D"}},
    {"RmcWithoutAFix", "GPRMC,,V,,,,,,,,,,N*53", {"GPRMC", "", "V", "", "", "", "", "", "", "", "", "", "N"}},
    {"GllHasSevenFields",
     "GPGLL,5709.8067,N,00207.2822,W,110518.000,A,A*4A",
     {"GPGLL", "5709.8067", "N", "00207.2822", "W", "110518.000", "A", "A"}},
    {"NothingAfterTheStarIsRead", "GPGSV,1,1,00*79,9,9,9", {"GPGSV", "1", "1", "00"}},
    {"WithoutAStarTheTextEndsIt", "GPZDA,202640.000,13,04", {"GPZDA", "202640.000", "13", "04"}},
    {"LineBreaksAreKeptAsCharacters", "GPRMC,1\r\n$GPGGA,2*00", {"GPRMC", "1\r\n$GPGGA", "2"}},
    {"EmptySentence", "", {}},
    {"OnlyCommas", ",,,*", {}},
    {"ThirtyTwoFieldsAllKept", joined(numbered(32)) + "*00", numbered(32)},
    // More than 32 fields: the 32nd comma would open a 33rd field; it and everything after it
    // are dropped.
    {"TheThirtyThirdFieldIsDropped", joined(numbered(33)) + "*00", numbered(32)},
    {"HundredFieldsKeepTheFirstThirtyTwo", joined(numbered(100)), numbered(32)},
    {"ThirtyOneCharactersFit", "A," + std::string(31, 'x') + ",B", {"A", std::string(31, 'x'), "B"}},
    // Longer fields keep their first 31 characters; the neighbours are untouched.
    {"ThirtyTwoCharactersAreCut", "A," + std::string(31, 'x') + "y,B", {"A", std::string(31, 'x'), "B"}},
    {"AVeryLongFieldIsCut", "A," + std::string(5000, 'z') + ",B*11", {"A", std::string(31, 'z'), "B"}},
    {"LongAndManyAtOnce", repeated(std::string(40, 'q'), 40),
     std::vector<std::string>(32, std::string(31, 'q'))},
};
INSTANTIATE_TEST_SUITE_P(Table, NmeaSplit, ::testing::ValuesIn(kSplitRows),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- Checksum and command sentences ------------------------------------------------------------------

TEST(NmeaChecksum, IsTheXorBetweenTheDollarAndTheStar)
{
    EXPECT_EQ(cli_nmea_checksum("$PMTK000*"), 0x32u);
    EXPECT_EQ(cli_nmea_checksum("$PMTK000*32\r\n"), 0x32u) << "what follows the star does not count";
    EXPECT_EQ(cli_nmea_checksum("PMTK000*"), 0x32u) << "no leading dollar: from the first character";
    EXPECT_EQ(cli_nmea_checksum("$PMTK353,1,0,0,0,0*"), 0x2Au);
    EXPECT_EQ(cli_nmea_checksum("$PMTK353,0,0,0,0,1*"), 0x2Au);
    EXPECT_EQ(cli_nmea_checksum("$PMTK353,1,0,0,0,1*"), 0x2Bu);
    EXPECT_EQ(cli_nmea_checksum("$GPRMC,,V,,,,,,,,,,N"), 0x53u) << "no star: to the end";
    EXPECT_EQ(cli_nmea_checksum("$"), 0u);
    EXPECT_EQ(cli_nmea_checksum(""), 0u);
}

struct CommandRow {
    const char *name;
    const char *body;
    const char *sentence;
};

// Rows show by name in test listings.
void PrintTo(const CommandRow &row, std::ostream *out)
{
    *out << row.name;
}

class NmeaCommand : public ::testing::TestWithParam<CommandRow>
{
};

TEST_P(NmeaCommand, AppendsTheChecksumInHexWithoutALeadingZeroAndCrLf)
{
    const CommandRow &row = GetParam();
    char out[64];
    memset(out, 'X', sizeof out);
    EXPECT_EQ(cli_nmea_command(out, sizeof out, row.body), strlen(row.sentence));
    EXPECT_STREQ(out, row.sentence);
}

const CommandRow kCommandRows[] = {
    {"GpsOnly", "$PMTK353,1,0,0,0,0*", "$PMTK353,1,0,0,0,0*2A\r\n"},
    {"BeidouOnly", "$PMTK353,0,0,0,0,1*", "$PMTK353,0,0,0,0,1*2A\r\n"},
    {"Both", "$PMTK353,1,0,0,0,1*", "$PMTK353,1,0,0,0,1*2B\r\n"},
    {"TestPacket", "$PMTK000*", "$PMTK000*32\r\n"},
    // 'A' ^ 'B' = 0x03: one digit, where NMEA would write "03".
    {"ChecksumBelowSixteenHasOneDigit", "$AB*", "$AB*3\r\n"},
    {"ChecksumZero", "$AA*", "$AA*0\r\n"},
    {"UpperCaseHex", "$PMTK220,1000*", "$PMTK220,1000*1F\r\n"},
};
INSTANTIATE_TEST_SUITE_P(Table, NmeaCommand, ::testing::ValuesIn(kCommandRows),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(NmeaCommand, ASentenceThatDoesNotFitLeavesAnEmptyText)
{
    char out[24];
    memset(out, 'X', sizeof out);
    EXPECT_EQ(cli_nmea_command(out, 23, "$PMTK353,1,0,0,0,0*"), 0u) << "23 bytes, 24 needed";
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(out[23], 'X') << "nothing written beyond the capacity";
    EXPECT_EQ(cli_nmea_command(out, 24, "$PMTK353,1,0,0,0,0*"), 23u);
    EXPECT_EQ(cli_nmea_command(out, 0, "$A*"), 0u);
}

// ---- Finding a sentence in a block -------------------------------------------------------------------

// A block of `length` characters with `key` written at `offset` and dots elsewhere.
std::string block_with(const std::string &key, size_t offset, size_t length)
{
    std::string block(length, '.');
    block.replace(offset, key.size(), key);
    return block;
}

struct FindRow {
    const char *name;
    std::string block;
    uint32_t length; // what the link said it delivered
    const char *key;
    long found_at; // -1: none that counts
};

// Rows show by name in test listings.
void PrintTo(const FindRow &row, std::ostream *out)
{
    *out << row.name;
}

class NmeaFind : public ::testing::TestWithParam<FindRow>
{
};

TEST_P(NmeaFind, CountsAMatchOnlyWith128BytesAfterIt)
{
    const FindRow &row = GetParam();
    std::string block = row.block;
    char *found = cli_nmea_find(block.data(), row.length, row.key);
    if (row.found_at < 0)
        EXPECT_EQ(found, nullptr);
    else
        EXPECT_EQ(found, block.data() + row.found_at);
}

const FindRow kFindRows[] = {
    {"AtTheStart", block_with("GPRMC", 0, 1024), 1024, "GPRMC", 0},
    {"ExactlyAtLengthLess128", block_with("GPRMC", 896, 1024), 1024, "GPRMC", 896},
    {"OneByteLaterDoesNotCount", block_with("GPRMC", 897, 1024), 1024, "GPRMC", -1},
    {"InTheLastBytesDoesNotCount", block_with("GPRMC", 1019, 1024), 1024, "GPRMC", -1},
    // Only the first occurrence is looked at: a late one hides nothing further on, an early one
    // wins.
    {"OnlyTheFirstOccurrence", block_with("GPRMC", 100, 1024).replace(960, 5, "GPRMC"), 1024, "GPRMC", 100},
    {"AbsentKey", block_with("GPGGA", 10, 1024), 1024, "GPRMC", -1},
    {"AnyTalkerWithAnEmptyPrefix", block_with("GNRMC", 40, 1024), 1024, "RMC", 42},
    // A block under 128 bytes: length - 128 wraps round, and any match counts, even at the end.
    {"ShortBlockAnyMatchCounts", block_with("GPRMC", 95, 100), 100, "GPRMC", 95},
    {"EmptyBlockWrapsToo", block_with("GPRMC", 0, 5), 0, "GPRMC", 0},
    {"Exactly128BytesOnlyAtTheStart", block_with("GPRMC", 0, 128), 128, "GPRMC", 0},
    {"Exactly128BytesNotAfterIt", block_with("GPRMC", 1, 128), 128, "GPRMC", -1},
    // The search stops at the first zero byte, as text does.
    {"AfterAZeroByteNothingIsFound", std::string("ab\0GPRMC", 8) + std::string(1016, '.'), 1024, "GPRMC", -1},
};
INSTANTIATE_TEST_SUITE_P(Table, NmeaFind, ::testing::ValuesIn(kFindRows),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- CLI_StringConvert -------------------------------------------------------------------------------

struct ConvertRow {
    const char *name;
    std::string source;
    uint32_t result;
    std::string shown;                 // the destination afterwards
    std::vector<std::string> messages; // diagnostic lines
};

// Rows show by name in test listings.
void PrintTo(const ConvertRow &row, std::ostream *out)
{
    *out << row.name;
}

class StringConvert : public ::testing::TestWithParam<ConvertRow>
{
  protected:
    void SetUp() override { printed().clear(); }
};

TEST_P(StringConvert, MovesThePointTwoPlacesLeft)
{
    const ConvertRow &row = GetParam();
    // Exactly strlen(src) + 1 zeroed bytes, then a guard that must stay untouched.
    const size_t room = row.source.size() + 1;
    std::vector<char> destination(room + 16, '\0');
    memset(destination.data() + room, 0x7E, 16);
    EXPECT_EQ(CLI_StringConvert(destination.data(), row.source.c_str()), row.result);
    EXPECT_EQ(std::string(destination.data()), row.shown);
    for (size_t i = room; i < destination.size(); ++i)
        ASSERT_EQ(destination[i], 0x7E) << "written beyond the destination at " << i;
    EXPECT_EQ(destination[room - 1], '\0');
    EXPECT_EQ(messages(), row.messages);
}

const ConvertRow kConvertRows[] = {
    {"Latitude", "3150.7816", 0, "31.507816", {}},
    {"LongitudeWithThreeDegreeDigits", "12118.8515", 0, "121.188515", {}},
    {"WestOfGreenwich", "00207.2822", 0, "002.072822", {}},
    {"LongMinutes", "4404.130612", 0, "44.04130612", {}},
    {"PointLast", "4404.", 0, "44.04", {}},
    {"PointAtThree", "440.5", 0, "4.405", {}},
    {"NoPointDigitsUnchanged", "440413", 0, "440413", {}},
    {"Empty", "", 0, "", {}},
    {"EveryPointDroppedOnePlaced", "4404.13.06", 0, "44.041306", {}},
    {"PointAtTwo", "12.5", 1, "", {" INFO CLI_StringConvert: error date 12.5"}},
    {"PointAtOne", "1.5", 1, "", {" INFO CLI_StringConvert: error date 1.5"}},
    {"PointFirst", ".5", 1, "", {" INFO CLI_StringConvert: error date .5"}},
    {"OnlyAPoint", ".", 1, "", {" INFO CLI_StringConvert: error date ."}},
    {"AFieldOfThirtyOneCharacters",
     "1234567890123456789.01234567890",
     0,
     "12345678901234567.8901234567890",
     {}},
};
INSTANTIATE_TEST_SUITE_P(Table, StringConvert, ::testing::ValuesIn(kConvertRows),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(StringConvertArguments, NullTextsAreRefused)
{
    printed().clear();
    char destination[8] = {};
    EXPECT_EQ(CLI_StringConvert(nullptr, "3150.7816"), 1u);
    EXPECT_EQ(CLI_StringConvert(destination, nullptr), 1u);
    EXPECT_EQ(messages(), (std::vector<std::string>{"ERROR CLI_StringConvert: null text",
                                                    "ERROR CLI_StringConvert: null text"}));
    EXPECT_STREQ(destination, "");
}

// ---- CLI_InfoAnalyse -----------------------------------------------------------------------------------

struct NumberRow {
    const char *name;
    std::string sentence;
    uint32_t field;
    uint32_t number;
};

// Rows show by name in test listings.
void PrintTo(const NumberRow &row, std::ostream *out)
{
    *out << row.name;
}

class InfoAnalyseNumber : public ::testing::TestWithParam<NumberRow>
{
  protected:
    void SetUp() override { printed().clear(); }
};

TEST_P(InfoAnalyseNumber, ReadsTheFieldAsANumberSilently)
{
    const NumberRow &row = GetParam();
    std::string sentence = row.sentence;
    uint32_t number = 0xA5A5A5A5u;
    const shell::Captured io =
        capture_output([&] { EXPECT_EQ(CLI_InfoAnalyse(sentence.data(), row.field, &number), 0u); });
    EXPECT_EQ(number, row.number);
    EXPECT_TRUE(printed().empty());
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
    EXPECT_EQ(sentence, row.sentence) << "the sentence itself is not changed";
}

const std::string kGga = "GPGGA,202640.000,4404.1306,N,12118.8515,W,2,10,0.98,1127.7,M,-19.6,M,0000,0000*6C";
const std::string kGsv = "GPGSV,3,1,12,09,88,089,31,07,60,281,44,23,55,123,33,10,44,274,32*78";

const NumberRow kNumberRows[] = {
    {"GgaSatellitesInUse", kGga, 7, 10},
    {"GsvSatellitesInView", kGsv, 3, 12},
    {"EmptyFieldIsZero", "GPGGA,,,,,,0,,,,,,,,*66", 7, 0},
    {"LeadingZeros", "GPGGA,1,2,3,4,5,6,08*00", 7, 8},
    {"DigitsThenText", "X,12abc*00", 1, 12},
    {"TextIsZero", "X,abc*00", 1, 0},
    {"FieldZeroIsTheAddress", kGga, 0, 0},
    {"NegativeWrapsAsAnUnsignedWord", "X,-1*00", 1, 4294967295u},
    {"BeyondAnIntIsHeldAtItsEnd", "X,99999999999*00", 1, 2147483647u},
    {"BelowAnIntIsHeldAtItsEnd", "X,-99999999999*00", 1, 2147483648u},
    {"FieldBeyondTheSentence", kGga, 20, 0},
    {"FieldBeyondTheTable", kGga, 32, 0},
    {"FieldFarBeyondTheTable", kGga, 0xFFFFFFFFu, 0},
    {"LastFieldOfTheTable", joined(numbered(31)) + ",77*00", 31, 77},
};
INSTANTIATE_TEST_SUITE_P(Table, InfoAnalyseNumber, ::testing::ValuesIn(kNumberRows),
                         [](const auto &info) { return std::string(info.param.name); });

struct PositionRow {
    const char *name;
    std::string sentence;
    uint32_t field;
    uint32_t result;
    std::vector<std::string> messages;
    std::string out;
};

// Rows show by name in test listings.
void PrintTo(const PositionRow &row, std::ostream *out)
{
    *out << row.name;
}

class InfoAnalysePosition : public ::testing::TestWithParam<PositionRow>
{
  protected:
    void SetUp() override { printed().clear(); }
};

TEST_P(InfoAnalysePosition, ShowsThePositionOrSaysWhyNot)
{
    const PositionRow &row = GetParam();
    std::string sentence = row.sentence;
    uint32_t result = 99;
    const shell::Captured io =
        capture_output([&] { result = CLI_InfoAnalyse(sentence.data(), row.field, nullptr); });
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(messages(), row.messages);
    EXPECT_EQ(io.out, row.out);
    EXPECT_EQ(io.err, "");
}

const std::vector<std::string> kIllegal = {" INFO CLI_InfoAnalyse: Coordinate Info illegal"};
const std::string kIllegalOut = "Coordinate Info illegal\r\n";

PositionRow shown(const char *name, std::string sentence, uint32_t field, std::string position)
{
    return {name, std::move(sentence), field, 0, {" INFO CLI_InfoAnalyse: " + position}, position + "\r\n"};
}

PositionRow illegal(const char *name, std::string sentence, uint32_t field)
{
    return {name, std::move(sentence), field, 1, kIllegal, kIllegalOut};
}

const PositionRow kPositionRows[] = {
    // RMC: latitude in field 3 with its hemisphere in 4, longitude in 5 with 6.
    shown("RmcWithAFix", "GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73", 3,
          "Longitude:W 121.188515\nLatitude:N 44.041306"),
    shown("RmcSouthEast", "GPRMC,092204.999,A,3150.7816,S,11711.9323,E,0.00,0.00,220304,,*1C", 3,
          "Longitude:E 117.119323\nLatitude:S 31.507816"),
    shown("GgaFromField2", kGga, 2, "Longitude:W 121.188515\nLatitude:N 44.041306"),
    // Status V with a position present is still a position here: only emptiness is tested.
    shown("RmcStatusVWithAPosition", "GPRMC,000000.000,V,8960.000000,N,00000.000000,E,0.0,0.0,050180,,,N*72",
          3, "Longitude:E 000.00000000\nLatitude:N 89.60000000"),
    illegal("RmcWithoutAFix", "GPRMC,,V,,,,,,,,,,N*53", 3),
    illegal("RmcWithoutCourse", "GPRMC,110518.000,A,5709.8067,N,00207.2822,W,0.00,,140311,,,A*65", 3),
    illegal("GgaWithoutAFix", "GPGGA,,,,,,0,00,99.99,,,,,,*48", 2),
    // GLL has seven fields before its star: fields 8 and 9 are always empty.
    illegal("GllWithAFix", "GPGLL,5709.8067,N,00207.2822,W,110518.000,A,A*4A", 1),
    illegal("GllWithoutAFix", "GPGLL,,,,,hhmmss,V,N*64", 1),
    illegal("EmptySentence", "", 3),
    // The hemispheres of a latitude field near the table's end would lie beyond it.
    illegal("LatitudeFieldBeyondTheTable", joined(numbered(32)), 29),
    illegal("LatitudeFieldFarBeyond", joined(numbered(32)), 0xFFFFFFFEu),
    shown("LatitudeFieldAtTheTablesLastPossiblePlace", joined(numbered(32)), 28,
          "Longitude:f f30\nLatitude:f f28"),
    // A latitude the rewrite refuses is shown empty, after its own line.
    {"LatitudeWithThePointAtTwo",
     "GPRMC,202640.000,A,12.5,N,12118.8515,W,0.03,225.97,130415,,,D*00",
     3,
     0,
     {" INFO CLI_StringConvert: error date 12.5",
      " INFO CLI_InfoAnalyse: Longitude:W 121.188515\nLatitude:N "},
     "Longitude:W 121.188515\nLatitude:N \r\n"},
    // A sentence without a star runs on to the end of the text, line breaks and all.
    shown("NoStar", "GPRMC,1,A,4404.1306,N,12118.8515,W,0.03,225.97,130415\r\n$GPZDA", 3,
          "Longitude:W 121.188515\nLatitude:N 44.041306"),
    // Hostile: every field far too long, far too many of them. The texts are cut to 31
    // characters each and nothing is written beyond the table or the record.
    shown("EveryFieldTooLongAndTooMany", repeated("1234." + std::string(60, '9'), 60), 3,
          "Longitude:1 12.34" + std::string(26, '9') + "\nLatitude:1 12.34" + std::string(26, '9')),
};
INSTANTIATE_TEST_SUITE_P(Table, InfoAnalysePosition, ::testing::ValuesIn(kPositionRows),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(InfoAnalyseArguments, ANullSentenceIsRefused)
{
    printed().clear();
    uint32_t number = 7;
    EXPECT_EQ(CLI_InfoAnalyse(nullptr, 7, &number), 1u);
    EXPECT_EQ(CLI_InfoAnalyse(nullptr, 3, nullptr), 1u);
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(messages(), (std::vector<std::string>{"ERROR CLI_InfoAnalyse: null sentence",
                                                    "ERROR CLI_InfoAnalyse: null sentence"}));
}

} // namespace
