// The four report shapes, exactly as operators and station scripts see them.
#include <gtest/gtest.h>

#include "capture.h"
#include "cli_libfun_unit.h"
#include "clidriver/clidriver.h"
#include "print_sink_double.h"

void report_from_unit_without_slash();

namespace
{

using clitest::printed;
using shell::capture_output;

class ReportShapes : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        printed().clear();
        clitest::set_wall_clock({1795138150, 42}); // 2026-11-20 01:29:10.000042 UTC
    }
};

// Stand-ins for command functions, so the function field shows a name of known length.
int g_info_line = 0;
int Cli_ReportsAnInfoLine()
{
    g_info_line = __LINE__ + 1;
    return CLI_INFO("value %u of %s", 7u, "seven");
}

void Cli_NameOf31CharactersExactly__()
{
    CLI_ERROR("long name");
}

TEST_F(ReportShapes, DiagnosticLineHasEveryFieldInOrderWithItsPadding)
{
    const int result = Cli_ReportsAnInfoLine();
    const int line = g_info_line;
    ASSERT_EQ(printed().size(), 1u);
    char expected[256];
    snprintf(expected, sizeof expected,
             "2026-11-20 01:29:10 000042 cli_libfun.cpp      @fun:Cli_ReportsAnInfoLine         "
             "line:%-6d--[ INFO]value 7 of seven\n",
             line);
    EXPECT_EQ(printed()[0], expected);
    EXPECT_EQ(result, static_cast<int>(strlen(expected))) << "the line's value is the sink's result";
}

TEST_F(ReportShapes, MicrosecondsAreZeroPaddedToSixDigits)
{
    clitest::set_wall_clock({1795138150, 5});
    Cli_ReportsAnInfoLine();
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_EQ(printed()[0].substr(20, 7), "000005 ");
    clitest::set_wall_clock({1795138150, 999999});
    Cli_ReportsAnInfoLine();
    EXPECT_EQ(printed()[1].substr(20, 7), "999999 ");
}

TEST_F(ReportShapes, InfoKeepsItsLeadingBlankSoLevelsAlign)
{
    Cli_ReportsAnInfoLine();
    Cli_NameOf31CharactersExactly__();
    ASSERT_EQ(printed().size(), 2u);
    EXPECT_NE(printed()[0].find("--[ INFO]"), std::string::npos);
    EXPECT_NE(printed()[1].find("--[ERROR]"), std::string::npos);
}

TEST_F(ReportShapes, NameLongerThanItsColumnIsPrintedWholeAndPushesTheLineRight)
{
    ASSERT_EQ(strlen("Cli_NameOf31CharactersExactly__"), 31u);
    Cli_NameOf31CharactersExactly__();
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("@fun:Cli_NameOf31CharactersExactly__line:"), std::string::npos)
        << printed()[0];
}

TEST_F(ReportShapes, FileFieldIsTheNameAfterTheLastSlash)
{
    EXPECT_STREQ(Cli_GetBaseName(), "cli_libfun.cpp");
    EXPECT_STREQ(cli_base_name("a/b/c.cpp"), "c.cpp");
    EXPECT_STREQ(cli_base_name("/rooted.cpp"), "rooted.cpp");
    EXPECT_STREQ(cli_base_name("trailing/"), "");
}

TEST_F(ReportShapes, FileFieldWithoutSlashIsTheWholeName)
{
    EXPECT_STREQ(cli_base_name("plain_unit.cpp"), "plain_unit.cpp");
    report_from_unit_without_slash();
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_EQ(printed()[0].substr(27, 25), "plain_unit.cpp      @fun:");
}

TEST_F(ReportShapes, ConsoleErrorLineCarriesTheFullSourceNameAndFunction)
{
    const auto io = capture_output([] { CLI_FAIL("Open file %s error", "/dev/cpld_drv"); });
    EXPECT_EQ(io.err, "[ERROR]:Open file /dev/cpld_drv error\t@[src/cli_libfun.cpp operator()]\r\n");
    EXPECT_EQ(io.out, "");
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("--[ERROR]Open file /dev/cpld_drv error\n"), std::string::npos);
}

TEST_F(ReportShapes, ConsoleLineAloneTakesItsOwnPlaceholders)
{
    const auto io = capture_output([] { CLI_CONSOLE("ioctl cmd[%#x]", 0x1950u); });
    EXPECT_EQ(io.err, "[ERROR]:ioctl cmd[0x1950]\t@[src/cli_libfun.cpp operator()]\r\n");
    EXPECT_TRUE(printed().empty());
}

TEST_F(ReportShapes, CallFailurePairNamesWhatFailed)
{
    const auto io = capture_output([] { CLI_CALL_FAILED("popen"); });
    EXPECT_EQ(io.err, "[src/cli_libfun.cpp operator()]: popen call failed\r\n");
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("--[ERROR]Function popen call failed\n"), std::string::npos);
}

