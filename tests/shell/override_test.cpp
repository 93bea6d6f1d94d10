// Commands defined in this test executable replace the library's defaults, as a camera model's
// own library does: they give the shell non-zero statuses, simulated waits, platform calls and
// awkward output to carry into the reports.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "clidriver/platform.h"
#include "core/journal.h"
#include "document_check.h"
#include "platform/platform.h"
#include "reports.h"
#include "script.h"
#include "shell_fixture.h"
#include "simulated.h"

namespace
{
int32_t g_raw_status = 0;
}

extern "C" {

int32_t CLI_GetRawData(void)
{
    printf("raw frame %d\r\n", g_raw_status);
    return g_raw_status;
}

// Two seconds of lens travel on the camera; two simulated seconds here.
uint32_t CLI_ZoomTracking(void)
{
    DRV_ResetMotor(0, 1);
    sleep(2);
    return 0;
}

// Output no report format can carry as it stands.
uint32_t CLI_GetCpuInfo(void)
{
    printf("<cpu> & \"core\" \x01\xff\n");
    fprintf(stderr, "warning ]]> here\n");
    return 3;
}

} // extern "C"

namespace
{

using clitest::Call;
using shelltest::Json;
using shelltest::XmlNode;

class Overrides : public shelltest::ShellTest
{
  protected:
    shell::ScriptRun run_text(const std::string &text, Call *call = nullptr)
    {
        shell::Shell shell = make_shell();
        std::vector<std::string> errors;
        script_ = shell::parse_script(text, "station/line7.cli", shell, errors);
        EXPECT_TRUE(errors.empty());
        shell::ScriptRun result;
        const Call done = run([&] { shell::run_script(shell, script_, shell::RunOptions{true}, result); });
        if (call != nullptr)
            *call = done;
        return result;
    }

