// The parking indicator lamps through libclidriver.so on the simulated camera: one colour, both
// colours, and the start and stop of the flash pattern (whose thread is tested in
// flash_thread_test.cpp). Each table row is a test case of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "board_case.h"
#include "clidriver/clidriver.h"
#include "platform/board_model.h"

namespace
{

using boardtest::BoardCase;
using boardtest::console;
using boardtest::Shown;

// The platform refuses every parking-lamp request with `result`.
std::function<void(sim::Scenario &)> lamps_refuse(int64_t result)
{
    return [result](sim::Scenario &camera) { camera.platform["DRV_SetParkLed"].result = result; };
}

Shown colour_refused(const std::string &shown)
{
    return {.status = 1,
            .messages = {"ERROR CLi_ParkLedCtrlSingle: enLedColor[" + shown + "] error"},
            .err = console("enLedColor[" + shown + "] error", "CLi_ParkLedCtrlSingle")};
}

Shown on_flag_refused(const std::string &function, const std::string &shown)
{
    return {.status = 1,
            .messages = {"ERROR " + function + ": bIsOn[" + shown + "] error"},
            .err = console("bIsOn[" + shown + "] error", function)};
}

const BoardCase kSingleRows[] = {
    {"Colour1On",
     nullptr,
     [] { return CLi_ParkLedCtrlSingle(1, 1); },
     {.platform = {"DRV_SetParkLed({2, 1, 1, 0, 255}) -> 0"}}},
    {"Colour1Off",
     nullptr,
     [] { return CLi_ParkLedCtrlSingle(1, 0); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0"}}},
    {"Selector2GivesColourCode3",
     nullptr,
     [] { return CLi_ParkLedCtrlSingle(2, 1); },
     {.platform = {"DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0"}}},
    {"Selector4GivesColourCode4",
     nullptr,
     [] { return CLi_ParkLedCtrlSingle(4, 0); },
     {.platform = {"DRV_SetParkLed({2, 4, 0, 0, 255}) -> 0"}}},
    {"Selector3IsRefusedWithoutAPlatformCall", nullptr, [] { return CLi_ParkLedCtrlSingle(3, 1); },
     colour_refused("3")},
    {"Selector0IsRefused", nullptr, [] { return CLi_ParkLedCtrlSingle(0, 0); }, colour_refused("0")},
    {"NegativeSelectorIsShownSigned", nullptr, [] { return CLi_ParkLedCtrlSingle(-1, 1); },
     colour_refused("-1")},
    {"Selector5WithOnFlag7ReportsOnlyTheColour", nullptr, [] { return CLi_ParkLedCtrlSingle(5, 7); },
     colour_refused("5")},
    {"OnFlag2IsRefused", nullptr, [] { return CLi_ParkLedCtrlSingle(1, 2); },
     on_flag_refused("CLi_ParkLedCtrlSingle", "2")},
    {"OnFlagIsShownUnsigned", nullptr, [] { return CLi_ParkLedCtrlSingle(2, 0xFFFFFFFFu); },
     on_flag_refused("CLi_ParkLedCtrlSingle", "4294967295")},
    {"PlatformFailureFailsTheCommand",
     lamps_refuse(1),
     [] { return CLi_ParkLedCtrlSingle(2, 1); },
     {.status = 1,
      .messages = {"ERROR CLi_ParkLedCtrlSingle: SetParkLed(&pstLedCtrl) call error"},
      .err = console("SetParkLed(&pstLedCtrl) call error", "CLi_ParkLedCtrlSingle"),
      .platform = {"DRV_SetParkLed({2, 3, 1, 0, 255}) -> 1"}}},
    {"NegativePlatformAnswerFailsTheCommand",
     lamps_refuse(-1),
     [] { return CLi_ParkLedCtrlSingle(1, 0); },
     {.status = 1,
      .messages = {"ERROR CLi_ParkLedCtrlSingle: SetParkLed(&pstLedCtrl) call error"},
      .err = console("SetParkLed(&pstLedCtrl) call error", "CLi_ParkLedCtrlSingle"),
      .platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> -1"}}},
};

class ParkLedSingle : public boardtest::BoardTable
{
};
TEST_P(ParkLedSingle, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Board, ParkLedSingle, ::testing::ValuesIn(kSingleRows), boardtest::case_name);

const BoardCase kAllRows[] = {
    {"OnSwitchesColour3ThenColour1",
     nullptr,
     [] { return CLI_ParkLedCtrlAll(1); },
     {.platform = {"DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0", "DRV_SetParkLed({2, 1, 1, 0, 255}) -> 0"}}},
    {"OffSwitchesColour3ThenColour1",
     nullptr,
     [] { return CLI_ParkLedCtrlAll(0); },
     {.platform = {"DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0", "DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0"}}},
    {"OnFlag2IsRefused", nullptr, [] { return CLI_ParkLedCtrlAll(2); },
     on_flag_refused("CLI_ParkLedCtrlAll", "2")},
    {"PlatformFailuresAreNotLookedAt",
     lamps_refuse(1),
     [] { return CLI_ParkLedCtrlAll(1); },
     {.platform = {"DRV_SetParkLed({2, 3, 1, 0, 255}) -> 1", "DRV_SetParkLed({2, 1, 1, 0, 255}) -> 1"}}},
    {"NegativePlatformAnswersAreNotLookedAt",
     lamps_refuse(-5),
     [] { return CLI_ParkLedCtrlAll(0); },
     {.platform = {"DRV_SetParkLed({2, 3, 0, 0, 255}) -> -5", "DRV_SetParkLed({2, 1, 0, 0, 255}) -> -5"}}},
};

class ParkLedAll : public boardtest::BoardTable
{
};
TEST_P(ParkLedAll, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Board, ParkLedAll, ::testing::ValuesIn(kAllRows), boardtest::case_name);

// Without a flash thread the pattern's flag changes nothing visible: both colours go dark and
// the command succeeds whatever it is asked.
const BoardCase kAlternateRows[] = {
    {"StartSwitchesBothColoursOff",
     nullptr,
     [] { return CLI_ParkLedAlternate(0, 1); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0", "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0"}}},
    {"StopSwitchesBothColoursOff",
     nullptr,
     [] { return CLI_ParkLedAlternate(0, 0); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0", "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0"}}},
    {"FirstArgumentIsIgnored",
     nullptr,
     [] { return CLI_ParkLedAlternate(0xFFFFFFFFu, 1); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0", "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0"}}},
    {"AnyOtherValueStops",
     nullptr,
     [] { return CLI_ParkLedAlternate(1, 7); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 0", "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 0"}}},
    {"PlatformFailuresAreNotLookedAt",
     lamps_refuse(1),
     [] { return CLI_ParkLedAlternate(0, 1); },
     {.platform = {"DRV_SetParkLed({2, 1, 0, 0, 255}) -> 1", "DRV_SetParkLed({2, 3, 0, 0, 255}) -> 1"}}},
};

class ParkLedAlternate : public boardtest::BoardTable
{
};
TEST_P(ParkLedAlternate, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Board, ParkLedAlternate, ::testing::ValuesIn(kAlternateRows), boardtest::case_name);

// What the lamps show afterwards, as the simulated platform keeps it from the requests it took.
class ParkLamps : public clitest::SimTest
{
};

TEST_F(ParkLamps, ShowWhatTheAcceptedRequestsLeft)
{
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{}) << "dark at start";
    run([] { return CLi_ParkLedCtrlSingle(1, 1); });
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{1});
    run([] { return CLi_ParkLedCtrlSingle(4, 1); });
    EXPECT_EQ(sim::board_model().lit(), (std::set<uint32_t>{1, 4}));
    run([] { return CLI_ParkLedCtrlAll(1); });
    EXPECT_EQ(sim::board_model().lit(), (std::set<uint32_t>{1, 3, 4}));
    run([] { return CLI_ParkLedAlternate(0, 0); });
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{4}) << "the pattern's colours only";
    const clitest::Call off = run([] { return CLi_ParkLedCtrlSingle(4, 0); });
    EXPECT_EQ(sim::board_model().lit(), std::set<uint32_t>{});

    std::vector<std::string> notes;
    for (const sim::Entry &entry : off.of(sim::Kind::Note, "parking lamps"))
        notes.push_back(entry.text);
    EXPECT_EQ(notes, std::vector<std::string>{"parking lamps lit: none"});
}

TEST_F(ParkLamps, RefusedRequestChangesNothing)
{
    run([] { return CLI_ParkLedCtrlAll(1); });
    sim::platform().script("DRV_SetParkLed").result = 1;
    EXPECT_EQ(run([] { return CLI_ParkLedCtrlAll(0); }).status, 0);
    EXPECT_EQ(sim::board_model().lit(), (std::set<uint32_t>{1, 3}))
        << "the platform refused to switch them off";
}

} // namespace