TEST_F(ReportShapes, EchoIsAPlainLineEndingCrLf)
{
    const auto io = capture_output([] { CLI_ECHO("CPLD                : %03u", 7u); });
    EXPECT_EQ(io.out, "CPLD                : 007\r\n");
    EXPECT_EQ(io.err, "");
    EXPECT_TRUE(printed().empty());
}

TEST_F(ReportShapes, ResultIsAnInfoLineAndTheSameWordsOnStdout)
{
    const auto io = capture_output([] { CLI_RESULT("status: %d", -1); });
    EXPECT_EQ(io.out, "status: -1\r\n");
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("--[ INFO]status: -1\n"), std::string::npos);
}

TEST_F(ReportShapes, OpenFailureIsAnErrorLineAndItsConsoleLine)
{
    unsigned status = 0;
    const auto io = capture_output([&] { status = CLI_OPEN_FAILED("/dev/motor"); });
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(io.err, "[ERROR]:Open file /dev/motor error\t@[src/cli_libfun.cpp operator()]\r\n");
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("--[ERROR]Open file /dev/motor error\n"), std::string::npos);
}

TEST_F(ReportShapes, IoctlFailureShowsTheRequestPlainThenWithItsPrefix)
{
    unsigned status = 0;
    const auto io = capture_output([&] { status = CLI_IOCTL_FAILED(0x80046B0CUL); });
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(io.err, "[ERROR]:ioctl cmd[0x80046b0c]\t@[src/cli_libfun.cpp operator()]\r\n");
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_NE(printed()[0].find("--[ERROR]ioctl cmd[80046b0c] failed\n"), std::string::npos);
}

// A procedure shared by several commands reports under the command the operator called.
TEST_F(ReportShapes, LinesReportedUnderAnotherFunctionNameThatFunctionEverywhere)
{
    const auto io = capture_output([] {
        CLI_INFO_AS("CLI_GetGpsCoor", "Left %d chance to try", 5);
        CLI_FAIL_AS("CLI_GetGpsSatellite", "open com fail");
        CLI_CALL_FAILED_AS("CLI_ComOpen", "CLI_SetRsRate");
        CLI_RESULT_AS("CLI_GetZigbeeVersion", " Software: %s", "1.2");
        CLI_OPEN_FAILED_AS("CLI_GetMotorStatus", "/dev/motor");
        CLI_IOCTL_FAILED_AS("CLI_GetPirStatus", 0x5006UL);
    });
    EXPECT_EQ(io.out, " Software: 1.2\r\n");
    EXPECT_EQ(io.err, "[ERROR]:open com fail\t@[src/cli_libfun.cpp CLI_GetGpsSatellite]\r\n"
                      "[src/cli_libfun.cpp CLI_ComOpen]: CLI_SetRsRate call failed\r\n"
                      "[ERROR]:Open file /dev/motor error\t@[src/cli_libfun.cpp CLI_GetMotorStatus]\r\n"
                      "[ERROR]:ioctl cmd[0x5006]\t@[src/cli_libfun.cpp CLI_GetPirStatus]\r\n");
    const std::vector<std::string> tails = {"@fun:CLI_GetGpsCoor",     "@fun:CLI_GetGpsSatellite",
                                            "@fun:CLI_ComOpen",        "@fun:CLI_GetZigbeeVersion",
                                            "@fun:CLI_GetMotorStatus", "@fun:CLI_GetPirStatus"};
    const std::vector<std::string> messages = {"--[ INFO]Left 5 chance to try\n",
                                               "--[ERROR]open com fail\n",
                                               "--[ERROR]Function CLI_SetRsRate call failed\n",
                                               "--[ INFO] Software: 1.2\n",
                                               "--[ERROR]Open file /dev/motor error\n",
                                               "--[ERROR]ioctl cmd[5006] failed\n"};
    ASSERT_EQ(printed().size(), tails.size());
    for (size_t i = 0; i < tails.size(); ++i) {
        EXPECT_NE(printed()[i].find(tails[i]), std::string::npos) << printed()[i];
        EXPECT_EQ(printed()[i].substr(printed()[i].size() - messages[i].size()), messages[i]) << printed()[i];
    }
}

TEST_F(ReportShapes, SignalHandlerSetsTheTimeOutFlagAndLeavesItSet)
{
    gulCliTimeOut = 0;
    CLI_SignalDeal(14);
    EXPECT_EQ(gulCliTimeOut, 1u);
    CLI_SignalDeal(0);
    EXPECT_EQ(gulCliTimeOut, 1u);
}

TEST_F(ReportShapes, PclintNoWarnDoesNothing)
{
    const auto io = capture_output([] { CLI_PclintNoWarn(); });
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
    EXPECT_TRUE(printed().empty());
}

} // namespace
