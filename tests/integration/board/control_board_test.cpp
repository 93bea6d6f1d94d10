// The traffic camera's control board through libclidriver.so on the simulated camera: its parking
// lamp's running lights, its power lamp, the RS-485 loop test with the stored rate, and the board
// type with the PCB and MCU versions taken from the board's version text. The board's link is
// opened by the first board command and kept for the life of the process.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "board_case.h"
#include "clidriver/clidriver.h"
#include "platform/board_model.h"

namespace
{

using boardtest::BoardCase;
using boardtest::call_failed;
using boardtest::console;
using boardtest::Shown;

// What DRV_OpenSIB shows when the library opens the link: its handle preset to -1, which the
// simulated board library leaves as it is.
constexpr const char *kOpened = "DRV_OpenSIB({4294967295}) -> 0";
constexpr const char *kOpenRefused = "DRV_OpenSIB({4294967295}) -> 1";

std::function<void(sim::Scenario &)> open_refused()
{
    return [](sim::Scenario &camera) { camera.platform["DRV_OpenSIB"].result = 1; };
}

std::function<void(sim::Scenario &)> answers(const char *operation, int64_t result)
{
    return [operation, result](sim::Scenario &camera) { camera.platform[operation].result = result; };
}

Shown open_failed(const std::string &function)
{
    return {.status = 1,
            .messages = {"ERROR " + function + ": DRV_OpenSIB faild!!"},
            .err = console("DRV_OpenSIB faild!!", function),
            .platform = {kOpenRefused}};
}

// ---- Lamps and the RS-485 loop test ------------------------------------------------------------

const BoardCase kLampRows[] = {
    {"ParkLampOnRunsTheLightsEvery500Ms",
     nullptr,
     [] { return CLI_ParkLampLedCtrl(1); },
     {.platform = {kOpened, "DRV_SIBCliWaterLampTest(7, 500) -> 0"}}},
    {"ParkLampOffStopsTheLights",
     nullptr,
     [] { return CLI_ParkLampLedCtrl(0); },
     {.platform = {kOpened, "DRV_SIBCliWaterLampTest(7, 0) -> 0"}}},
    {"ParkLampAnyOtherValueStopsTheLights",
     nullptr,
     [] { return CLI_ParkLampLedCtrl(2); },
     {.platform = {kOpened, "DRV_SIBCliWaterLampTest(7, 0) -> 0"}}},
    {"ParkLampReturnsTheBoardsStatus",
     answers("DRV_SIBCliWaterLampTest", 5),
     [] { return CLI_ParkLampLedCtrl(1); },
     {.status = 5, .platform = {kOpened, "DRV_SIBCliWaterLampTest(7, 500) -> 5"}}},
    {"ParkLampReturnsANegativeStatusAsItsWord",
     answers("DRV_SIBCliWaterLampTest", -1),
     [] { return CLI_ParkLampLedCtrl(0); },
     {.status = 0xFFFFFFFF, .platform = {kOpened, "DRV_SIBCliWaterLampTest(7, 0) -> -1"}}},
    {"ParkLampWithoutTheLink", open_refused(), [] { return CLI_ParkLampLedCtrl(1); },
     open_failed("CLI_ParkLampLedCtrl")},

    {"PowerLampOn",
     nullptr,
     [] { return CLI_CtrlBoardPowerLedCtrl(1); },
     {.platform = {kOpened, "DRV_SIBPowerlLampCtl({1, 3, 1}) -> 0"}}},
    {"PowerLampStateIsPassedOnUnchanged",
     nullptr,
     [] { return CLI_CtrlBoardPowerLedCtrl(0x12345678); },
     {.platform = {kOpened, "DRV_SIBPowerlLampCtl({1, 3, 305419896}) -> 0"}}},
    {"PowerLampRefused",
     answers("DRV_SIBPowerlLampCtl", 2),
     [] { return CLI_CtrlBoardPowerLedCtrl(0); },
     {.status = 1,
      .messages = {"ERROR CLI_CtrlBoardPowerLedCtrl: Function DRV_SIBPowerlLampCtl call failed"},
      .err = call_failed("DRV_SIBPowerlLampCtl", "CLI_CtrlBoardPowerLedCtrl"),
      .platform = {kOpened, "DRV_SIBPowerlLampCtl({1, 3, 0}) -> 2"}}},
    {"PowerLampWithoutTheLink", open_refused(), [] { return CLI_CtrlBoardPowerLedCtrl(1); },
     open_failed("CLI_CtrlBoardPowerLedCtrl")},

    {"Rs485TestBeforeAnyRateSendsRate0",
     nullptr,
     [] { return CLI_CtrlBoard485Test(1, 2, 3); },
     {.platform = {kOpened, "DRV_SIBTest485(1, 2, 3, 0) -> 0"}}},
    {"Rs485TestCutsTheThirdArgumentTo8Bits",
     nullptr,
     [] { return CLI_CtrlBoard485Test(0, 0, 0x1FF); },
     {.platform = {kOpened, "DRV_SIBTest485(0, 0, 255, 0) -> 0"}}},
    {"Rs485TestUsesTheStoredRate",
     nullptr,
     [] {
         CLI_SetCtrlBoard485BaudRata(115200);
         return CLI_CtrlBoard485Test(0xFFFFFFFF, 7, 0x100);
     },
     {.platform = {kOpened, "DRV_SIBTest485(4294967295, 7, 0, 115200) -> 0"}}},
    {"Rs485TestFails",
     answers("DRV_SIBTest485", 1),
     [] { return CLI_CtrlBoard485Test(1, 2, 3); },
     {.status = 1,
      .messages = {"ERROR CLI_CtrlBoard485Test: Function DRV_SIBTest485 call failed"},
      .err = call_failed("DRV_SIBTest485", "CLI_CtrlBoard485Test"),
      .platform = {kOpened, "DRV_SIBTest485(1, 2, 3, 0) -> 1"}}},
    {"Rs485TestWithoutTheLink", open_refused(), [] { return CLI_CtrlBoard485Test(1, 2, 3); },
     open_failed("CLI_CtrlBoard485Test")},

    {"SetRateNeitherOpensNorPrints",
     nullptr,
     [] {
         CLI_SetCtrlBoard485BaudRata(9600);
         return 0;
     },
     {}},
    {"UpdateIsNotOfferedAndSaysNothing", nullptr, [] { return CLI_CtrlboardUpdate(); }, {.status = 1}},
    {"UpdateDoesNotTryTheLink", open_refused(), [] { return CLI_CtrlboardUpdate(); }, {.status = 1}},
};

class ControlBoardLamps : public boardtest::BoardTable
{
};
TEST_P(ControlBoardLamps, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Board, ControlBoardLamps, ::testing::ValuesIn(kLampRows), boardtest::case_name);

// ---- Version ----------------------------------------------------------------------------------

// A board of `type` whose version area holds `version`.
std::function<void(sim::Scenario &)> board(uint32_t type, const char *version)
{
    return [type, version](sim::Scenario &camera) {
        camera.control_board.board_type = type;
        camera.control_board.version = version;
    };
}

// What the version command shows for a board whose type prints as `type`, and the texts taken
// from `version`.
Shown version_shown(const std::string &type, const std::string &version, const std::string &pcb,
                    const std::string &mcu, const std::string &type_word)
{
    const std::vector<std::string> lines = {"ctrl board: ", "Board type          : " + type,
                                            "PCB                 : " + pcb, "MCU                 : " + mcu};
    Shown shown;
    for (const std::string &line : lines) {
        shown.messages.push_back(" INFO CLI_GetCtrlBoardVersion: " + line);
        shown.out += line + "\r\n";
    }
    shown.platform = {kOpened, "DRV_SIBBoardTypeGet({" + type_word + "}) -> 0",
                      "DRV_SIBVersionGet({\"" + version + "\"}) -> 0"};
    return shown;
}

const BoardCase kVersionRows[] = {
    {"OneDigitMinor", board(3, "1.3A"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("03", "1.3A", "A", "13", "3")},
    {"TwoDigitMinor", board(12, "2.10B"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("12", "2.10B", "B", "210", "12")},
    {"WithoutACapitalLetterThePcbIsEmpty", board(0, "1.3"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("00", "1.3", "", "13", "0")},
    {"LongMajorIsBoundedToTheMcuArea", board(7, "12345.67"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("07", "12345.67", "", "1234", "7")},
    {"LongRevisionIsBoundedToThePcbArea", board(7, "1.3ABCDE"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("07", "1.3ABCDE", "ABCD", "13", "7")},
    {"LongMinorIsBoundedToTheMcuArea", board(7, "1.23456A"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("07", "1.23456A", "A", "1234", "7")},
    {"WideBoardTypeIsPrintedWhole", board(123, "1.3A"), [] { return CLI_GetCtrlBoardVersion(); },
     version_shown("123", "1.3A", "A", "13", "123")},
    {"BoardTypeRefused",
     [](sim::Scenario &camera) {
         board(3, "1.3A")(camera);
         camera.platform["DRV_SIBBoardTypeGet"].result = 1;
     },
     [] { return CLI_GetCtrlBoardVersion(); },
     {.status = 1,
      .messages = {"ERROR CLI_GetCtrlBoardVersion: Function DRV_SIBBoardTypeGet call failed"},
      .err = call_failed("DRV_SIBBoardTypeGet", "CLI_GetCtrlBoardVersion"),
      .platform = {kOpened, "DRV_SIBBoardTypeGet({3}) -> 1"}}},
    {"VersionRefused",
     [](sim::Scenario &camera) {
         board(3, "1.3A")(camera);
         camera.platform["DRV_SIBVersionGet"].result = -1;
     },
     [] { return CLI_GetCtrlBoardVersion(); },
     {.status = 1,
      .messages = {"ERROR CLI_GetCtrlBoardVersion: DRV_SIBGetVersion faild!!"},
      .err = console("DRV_SIBGetVersion faild!!", "CLI_GetCtrlBoardVersion"),
      .platform = {kOpened, "DRV_SIBBoardTypeGet({3}) -> 0", "DRV_SIBVersionGet({\"1.3A\"}) -> -1"}}},
    {"VersionWithoutTheLink", open_refused(), [] { return CLI_GetCtrlBoardVersion(); },
     open_failed("CLI_GetCtrlBoardVersion")},
};

class ControlBoardVersion : public boardtest::BoardTable
{
};
TEST_P(ControlBoardVersion, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Board, ControlBoardVersion, ::testing::ValuesIn(kVersionRows), boardtest::case_name);

// ---- The link over a session --------------------------------------------------------------------

class ControlBoardLink : public clitest::SimTest
{
};

TEST_F(ControlBoardLink, FirstBoardCommandOpensTheLinkAndNoLaterOneDoes)
{
    const clitest::Call first = run([] { return CLI_CtrlBoardPowerLedCtrl(1); });
    EXPECT_EQ(boardtest::platform_calls(first),
              (std::vector<std::string>{kOpened, "DRV_SIBPowerlLampCtl({1, 3, 1}) -> 0"}));
    const clitest::Call lamp = run([] { return CLI_ParkLampLedCtrl(1); });
    const clitest::Call loop = run([] { return CLI_CtrlBoard485Test(1, 2, 3); });
    const clitest::Call version = run([] { return CLI_GetCtrlBoardVersion(); });
    EXPECT_EQ(boardtest::platform_calls(lamp),
              std::vector<std::string>{"DRV_SIBCliWaterLampTest(7, 500) -> 0"});
    EXPECT_EQ(boardtest::platform_calls(loop), std::vector<std::string>{"DRV_SIBTest485(1, 2, 3, 0) -> 0"});
    EXPECT_EQ(
        boardtest::platform_calls(version),
        (std::vector<std::string>{"DRV_SIBBoardTypeGet({3}) -> 0", "DRV_SIBVersionGet({\"1.3A\"}) -> 0"}));
    for (const clitest::Call *call : {&first, &lamp, &loop, &version})
        EXPECT_EQ(call->status, 0);

    EXPECT_TRUE(sim::board_model().open());
    EXPECT_EQ(sim::board_model().open_attempts(), 1);
    EXPECT_EQ(sim::board_model().calls_before_open(), 0);
}

TEST_F(ControlBoardLink, FailedOpenIsTriedAgainByTheNextCommand)
{
    scenario().platform["DRV_OpenSIB"].sequence = {1, 3};
    restart();
    const clitest::Call first = run([] { return CLI_ParkLampLedCtrl(1); });
    const clitest::Call second = run([] { return CLI_CtrlBoard485Test(1, 2, 3); });
    const clitest::Call third = run([] { return CLI_CtrlBoardPowerLedCtrl(0); });
    const clitest::Call fourth = run([] { return CLI_ParkLampLedCtrl(0); });

    boardtest::expect_shown(first, open_failed("CLI_ParkLampLedCtrl"));
    Shown refused_again = open_failed("CLI_CtrlBoard485Test");
    refused_again.platform = {"DRV_OpenSIB({4294967295}) -> 3"};
    boardtest::expect_shown(second, refused_again);
    boardtest::expect_shown(third, {.platform = {kOpened, "DRV_SIBPowerlLampCtl({1, 3, 0}) -> 0"}});
    boardtest::expect_shown(fourth, {.platform = {"DRV_SIBCliWaterLampTest(7, 0) -> 0"}});
    EXPECT_EQ(sim::board_model().open_attempts(), 3);
    EXPECT_EQ(sim::board_model().calls_before_open(), 0) << "no board operation without the link";
}

TEST_F(ControlBoardLink, RateKeepsItsLastValue)
{
    CLI_SetCtrlBoard485BaudRata(9600);
    CLI_SetCtrlBoard485BaudRata(19200);
    const clitest::Call first = run([] { return CLI_CtrlBoard485Test(1, 1, 1); });
    const clitest::Call second = run([] { return CLI_CtrlBoard485Test(2, 2, 2); });
    EXPECT_EQ(boardtest::platform_calls(first),
              (std::vector<std::string>{kOpened, "DRV_SIBTest485(1, 1, 1, 19200) -> 0"}));
    EXPECT_EQ(boardtest::platform_calls(second),
              std::vector<std::string>{"DRV_SIBTest485(2, 2, 2, 19200) -> 0"});
}

// What the board shows afterwards, as the simulated platform keeps it.
TEST_F(ControlBoardLink, BoardKeepsItsLampsAndLastLoopTest)
{
    EXPECT_FALSE(sim::board_model().open());
    run([] { return CLI_ParkLampLedCtrl(1); });
    EXPECT_EQ(sim::board_model().running_light_group(), 7u);
    EXPECT_EQ(sim::board_model().running_light_period_ms(), 500u);
    run([] { return CLI_ParkLampLedCtrl(0); });
    EXPECT_EQ(sim::board_model().running_light_period_ms(), 0u);
    run([] { return CLI_CtrlBoardPowerLedCtrl(1); });
    EXPECT_EQ(sim::board_model().power_lamp(), 1u);
    CLI_SetCtrlBoard485BaudRata(38400);
    run([] { return CLI_CtrlBoard485Test(5, 6, 0x1FF); });
    const auto test = sim::board_model().last_rs485_test();
    ASSERT_TRUE(test.has_value());
    EXPECT_EQ(test->arg1, 5u);
    EXPECT_EQ(test->arg2, 6u);
    EXPECT_EQ(test->arg3, 0xFFu);
    EXPECT_EQ(test->baud_rate, 38400u);
    EXPECT_EQ(test->result, 0);

    std::vector<std::string> notes;
    for (const sim::Entry &entry : sim::journal().select(sim::Kind::Note, "control board"))
        notes.push_back(entry.text);
    EXPECT_EQ(notes, (std::vector<std::string>{
                         "control board: link open", "control board: running lights on group 7 every 500 ms",
                         "control board: running lights off", "control board: power lamp 1"}));
}

} // namespace
