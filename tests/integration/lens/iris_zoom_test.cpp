// The iris and zoom end positions through libclidriver.so on the simulated camera: what each mode
// asks of the image library, in which order, and how each failure and each bad mode ends. A zoom
// mode beyond the table ends the whole process; those cases run in a child process.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "lens_fixture.h"
#include "platform/platform.h"

namespace
{

using clitest::Expected;
using lenstest::PlatformCase;

const std::string kStarted = "ISP_Init(0) -> 0";
const std::string kFocusHeld = "ISP_SetFocusMode(0, 0) -> 0";
const std::string kManualIris = "ISP_SetAEMode(0, 7) -> 0";

// The call-failure pair of `function` naming `what`.
Expected call_failed(const std::string &function, const std::string &what, long long status)
{
    return {.status = status,
            .messages = {"ERROR " + function + ": Function " + what + " call failed"},
            .err = "[src/cli_libfun.cpp " + function + "]: " + what + " call failed\r\n"};
}

Expected reserved(const std::string &function)
{
    return {.status = 0,
            .messages = {" INFO " + function + ": This mode not support now"},
            .out = "This mode not support now\r\n"};
}

// ---- CLI_SetIrisPos ------------------------------------------------------------------------------

PlatformCase iris_reserved(const char *name, uint32_t mode)
{
    return {name,
            nullptr,
            [mode] { return CLI_SetIrisPos(0, mode); },
            reserved("CLI_SetIrisPos"),
            {kStarted, kFocusHeld, kManualIris}};
}

const Expected kIrisBadMode = {.status = 1,
                               .messages = {"ERROR CLI_SetIrisPos: Input Error mode"},
                               .err = "[ERROR]:Input Error mode\t@[src/cli_libfun.cpp CLI_SetIrisPos]\r\n"};

const PlatformCase kIrisRows[] = {
    {"ModeZeroDrivesToOneHundred",
     nullptr,
     [] { return CLI_SetIrisPos(0, 0); },
     Expected{},
     {kStarted, kFocusHeld, kManualIris, "ISP_SetAEIris(0, 100) -> 0"}},
    {"ModeOneDrivesTo99999",
     nullptr,
     [] { return CLI_SetIrisPos(0, 1); },
     Expected{},
     {kStarted, kFocusHeld, kManualIris, "ISP_SetAEIris(0, 99999) -> 0"}},
    {"FirstArgumentIsIgnored",
     nullptr,
     [] { return CLI_SetIrisPos(0xFFFFFFFFu, 1); },
     Expected{},
     {kStarted, kFocusHeld, kManualIris, "ISP_SetAEIris(0, 99999) -> 0"}},
    // Reserved modes answer only after the focus and the exposure mode were applied.
    iris_reserved("ModeTwoIsReserved", 2),
    iris_reserved("ModeThreeIsReserved", 3),
    iris_reserved("ModeFourIsReserved", 4),
    iris_reserved("ModeFiveIsReserved", 5),
    iris_reserved("ModeSixIsReserved", 6),
    {"ModeSevenIsAnInputError",
     nullptr,
     [] { return CLI_SetIrisPos(0, 7); },
     kIrisBadMode,
     {kStarted, kFocusHeld, kManualIris}},
    {"LargestModeIsAnInputError",
     nullptr,
     [] { return CLI_SetIrisPos(0, 0xFFFFFFFFu); },
     kIrisBadMode,
     {kStarted, kFocusHeld, kManualIris}},
    {"FailedStartIsReportedAndIgnored",
     [](sim::Scenario &camera) { camera.platform["ISP_Init"].result = 1; },
     [] { return CLI_SetIrisPos(0, 0); },
     call_failed("CLI_SetIrisPos", "ISP init failed", 0),
     {"ISP_Init(0) -> 1", kFocusHeld, kManualIris, "ISP_SetAEIris(0, 100) -> 0"}},
    {"FocusModeRefusedStops",
     [](sim::Scenario &camera) { camera.platform["ISP_SetFocusMode"].result = -1; },
     [] { return CLI_SetIrisPos(0, 0); },
     call_failed("CLI_SetIrisPos", "ISP_SetFocusMode", 1),
     {kStarted, "ISP_SetFocusMode(0, 0) -> -1"}},
    {"ExposureModeRefusedStops",
     [](sim::Scenario &camera) { camera.platform["ISP_SetAEMode"].result = 2; },
     [] { return CLI_SetIrisPos(0, 1); },
     call_failed("CLI_SetIrisPos", "ISP_SetAEMode", 1),
     {kStarted, kFocusHeld, "ISP_SetAEMode(0, 7) -> 2"}},
    // The mode is looked at only once the focus and exposure modes are in: a bad mode behind a
    // refused exposure mode is reported as the refusal.
    {"ExposureModeRefusedBeforeABadMode",
     [](sim::Scenario &camera) { camera.platform["ISP_SetAEMode"].result = 2; },
     [] { return CLI_SetIrisPos(0, 7); },
     call_failed("CLI_SetIrisPos", "ISP_SetAEMode", 1),
     {kStarted, kFocusHeld, "ISP_SetAEMode(0, 7) -> 2"}},
    {"IrisDriveFails",
     [](sim::Scenario &camera) { camera.platform["ISP_SetAEIris"].result = 1; },
     [] { return CLI_SetIrisPos(0, 0); },
     call_failed("CLI_SetIrisPos", "ISP_SetAEIris", 1),
     {kStarted, kFocusHeld, kManualIris, "ISP_SetAEIris(0, 100) -> 1"}},
    {"IrisDriveFailsNegative",
     [](sim::Scenario &camera) { camera.platform["ISP_SetAEIris"].result = -22; },
     [] { return CLI_SetIrisPos(0, 1); },
     call_failed("CLI_SetIrisPos", "ISP_SetAEIris", 1),
     {kStarted, kFocusHeld, kManualIris, "ISP_SetAEIris(0, 99999) -> -22"}},
};

class IrisPosition : public lenstest::PlatformTable
{
};
TEST_P(IrisPosition, Run)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, IrisPosition, ::testing::ValuesIn(kIrisRows), lenstest::platform_case_name);

