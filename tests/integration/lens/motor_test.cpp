// The lens-motor commands through libclidriver.so on the simulated camera: the motor driver's
// flags read from /dev/motor, the zoom and focus reset through the driver library, and the lens
// calibration through the image library. Each table row is a test case of its own.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "lens_fixture.h"

namespace
{

using clitest::Call;
using clitest::CommandCase;
using clitest::Expected;
using clitest::Request;
using lenstest::PlatformCase;

constexpr const char *kMotor = "/dev/motor";
constexpr unsigned long kStatusGet = 0x80046B0C;
constexpr unsigned long kIrCutGet = 0x80046B04;
constexpr unsigned long kIrisGet = 0x80046B31;

const std::vector<uint32_t> kZeroStatus = {0, 0, 0, 0, 0, 0};

// ---- CLI_GetMotorStatus ----------------------------------------------------------------------

// The motor driver's answers: the status record, the IR-cut word and the iris word.
struct MotorDriver {
    std::vector<uint32_t> status = {0x1F, 10, 20, 30, 40, 50};
    uint32_t ircut = 1;
    uint32_t iris = 0;
    int result = 0; // what each of the three requests returns
};

void install(sim::Scenario &camera, const MotorDriver &driver)
{
    auto &requests = camera.devices[kMotor].requests;
    requests[kStatusGet].answer = sim::IoctlAnswer::words(driver.status, driver.result);
    requests[kIrCutGet].answer = sim::IoctlAnswer::word(driver.ircut, driver.result);
    requests[kIrisGet].answer = sim::IoctlAnswer::word(driver.iris, driver.result);
}

const std::vector<std::string> kAllThreeAsked = {"open /dev/motor rw", "ioctl /dev/motor 0x80046b0c",
                                                 "ioctl /dev/motor 0x80046b04", "ioctl /dev/motor 0x80046b31",
                                                 "close /dev/motor"};

// A successful read: the flags shown (without the function and line ends), in order.
CommandCase motor_read(const char *name, const MotorDriver &driver, const std::vector<std::string> &shown)
{
    Expected want{.status = 0, .trace = kAllThreeAsked};
    for (const std::string &text : shown) {
        want.messages.push_back(" INFO CLI_GetMotorStatus: " + text);
        want.out += text + "\r\n";
    }
    want.requests = {{kStatusGet, 0, kZeroStatus, driver.status},
                     {kIrCutGet, 0, {0}, {driver.ircut}},
                     {kIrisGet, 0, {driver.ircut}, {driver.iris}}}; // the iris is read into the same word
    return {name, [driver](sim::Scenario &camera) { install(camera, driver); },
            [] { return CLI_GetMotorStatus(); }, want};
}

const std::vector<std::string> kFiveFlags = {"zoom flag: 10", "focus flag: 20", "zoom1 flag: 30",
                                             "zoom2 flag: 40", "ir flag: 50"};

std::vector<std::string> with(std::vector<std::string> first, const std::vector<std::string> &then)
{
    first.insert(first.end(), then.begin(), then.end());
    return first;
}

// A request that failed after `shown` was printed: the device closed, then the request reported.
Expected motor_request_failed(const char *number, const std::vector<std::string> &shown,
                              std::vector<std::string> trace, std::vector<Request> requests)
{
    Expected want{.status = 1, .trace = std::move(trace), .requests = std::move(requests)};
    for (const std::string &text : shown) {
        want.messages.push_back(" INFO CLI_GetMotorStatus: " + text);
        want.out += text + "\r\n";
    }
    want.messages.push_back("ERROR CLI_GetMotorStatus: ioctl cmd[" + std::string(number) + "] failed");
    want.err =
        "[ERROR]:ioctl cmd[0x" + std::string(number) + "]\t@[src/cli_libfun.cpp CLI_GetMotorStatus]\r\n";
    return want;
}

const Expected kMotorUnopened = {.status = 1,
                                 .messages = {"ERROR CLI_GetMotorStatus: Open file /dev/motor error"},
                                 .err = "[ERROR]:Open file /dev/motor error\t@[src/cli_libfun.cpp "
                                        "CLI_GetMotorStatus]\r\n",
                                 .trace = {"open /dev/motor rw failed"}};

const CommandCase kMotorStatusRows[] = {
    motor_read("FullMaskShowsFiveFlagsInOrder", {}, with(kFiveFlags, {"ircut flag: 1", "iris flag: 1"})),
    motor_read("EmptyMaskShowsOnlyIrCutAndIris", {.status = {0, 10, 20, 30, 40, 50}},
               {"ircut flag: 1", "iris flag: 1"}),
    motor_read("OnlyBitFourShowsOnlyTheIrFlag", {.status = {0x10, 10, 20, 30, 40, 50}},
               {"ir flag: 50", "ircut flag: 1", "iris flag: 1"}),
    motor_read("BitsFiveToThirtyOneAreIgnored", {.status = {0xFFFFFFE0u, 10, 20, 30, 40, 50}},
               {"ircut flag: 1", "iris flag: 1"}),
    motor_read("AllBitsSetShowsTheFiveFlagsOnly", {.status = {0xFFFFFFFFu, 10, 20, 30, 40, 50}},
               with(kFiveFlags, {"ircut flag: 1", "iris flag: 1"})),
    motor_read("ScatteredBitsShowTheirFlags", {.status = {0x0A, 10, 20, 30, 40, 50}},
               {"focus flag: 20", "zoom2 flag: 40", "ircut flag: 1", "iris flag: 1"}),
    motor_read("FlagsAreShownUnsigned", {.status = {0x01, 0xFFFFFFFFu, 0, 0, 0, 0}, .ircut = 0xFFFFFFFFu},
               {"zoom flag: 4294967295", "ircut flag: 4294967295", "iris flag: 1"}),
    motor_read("IrisWordFiveIsShownAsZero", {.iris = 5}, with(kFiveFlags, {"ircut flag: 1", "iris flag: 0"})),
    motor_read("IrisWordZeroIsShownAsOne", {.ircut = 0, .iris = 0},
               with(kFiveFlags, {"ircut flag: 0", "iris flag: 1"})),
    motor_read("IrisWordAllOnesIsShownAsZero", {.iris = 0xFFFFFFFFu},
               with(kFiveFlags, {"ircut flag: 1", "iris flag: 0"})),
    {"DriverMissing", [](sim::Scenario &camera) { camera.devices[kMotor].present = false; },
     [] { return CLI_GetMotorStatus(); }, kMotorUnopened},
    {"DriverBusy", [](sim::Scenario &camera) { camera.devices[kMotor].open_errno = EBUSY; },
     [] { return CLI_GetMotorStatus(); }, kMotorUnopened},
    {"StatusRequestFails",
     [](sim::Scenario &camera) {
         camera.devices[kMotor].requests[kStatusGet].answer = sim::IoctlAnswer::fail(EIO);
     },
     [] { return CLI_GetMotorStatus(); },
     motor_request_failed("80046b0c", {},
                          {"open /dev/motor rw", "ioctl /dev/motor 0x80046b0c", "close /dev/motor"},
                          {{kStatusGet, 0, kZeroStatus, kZeroStatus}})},
    // The flags are already on the operator's screen when the IR-cut state cannot be read.
    {"IrCutRequestFailsAfterTheFlags",
     [](sim::Scenario &camera) {
         install(camera, {});
         camera.devices[kMotor].requests[kIrCutGet].answer = sim::IoctlAnswer::fail(EIO);
     },
     [] { return CLI_GetMotorStatus(); },
     motor_request_failed(
         "80046b04", kFiveFlags,
         {"open /dev/motor rw", "ioctl /dev/motor 0x80046b0c", "ioctl /dev/motor 0x80046b04",
          "close /dev/motor"},
         {{kStatusGet, 0, kZeroStatus, {0x1F, 10, 20, 30, 40, 50}}, {kIrCutGet, 0, {0}, {0}}})},
    {"IrisRequestFailsAfterTheIrCut",
     [](sim::Scenario &camera) {
         install(camera, {.ircut = 3});
         camera.devices[kMotor].requests[kIrisGet].answer = sim::IoctlAnswer::fail(ENOTTY);
     },
     [] { return CLI_GetMotorStatus(); },
     motor_request_failed("80046b31", with(kFiveFlags, {"ircut flag: 3"}), kAllThreeAsked,
                          {{kStatusGet, 0, kZeroStatus, {0x1F, 10, 20, 30, 40, 50}},
                           {kIrCutGet, 0, {0}, {3}},
                           {kIrisGet, 0, {3}, {3}}})},
    // Only a negative result is a failed request: a driver answering 1 has still filled the words.
    motor_read("PositiveResultsAreNotFailures",
               {.status = {0x01, 7, 0, 0, 0, 0}, .ircut = 0, .iris = 2, .result = 1},
               {"zoom flag: 7", "ircut flag: 0", "iris flag: 0"}),
};

class MotorStatus : public clitest::CommandTable
{
};
TEST_P(MotorStatus, Report)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, MotorStatus, ::testing::ValuesIn(kMotorStatusRows), clitest::case_name);

