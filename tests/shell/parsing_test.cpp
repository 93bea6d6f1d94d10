// What operators type, read into values: numbers, time-outs, bytes, words of a line, and the
// parameter lists of the command list.
#include <gtest/gtest.h>

#include "number.h"
#include "reports.h"
#include "signature.h"
#include "words.h"

namespace
{

using shell::CommandLine;

template <typename T> std::string parse(std::string_view text, T &value)
{
    return shell::parse_number(text, "T", value);
}

TEST(Numbers, DecimalHexAndSign)
{
    uint32_t u = 0;
    EXPECT_EQ(parse("115200", u), "");
    EXPECT_EQ(u, 115200u);
    EXPECT_EQ(parse("0x1C200", u), "");
    EXPECT_EQ(u, 0x1C200u);
    EXPECT_EQ(parse("0XfF", u), "");
    EXPECT_EQ(u, 255u);
    EXPECT_EQ(parse("4294967295", u), "");
    EXPECT_EQ(u, 4294967295u);
    EXPECT_EQ(parse("010", u), "") << "leading zeros stay decimal";
    EXPECT_EQ(u, 10u);
    EXPECT_EQ(parse("-0", u), "");
    EXPECT_EQ(u, 0u);

    int32_t s = 0;
    EXPECT_EQ(parse("-1", s), "");
    EXPECT_EQ(s, -1);
    EXPECT_EQ(parse("-0x10", s), "");
    EXPECT_EQ(s, -16);
    EXPECT_EQ(parse("-2147483648", s), "");
    EXPECT_EQ(s, INT32_MIN);
    EXPECT_EQ(parse("2147483647", s), "");
    EXPECT_EQ(s, INT32_MAX);

    uint8_t b = 0;
    EXPECT_EQ(parse("0xff", b), "");
    EXPECT_EQ(b, 255);
}

TEST(Numbers, OutOfRangeSaysTheRange)
{
    uint32_t u = 7;
    EXPECT_EQ(parse("4294967296", u), "'4294967296' is out of range for T (0 to 4294967295)");
    EXPECT_EQ(parse("0x100000000", u), "'0x100000000' is out of range for T (0 to 4294967295)");
    EXPECT_EQ(parse("99999999999999999999999999", u),
              "'99999999999999999999999999' is out of range for T (0 to 4294967295)");
    EXPECT_EQ(parse("-1", u), "'-1' is out of range for T (0 to 4294967295): no sign for an unsigned number");
    EXPECT_EQ(u, 7u) << "a refused word leaves the value alone";

    int32_t s = 0;
    EXPECT_NE(parse("2147483648", s), "");
    EXPECT_NE(parse("-2147483649", s), "");
    uint8_t b = 0;
    EXPECT_EQ(parse("256", b), "'256' is out of range for T (0 to 255)");
}

TEST(Numbers, JunkIsNotANumber)
{
    uint32_t u = 0;
    for (const char *junk : {"", "abc", "12a", "0x", "0xG1", "+1", " 1", "1 ", "1.0", "--1", "-", "1e3"}) {
        SCOPED_TRACE(junk);
        EXPECT_EQ(parse(junk, u), "'" + std::string(junk) + "' is not a number (decimal, or hex with 0x)");
    }
}

TEST(Timeouts, SecondsAndFraction)
{
    timeval tv{};
    EXPECT_EQ(shell::parse_timeval("5", tv), "");
    EXPECT_EQ(tv.tv_sec, 5);
    EXPECT_EQ(tv.tv_usec, 0);
    EXPECT_EQ(shell::parse_timeval("1.5", tv), "");
    EXPECT_EQ(tv.tv_sec, 1);
    EXPECT_EQ(tv.tv_usec, 500000);
    EXPECT_EQ(shell::parse_timeval("0.000250", tv), "");
    EXPECT_EQ(tv.tv_sec, 0);
    EXPECT_EQ(tv.tv_usec, 250);
    EXPECT_EQ(shell::parse_timeval("2147483647.999999", tv), "");
    EXPECT_EQ(tv.tv_sec, 2147483647);
    EXPECT_EQ(tv.tv_usec, 999999);
}

TEST(Timeouts, RefusedShapes)
{
    timeval tv{};
    for (const char *bad : {"", "1.", ".5", "1.1234567", "-1", "0x10", "1.5s", "a", "1..2"}) {
        SCOPED_TRACE(bad);
        EXPECT_NE(shell::parse_timeval(bad, tv), "");
    }
    EXPECT_EQ(shell::parse_timeval("2147483648", tv),
              "'2147483648' is out of range for a time-out (at most 2147483647 seconds)");
}

TEST(HexBytes, PairsRunsAndSingleDigits)
{
    std::vector<uint8_t> bytes;
    EXPECT_EQ(shell::parse_hex_bytes("FE 00 04", bytes), "");
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0xFE, 0x00, 0x04}));
    EXPECT_EQ(shell::parse_hex_bytes("fe0004", bytes), "");
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0xFE, 0x00, 0x04}));
    EXPECT_EQ(shell::parse_hex_bytes(" 7\tA  ", bytes), "");
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x07, 0x0A}));
    EXPECT_EQ(shell::parse_hex_bytes("", bytes), "");
    EXPECT_TRUE(bytes.empty());
}