// A failed start and a failed iris drive: both pairs, in that order.
TEST_F(IrisPosition, FailedStartAndFailedDriveReportBoth)
{
    scenario().platform["ISP_Init"].result = 1;
    scenario().platform["ISP_SetAEIris"].result = 1;
    restart();
    const clitest::Call call = run([] { return CLI_SetIrisPos(0, 0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{"ERROR CLI_SetIrisPos: Function ISP init failed call failed",
                                        "ERROR CLI_SetIrisPos: Function ISP_SetAEIris call failed"}));
    EXPECT_EQ(call.err, "[src/cli_libfun.cpp CLI_SetIrisPos]: ISP init failed call failed\r\n"
                        "[src/cli_libfun.cpp CLI_SetIrisPos]: ISP_SetAEIris call failed\r\n");
}

// ---- CLI_SetZoomPos ------------------------------------------------------------------------------

PlatformCase zoom_reserved(const char *name, uint32_t mode)
{
    return {name,
            nullptr,
            [mode] { return CLI_SetZoomPos(0, mode); },
            reserved("CLI_SetZoomPos"),
            {kStarted, kFocusHeld}};
}

const PlatformCase kZoomRows[] = {
    {"ModeZeroZoomsIn",
     nullptr,
     [] { return CLI_SetZoomPos(0, 0); },
     Expected{},
     {kStarted, kFocusHeld, "ISP_CLI_SetZoomMax(0, 65535) -> 0"}},
    {"ModeOneZoomsOut",
     nullptr,
     [] { return CLI_SetZoomPos(0, 1); },
     Expected{},
     {kStarted, kFocusHeld, "ISP_CLI_SetZoomMin(0, 65535) -> 0"}},
    {"FirstArgumentIsIgnored",
     nullptr,
     [] { return CLI_SetZoomPos(12345, 0); },
     Expected{},
     {kStarted, kFocusHeld, "ISP_CLI_SetZoomMax(0, 65535) -> 0"}},
    // Reserved modes answer only after the focus mode was applied, and drive nothing.
    zoom_reserved("ModeTwoIsReserved", 2),
    zoom_reserved("ModeThreeIsReserved", 3),
    zoom_reserved("ModeFourIsReserved", 4),
    zoom_reserved("ModeFiveIsReserved", 5),
    zoom_reserved("ModeSixIsReserved", 6),
    {"ZoomInFails",
     [](sim::Scenario &camera) { camera.platform["ISP_CLI_SetZoomMax"].result = 1; },
     [] { return CLI_SetZoomPos(0, 0); },
     call_failed("CLI_SetZoomPos", "ISP_ZoomIn()", 1),
     {kStarted, kFocusHeld, "ISP_CLI_SetZoomMax(0, 65535) -> 1"}},
    {"ZoomOutFails",
     [](sim::Scenario &camera) { camera.platform["ISP_CLI_SetZoomMin"].result = -1; },
     [] { return CLI_SetZoomPos(0, 1); },
     call_failed("CLI_SetZoomPos", "ISP_ZoomOut()", 1),
     {kStarted, kFocusHeld, "ISP_CLI_SetZoomMin(0, 65535) -> -1"}},
    {"FailedStartIsReportedAndIgnored",
     [](sim::Scenario &camera) { camera.platform["ISP_Init"].result = -1; },
     [] { return CLI_SetZoomPos(0, 1); },
     call_failed("CLI_SetZoomPos", "ISP init failed", 0),
     {"ISP_Init(0) -> -1", kFocusHeld, "ISP_CLI_SetZoomMin(0, 65535) -> 0"}},
    {"FocusModeRefusedStops",
     [](sim::Scenario &camera) { camera.platform["ISP_SetFocusMode"].result = 1; },
     [] { return CLI_SetZoomPos(0, 0); },
     call_failed("CLI_SetZoomPos", "ISP_SetFocusMode", 1),
     {kStarted, "ISP_SetFocusMode(0, 0) -> 1"}},
    // The mode is looked at only after the focus mode: a refused focus mode ends the command with
    // 1 before a bad mode could end the process.
    {"FocusModeRefusedBeforeABadMode",
     [](sim::Scenario &camera) { camera.platform["ISP_SetFocusMode"].result = 1; },
     [] { return CLI_SetZoomPos(0, 7); },
     call_failed("CLI_SetZoomPos", "ISP_SetFocusMode", 1),
     {kStarted, "ISP_SetFocusMode(0, 0) -> 1"}},
};

class ZoomPosition : public lenstest::PlatformTable
{
};
TEST_P(ZoomPosition, Run)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, ZoomPosition, ::testing::ValuesIn(kZoomRows), lenstest::platform_case_name);

