// One command through the shell on the simulated camera: what the operator sees, the exit code,
// and that a refused command line never reaches the library.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <regex>
#include <unistd.h>

#include "core/journal.h"
#include "platform/platform.h"
#include "shell.h"
#include "shell_fixture.h"
#include "simulated.h"

namespace
{

using clitest::Call;

class ShellCalls : public shelltest::ShellTest
{
  protected:
    void SetUp() override
    {
        // The shell's own standard input, which no command may take from it.
        if (fcntl(STDIN_FILENO, F_GETFD) == -1)
            ASSERT_EQ(open("/dev/null", O_RDONLY), STDIN_FILENO);
        ShellTest::SetUp();
    }

    int once(const std::string &name, const std::vector<std::string> &words, Call &call, bool timing = false)
    {
        shell::Shell shell = make_shell(timing);
        int code = -1;
        call = run([&] { code = shell.run_once(name, words); });
        return code;
    }
};

TEST_F(ShellCalls, DefaultCommandPrintsItsLineThenTheStatus)
{
    Call call;
    EXPECT_EQ(once("CLI_GetRawData", {}, call), 0);
    EXPECT_EQ(call.messages(), std::vector<std::string>{" INFO __CLI_GetRawData: unsupport this function"});
    ASSERT_EQ(call.printed.size(), 1u);
    EXPECT_EQ(call.out, call.printed[0] + "=> 0\n") << "the diagnostic line reaches the console, in order";
    EXPECT_EQ(call.err, "");
}

TEST_F(ShellCalls, ResultWordsArePrintedBeforeTheStatus)
{
    Call call;
    EXPECT_EQ(once("__CLI_GetAlarmPortNum", {}, call), 0);
    EXPECT_EQ(call.out, "  *pulIn = 2 (0x2)\n  *pulOut = 1 (0x1)\n=> 0\n");
    EXPECT_EQ(once("CLI_HeatCtrlBoardToSlot", {"1", "0xABCD"}, call), 0);
    EXPECT_EQ(call.out, "  *pulOut = 43981 (0xabcd)\n=> 0\n");
    EXPECT_EQ(once("__CLI_GetFlashType", {}, call), 0);
    EXPECT_EQ(call.out, call.printed.at(0) + "  *pulType = 0 (0x0)\n=> 0\n");
}

TEST_F(ShellCalls, SerialPortListAndBufferAreLentAndShown)
{
    Call call;
    EXPECT_EQ(once("__CLI_RsInit", {}, call), 0);
    EXPECT_NE(call.out.find("  pstPorts[0] = NULL, flag 0\n  pstPorts[1] = NULL, flag 0\n"
                            "  pstPorts[2] = NULL, flag 0\n=> 0\n"),
              std::string::npos)
        << call.out;
    EXPECT_EQ(once("__CLI_Treadn", {"-1", "16", "0.5"}, call), 0);
    EXPECT_NE(call.out.find("  pvBuf = (all zero)\n=> 0\n"), std::string::npos) << call.out;
}

TEST_F(ShellCalls, CommandsWithoutAStatusPrintNone)
{
    Call call;
    EXPECT_EQ(once("__CLI_SetCtrlBoard485BaudRata", {"115200"}, call), 0);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{" INFO __CLI_SetCtrlBoard485BaudRata: unsupport this function"});
    EXPECT_EQ(call.out.find("=>"), std::string::npos) << call.out;
    EXPECT_EQ(once("__CLI_GetSysEmmcDiskNum", {}, call), 0);
    EXPECT_EQ(call.out, "") << "a silent default with no status leaves nothing to print";
}

TEST_F(ShellCalls, ClosingTheLentDescriptorLeavesTheShellsOwnAlone)
{
    Call call;
    EXPECT_EQ(once("CLI_ComClose", {"0"}, call), 0);
    EXPECT_NE(call.out.find("  *pFd = -1 (0xffffffff)\n=> 0\n"), std::string::npos) << call.out;
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1) << "the lent word was descriptor 0: the shell's input";
}

TEST_F(ShellCalls, SignedArgumentsTakeAMinusSign)
{
    Call call;
    EXPECT_EQ(once("__CLi_ParkLedCtrlSingle", {"-1", "0"}, call), 0);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{" INFO __CLi_ParkLedCtrlSingle: unsupport this function"});
}

// The check that a refused line never reaches the library must be able to see a call.
TEST_F(ShellCalls, JournalShowsACallThatHappened)
{
    Call call;
    once("CLI_GetRawData", {}, call);
    EXPECT_EQ(call.of(sim::Kind::Print).size(), 1u);
}

