// Every default of the fixed command list, called through libclidriver.so.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "capture.h"
#include "clidriver/clidriver.h"
#include "diag_line.h"
#include "print_sink_double.h"

namespace
{

using clitest::capture_output;
using clitest::parse_diag_line;
using clitest::printed;

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

class Defaults : public ::testing::Test
{
  protected:
    void SetUp() override { printed().clear(); }
};

TEST_F(Defaults, TheListHas145Commands)
{
    EXPECT_EQ(kDefaults.size(), 145u);
}

TEST_F(Defaults, EveryStandardDefaultAnswersUnsupportUnderItsOwnName)
{
    size_t standard = 0;
    for (const DefaultRow &row : kDefaults) {
        if (!row.standard)
            continue;
        ++standard;
        SCOPED_TRACE(row.name);
        printed().clear();
        long result = -1;
        const auto io = capture_output([&] { result = row.call(); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(io.out, "");
        EXPECT_EQ(io.err, "");
        ASSERT_EQ(printed().size(), 1u);
        const auto line = parse_diag_line(printed()[0]);
        ASSERT_TRUE(line.has_value()) << printed()[0];
        EXPECT_EQ(line->level, " INFO");
        EXPECT_EQ(line->function, std::string("__") + row.name);
        EXPECT_EQ(line->file, "cli_weak_libfun.cpp");
        EXPECT_EQ(line->line, row_line(row.name));
        EXPECT_EQ(line->text, "unsupport this function\n");
    }
    EXPECT_EQ(standard, 141u);
}

TEST_F(Defaults, OneDefaultLineExactly)
{
    clitest::set_wall_clock({1795138150, 42});
    __CLI_GetRawData();
    ASSERT_EQ(printed().size(), 1u);
    char expected[256];
    snprintf(expected, sizeof expected,
             "2026-11-20 01:29:10 000042 cli_weak_libfun.cpp @fun:__CLI_GetRawData              "
             "line:%-6d--[ INFO]unsupport this function\n",
             row_line("CLI_GetRawData"));
    EXPECT_EQ(printed()[0], expected);
}

TEST_F(Defaults, DefaultOnlyCommandRunsTheDefaultThroughItsPublicName)
{
    const auto io = capture_output([] { EXPECT_EQ(CLI_GetRawData(), 0); });
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_EQ(parse_diag_line(printed()[0])->function, "__CLI_GetRawData");
    EXPECT_EQ(io.out + io.err, "");
}

TEST_F(Defaults, LongDefaultNamesArePrintedWhole)
{
    __Systest_Cli_AudioAutotestOpen();
    __Systest_Cli_AudioAutotestGetStatus();
    ASSERT_EQ(printed().size(), 2u);
    EXPECT_NE(printed()[0].find("@fun:__Systest_Cli_AudioAutotestOpenline:"), std::string::npos);
    EXPECT_NE(printed()[1].find("@fun:__Systest_Cli_AudioAutotestGetStatusline:"), std::string::npos);
}

TEST_F(Defaults, FlashTypeDefaultSaysNandAndStoresZero)
{
    uint32_t type = 77;
    const auto io = capture_output([&] { EXPECT_EQ(__CLI_GetFlashType(&type), 0u); });
    EXPECT_EQ(type, 0u);
    ASSERT_EQ(printed().size(), 1u);
    const auto line = parse_diag_line(printed()[0]);
    EXPECT_EQ(line->level, " INFO");
    EXPECT_EQ(line->function, "__CLI_GetFlashType");
    EXPECT_EQ(line->text, "defautl set flash type: nand\n");
    EXPECT_EQ(io.out + io.err, "");
}

TEST_F(Defaults, AlarmPortDefaultIsTwoInputsAndOneOutput)
{
    uint32_t in = 0, out = 0;
    const auto io = capture_output([&] { EXPECT_EQ(__CLI_GetAlarmPortNum(&in, &out), 0u); });
    EXPECT_EQ(in, 2u);
    EXPECT_EQ(out, 1u);
    EXPECT_TRUE(printed().empty());
    EXPECT_EQ(io.out + io.err, "");
}

TEST_F(Defaults, AlarmPortDefaultWithOneNullPointerWritesNothing)
{
    uint32_t in = 55, out = 66;
    EXPECT_EQ(__CLI_GetAlarmPortNum(&in, nullptr), 1u);
    EXPECT_EQ(__CLI_GetAlarmPortNum(nullptr, &out), 1u);
    EXPECT_EQ(in, 55u);
    EXPECT_EQ(out, 66u);
    ASSERT_EQ(printed().size(), 2u);
    for (const auto &raw : printed()) {
        const auto line = parse_diag_line(raw);
        EXPECT_EQ(line->level, " INFO");
        EXPECT_EQ(line->function, "__CLI_GetAlarmPortNum");
        EXPECT_EQ(line->text, "NULL alm in/out num pointer\n");
    }
}

TEST_F(Defaults, HeatCtrlBoardToSlotMapsBoardToTheGivenSlot)
{
    uint32_t slot = 0;
    EXPECT_EQ(CLI_HeatCtrlBoardToSlot(9, 4, &slot), 0u);
    EXPECT_EQ(slot, 4u);
    EXPECT_EQ(__CLI_HeatCtrlBoardToSlot(1, 0xABCDu, &slot), 0u);
    EXPECT_EQ(slot, 0xABCDu);
    EXPECT_EQ(CLI_HeatCtrlBoardToSlot(1, 2, nullptr), 0u);
    EXPECT_TRUE(printed().empty());
}

TEST_F(Defaults, SysEmmcDiskNumDefaultIsSilent)
{
    const auto io = capture_output([] { __CLI_GetSysEmmcDiskNum(); });
    EXPECT_TRUE(printed().empty());
    EXPECT_EQ(io.out + io.err, "");
}

TEST_F(Defaults, DefaultsWithoutAResultStillSayUnsupport)
{
    __CLI_EncodeInit();
    __CLI_SetCtrlBoard485BaudRata(115200);
    ASSERT_EQ(printed().size(), 2u);
    EXPECT_EQ(parse_diag_line(printed()[0])->function, "__CLI_EncodeInit");
    EXPECT_EQ(parse_diag_line(printed()[1])->function, "__CLI_SetCtrlBoard485BaudRata");
    EXPECT_EQ(parse_diag_line(printed()[1])->text, "unsupport this function\n");
}

TEST_F(Defaults, TreadnDefaultIgnoresItsArgumentsAndSucceeds)
{
    char buffer[4] = {};
    EXPECT_EQ(__CLI_Treadn(-1, 4, timeval{1, 0}, buffer), 0u);
    ASSERT_EQ(printed().size(), 1u);
    EXPECT_EQ(parse_diag_line(printed()[0])->function, "__CLI_Treadn");
}

TEST_F(Defaults, PlatformInitIsStrongSilentAndSucceeds)
{
    const auto io = capture_output([] { EXPECT_EQ(CLI_PlatformInit(), 0); });
    EXPECT_TRUE(printed().empty());
    EXPECT_EQ(io.out + io.err, "");
    __CLI_PlatformInit();
    ASSERT_EQ(printed().size(), 1u) << "the default stays callable under its own name";
    EXPECT_EQ(parse_diag_line(printed()[0])->function, "__CLI_PlatformInit");
}

TEST_F(Defaults, CamTypeTableHasItsThreeRows)
{
    EXPECT_EQ(sizeof gastCamTypeList, 24u);
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
