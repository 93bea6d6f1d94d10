// Station scripts: reading and checking every line before anything runs, then the run.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <unistd.h>

#include "core/journal.h"
#include "platform/platform.h"
#include "script.h"
#include "shell_fixture.h"
#include "simulated.h"
#include "station.h"

namespace
{

using clitest::Call;

class Scripts : public shelltest::ShellTest
{
};

TEST_F(Scripts, CommentsBlankLinesAndExpectations)
{
    const shell::Shell shell = make_shell();
    std::vector<std::string> errors;
    const shell::Script script = shell::parse_script("# header\n"
                                                     "\n"
                                                     "CLI_PlatformInit\n"
                                                     "   # indented note\n"
                                                     "CLI_HeatCtrlBoardToSlot 1 2   => 0  # slot\n"
                                                     "CLI_GetRawData =>1\n"
                                                     "CLI_GetFlashType => 0x0\r\n"
                                                     "CLI_EncodeInit",
                                                     "s.cli", shell, errors);
    EXPECT_TRUE(errors.empty());
    ASSERT_EQ(script.lines.size(), 5u);
    EXPECT_EQ(script.lines[0].number, 3);
    EXPECT_EQ(script.lines[0].expected, 0);
    EXPECT_EQ(script.lines[1].number, 5);
    EXPECT_EQ(script.lines[1].command.words, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(script.lines[2].expected, 1);
    EXPECT_EQ(script.lines[3].number, 7);
    EXPECT_EQ(script.lines[3].command.name, "CLI_GetFlashType") << "a CRLF file reads the same";
    EXPECT_EQ(script.lines[4].number, 8);
}

TEST_F(Scripts, EveryBadLineIsNamedAndNothingRuns)
{
    const shell::Shell shell = make_shell();
    std::vector<std::string> errors;
    Call call = run([&] {
        shell::parse_script("CLI_GetRawData\n"
                            "CLI_NoSuchCommand 1\n"
                            "CLI_HeatCtrlBoardToSlot 1\n"
                            "CLI_SetLedColor green\n"
                            "CLI_GetRawData =>\n"
                            "CLI_GetFlashType => -1\n"
                            "CLI_GetRawData => zero\n"
                            "CLI_SniffMac \"aa:bb\n"
                            "list\n"
                            "CLI_GetRawData => 0 => 1\n",
                            "bad.cli", shell, errors);
    });
    EXPECT_TRUE(call.journal.empty()) << "checking a script calls nothing";
    ASSERT_EQ(errors.size(), 9u);
    EXPECT_EQ(errors[0].rfind("bad.cli:2: unknown command 'CLI_NoSuchCommand'", 0), 0u) << errors[0];
    EXPECT_EQ(errors[1].rfind("bad.cli:3: CLI_HeatCtrlBoardToSlot takes 2 arguments, 1 given\n", 0), 0u)
        << errors[1];
    EXPECT_EQ(errors[2].rfind("bad.cli:4: CLI_SetLedColor: enLedColor: 'green' is not a number", 0), 0u)
        << errors[2];
    EXPECT_EQ(errors[3], "bad.cli:5: \"=>\" needs the expected status after it");
    EXPECT_EQ(errors[4],
              "bad.cli:6: expected status: '-1' is out of range for uint32_t (0 to 4294967295): no sign "
              "for an unsigned number");
    EXPECT_EQ(errors[5], "bad.cli:7: expected status: 'zero' is not a number (decimal, or hex with 0x)");
    EXPECT_EQ(errors[6], "bad.cli:8: a quote is not closed");
    EXPECT_EQ(errors[7], "bad.cli:9: list is for the prompt; a script line is a command");
    EXPECT_EQ(errors[8],
              "bad.cli:10: write a comma between the expected status and what follows: => 0, => ...");
}

TEST_F(Scripts, RunAndSummary)
{
    shell::Shell shell = make_shell();
    std::vector<std::string> errors;
    const shell::Script script = shell::parse_script("CLI_PlatformInit\n"
                                                     "CLI_HeatCtrlBoardToSlot 1 2 => 0, pulOut = 2\n"
                                                     "CLI_GetCpuInfo => 1\n"
                                                     "__CLI_EncodeInit\n",
                                                     "examples/s.cli", shell, errors);
    ASSERT_TRUE(errors.empty());
    shell::ScriptRun result;
    Call call = run([&] {
        shell::run_script(shell, script, shell::RunOptions{}, result);
        shell::print_summary(stdout, result);
    });
    EXPECT_EQ(result.passed, 2u);
    EXPECT_EQ(result.failed, 1u);
    EXPECT_EQ(result.skipped, 1u);
    EXPECT_EQ(shell::exit_code(result), 1);
    ASSERT_EQ(result.lines.size(), 4u);
    EXPECT_EQ(result.lines[1].verdict.outcome, shell::Outcome::Pass);
    EXPECT_EQ(result.lines[2].verdict.outcome, shell::Outcome::Fail);
    EXPECT_EQ(result.lines[2].verdict.reason, "expected 1, got 0");
    EXPECT_EQ(result.lines[3].result.status, std::nullopt);
    EXPECT_EQ(result.lines[3].verdict.outcome, shell::Outcome::Skip) << "the default answered";
    EXPECT_EQ(result.simulated_ns, 0);

    const std::string masked =
        std::regex_replace(call.out, std::regex(" *[0-9]+\\.[0-9]{3} ms"), " #.### ms");
    EXPECT_NE(
        masked.find("[1] CLI_PlatformInit\n=> 0\n[2] CLI_HeatCtrlBoardToSlot 1 2\n  *pulOut = 2 (0x2)\n=> 0\n"
                    "  check pulOut = 2, limit = 2: pass\n[3] CLI_GetCpuInfo\n"),
        std::string::npos)
        << masked;
    EXPECT_NE(
        masked.find("cpu chipid:HI3516A\r\n  reading chip = \"HI3516A\"\n=> 0\nFAIL: expected 1, got 0\n"),
        std::string::npos)
        << masked;
    EXPECT_NE(masked.find(
                  "\nSummary of examples/s.cli\n"
                  "line  command                      expected  got  outcome        wall    simulated\n"
                  "   1  CLI_PlatformInit                    0    0  PASS #.### ms   0.000000 s\n"
                  "   2  CLI_HeatCtrlBoardToSlot 1 2         0    0  PASS #.### ms   0.000000 s\n"
                  "   3  CLI_GetCpuInfo                      1    0  FAIL #.### ms   0.000000 s\n"
                  "      expected 1, got 0\n"
                  "   4  __CLI_EncodeInit                    0    -  SKIP #.### ms   0.000000 s\n"
                  "4 steps: 2 passed, 1 failed, 0 errors, 1 skipped; wall #.### ms, simulated 0.000000 s\n"),
              std::string::npos)
        << masked;
}

TEST_F(Scripts, EmptyScriptPasses)
{
    shell::Shell shell = make_shell();
    std::vector<std::string> errors;
    const shell::Script script = shell::parse_script("# nothing yet\n", "empty.cli", shell, errors);
    shell::ScriptRun result;
    Call call = run([&] { shell::run_script(shell, script, shell::RunOptions{}, result); });
    EXPECT_EQ(shell::exit_code(result), 0);
    EXPECT_TRUE(result.lines.empty());
}

class StationFiles : public Scripts
{
  protected:
    void SetUp() override
    {
        Scripts::SetUp();
        char name[] = "/tmp/clidriver-station-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        dir_ = name;
    }
    void TearDown() override
    {
        for (const char *file : {"/s.cli", "/r.xml", "/r.json"})
            unlink((dir_ + file).c_str());
        rmdir(dir_.c_str());
        Scripts::TearDown();
    }
    std::string write(const std::string &text)
    {
        std::ofstream(dir_ + "/s.cli") << text;
        return dir_ + "/s.cli";
    }
    std::string dir_;
};

TEST_F(StationFiles, ExitCodes)
{
    shell::Shell shell = make_shell();
    int code = -1;
    run([&] { code = shell::run_station(shell, {write("CLI_GetRawData\n"), "", ""}); });
    EXPECT_EQ(code, 0);
    run([&] { code = shell::run_station(shell, {write("CLI_GetCpuInfo => 1\n"), "", ""}); });
    EXPECT_EQ(code, 1);
    run([&] { code = shell::run_station(shell, {write("CLI_GetRawData => 1\n"), "", ""}); });
    EXPECT_EQ(code, 0) << "the default answered: SKIP, which fails nothing";
    Call call = run([&] {
        code = shell::run_station(shell, {write("CLI_GetRawData\nCLI_Bogus\n"), "", ""});
    });
    EXPECT_EQ(code, 2);
    EXPECT_TRUE(call.of(sim::Kind::Print).empty()) << "a script with a bad line runs nothing";
    EXPECT_NE(call.err.find("s.cli:2: unknown command 'CLI_Bogus'"), std::string::npos) << call.err;
    EXPECT_NE(call.err.find("1 line to correct; nothing was run"), std::string::npos) << call.err;
    call = run([&] { code = shell::run_station(shell, {dir_ + "/missing.cli", "", ""}); });
    EXPECT_EQ(code, 2);
    EXPECT_NE(call.err.find("cannot read station script " + dir_ + "/missing.cli"), std::string::npos);
}

TEST_F(StationFiles, ReportThatCannotBeWrittenStopsBeforeTheRun)
{
    shell::Shell shell = make_shell();
    int code = -1;
    const Call call = run([&] {
        code = shell::run_station(shell, {write("CLI_GetRawData\n"), dir_ + "/no/such/dir/r.xml", ""});
    });
    EXPECT_EQ(code, 2);
    EXPECT_TRUE(call.of(sim::Kind::Print).empty());
    EXPECT_NE(call.err.find("cannot write report " + dir_ + "/no/such/dir/r.xml"), std::string::npos)
        << call.err;
}

TEST_F(StationFiles, ReportsAreWritten)
{
    shell::Shell shell = make_shell();
    int code = -1;
    run([&] {
        code = shell::run_station(
            shell, {write("CLI_GetRawData\nCLI_GetFlashType => 1\n"), dir_ + "/r.xml", dir_ + "/r.json"});
    });
    EXPECT_EQ(code, 1);
    std::stringstream xml, json;
    xml << std::ifstream(dir_ + "/r.xml").rdbuf();
    json << std::ifstream(dir_ + "/r.json").rdbuf();
    EXPECT_NE(xml.str().find("<testsuite name=\"s\" tests=\"2\" failures=\"1\""), std::string::npos)
        << xml.str();
    EXPECT_NE(json.str().find("\"failed\": 1"), std::string::npos) << json.str();
}

} // namespace
