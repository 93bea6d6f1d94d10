// The light-related outputs through libclidriver.so on the simulated camera: the IR-cut filter,
// the IR lamps driven by the driver, the RGB run light, the dome's alarm LED and the inner
// open-collector output, set and read back through the lens-motor driver. Each row is a test case.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "lights_fixture.h"

namespace
{

using clitest::Expected;
using lightstest::call_failed;
using lightstest::console;
using lightstest::LightsCase;

// ---- IR cut ------------------------------------------------------------------------------------

Expected quiet_success()
{
    return {.status = 0};
}

Expected ir_cut_refused()
{
    return {.status = 1,
            .messages = {"ERROR CLI_CtrlInnerIrCutMode: not support this mode"},
            .err = console("CLI_CtrlInnerIrCutMode", "not support this mode")};
}

Expected ir_cut_driver_failed()
{
    return {.status = 1,
            .messages = {"ERROR CLI_CtrlInnerIrCutMode: Function DRV_SetIRCut call failed"},
            .err = call_failed("CLI_CtrlInnerIrCutMode", "DRV_SetIRCut")};
}

const LightsCase kIrCutRows[] = {
    {"Mode0",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(0); },
     quiet_success(),
     {"DRV_SetIRCut(0, 0) -> 0"}},
    {"Mode1",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(1); },
     quiet_success(),
     {"DRV_SetIRCut(0, 1) -> 0"}},
    {"Mode2",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(2); },
     quiet_success(),
     {"DRV_SetIRCut(0, 2) -> 0"}},
    {"Mode3",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(3); },
     quiet_success(),
     {"DRV_SetIRCut(0, 3) -> 0"}},
    {"Mode4IsRefusedWithoutCallingTheDriver",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(4); },
     ir_cut_refused(),
     {}},
    {"LargestModeIsRefused",
     nullptr,
     [] { return CLI_CtrlInnerIrCutMode(0xFFFFFFFFu); },
     ir_cut_refused(),
     {}},
    {"DriverFailing",
     [](sim::Scenario &camera) { camera.platform["DRV_SetIRCut"].result = 1; },
     [] { return CLI_CtrlInnerIrCutMode(2); },
     ir_cut_driver_failed(),
     {"DRV_SetIRCut(0, 2) -> 1"}},
    {"DriverFailingNegative",
     [](sim::Scenario &camera) { camera.platform["DRV_SetIRCut"].result = -1; },
     [] { return CLI_CtrlInnerIrCutMode(0); },
     ir_cut_driver_failed(),
     {"DRV_SetIRCut(0, 0) -> -1"}},
};

class IrCut : public lightstest::LightsTable
{
};
TEST_P(IrCut, Mode)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, IrCut, ::testing::ValuesIn(kIrCutRows), lightstest::case_name);

// ---- IR lamps through the driver: brightness in per mille --------------------------------------

Expected ir_led_driver_failed()
{
    return {.status = 1,
            .messages = {"ERROR CLI_IrLedCtrl: Function DRV_CLI_SetIRLed call failed"},
            .err = call_failed("CLI_IrLedCtrl", "DRV_CLI_SetIRLed")};
}