// ---- A zoom mode beyond the table ends the process -------------------------------------------------

class ZoomPositionDeathTest : public clitest::SimTest
{
  protected:
    // The whole standard error of the child: the assertion line naming the source file, the
    // command and the line of the report.
    static std::string assert_pattern()
    {
        const int line = lenstest::source_line_of("src/lens.cpp", "\"ASSERT[%s | %s | %d]\\r\\n\"");
        EXPECT_GT(line, 0);
        return "^ASSERT\\[src/cli_libfun\\.cpp \\| CLI_SetZoomPos \\| " + std::to_string(line) + "\\]\r\n$";
    }
};

TEST_F(ZoomPositionDeathTest, ModeSevenEndsTheProcessWithStatusZeroAfterTheAssertLine)
{
    EXPECT_EXIT(CLI_SetZoomPos(0, 7), ::testing::ExitedWithCode(0), assert_pattern());
}

TEST_F(ZoomPositionDeathTest, LargestModeEndsTheProcessWithStatusZeroAfterTheAssertLine)
{
    EXPECT_EXIT(CLI_SetZoomPos(0, 0xFFFFFFFFu), ::testing::ExitedWithCode(0), assert_pattern());
}

// Before the process ends the image processor was started and the focus held, and no zoom drive
// was asked for: the child names each image-library call on standard error as it is made.
TEST_F(ZoomPositionDeathTest, ProcessEndsAfterTheStartAndTheFocusModeWithoutDrivingTheZoom)
{
    const int line = lenstest::source_line_of("src/lens.cpp", "\"ASSERT[%s | %s | %d]\\r\\n\"");
    ASSERT_GT(line, 0);
    EXPECT_EXIT(
        {
            for (const char *operation : {"ISP_Init", "ISP_SetFocusMode", "ISP_CLI_SetZoomMax",
                                          "ISP_CLI_SetZoomMin", "ISP_SetAEMode"}) {
                sim::platform().script(operation).hook = [operation](sim::PlatformCall &) -> int64_t {
                    fprintf(stderr, "%s\n", operation);
                    return 0;
                };
            }
            CLI_SetZoomPos(0, 8);
        },
        ::testing::ExitedWithCode(0),
        "^ISP_Init\nISP_SetFocusMode\nASSERT\\[src/cli_libfun\\.cpp \\| CLI_SetZoomPos \\| " +
            std::to_string(line) + "\\]\r\n$");
}

} // namespace