TEST_F(ShellCalls, UnknownCommandIsNeverCalled)
{
    Call call;
    EXPECT_EQ(once("CLI_GetRawDat", {}, call), 2);
    EXPECT_TRUE(call.journal.empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "clidriver: unknown command 'CLI_GetRawDat'\n"
                        "  did you mean CLI_GetRawData?\n"
                        "  list shows every command\n");
}

TEST_F(ShellCalls, WrongArgumentCountSaysTheSignatureAndCallsNothing)
{
    Call call;
    EXPECT_EQ(once("CLI_GetRawData", {"1"}, call), 2);
    EXPECT_TRUE(call.of(sim::Kind::Print).empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "clidriver: CLI_GetRawData takes no arguments, 1 given\n"
                        "  int32_t CLI_GetRawData(void)\n"
                        "  usage: CLI_GetRawData\n");

    EXPECT_EQ(once("CLI_HeatCtrlBoardToSlot", {"1", "2", "3"}, call), 2);
    EXPECT_TRUE(call.of(sim::Kind::Print).empty());
    EXPECT_EQ(call.err,
              "clidriver: CLI_HeatCtrlBoardToSlot takes 2 arguments, 3 given\n"
              "  uint32_t CLI_HeatCtrlBoardToSlot(uint32_t ulBoard, uint32_t ulSlot, uint32_t *pulOut)\n"
              "  usage: CLI_HeatCtrlBoardToSlot ulBoard ulSlot\n"
              "  the shell lends pulOut and prints it after the call\n");

    EXPECT_EQ(once("CLI_SetLedColor", {}, call), 2);
    EXPECT_NE(call.err.find("CLI_SetLedColor takes 1 argument, 0 given"), std::string::npos) << call.err;
}

TEST_F(ShellCalls, NotANumberCallsNothing)
{
    Call call;
    for (const char *junk : {"green", "0x", "1.0", "4294967296", "-1"}) {
        SCOPED_TRACE(junk);
        EXPECT_EQ(once("CLI_SetLedColor", {junk}, call), 2);
        EXPECT_TRUE(call.of(sim::Kind::Print).empty());
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(
            call.err.rfind("clidriver: CLI_SetLedColor: enLedColor: '" + std::string(junk) + "' is ", 0), 0u)
            << call.err;
    }
}

// The first support operation of the list that the library does not build yet, if any is left.
std::string first_support_not_built()
{
    const char *const names[] = {
#define SHELL_SUPPORT_0(name) #name,
#define SHELL_SUPPORT_1(name)
#define CLI_SUPPORT(family, name, owner, built, ret, params) SHELL_SUPPORT_##built(name)
#include "clidriver/commands.def"
#undef SHELL_SUPPORT_1
#undef SHELL_SUPPORT_0
        ""};
    return names[0];
}

TEST_F(ShellCalls, SupportOperationNotBuiltIsNamedAsSuch)
{
    const std::string name = first_support_not_built();
    if (name.empty())
        GTEST_SKIP() << "every support operation is built";
    Call call;
    EXPECT_EQ(once(name, {}, call), 2);
    EXPECT_TRUE(call.journal.empty());
    EXPECT_EQ(call.err, "clidriver: " + name +
                            " is a support operation of the command list that this "
                            "library does not build yet\n");
}

TEST_F(ShellCalls, ThreadBodyIsRefused)
{
    Call call;
    EXPECT_EQ(once("CLI_ParkLedFlashThread", {}, call), 2);
    EXPECT_TRUE(call.journal.empty()) << "the thread body never runs on the shell's thread";
    EXPECT_NE(
        call.err.find("CLI_ParkLedFlashThread is a thread body (void *(void *)) that the library starts on a "
                      "thread of its own"),
        std::string::npos)
        << call.err;
}

// The operator's --trace shows what the parking lamps and the control board do, beside the calls.
TEST_F(ShellCalls, TraceShowsTheLampsTheCommandsLit)
{
    shell::Shell shell = make_shell();
    shell::simulated::trace_to(stdout);
    const Call lamp = run([&] { shell.run_once("CLi_ParkLedCtrlSingle", {"2", "1"}); });
    const Call board = run([&] { shell.run_once("CLI_ParkLampLedCtrl", {"1"}); });
    sim::journal().set_listener(nullptr);
    EXPECT_EQ(lamp.out, "~ 0.000000 s platform: DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0\n"
                        "~ 0.000000 s note: parking lamps lit: 3\n"
                        "=> 0\n");
    EXPECT_EQ(board.out, "~ 0.000000 s platform: DRV_OpenSIB({4294967295}) -> 0\n"
                         "~ 0.000000 s note: control board: link open\n"
                         "~ 0.000000 s platform: DRV_SIBCliWaterLampTest(7, 500) -> 0\n"
                         "~ 0.000000 s note: control board: running lights on group 7 every 500 ms\n"
                         "=> 0\n");
}

