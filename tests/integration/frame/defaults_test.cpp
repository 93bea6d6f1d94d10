// Every default of the fixed command list, called through libclidriver.so on the simulated camera.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "sim_fixture.h"

namespace
{

using clitest::Call;

// Calls a default with every argument zero (the defaults ignore their arguments) and returns its
// status, or 0 for the three defaults that return nothing.
template <typename R, typename... A> long call_with_zero_arguments(R (*function)(A...))
{
    if constexpr (std::is_void_v<R>) {
        function(A{}...);
        return 0;
    } else {
        return static_cast<long>(function(A{}...));
    }
}

struct DefaultRow {
    const char *name;
    bool standard;
    long (*call)();
};

#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    {#name, std::string_view(#default_body) == "STANDARD",                                                   \
     [] { return call_with_zero_arguments(&__##name); }},
const std::vector<DefaultRow> kDefaults = {
#include "clidriver/commands.def"
};

// The line of a command's row in the command list, which its default reports.
int row_line(const std::string &name)
{
    std::ifstream list(CLIDRIVER_SOURCE_DIR "/include/clidriver/commands.def");
    std::string text;
    for (int number = 1; std::getline(list, text); ++number)
        if (text.rfind("CLI_COMMAND(", 0) == 0 && text.find(", " + name + ",") != std::string::npos)
            return number;
    return -1;
}

// The shell's fixed list holds 145 commands, counted here where the list is written.
#define CLI_COMMAND(...) +1
constexpr size_t kListedCommands = 0
#include "clidriver/commands.def"
    ;
static_assert(kListedCommands == 145, "the shell's fixed command list has 145 commands");

// The model table: three rows of two 32-bit words.
static_assert(sizeof gastCamTypeList == 24, "gastCamTypeList holds three rows of two words");

class Defaults : public clitest::SimTest
{
};

TEST_F(Defaults, EveryStandardDefaultAnswersUnsupportUnderItsOwnName)
{
    size_t standard = 0;
    for (const DefaultRow &row : kDefaults) {
        if (!row.standard)
            continue;
        ++standard;
        SCOPED_TRACE(row.name);
        const Call call = run([&] { return row.call(); });
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(call.err, "");
        ASSERT_EQ(call.lines.size(), 1u);
        EXPECT_EQ(call.lines[0].level, " INFO");
        EXPECT_EQ(call.lines[0].function, std::string("__") + row.name);
        EXPECT_EQ(call.lines[0].file, "cli_weak_libfun.cpp");
        EXPECT_EQ(call.lines[0].line, row_line(row.name));
        EXPECT_EQ(call.lines[0].text, "unsupport this function\n");
        EXPECT_EQ(call.journal.size(), 1u) << "a default touches nothing but the print sink";
        EXPECT_EQ(call.waited, 0);
    }
    EXPECT_EQ(standard, 141u);
}

TEST_F(Defaults, OneDefaultLineExactly)
{
    sim::clock().advance(42 * sim::kMicrosecond);
    const Call call = run([] { return __CLI_GetRawData(); });
    ASSERT_EQ(call.printed.size(), 1u);
    char expected[256];
    snprintf(expected, sizeof expected,
             "2026-11-20 08:00:00 000042 cli_weak_libfun.cpp @fun:__CLI_GetRawData              "
             "line:%-6d--[ INFO]unsupport this function\n",
             row_line("CLI_GetRawData"));
    EXPECT_EQ(call.printed[0], expected);
}

TEST_F(Defaults, DefaultOnlyCommandRunsTheDefaultThroughItsPublicName)
{
    const Call call = run([] { return CLI_GetRawData(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), std::vector<std::string>{" INFO __CLI_GetRawData: unsupport this function"});
    EXPECT_EQ(call.out + call.err, "");
}

TEST_F(Defaults, LongDefaultNamesArePrintedWhole)
{
    const Call call = run([] {
        __Systest_Cli_AudioAutotestOpen();
        __Systest_Cli_AudioAutotestGetStatus();
    });
    ASSERT_EQ(call.printed.size(), 2u);
    EXPECT_NE(call.printed[0].find("@fun:__Systest_Cli_AudioAutotestOpenline:"), std::string::npos);
    EXPECT_NE(call.printed[1].find("@fun:__Systest_Cli_AudioAutotestGetStatusline:"), std::string::npos);
}

TEST_F(Defaults, FlashTypeDefaultSaysNandAndStoresZero)
{
    uint32_t type = 77;
    const Call call = run([&] { return __CLI_GetFlashType(&type); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{" INFO __CLI_GetFlashType: defautl set flash type: nand"});
    EXPECT_EQ(call.out + call.err, "");
}

TEST_F(Defaults, AlarmPortDefaultIsTwoInputsAndOneOutput)
{
    uint32_t in = 0, out = 0;
    const Call call = run([&] { return __CLI_GetAlarmPortNum(&in, &out); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(in, 2u);
    EXPECT_EQ(out, 1u);
    EXPECT_TRUE(call.printed.empty());
    EXPECT_EQ(call.out + call.err, "");
}

TEST_F(Defaults, AlarmPortDefaultWithOneNullPointerWritesNothing)
{
    uint32_t in = 55, out = 66;
    const Call first = run([&] { return __CLI_GetAlarmPortNum(&in, nullptr); });
    const Call second = run([&] { return __CLI_GetAlarmPortNum(nullptr, &out); });
    EXPECT_EQ(first.status, 1);
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(in, 55u);
    EXPECT_EQ(out, 66u);
    for (const Call *call : {&first, &second})
        EXPECT_EQ(call->messages(),
                  std::vector<std::string>{" INFO __CLI_GetAlarmPortNum: NULL alm in/out num pointer"});
}

TEST_F(Defaults, HeatCtrlBoardToSlotMapsBoardToTheGivenSlot)
{
    uint32_t slot = 0;
    const Call call = run([&] {
        EXPECT_EQ(CLI_HeatCtrlBoardToSlot(9, 4, &slot), 0u);
        EXPECT_EQ(slot, 4u);
        EXPECT_EQ(__CLI_HeatCtrlBoardToSlot(1, 0xABCDu, &slot), 0u);
        EXPECT_EQ(slot, 0xABCDu);
        EXPECT_EQ(CLI_HeatCtrlBoardToSlot(1, 2, nullptr), 0u);
    });
    EXPECT_TRUE(call.printed.empty());
}

TEST_F(Defaults, SysEmmcDiskNumDefaultIsSilent)
{
    const Call call = run([] { __CLI_GetSysEmmcDiskNum(); });
    EXPECT_TRUE(call.printed.empty());
    EXPECT_EQ(call.out + call.err, "");
}

TEST_F(Defaults, DefaultsWithoutAResultStillSayUnsupport)
{
    const Call call = run([] {
        __CLI_EncodeInit();
        __CLI_SetCtrlBoard485BaudRata(115200);
    });
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO __CLI_EncodeInit: unsupport this function",
                                        " INFO __CLI_SetCtrlBoard485BaudRata: unsupport this function"}));
}

TEST_F(Defaults, TreadnDefaultIgnoresItsArgumentsAndSucceeds)
{
    char buffer[4] = {};
    const Call call = run([&] { return __CLI_Treadn(-1, 4, timeval{1, 0}, buffer); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), std::vector<std::string>{" INFO __CLI_Treadn: unsupport this function"});
    EXPECT_EQ(call.waited, 0);
}

TEST_F(Defaults, PlatformInitIsStrongSilentAndSucceeds)
{
    const Call strong = run([] { return CLI_PlatformInit(); });
    EXPECT_EQ(strong.status, 0);
    EXPECT_TRUE(strong.printed.empty());
    EXPECT_EQ(strong.out + strong.err, "");
    const Call fallback = run([] { return __CLI_PlatformInit(); });
    EXPECT_EQ(fallback.messages(),
              std::vector<std::string>{" INFO __CLI_PlatformInit: unsupport this function"})
        << "the default stays callable under its own name";
}

TEST_F(Defaults, CamTypeTableHasItsThreeRows)
{
    EXPECT_EQ(gastCamTypeList[0].ulCamType, 0x02012A00u);
    EXPECT_EQ(gastCamTypeList[0].ulPairedCode, 0xA006u);
    EXPECT_EQ(gastCamTypeList[1].ulCamType, 0x02012A01u);
    EXPECT_EQ(gastCamTypeList[1].ulPairedCode, 0xA008u);
    EXPECT_EQ(gastCamTypeList[2].ulCamType, 0x02012A02u);
    EXPECT_EQ(gastCamTypeList[2].ulPairedCode, 0xA007u);
}

TEST_F(Defaults, TimeOutFlagIsZeroAtLoad)
{
    EXPECT_EQ(gulCliTimeOut, 0u);
}

} // namespace