// The device is closed before each failed request is reported, so the report never shows a
// driver still held.
class MotorStatusOrder : public clitest::SimTest
{
  protected:
    void expect_closed_before_the_report(unsigned long failing)
    {
        install(scenario(), {});
        scenario().devices[kMotor].requests[failing].answer = sim::IoctlAnswer::fail(EIO);
        restart();
        const Call call = run([] { return CLI_GetMotorStatus(); });
        EXPECT_EQ(call.status, 1);
        uint64_t closed = 0;
        uint64_t reported = 0;
        int closes = 0;
        for (const sim::Entry &entry : call.journal) {
            if (entry.kind == sim::Kind::Close && entry.name == kMotor) {
                closed = entry.seq;
                ++closes;
            }
            if (entry.kind == sim::Kind::Print && entry.text.find("--[ERROR]") != std::string::npos)
                reported = entry.seq;
        }
        EXPECT_EQ(closes, 1) << "closed exactly once";
        ASSERT_NE(closed, 0u);
        ASSERT_NE(reported, 0u);
        EXPECT_LT(closed, reported) << "the device is closed before the failure is reported";
    }
};

TEST_F(MotorStatusOrder, StatusRequest)
{
    expect_closed_before_the_report(kStatusGet);
}
TEST_F(MotorStatusOrder, IrCutRequest)
{
    expect_closed_before_the_report(kIrCutGet);
}
TEST_F(MotorStatusOrder, IrisRequest)
{
    expect_closed_before_the_report(kIrisGet);
}

