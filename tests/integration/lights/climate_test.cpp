// Heaters and fans through libclidriver.so on the simulated camera: unit 0, unit 1 or both
// (0xABABABAB), heaters driven by power level or simply switched as the driver says they are, the
// on/off request passed through, and a failing unit stopping the command. Each row is a test case.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "lights_fixture.h"

namespace
{

using clitest::Expected;
using lightstest::call_failed;
using lightstest::LightsCase;

constexpr uint32_t kAll = 0xABABABABu;

// The healthy camera's heaters have power levels; these have not.
void simple_heaters(sim::Scenario &camera)
{
    camera.platform["drv_GetHeaterSuptLvlCtrl"].result = 0;
}

std::string level_line(uint32_t level)
{
    return " INFO cli_SetHeater: Heater support level ctrl, set level[" + std::to_string(level) + "]";
}

std::string normal_line(uint32_t status)
{
    return " INFO cli_SetHeater: Heater normal ctrl, status[" + std::to_string(status) + "]";
}

Expected heater_failed(uint32_t unit, std::vector<std::string> before)
{
    const std::string what = "Drv_SetHeater(" + std::to_string(unit) + ", bIsOn)";
    before.push_back("ERROR CLI_HeatCtrl: Function " + what + " call failed");
    return {.status = 1, .messages = before, .err = call_failed("CLI_HeatCtrl", what)};
}

Expected fan_failed(uint32_t unit)
{
    const std::string what = "Drv_SetFan(" + std::to_string(unit) + ", bIsOn)";
    return {.status = 1,
            .messages = {"ERROR CLI_FanCtrl: Function " + what + " call failed"},
            .err = call_failed("CLI_FanCtrl", what)};
}

const LightsCase kHeaterRows[] = {
    {"LevelHeater0OnAt40",
     nullptr,
     [] { return CLI_HeatCtrl(0, 1); },
     Expected{.status = 0, .messages = {level_line(40)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 1", "DRV_SetHeaterLevel(0, 40) -> 0"}},
    {"LevelHeater1OffAt0",
     nullptr,
     [] { return CLI_HeatCtrl(1, 0); },
     Expected{.status = 0, .messages = {level_line(0)}},
     {"drv_GetHeaterSuptLvlCtrl(1) -> 1", "DRV_SetHeaterLevel(1, 0) -> 0"}},
    {"LevelHeaterTakes2AsOff",
     nullptr,
     [] { return CLI_HeatCtrl(0, 2); },
     Expected{.status = 0, .messages = {level_line(0)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 1", "DRV_SetHeaterLevel(0, 0) -> 0"}},
    {"BothLevelHeatersUnit0First",
     nullptr,
     [] { return CLI_HeatCtrl(kAll, 1); },
     Expected{.status = 0, .messages = {level_line(40), level_line(40)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 1", "DRV_SetHeaterLevel(0, 40) -> 0",
      "drv_GetHeaterSuptLvlCtrl(1) -> 1", "DRV_SetHeaterLevel(1, 40) -> 0"}},
    {"SimpleHeaterGetsTheRequestAsItCame",
     simple_heaters,
     [] { return CLI_HeatCtrl(1, 1); },
     Expected{.status = 0, .messages = {normal_line(1)}},
     {"drv_GetHeaterSuptLvlCtrl(1) -> 0", "Drv_SetHeater(1, 1) -> 0"}},
    {"SimpleHeaterGets2PassedThrough",
     simple_heaters,
     [] { return CLI_HeatCtrl(0, 2); },
     Expected{.status = 0, .messages = {normal_line(2)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 0", "Drv_SetHeater(0, 2) -> 0"}},
    // Only an answer of exactly 1 means power levels.
    {"CapabilityAnswer2MeansASimpleHeater",
     [](sim::Scenario &camera) { camera.platform["drv_GetHeaterSuptLvlCtrl"].result = 2; },
     [] { return CLI_HeatCtrl(0, 1); },
     Expected{.status = 0, .messages = {normal_line(1)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 2", "Drv_SetHeater(0, 1) -> 0"}},
    {"EachUnitDrivenTheWayItIs",
     [](sim::Scenario &camera) {
         camera.platform["drv_GetHeaterSuptLvlCtrl"].sequence = {0, 1};
     },
     [] { return CLI_HeatCtrl(kAll, 1); },
     Expected{.status = 0, .messages = {normal_line(1), level_line(40)}},
     {"drv_GetHeaterSuptLvlCtrl(0) -> 0", "Drv_SetHeater(0, 1) -> 0", "drv_GetHeaterSuptLvlCtrl(1) -> 1",
      "DRV_SetHeaterLevel(1, 40) -> 0"}},
    {"Index2CallsNothing", nullptr, [] { return CLI_HeatCtrl(2, 1); }, Expected{.status = 0}, {}},
    {"LargestIndexCallsNothing",
     nullptr,
     [] { return CLI_HeatCtrl(0xFFFFFFFFu, 0); },
     Expected{.status = 0},
     {}},
    // The failure names Drv_SetHeater although the level was what failed.
    {"Unit0LevelFailingNamesDrvSetHeater",
     [](sim::Scenario &camera) { camera.platform["DRV_SetHeaterLevel"].result = 1; },
     [] { return CLI_HeatCtrl(0, 1); },
     heater_failed(0, {level_line(40)}),
     {"drv_GetHeaterSuptLvlCtrl(0) -> 1", "DRV_SetHeaterLevel(0, 40) -> 1"}},
    {"BothWithUnit0FailingLeavesUnit1Untouched",
     [](sim::Scenario &camera) { camera.platform["DRV_SetHeaterLevel"].sequence = {-1}; },
     [] { return CLI_HeatCtrl(kAll, 1); },
     heater_failed(0, {level_line(40)}),
     {"drv_GetHeaterSuptLvlCtrl(0) -> 1", "DRV_SetHeaterLevel(0, 40) -> -1"}},
    {"BothWithUnit1Failing",
     [](sim::Scenario &camera) {
         simple_heaters(camera);
         camera.platform["Drv_SetHeater"].sequence = {0, 1};
     },
     [] { return CLI_HeatCtrl(kAll, 0); },
     heater_failed(1, {normal_line(0), normal_line(0)}),
     {"drv_GetHeaterSuptLvlCtrl(0) -> 0", "Drv_SetHeater(0, 0) -> 0", "drv_GetHeaterSuptLvlCtrl(1) -> 0",
      "Drv_SetHeater(1, 0) -> 1"}},
    {"Unit1SimpleFailing",
     [](sim::Scenario &camera) {
         simple_heaters(camera);
         camera.platform["Drv_SetHeater"].result = -5;
     },
     [] { return CLI_HeatCtrl(1, 1); },
     heater_failed(1, {normal_line(1)}),
     {"drv_GetHeaterSuptLvlCtrl(1) -> 0", "Drv_SetHeater(1, 1) -> -5"}},
};

class Heater : public lightstest::LightsTable
{
};
TEST_P(Heater, Switch)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Heater, ::testing::ValuesIn(kHeaterRows), lightstest::case_name);

const LightsCase kFanRows[] = {
    {"Fan0On", nullptr, [] { return CLI_FanCtrl(0, 1); }, Expected{.status = 0}, {"Drv_SetFan(0, 1) -> 0"}},
    {"Fan1Off", nullptr, [] { return CLI_FanCtrl(1, 0); }, Expected{.status = 0}, {"Drv_SetFan(1, 0) -> 0"}},
    {"RequestPassesUnchanged",
     nullptr,
     [] { return CLI_FanCtrl(1, 7); },
     Expected{.status = 0},
     {"Drv_SetFan(1, 7) -> 0"}},
    {"BothUnit0First",
     nullptr,
     [] { return CLI_FanCtrl(kAll, 1); },
     Expected{.status = 0},
     {"Drv_SetFan(0, 1) -> 0", "Drv_SetFan(1, 1) -> 0"}},
    {"Index2CallsNothing", nullptr, [] { return CLI_FanCtrl(2, 1); }, Expected{.status = 0}, {}},
    {"Fan0Failing",
     [](sim::Scenario &camera) { camera.platform["Drv_SetFan"].result = 1; },
     [] { return CLI_FanCtrl(0, 0); },
     fan_failed(0),
     {"Drv_SetFan(0, 0) -> 1"}},
    {"BothWithUnit0FailingLeavesUnit1Untouched",
     [](sim::Scenario &camera) { camera.platform["Drv_SetFan"].sequence = {-1}; },
     [] { return CLI_FanCtrl(kAll, 1); },
     fan_failed(0),
     {"Drv_SetFan(0, 1) -> -1"}},
    {"BothWithUnit1Failing",
     [](sim::Scenario &camera) {
         camera.platform["Drv_SetFan"].sequence = {0, 2};
     },
     [] { return CLI_FanCtrl(kAll, 0); },
     fan_failed(1),
     {"Drv_SetFan(0, 0) -> 0", "Drv_SetFan(1, 0) -> 2"}},
};

class Fan : public lightstest::LightsTable
{
};
TEST_P(Fan, Switch)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Fan, ::testing::ValuesIn(kFanRows), lightstest::case_name);

} // namespace