TEST_F(ShellCalls, TimingLineFollowsTheStatus)
{
    Call call;
    EXPECT_EQ(once("CLI_GetRawData", {}, call, true), 0);
    const std::regex shape("=> 0\n-- wall [0-9]+\\.[0-9]{3} ms, simulated 0\\.000000 s\n$");
    EXPECT_TRUE(std::regex_search(call.out, shape)) << call.out;

    shell::Shell camera(shell::Settings{true}, shell::Hooks{});
    call = run([&] { camera.run_once("CLI_GetRawData", {}); });
    EXPECT_TRUE(std::regex_search(call.out, std::regex("=> 0\n-- wall [0-9]+\\.[0-9]{3} ms\n$"))) << call.out;
}

TEST_F(ShellCalls, HelpAndList)
{
    shell::Shell shell = make_shell();
    Call call = run([&] { shell.run_once("help", {"CLI_HeatCtrlBoardToSlot"}); });
    EXPECT_EQ(call.out,
              "uint32_t CLI_HeatCtrlBoardToSlot(uint32_t ulBoard, uint32_t ulSlot, uint32_t *pulOut)\n"
              "  usage: CLI_HeatCtrlBoardToSlot ulBoard ulSlot\n"
              "  lent by the shell and printed after the call: pulOut\n"
              "  answered by its default __CLI_HeatCtrlBoardToSlot\n");
    call = run([&] { shell.run_once("list", {"gpscoor"}); });
    EXPECT_EQ(call.out,
              "CLI_GetGpsCoor ulMode    implemented\n__CLI_GetGpsCoor ulMode  default\n2 commands\n");
    call = run([&] { shell.run_once("list", {"GETRAWDATA"}); });
    EXPECT_EQ(call.out, "CLI_GetRawData    default\n__CLI_GetRawData  default\n2 commands\n")
        << "a command this model leaves to its default is marked so";
    call = run([&] { shell.run_once("list", {"nothing like it"}); });
    EXPECT_EQ(call.out, "no commands\n");
    call = run([&] { shell.run_once("help", {}); });
    EXPECT_NE(call.out.find("list [TEXT]"), std::string::npos);
    int code = 0;
    call = run([&] { code = shell.run_once("help", {"CLI_Nope"}); });
    EXPECT_NE(call.err.find("unknown command 'CLI_Nope'"), std::string::npos);
    call = run([&] { code = shell.run_once("list", {"a", "b"}); });
    EXPECT_EQ(code, 2);
    EXPECT_TRUE(call.journal.empty());
}

TEST_F(ShellCalls, PromptLines)
{
    shell::Shell shell = make_shell();
    bool go_on = false;
    Call call = run([&] { go_on = shell.run_line("CLI_HeatCtrlBoardToSlot 1 2   # slot check"); });
    EXPECT_TRUE(go_on);
    EXPECT_EQ(call.out, "  *pulOut = 2 (0x2)\n=> 0\n");
    call = run([&] { go_on = shell.run_line("CLI_GetCpuInfo => 1"); });
    EXPECT_NE(call.out.find("=> 0\nFAIL: expected 1, got 0\n"), std::string::npos) << call.out;
    EXPECT_EQ(shell.line_code(), 1);
    call = run([&] { go_on = shell.run_line("CLI_GetRawData => 1"); });
    EXPECT_NE(call.out.find("=> 0\nSKIP: the model's default answered \"unsupport this function\"\n"),
              std::string::npos)
        << call.out;
    EXPECT_EQ(shell.line_code(), 0) << "a default that answered tested nothing: no failure";
    call = run([&] { go_on = shell.run_line("CLI_GetFlashType => -1"); });
    EXPECT_TRUE(call.journal.empty()) << "an impossible expectation stops the line before the call";
    EXPECT_NE(call.err.find("expected status: '-1' is out of range for uint32_t"), std::string::npos)
        << call.err;
    call = run([&] { go_on = shell.run_line("CLI_SniffMac \"aa:bb"); });
    EXPECT_EQ(call.err, "clidriver: a quote is not closed\n");
    call = run([&] { go_on = shell.run_line("   # only a note"); });
    EXPECT_TRUE(go_on);
    EXPECT_EQ(call.out + call.err, "");
    call = run([&] { go_on = shell.run_line("quit"); });
    EXPECT_FALSE(go_on);
}

TEST_F(ShellCalls, JournalIsDroppedBetweenCommandsOfALongSession)
{
    shell::Shell shell(shell::Settings{}, shell::simulated::hooks());
    run([&] { shell.run_once("CLI_GetRawData", {}); });
    EXPECT_TRUE(sim::journal().all().empty());
}

} // namespace