    shell::Script script_; // the run's lines point into it
};

TEST_F(Overrides, TheModelsOwnCommandAnswers)
{
    const shell::Entry *raw = shell::find_command("CLI_GetRawData");
    EXPECT_FALSE(raw->default_in_force);
    shell::Shell shell = make_shell();
    g_raw_status = 1;
    int code = -1;
    const Call call = run([&] { code = shell.run_once("CLI_GetRawData", {}); });
    EXPECT_EQ(code, 1) << "a non-zero status";
    EXPECT_EQ(call.out, "raw frame 1\r\n=> 1\n");
    g_raw_status = -5;
    const Call negative = run([&] { code = shell.run_once("CLI_GetRawData", {}); });
    EXPECT_EQ(code, 1);
    EXPECT_EQ(negative.out, "raw frame -5\r\n=> -5\n");
}

TEST_F(Overrides, TimingShowsSimulatedWaiting)
{
    shell::Shell shell = make_shell(true);
    const Call call = run([&] { shell.run_once("CLI_ZoomTracking", {}); });
    EXPECT_TRUE(std::regex_match(call.out,
                                 std::regex("=> 0\n-- wall [0-9]+\\.[0-9]{3} ms, simulated 2\\.000000 s\n")))
        << call.out;
    EXPECT_EQ(call.waited, 2 * sim::kSecond);
}

TEST_F(Overrides, TraceShowsWhatTheCommandDidWithSimulatedTime)
{
    shell::Shell shell = make_shell();
    shell::simulated::trace_to(stdout);
    const Call call = run([&] { shell.run_once("CLI_ZoomTracking", {}); });
    sim::journal().set_listener(nullptr);
    EXPECT_EQ(call.out, "~ 0.000000 s platform: DRV_ResetMotor(0, 1) -> 0\n"
                        "~ 0.000000 s sleep: sleep 2000 ms\n"
                        "=> 0\n");
}

TEST_F(Overrides, ScriptFailsOnAMismatchAndSaysWhere)
{
    g_raw_status = 1;
    Call call;
    const shell::ScriptRun result =
        run_text("CLI_GetRawData\nCLI_GetRawData => 1\nCLI_ZoomTracking\n", &call);
    EXPECT_EQ(result.passed, 2u);
    EXPECT_EQ(result.failed, 1u);
    EXPECT_EQ(result.skipped, 0u) << "a command the model defines is never taken for its default";
    EXPECT_EQ(shell::exit_code(result), 1);
    EXPECT_EQ(result.simulated_ns, 2 * sim::kSecond);
    EXPECT_EQ(result.lines[2].result.simulated_ns, 2 * sim::kSecond);
    EXPECT_NE(call.out.find("[1] CLI_GetRawData\nraw frame 1\r\n=> 1\nFAIL: expected 0, got 1\n"),
              std::string::npos)
        << call.out;
    EXPECT_EQ(result.lines[0].result.out, "raw frame 1\r\n") << "the line's own output, for the reports";
}

TEST_F(Overrides, JunitReportIsWellFormedWithTheRightCounts)
{
    g_raw_status = 1;
    const shell::ScriptRun result = run_text(
        "CLI_GetRawData\nCLI_GetRawData => 1\nCLI_GetCpuInfo => 3\nCLI_GetCpuInfo\n__CLI_EncodeInit\n");
    const std::string xml = shell::junit_xml(result, shell::RunInfo{});
    std::string error;
    const auto root = shelltest::read_xml(xml, error);
    ASSERT_TRUE(root) << error << "\n" << xml;
    EXPECT_EQ(root->name, "testsuites");
    EXPECT_EQ(root->attributes.at("tests"), "5");
    EXPECT_EQ(root->attributes.at("failures"), "2");
    const XmlNode *suite = root->first("testsuite");
    ASSERT_NE(suite, nullptr);
    EXPECT_EQ(suite->attributes.at("name"), "line7");
    EXPECT_EQ(suite->attributes.at("tests"), "5");
    EXPECT_EQ(suite->attributes.at("failures"), "2");
    EXPECT_EQ(suite->attributes.at("errors"), "0");
    const auto cases = suite->all("testcase");
    ASSERT_EQ(cases.size(), 5u);
    EXPECT_EQ(cases[0]->attributes.at("name"), "line 1: CLI_GetRawData");
    ASSERT_NE(cases[0]->first("failure"), nullptr);
    EXPECT_EQ(cases[0]->first("failure")->attributes.at("message"), "expected 0, got 1");
    EXPECT_EQ(cases[1]->first("failure"), nullptr);
    EXPECT_EQ(cases[2]->first("failure"), nullptr);
    ASSERT_NE(cases[3]->first("failure"), nullptr);
    EXPECT_EQ(cases[3]->first("failure")->attributes.at("message"), "expected 0, got 3");
    EXPECT_EQ(cases[4]->first("failure"), nullptr);
    EXPECT_NE(cases[4]->first("skipped"), nullptr) << "the default answered: skipped";
    EXPECT_EQ(cases[0]->first("skipped"), nullptr) << "the model's own CLI_GetRawData is no default";
    EXPECT_EQ(cases[0]->first("system-out")->text, "raw frame 1\r\n") << "\\r survives as a reference";
    EXPECT_EQ(cases[2]->first("system-out")->text,
              "measurement chip = (not printed)\n<cpu> & \"core\" \xEF\xBF\xBD\xEF\xBF\xBD\n");
    EXPECT_EQ(cases[2]->first("system-err")->text, "warning ]]> here\n");
    EXPECT_NE(cases[4]->first("system-out")->text.find("unsupport this function"), std::string::npos)
        << "diagnostic lines are part of what the line wrote";
    for (const XmlNode *one : cases)
        EXPECT_TRUE(std::regex_match(one->attributes.at("time"), std::regex("[0-9]+\\.[0-9]{6}")));
}

TEST_F(Overrides, JsonReportCarriesTheSameFacts)
{
    g_raw_status = 1;
    const shell::ScriptRun result =
        run_text("CLI_GetRawData\nCLI_HeatCtrlBoardToSlot 1 2\nCLI_GetCpuInfo => 3\n"
                 "CLI_ZoomTracking\n__CLI_EncodeInit\n");
    const std::string json = shell::json_report(result, shell::RunInfo{});
    std::string error;
    const auto root = shelltest::read_json(json, error);
    ASSERT_TRUE(root) << error << "\n" << json;
    EXPECT_EQ(root->get("metadata")->get("script")->string, "station/line7.cli");
    EXPECT_EQ(root->get("counts")->get("steps")->number, 5);
    EXPECT_EQ(root->get("counts")->get("passed")->number, 3);
    EXPECT_EQ(root->get("counts")->get("failed")->number, 1);
    EXPECT_EQ(root->get("counts")->get("skipped")->number, 1);
    EXPECT_EQ(root->get("outcome")->string, "FAIL");
    EXPECT_EQ(root->get("simulated_ns")->number, 2e9);
    const auto &lines = root->get("phases")->array;
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0].get("line")->number, 1);
    EXPECT_EQ(lines[0].get("command")->string, "CLI_GetRawData");
    EXPECT_EQ(lines[0].get("status")->number, 1);
    EXPECT_EQ(lines[0].get("outcome")->string, "FAIL");
    EXPECT_EQ(lines[0].get("stdout")->string, "raw frame 1\r\n");
    EXPECT_EQ(lines[1].get("arguments")->array.size(), 2u);
    EXPECT_EQ(lines[1].get("arguments")->array[1].string, "2");
    EXPECT_EQ(lines[1].get("measurements")->get("pulOut")->get("measured_value")->number, 2)
        << "a lent word is a measurement";
    EXPECT_EQ(lines[2].get("expected_status")->number, 3);
    EXPECT_EQ(lines[2].get("outcome")->string, "PASS");
    EXPECT_EQ(lines[2].get("stdout")->string, "<cpu> & \"core\" \x01\xEF\xBF\xBD\n");
    EXPECT_EQ(lines[2].get("stderr")->string, "warning ]]> here\n");
    EXPECT_EQ(lines[3].get("simulated_end_ns")->number - lines[3].get("simulated_start_ns")->number, 2e9);
    EXPECT_EQ(lines[4].get("status")->type, Json::Type::Null)
        << "no status from a default that returns nothing";
    EXPECT_EQ(lines[4].get("outcome")->string, "SKIP");
}

TEST_F(Overrides, ReportsOfAnEmptyRun)
{
    const shell::ScriptRun result = run_text("# nothing\n");
    std::string error;
    const auto xml = shelltest::read_xml(shell::junit_xml(result, shell::RunInfo{}), error);
    ASSERT_TRUE(xml) << error;
    EXPECT_EQ(xml->attributes.at("tests"), "0");
    const auto json = shelltest::read_json(shell::json_report(result, shell::RunInfo{}), error);
    ASSERT_TRUE(json) << error;
    EXPECT_TRUE(json->get("phases")->array.empty());
}

} // namespace