const LightsCase kIrLedRows[] = {
    {"Level1Gives32",
     nullptr,
     [] { return CLI_IrLedCtrl(7, 8, 1, 1); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(7, 8, 32, 0) -> 0"}},
    {"Level16Gives516",
     nullptr,
     [] { return CLI_IrLedCtrl(7, 8, 1, 16); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(7, 8, 516, 0) -> 0"}},
    {"Level31Gives1000",
     nullptr,
     [] { return CLI_IrLedCtrl(7, 8, 1, 31); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(7, 8, 1000, 0) -> 0"}},
    {"Level100CountsAs31",
     nullptr,
     [] { return CLI_IrLedCtrl(7, 8, 1, 100); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(7, 8, 1000, 0) -> 0"}},
    {"LargestLevelCountsAs31",
     nullptr,
     [] { return CLI_IrLedCtrl(0, 1, 1, 0xFFFFFFFFu); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(0, 1, 1000, 0) -> 0"}},
    {"Level0IsDark",
     nullptr,
     [] { return CLI_IrLedCtrl(0, 1, 1, 0); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(0, 1, 0, 0) -> 0"}},
    {"Mode2PassesNoBrightnessWhateverTheLevel",
     nullptr,
     [] { return CLI_IrLedCtrl(3, 4, 2, 31); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(3, 4, 0, 0) -> 0"}},
    {"Mode0PassesNoBrightness",
     nullptr,
     [] { return CLI_IrLedCtrl(3, 4, 0, 16); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(3, 4, 0, 0) -> 0"}},
    {"FirstTwoArgumentsPassUnchanged",
     nullptr,
     [] { return CLI_IrLedCtrl(0xFFFFFFFFu, 0x80000000u, 1, 2); },
     quiet_success(),
     {"DRV_CLI_SetIRLed(4294967295, 2147483648, 64, 0) -> 0"}},
    {"DriverFailing",
     [](sim::Scenario &camera) { camera.platform["DRV_CLI_SetIRLed"].result = 3; },
     [] { return CLI_IrLedCtrl(0, 0, 1, 16); },
     ir_led_driver_failed(),
     {"DRV_CLI_SetIRLed(0, 0, 516, 0) -> 3"}},
    {"DriverFailingNegative",
     [](sim::Scenario &camera) { camera.platform["DRV_CLI_SetIRLed"].result = -1; },
     [] { return CLI_IrLedCtrl(1, 0, 2, 16); },
     ir_led_driver_failed(),
     {"DRV_CLI_SetIRLed(1, 0, 0, 0) -> -1"}},
};

class IrLed : public lightstest::LightsTable
{
};
TEST_P(IrLed, Brightness)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, IrLed, ::testing::ValuesIn(kIrLedRows), lightstest::case_name);

// ---- Run light ---------------------------------------------------------------------------------

// All three channels put out, in the order 0, 2, 1.
const std::vector<std::string> kAllDark = {"SetRunLight(0, 0) -> 0", "SetRunLight(2, 0) -> 0",
                                           "SetRunLight(1, 0) -> 0"};

std::vector<std::string> dark_then(const std::string &lit)
{
    std::vector<std::string> calls = kAllDark;
    calls.push_back(lit);
    return calls;
}

Expected colour_not_supported()
{
    return {.status = 1,
            .messages = {"ERROR CLI_SetLedColor: Color not support!"},
            .err = console("CLI_SetLedColor", "Color not support!")};
}

Expected quench_failed()
{
    return {.status = 1,
            .messages = {"ERROR CLI_SetLedColor: Set RGB light quench fail!"},
            .err = console("CLI_SetLedColor", "Set RGB light quench fail!")};
}

const LightsCase kRunLightRows[] = {
    {"Colour0LeavesAllDark", nullptr, [] { return CLI_SetLedColor(0); }, quiet_success(), kAllDark},
    {"Colour1LightsChannel0", nullptr, [] { return CLI_SetLedColor(1); }, quiet_success(),
     dark_then("SetRunLight(0, 1) -> 0")},
    {"Colour2LightsChannel2", nullptr, [] { return CLI_SetLedColor(2); }, quiet_success(),
     dark_then("SetRunLight(2, 1) -> 0")},
    {"Colour4LightsChannel1", nullptr, [] { return CLI_SetLedColor(4); }, quiet_success(),
     dark_then("SetRunLight(1, 1) -> 0")},
    {"Colour3IsRefusedAfterAllWentDark", nullptr, [] { return CLI_SetLedColor(3); }, colour_not_supported(),
     kAllDark},
    {"Colour5IsRefusedAfterAllWentDark", nullptr, [] { return CLI_SetLedColor(5); }, colour_not_supported(),
     kAllDark},
    {"LargestColourIsRefused", nullptr, [] { return CLI_SetLedColor(0xFFFFFFFFu); }, colour_not_supported(),
     kAllDark},
    {"FirstPutOutFailingStopsThere",
     [](sim::Scenario &camera) { camera.platform["SetRunLight"].sequence = {-1}; },
     [] { return CLI_SetLedColor(1); },
     quench_failed(),
     {"SetRunLight(0, 0) -> -1"}},
    {"SecondPutOutFailingLeavesChannel1Alone",
     [](sim::Scenario &camera) {
         camera.platform["SetRunLight"].sequence = {0, 1};
     },
     [] { return CLI_SetLedColor(2); },
     quench_failed(),
     {"SetRunLight(0, 0) -> 0", "SetRunLight(2, 0) -> 1"}},
    {"LastPutOutFailing",
     [](sim::Scenario &camera) {
         camera.platform["SetRunLight"].sequence = {0, 0, 1};
     },
     [] { return CLI_SetLedColor(0); },
     quench_failed(),
     {"SetRunLight(0, 0) -> 0", "SetRunLight(2, 0) -> 0", "SetRunLight(1, 0) -> 1"}},
    // The lighting step's failure is a result line on the station's terminal, not an error.
    {"LightingFailingIsReportedAtInfoOnStandardOutput",
     [](sim::Scenario &camera) {
         camera.platform["SetRunLight"].sequence = {0, 0, 0, -1};
     },
     [] { return CLI_SetLedColor(4); },
     Expected{.status = 1,
              .messages = {" INFO CLI_SetLedColor: Set RGB light bright fail!"},
              .out = "Set RGB light bright fail!\r\n"},
     {"SetRunLight(0, 0) -> 0", "SetRunLight(2, 0) -> 0", "SetRunLight(1, 0) -> 0",
      "SetRunLight(1, 1) -> -1"}},
};

class RunLight : public lightstest::LightsTable
{
};
TEST_P(RunLight, Colour)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, RunLight, ::testing::ValuesIn(kRunLightRows), lightstest::case_name);

// ---- The dome's alarm LED: the platform's answer is the command's -------------------------------

const LightsCase kAlarmLedRows[] = {
    {"PassesItsArgumentsAndSucceeds",
     nullptr,
     [] { return Cli_AlarmLedCtrl(1, 2, 3, 4); },
     quiet_success(),
     {"DomePtz_CliSetAlarmLedNo(1, 2, 3, 4) -> 0"}},
    {"LargeArgumentsPassUnchanged",
     nullptr,
     [] { return Cli_AlarmLedCtrl(0xFFFFFFFFu, 0, 0xABABABABu, 9); },
     quiet_success(),
     {"DomePtz_CliSetAlarmLedNo(4294967295, 0, 2880154539, 9) -> 0"}},
    {"AnyResultComesBackAsItStands",
     [](sim::Scenario &camera) { camera.platform["DomePtz_CliSetAlarmLedNo"].result = 7; },
     [] { return Cli_AlarmLedCtrl(0, 1, 0, 1); },
     Expected{.status = 7},
     {"DomePtz_CliSetAlarmLedNo(0, 1, 0, 1) -> 7"}},
    {"ANegativeResultStaysNegative",
     [](sim::Scenario &camera) { camera.platform["DomePtz_CliSetAlarmLedNo"].result = -2; },
     [] { return Cli_AlarmLedCtrl(0, 0, 0, 0); },
     Expected{.status = -2},
     {"DomePtz_CliSetAlarmLedNo(0, 0, 0, 0) -> -2"}},
};

class AlarmLed : public lightstest::LightsTable
{
};
TEST_P(AlarmLed, PassThrough)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, AlarmLed, ::testing::ValuesIn(kAlarmLedRows), lightstest::case_name);

// ---- The inner open-collector output on the lens-motor driver ----------------------------------

constexpr const char *kMotor = "/dev/motor";
constexpr unsigned long kOcSet = 0x40046B44;
constexpr unsigned long kOcGet = 0x80046B45;

const std::vector<std::string> kMotorTrace(unsigned long request)
{
    return {"open /dev/motor rw", "ioctl /dev/motor " + sim::hex(request), "close /dev/motor"};
}

Expected motor_unopened(const std::string &function)
{
    return {.status = 1,
            .messages = {"ERROR " + function + ": Open file /dev/motor error"},
            .err = console(function, "Open file /dev/motor error"),
            .trace = {"open /dev/motor rw failed"}};
}

void motor_answers(sim::Scenario &camera, unsigned long request, const sim::IoctlAnswer &answer)
{
    camera.devices[kMotor].requests[request].answer = answer;
}

Expected oc_set(uint32_t state)
{
    return {.status = 0, .trace = kMotorTrace(kOcSet), .requests = {{kOcSet, 0, {state}, {state}}}};
}

Expected oc_read(uint32_t word, const std::string &shown)
{
    return {.status = 0,
            .messages = {" INFO CLI_GetInnerOcStatus: status: " + shown},
            .out = "status: " + shown + "\r\n",
            .trace = kMotorTrace(kOcGet),
            .requests = {{kOcGet, 0, {0}, {word}}}};
}

const LightsCase kOcRows[] = {
    {"SetOff", nullptr, [] { return CLI_CtrlInnerOcStatus(0); }, oc_set(0), {}},
    {"SetOn", nullptr, [] { return CLI_CtrlInnerOcStatus(1); }, oc_set(1), {}},
    {"Set2IsRefusedWithoutOpeningTheDriver",
     nullptr,
     [] { return CLI_CtrlInnerOcStatus(2); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_CtrlInnerOcStatus: ulOcStatus unsupport[2]"},
              .err = console("CLI_CtrlInnerOcStatus", "ulOcStatus unsupport[2]")},
     {}},
    {"SetLargestIsRefusedUnsigned",
     nullptr,
     [] { return CLI_CtrlInnerOcStatus(0xFFFFFFFFu); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_CtrlInnerOcStatus: ulOcStatus unsupport[4294967295]"},
              .err = console("CLI_CtrlInnerOcStatus", "ulOcStatus unsupport[4294967295]")},
     {}},
    {"SetRequestFailing",
     [](sim::Scenario &camera) { motor_answers(camera, kOcSet, sim::IoctlAnswer::fail(EIO)); },
     [] { return CLI_CtrlInnerOcStatus(1); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_CtrlInnerOcStatus: ioctl cmd[40046b44] failed"},
              .err = console("CLI_CtrlInnerOcStatus", "ioctl cmd[0x40046b44]"),
              .trace = kMotorTrace(kOcSet),
              .requests = {{kOcSet, 0, {1}, {1}}}},
     {}},
    // Only a negative result is a failed request on this driver.
    {"SetRequestAnsweringPositiveSucceeds",
     [](sim::Scenario &camera) { motor_answers(camera, kOcSet, sim::IoctlAnswer{.result = 1}); },
     [] { return CLI_CtrlInnerOcStatus(0); },
     oc_set(0),
     {}},
    {"SetDriverMissing",
     [](sim::Scenario &camera) { camera.devices[kMotor].present = false; },
     [] { return CLI_CtrlInnerOcStatus(1); },
     motor_unopened("CLI_CtrlInnerOcStatus"),
     {}},
    {"ReadOff", nullptr, [] { return CLI_GetInnerOcStatus(); }, oc_read(0, "0"), {}},
    {"ReadOn",
     [](sim::Scenario &camera) { motor_answers(camera, kOcGet, sim::IoctlAnswer::word(1)); },
     [] { return CLI_GetInnerOcStatus(); },
     oc_read(1, "1"),
     {}},
    {"ReadShowsTheWordSigned",
     [](sim::Scenario &camera) { motor_answers(camera, kOcGet, sim::IoctlAnswer::word(0xFFFFFFFFu)); },
     [] { return CLI_GetInnerOcStatus(); },
     oc_read(0xFFFFFFFFu, "-1"),
     {}},
    {"ReadRequestFailing",
     [](sim::Scenario &camera) { motor_answers(camera, kOcGet, sim::IoctlAnswer::fail(ENOTTY)); },
     [] { return CLI_GetInnerOcStatus(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GetInnerOcStatus: ioctl cmd[80046b45] failed"},
              .err = console("CLI_GetInnerOcStatus", "ioctl cmd[0x80046b45]"),
              .trace = kMotorTrace(kOcGet),
              .requests = {{kOcGet, 0, {0}, {0}}}},
     {}},
    {"ReadDriverBusy",
     [](sim::Scenario &camera) { camera.devices[kMotor].open_errno = EBUSY; },
     [] { return CLI_GetInnerOcStatus(); },
     motor_unopened("CLI_GetInnerOcStatus"),
     {}},
};

class OpenCollector : public lightstest::LightsTable
{
};
TEST_P(OpenCollector, Output)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, OpenCollector, ::testing::ValuesIn(kOcRows), lightstest::case_name);

// The order of what the commands do, where it is part of their behaviour.
class OpenCollectorOrder : public clitest::SimTest
{
};

TEST_F(OpenCollectorOrder, TheReadingIsPrintedAfterTheDriverIsClosed)
{
    const clitest::Call call = run([] { return CLI_GetInnerOcStatus(); });
    EXPECT_EQ(lightstest::story(call),
              (std::vector<std::string>{"open /dev/motor rw", "ioctl /dev/motor 0x80046b45",
                                        "close /dev/motor", " INFO CLI_GetInnerOcStatus: status: 0"}));
}

TEST_F(OpenCollectorOrder, AFailedRequestIsReportedBeforeTheDriverIsClosed)
{
    motor_answers(scenario(), kOcSet, sim::IoctlAnswer::fail(EIO));
    restart();
    const clitest::Call call = run([] { return CLI_CtrlInnerOcStatus(0); });
    EXPECT_EQ(lightstest::story(call),
              (std::vector<std::string>{"open /dev/motor rw", "ioctl /dev/motor 0x40046b44",
                                        "ERROR CLI_CtrlInnerOcStatus: ioctl cmd[40046b44] failed",
                                        "close /dev/motor"}));
}

} // namespace