// The healthy camera's driver as sim/scenarios/default.toml describes it: every motor valid and
// at rest, IR cut in, iris word 0.
TEST_F(MotorStatusOrder, HealthyCameraShowsEveryFlag)
{
    const Call call = run([] { return CLI_GetMotorStatus(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, "zoom flag: 1\r\nfocus flag: 1\r\nzoom1 flag: 1\r\nzoom2 flag: 1\r\nir flag: 1\r\n"
                        "ircut flag: 1\r\niris flag: 1\r\n");
    EXPECT_EQ(call.err, "");
    clitest::expect_reported_by_command_unit(call);
}

// ---- CLI_MotorResetZF ------------------------------------------------------------------------

const std::string kResetStarted = "DRV_ResetMotor(0, 2) -> 0";
const std::string kResetWaited = "DRV_WaitMotor(0, 2, 0) -> 0";

Expected reset_failed(const std::string &what)
{
    return {.status = 1,
            .messages = {"ERROR CLI_MotorResetZF: Function " + what + " call failed"},
            .err = "[src/cli_libfun.cpp CLI_MotorResetZF]: " + what + " call failed\r\n"};
}

const PlatformCase kResetRows[] = {
    {"ZoomAndFocusReset",
     nullptr,
     [] { return CLI_MotorResetZF(); },
     Expected{.status = 0,
              .messages = {" INFO CLI_MotorResetZF: Reset ZF Motor OK"},
              .out = "Reset ZF Motor OK\r\n"},
     {kResetStarted, kResetWaited}},
    {"ResetRefused",
     [](sim::Scenario &camera) { camera.platform["DRV_ResetMotor"].result = 1; },
     [] { return CLI_MotorResetZF(); },
     reset_failed("Reset Motor Fail"),
     {"DRV_ResetMotor(0, 2) -> 1"}},
    {"ResetFailsNegative",
     [](sim::Scenario &camera) { camera.platform["DRV_ResetMotor"].result = -1; },
     [] { return CLI_MotorResetZF(); },
     reset_failed("Reset Motor Fail"),
     {"DRV_ResetMotor(0, 2) -> -1"}},
    {"WaitFails",
     [](sim::Scenario &camera) { camera.platform["DRV_WaitMotor"].result = 3; },
     [] { return CLI_MotorResetZF(); },
     reset_failed("DRV_WaitMotor"),
     {kResetStarted, "DRV_WaitMotor(0, 2, 0) -> 3"}},
};

class MotorReset : public lenstest::PlatformTable
{
};
TEST_P(MotorReset, Run)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, MotorReset, ::testing::ValuesIn(kResetRows), lenstest::platform_case_name);

// ---- CLI_ZoomTracking ------------------------------------------------------------------------

const std::string kInitFailedLine = "ERROR CLI_ZoomTracking: Function ISP_Init Failed! call failed";
const std::string kInitFailedErr = "[src/cli_libfun.cpp CLI_ZoomTracking]: ISP_Init Failed! call failed\r\n";
const std::string kCalibrationFailedLine = "ERROR CLI_ZoomTracking: Function ISP_CalibrateLens() call failed";
const std::string kCalibrationFailedErr =
    "[src/cli_libfun.cpp CLI_ZoomTracking]: ISP_CalibrateLens() call failed\r\n";

const PlatformCase kTrackingRows[] = {
    {"StartsAndCalibrates",
     nullptr,
     [] { return CLI_ZoomTracking(); },
     Expected{.status = 0,
              .messages = {" INFO CLI_ZoomTracking: ISP_Init success",
                           " INFO CLI_ZoomTracking: ISP_CalibrateLens success"},
              .out = "ISP_Init success\r\nISP_CalibrateLens success\r\n"},
     {"ISP_Init(0) -> 0", "ISP_CalibrateLens(0) -> 0"}},
    // The calibration decides the result, even after a failed start.
    {"FailedStartThenCalibrationPasses",
     [](sim::Scenario &camera) { camera.platform["ISP_Init"].result = 1; },
     [] { return CLI_ZoomTracking(); },
     Expected{.status = 0,
              .messages = {kInitFailedLine, " INFO CLI_ZoomTracking: ISP_CalibrateLens success"},
              .out = "ISP_CalibrateLens success\r\n",
              .err = kInitFailedErr},
     {"ISP_Init(0) -> 1", "ISP_CalibrateLens(0) -> 0"}},
    {"CalibrationFails",
     [](sim::Scenario &camera) { camera.platform["ISP_CalibrateLens"].result = -1; },
     [] { return CLI_ZoomTracking(); },
     Expected{.status = 1,
              .messages = {" INFO CLI_ZoomTracking: ISP_Init success", kCalibrationFailedLine},
              .out = "ISP_Init success\r\n",
              .err = kCalibrationFailedErr},
     {"ISP_Init(0) -> 0", "ISP_CalibrateLens(0) -> -1"}},
    {"BothFail",
     [](sim::Scenario &camera) {
         camera.platform["ISP_Init"].result = -1;
         camera.platform["ISP_CalibrateLens"].result = 2;
     },
     [] { return CLI_ZoomTracking(); },
     Expected{.status = 1,
              .messages = {kInitFailedLine, kCalibrationFailedLine},
              .err = kInitFailedErr + kCalibrationFailedErr},
     {"ISP_Init(0) -> -1", "ISP_CalibrateLens(0) -> 2"}},
};

class ZoomTracking : public lenstest::PlatformTable
{
};
TEST_P(ZoomTracking, Run)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, ZoomTracking, ::testing::ValuesIn(kTrackingRows),
                         lenstest::platform_case_name);

} // namespace