TEST(HexBytes, RefusedShapes)
{
    std::vector<uint8_t> bytes{1};
    EXPECT_EQ(shell::parse_hex_bytes("F00", bytes),
              "'F00' is not hex bytes (pairs of hex digits, like \"FE 00 04\")");
    EXPECT_NE(shell::parse_hex_bytes("GG", bytes), "");
    EXPECT_NE(shell::parse_hex_bytes("0x12", bytes), "");
    EXPECT_EQ(bytes, std::vector<uint8_t>{1});
    EXPECT_EQ(shell::hex_bytes(std::vector<uint8_t>{0xFE, 0, 4}.data(), 3), "FE 00 04");
}

TEST(Formats, WallSimulatedAndText)
{
    EXPECT_EQ(shell::format_wall(1234567), "1.235 ms");
    EXPECT_EQ(shell::format_wall(0), "0.000 ms");
    EXPECT_EQ(shell::format_simulated(2'000'000'000), "2.000000 s");
    EXPECT_EQ(shell::format_simulated(56'250'000'000), "56.250000 s");
    EXPECT_EQ(shell::escape_text("a\"b\\c\r\n\x01\xff"), "\"a\\\"b\\\\c\\r\\n\\x01\\xFF\"");
}

TEST(Words, PlainQuotedAndComment)
{
    CommandLine line;
    ASSERT_EQ(shell::split_line("  CLI_ComSend 3 0 \"FE 00 04\" 3 1   # hub open", line), "");
    EXPECT_EQ(line.name, "CLI_ComSend");
    EXPECT_EQ(line.words, (std::vector<std::string>{"3", "0", "FE 00 04", "3", "1"}));
    EXPECT_FALSE(line.expect);
    EXPECT_EQ(line.display(), "CLI_ComSend 3 0 \"FE 00 04\" 3 1");

    ASSERT_EQ(shell::split_line("CLI_SniffMac \"say \\\"hi\\\" \\\\ there\" a#b", line), "");
    EXPECT_EQ(line.words, (std::vector<std::string>{"say \"hi\" \\ there", "a#b"}));
    EXPECT_EQ(line.display(), "CLI_SniffMac \"say \\\"hi\\\" \\\\ there\" \"a#b\"");

    ASSERT_EQ(shell::split_line("CLI_SniffMac \"\"", line), "");
    EXPECT_EQ(line.words, std::vector<std::string>{""});
}

TEST(Words, BlankAndCommentLinesHaveNoCommand)
{
    for (const char *text : {"", "   ", "\t", "# just a note", "   # indented note", "\r"}) {
        CommandLine line;
        line.name = "stale";
        EXPECT_EQ(shell::split_line(text, line), "") << text;
        EXPECT_EQ(line.name, "") << text;
    }
}

TEST(Words, ExpectedStatus)
{
    CommandLine line;
    ASSERT_EQ(shell::split_line("CLI_GetRawData => 0", line), "");
    EXPECT_EQ(line.expect, "0");
    ASSERT_EQ(shell::split_line("CLI_HeatCtrlBoardToSlot 1 2 =>1 # comment", line), "");
    EXPECT_EQ(line.words, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(line.expect, "1");
    ASSERT_EQ(shell::split_line("CLI_X => 0x1", line), "");
    EXPECT_EQ(line.expect, "0x1");
    ASSERT_EQ(shell::split_line("CLI_SniffMac \"=>\"", line), "") << "a quoted => is an argument";
    EXPECT_EQ(line.words, std::vector<std::string>{"=>"});
    EXPECT_FALSE(line.expect);
}

TEST(Words, BadLines)
{
    CommandLine line;
    EXPECT_EQ(shell::split_line("CLI_GetRawData =>", line), "\"=>\" needs the expected status after it");
    EXPECT_EQ(shell::split_line("CLI_GetRawData => 0, cpld = 1 # note", line), "");
    EXPECT_EQ(line.checks, ", cpld = 1") << "what follows the status is the station's, up to the comment";
    EXPECT_EQ(shell::split_line("=> 0", line), "\"=>\" needs a command before it");
    EXPECT_EQ(shell::split_line("CLI_SniffMac \"aa:bb", line), "a quote is not closed");
    EXPECT_EQ(shell::split_line("\"\" 1", line), "an empty command name");
    EXPECT_EQ(shell::split_line("\"CLI X\" 1", line), "'CLI X' is not a command name");
}

TEST(Signatures, NamesAndTypesFromTheList)
{
    EXPECT_TRUE(shell::split_params("(void)").empty());
    EXPECT_TRUE(shell::split_params("()").empty());
    const auto params =
        shell::split_params("(int fd, int32_t lCount, struct timeval stTimeout, void *pvBuf)");
    ASSERT_EQ(params.size(), 4u);
    EXPECT_EQ(params[0].type, "int");
    EXPECT_EQ(params[0].name, "fd");
    EXPECT_EQ(params[2].type, "struct timeval");
    EXPECT_EQ(params[2].name, "stTimeout");
    EXPECT_EQ(params[3].type, "void *");
    EXPECT_EQ(params[3].name, "pvBuf");
    const auto text = shell::split_params("(const char *pcMac)");
    ASSERT_EQ(text.size(), 1u);
    EXPECT_EQ(text[0].type, "const char *");
    EXPECT_EQ(text[0].name, "pcMac");
}

TEST(Utf8, InvalidSequencesAreReplaced)
{
    EXPECT_EQ(shell::valid_utf8("plain \xC3\xA9 text"), "plain \xC3\xA9 text");
    EXPECT_EQ(shell::valid_utf8("a\xFF"
                                "b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(shell::valid_utf8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "overlong form";
    EXPECT_EQ(shell::valid_utf8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "surrogate";
    EXPECT_EQ(shell::valid_utf8("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "cut short";
}

} // namespace
