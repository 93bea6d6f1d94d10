// The light, motion and orientation sensors through libclidriver.so on the simulated camera: the
// photosensor on the analogue input, the PIR detector, the compass self-test, its two readings
// through the platform, and the gyroscope's status. Each row is a test case.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "lights_fixture.h"
#include "platform/platform.h"

namespace
{

using clitest::Expected;
using lightstest::call_failed;
using lightstest::console;
using lightstest::LightsCase;

constexpr const char *kGpio = "/dev/gpioDev";
constexpr const char *kCompass = "/dev/ecompass";
constexpr const char *kGyro = "/dev/gyro";
constexpr unsigned long kAdc0 = 0x2007;
constexpr unsigned long kPir = 0x5006;
constexpr unsigned long kSelfTest = 0x1010;
constexpr unsigned long kGyroStatus = 0x8004690C;

void answers(sim::Scenario &camera, const char *device, unsigned long request, const sim::IoctlAnswer &answer)
{
    camera.devices[device].requests[request].answer = answer;
}

std::vector<std::string> asked(const std::string &device, unsigned long request)
{
    return {"open " + device + " r", "ioctl " + device + " " + sim::hex(request), "close " + device};
}

Expected unopened(const std::string &function, const std::string &device)
{
    return {.status = 1,
            .messages = {"ERROR " + function + ": Open file " + device + " error"},
            .err = console(function, "Open file " + device + " error"),
            .trace = {"open " + device + " r failed"}};
}

// ---- Photosensor on the analogue input: 3.3 V over 1024 steps ---------------------------------

Expected adc_volts(uint32_t raw, const std::string &volts)
{
    const std::string line = "photosensor voltage: " + volts + "V";
    return {.status = 0,
            .messages = {" INFO CLI_PhotoSensorVoltage: " + line},
            .out = line + "\r\n",
            .trace = asked(kGpio, kAdc0),
            .requests = {{kAdc0, 0, {0}, {raw}}}};
}

Expected adc_failed(uint32_t after)
{
    return {.status = 1,
            .messages = {"ERROR CLI_PhotoSensorVoltage: ioctl DEV_ADC0_GET fail!"},
            .err = console("CLI_PhotoSensorVoltage", "ioctl DEV_ADC0_GET fail!"),
            .trace = asked(kGpio, kAdc0),
            .requests = {{kAdc0, 0, {0}, {after}}}};
}

void adc_reads(sim::Scenario &camera, uint32_t raw)
{
    answers(camera, kGpio, kAdc0, sim::IoctlAnswer::word(raw));
}

const LightsCase kPhotoRows[] = {
    {"HalfScaleOfTheHealthyCamera",
     nullptr,
     [] { return CLI_PhotoSensorVoltage(); },
     adc_volts(512, "1.65"),
     {}},
    {"FullScale",
     [](sim::Scenario &camera) { adc_reads(camera, 1023); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_volts(1023, "3.30"),
     {}},
    {"Dark",
     [](sim::Scenario &camera) { adc_reads(camera, 0); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_volts(0, "0.00"),
     {}},
    {"OneStepRoundsToNothing",
     [](sim::Scenario &camera) { adc_reads(camera, 1); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_volts(1, "0.00"),
     {}},
    {"ThreeSteps",
     [](sim::Scenario &camera) { adc_reads(camera, 3); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_volts(3, "0.01"),
     {}},
    // The light sensor keeps its own open-failure wording.
    {"DriverMissing",
     [](sim::Scenario &camera) { camera.devices[kGpio].present = false; },
     [] { return CLI_PhotoSensorVoltage(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_PhotoSensorVoltage: open file /dev/gpioDev error!!"},
              .err = console("CLI_PhotoSensorVoltage", "open file /dev/gpioDev error!!"),
              .trace = {"open /dev/gpioDev r failed"}},
     {}},
    {"RequestFailing",
     [](sim::Scenario &camera) { answers(camera, kGpio, kAdc0, sim::IoctlAnswer::fail(EIO)); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_failed(0),
     {}},
    // Only 0 is a completed request on this driver.
    {"RequestAnsweringPositiveFails",
     [](sim::Scenario &camera) { answers(camera, kGpio, kAdc0, sim::IoctlAnswer::word(700, 1)); },
     [] { return CLI_PhotoSensorVoltage(); },
     adc_failed(700),
     {}},
};

class Photosensor : public lightstest::LightsTable
{
};
TEST_P(Photosensor, Voltage)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Photosensor, ::testing::ValuesIn(kPhotoRows), lightstest::case_name);

// ---- PIR ------------------------------------------------------------------------------------------

Expected pir_state(uint32_t state)
{
    const std::string line = "pir status: " + std::to_string(state);
    return {.status = 0,
            .messages = {" INFO CLI_GetPirStatus: " + line},
            .out = line + "\r\n",
            .trace = asked(kGpio, kPir),
            .requests = {{kPir, 0, {99999}, {state}}}};
}

Expected pir_failed(uint32_t after)
{
    return {.status = 1,
            .messages = {"ERROR CLI_GetPirStatus: ioctl cmd[5006] failed"},
            .err = console("CLI_GetPirStatus", "ioctl cmd[0x5006]"),
            .trace = asked(kGpio, kPir),
            .requests = {{kPir, 0, {99999}, {after}}}};
}

const LightsCase kPirRows[] = {
    {"Quiet", nullptr, [] { return CLI_GetPirStatus(); }, pir_state(0), {}},
    {"Motion",
     [](sim::Scenario &camera) { answers(camera, kGpio, kPir, sim::IoctlAnswer::word(1)); },
     [] { return CLI_GetPirStatus(); },
     pir_state(1),
     {}},
    {"LargestStateUnsigned",
     [](sim::Scenario &camera) { answers(camera, kGpio, kPir, sim::IoctlAnswer::word(0xFFFFFFFFu)); },
     [] { return CLI_GetPirStatus(); },
     pir_state(0xFFFFFFFFu),
     {}},
    {"DriverWritingNothingShowsThePreset",
     [](sim::Scenario &camera) { answers(camera, kGpio, kPir, sim::IoctlAnswer::ok()); },
     [] { return CLI_GetPirStatus(); },
     pir_state(99999),
     {}},
    {"RequestFailing",
     [](sim::Scenario &camera) { answers(camera, kGpio, kPir, sim::IoctlAnswer::fail(EINVAL)); },
     [] { return CLI_GetPirStatus(); },
     pir_failed(99999),
     {}},
    {"RequestAnsweringPositiveFails",
     [](sim::Scenario &camera) { answers(camera, kGpio, kPir, sim::IoctlAnswer::word(1, 2)); },
     [] { return CLI_GetPirStatus(); },
     pir_failed(1),
     {}},
    {"DriverMissing",
     [](sim::Scenario &camera) { camera.devices[kGpio].present = false; },
     [] { return CLI_GetPirStatus(); },
     unopened("CLI_GetPirStatus", kGpio),
     {}},
};

class Pir : public lightstest::LightsTable
{
};
TEST_P(Pir, State)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Pir, ::testing::ValuesIn(kPirRows), lightstest::case_name);

// ---- Compass self-test ------------------------------------------------------------------------

Expected self_test(int32_t result, long long status, bool written = true)
{
    const std::string line = "The test result is " + std::to_string(result);
    return {
        .status = status,
        .messages = {" INFO CLI_GyroscopeCheck: " + line},
        .out = line + "\r\n",
        .trace = asked(kCompass, kSelfTest),
        .requests = {{kSelfTest, 0, {0xFFFFFFFFu}, {written ? static_cast<uint32_t>(result) : 0xFFFFFFFFu}}}};
}

void self_test_answers(sim::Scenario &camera, const sim::IoctlAnswer &answer)
{
    answers(camera, kCompass, kSelfTest, answer);
}

const LightsCase kSelfTestRows[] = {
    {"Passed", nullptr, [] { return CLI_GyroscopeCheck(); }, self_test(0, 0), {}},
    {"FailedResultIsPrintedAndFails",
     [](sim::Scenario &camera) { self_test_answers(camera, sim::IoctlAnswer::word(5)); },
     [] { return CLI_GyroscopeCheck(); },
     self_test(5, 1),
     {}},
    {"NegativeResultIsPrintedSigned",
     [](sim::Scenario &camera) {
         self_test_answers(camera, sim::IoctlAnswer::word(static_cast<uint32_t>(-3)));
     },
     [] { return CLI_GyroscopeCheck(); },
     self_test(-3, 1),
     {}},
    {"DriverLeavingThePresetUntouched",
     [](sim::Scenario &camera) { self_test_answers(camera, sim::IoctlAnswer::ok()); },
     [] { return CLI_GyroscopeCheck(); },
     self_test(-1, 1, false),
     {}},
    // Only a negative result is a failed request here.
    {"RequestAnsweringPositiveIsNoFailure",
     [](sim::Scenario &camera) { self_test_answers(camera, sim::IoctlAnswer::word(0, 3)); },
     [] { return CLI_GyroscopeCheck(); },
     self_test(0, 0),
     {}},
    {"RequestFailing",
     [](sim::Scenario &camera) { self_test_answers(camera, sim::IoctlAnswer::fail(EIO)); },
     [] { return CLI_GyroscopeCheck(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GyroscopeCheck: ioctl cmd[1010] failed"},
              .err = console("CLI_GyroscopeCheck", "ioctl cmd[0x1010]"),
              .trace = asked(kCompass, kSelfTest),
              .requests = {{kSelfTest, 0, {0xFFFFFFFFu}, {0xFFFFFFFFu}}}},
     {}},
    {"SensorMissing",
     [](sim::Scenario &camera) { camera.devices[kCompass].present = false; },
     [] { return CLI_GyroscopeCheck(); },
     unopened("CLI_GyroscopeCheck", kCompass),
     {}},
};

class SelfTest : public lightstest::LightsTable
{
};
TEST_P(SelfTest, Result)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, SelfTest, ::testing::ValuesIn(kSelfTestRows), lightstest::case_name);

// ---- Gyroscope status: the request's own result is not looked at -------------------------------

Expected gyro_status(uint32_t status, uint32_t after)
{
    const std::string line = "The test result is " + std::to_string(status);
    return {.status = status == 0 ? 0 : 1,
            .messages = {" INFO CLI_GyroscopeCheckStatus: " + line},
            .out = line + "\r\n",
            .trace = asked(kGyro, kGyroStatus),
            .requests = {{kGyroStatus, 0, {0}, {after}}}};
}

const LightsCase kGyroRows[] = {
    {"Good", nullptr, [] { return CLI_GyroscopeCheckStatus(); }, gyro_status(0, 0), {}},
    {"BadStatusFails",
     [](sim::Scenario &camera) { answers(camera, kGyro, kGyroStatus, sim::IoctlAnswer::word(7)); },
     [] { return CLI_GyroscopeCheckStatus(); },
     gyro_status(7, 7),
     {}},
    {"StatusPrintedUnsigned",
     [](sim::Scenario &camera) { answers(camera, kGyro, kGyroStatus, sim::IoctlAnswer::word(0xFFFFFFFFu)); },
     [] { return CLI_GyroscopeCheckStatus(); },
     gyro_status(0xFFFFFFFFu, 0xFFFFFFFFu),
     {}},
    {"RejectedRequestReadsAsGood",
     [](sim::Scenario &camera) { answers(camera, kGyro, kGyroStatus, sim::IoctlAnswer::fail(ENOTTY)); },
     [] { return CLI_GyroscopeCheckStatus(); },
     gyro_status(0, 0),
     {}},
    // A driver that fails the request but wrote the word first: the word is what counts.
    {"FailedRequestWithAWrittenStatus",
     [](sim::Scenario &camera) { answers(camera, kGyro, kGyroStatus, sim::IoctlAnswer::word(2, -1)); },
     [] { return CLI_GyroscopeCheckStatus(); },
     gyro_status(2, 2),
     {}},
    {"GyroscopeMissing",
     [](sim::Scenario &camera) { camera.devices[kGyro].present = false; },
     [] { return CLI_GyroscopeCheckStatus(); },
     unopened("CLI_GyroscopeCheckStatus", kGyro),
     {}},
};

class GyroStatus : public lightstest::LightsTable
{
};
TEST_P(GyroStatus, Word)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, GyroStatus, ::testing::ValuesIn(kGyroRows), lightstest::case_name);

// ---- The order of what the sensor commands do -------------------------------------------------

class SensorOrder : public clitest::SimTest
{
};

TEST_F(SensorOrder, ThePhotosensorAndPirReadingsArePrintedBeforeTheDriverIsClosed)
{
    const clitest::Call photo = run([] { return CLI_PhotoSensorVoltage(); });
    EXPECT_EQ(lightstest::story(photo),
              (std::vector<std::string>{"open /dev/gpioDev r", "ioctl /dev/gpioDev 0x2007",
                                        " INFO CLI_PhotoSensorVoltage: photosensor voltage: 1.65V",
                                        "close /dev/gpioDev"}));
    const clitest::Call pir = run([] { return CLI_GetPirStatus(); });
    EXPECT_EQ(lightstest::story(pir),
              (std::vector<std::string>{"open /dev/gpioDev r", "ioctl /dev/gpioDev 0x5006",
                                        " INFO CLI_GetPirStatus: pir status: 0", "close /dev/gpioDev"}));
}

TEST_F(SensorOrder, FailedSensorRequestsAreReportedBeforeTheDriverIsClosed)
{
    answers(scenario(), kGpio, kAdc0, sim::IoctlAnswer::fail(EIO));
    answers(scenario(), kGpio, kPir, sim::IoctlAnswer::fail(EIO));
    restart();
    EXPECT_EQ(lightstest::story(run([] { return CLI_PhotoSensorVoltage(); })),
              (std::vector<std::string>{"open /dev/gpioDev r", "ioctl /dev/gpioDev 0x2007",
                                        "ERROR CLI_PhotoSensorVoltage: ioctl DEV_ADC0_GET fail!",
                                        "close /dev/gpioDev"}));
    EXPECT_EQ(
        lightstest::story(run([] { return CLI_GetPirStatus(); })),
        (std::vector<std::string>{"open /dev/gpioDev r", "ioctl /dev/gpioDev 0x5006",
                                  "ERROR CLI_GetPirStatus: ioctl cmd[5006] failed", "close /dev/gpioDev"}));
}

TEST_F(SensorOrder, TheCompassIsClosedBeforeItsVerdictIsLookedAt)
{
    EXPECT_EQ(
        lightstest::story(run([] { return CLI_GyroscopeCheck(); })),
        (std::vector<std::string>{"open /dev/ecompass r", "ioctl /dev/ecompass 0x1010", "close /dev/ecompass",
                                  " INFO CLI_GyroscopeCheck: The test result is 0"}));
    answers(scenario(), kCompass, kSelfTest, sim::IoctlAnswer::fail(EIO));
    restart();
    EXPECT_EQ(
        lightstest::story(run([] { return CLI_GyroscopeCheck(); })),
        (std::vector<std::string>{"open /dev/ecompass r", "ioctl /dev/ecompass 0x1010", "close /dev/ecompass",
                                  "ERROR CLI_GyroscopeCheck: ioctl cmd[1010] failed"}));
}

TEST_F(SensorOrder, TheGyroscopeIsClosedBeforeItsStatusIsPrinted)
{
    EXPECT_EQ(lightstest::story(run([] { return CLI_GyroscopeCheckStatus(); })),
              (std::vector<std::string>{"open /dev/gyro r", "ioctl /dev/gyro 0x8004690c", "close /dev/gyro",
                                        " INFO CLI_GyroscopeCheckStatus: The test result is 0"}));
}

// ---- Compass readings through the platform -----------------------------------------------------

// What the platform saw of the record at each call, before it wrote its reading into it.
struct CompassCall {
    int64_t command;
    std::vector<int32_t> record_as_passed;
};

class CompassReadings : public clitest::SimTest
{
  protected:
    // The platform answers command 3 with `horizontal` in word 14 and command 4 with `vertical`
    // in word 15, filling the other words with a pattern; call n returns results[n - 1] (0 past
    // the end).
    void compass(int32_t horizontal, int32_t vertical, std::vector<int64_t> results = {})
    {
        sim::OpScript &op = sim::platform().script("DRV_EcompassCtrl");
        op.sequence.clear();
        op.out.clear(); // the hook sees the record exactly as the command passed it
        op.hook = [this, horizontal, vertical, results](sim::PlatformCall &call) -> int64_t {
            auto *record = static_cast<CliEcompassRecord *>(call.records.at(0));
            const int64_t command = call.values.at(0);
            seen_.push_back({command, std::vector<int32_t>(record->alWord, record->alWord + 16)});
            for (int32_t i = 0; i < 16; ++i)
                record->alWord[i] = 1000 + i;
            record->alWord[14] = command == 3 ? horizontal : 0;
            record->alWord[15] = command == 4 ? vertical : 0;
            return seen_.size() <= results.size() ? results[seen_.size() - 1] : 0;
        };
    }

    std::vector<CompassCall> seen_;
};

const std::vector<int32_t> kZeroRecord(16, 0);

TEST_F(CompassReadings, TheHealthyCameraPrintsWords14And15OfTheScenario)
{
    const clitest::Call call = run([] { return CLI_GyroscopeGetInfo(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{" INFO CLI_GyroscopeGetInfo: Horizon  Info:123",
                                                         " INFO CLI_GyroscopeGetInfo: Vertical Info:-45"}));
    EXPECT_EQ(call.out, "Horizon  Info:123\r\nVertical Info:-45\r\n");
    EXPECT_EQ(call.err, "");
    const auto calls = call.of(sim::Kind::Platform, "DRV_EcompassCtrl");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].values.at(0), 3);
    EXPECT_EQ(calls[1].values.at(0), 4);
    EXPECT_EQ(calls[0].records.at(0).size(), 64u) << "sixteen 32-bit words";
}

TEST_F(CompassReadings, EachReadingGetsAZeroedRecordAndTakesOnlyItsOwnWord)
{
    compass(-179, 88);
    const clitest::Call call = run([] { return CLI_GyroscopeGetInfo(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, "Horizon  Info:-179\r\nVertical Info:88\r\n");
    ASSERT_EQ(seen_.size(), 2u);
    EXPECT_EQ(seen_[0].command, 3);
    EXPECT_EQ(seen_[0].record_as_passed, kZeroRecord);
    EXPECT_EQ(seen_[1].command, 4);
    EXPECT_EQ(seen_[1].record_as_passed, kZeroRecord) << "the horizontal reading's words were cleared";
    clitest::expect_reported_by_command_unit(call);
}

TEST_F(CompassReadings, AFailingHorizontalQueryPrintsNothing)
{
    compass(10, 20, {1});
    const clitest::Call call = run([] { return CLI_GyroscopeGetInfo(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{"ERROR CLI_GyroscopeGetInfo: Function DRV_EcompassCtrl call failed"});
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, call_failed("CLI_GyroscopeGetInfo", "DRV_EcompassCtrl"));
    EXPECT_EQ(seen_.size(), 1u) << "the vertical query is not made";
}

TEST_F(CompassReadings, AFailingVerticalQueryComesAfterTheHorizontalLine)
{
    compass(10, 20, {0, -1});
    const clitest::Call call = run([] { return CLI_GyroscopeGetInfo(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{
                                   " INFO CLI_GyroscopeGetInfo: Horizon  Info:10",
                                   "ERROR CLI_GyroscopeGetInfo: Function DRV_EcompassCtrl call failed"}));
    EXPECT_EQ(call.out, "Horizon  Info:10\r\n");
    EXPECT_EQ(call.err, call_failed("CLI_GyroscopeGetInfo", "DRV_EcompassCtrl"));
    EXPECT_EQ(seen_.size(), 2u);
}

} // namespace
