// The encoder start-up through libclidriver.so on the simulated camera: the sensor read through
// "cat /proc/driver/sensortype", the video norm and encoder record for it, the image processor's
// factory settings loaded on the first call only, the result word of every path, and the pipe
// the start-up keeps open.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "core/descriptors.h"
#include "devices/files.h"
#include "lens_fixture.h"
#include "platform/platform.h"

namespace
{

using clitest::Call;
using clitest::Expected;
using lenstest::PlatformCase;

constexpr const char *kSensorType = "cat /proc/driver/sensortype";
const std::string kOpened = "popen cat /proc/driver/sensortype";
const std::string kClosed = "pclose cat /proc/driver/sensortype";

// The platform's view of one start-up, written out word by word.
std::string norm(uint32_t width, uint32_t height)
{
    return "DRV_SetVideoNorm(0, {" + std::to_string(width) + ", " + std::to_string(height) + ", 25}) -> 0";
}
std::string encoder(uint32_t width, uint32_t height, int result = 0)
{
    return "DRV_SetVideoEncodeParam(0, 0, {1, 6, " + std::to_string(width) + ", " + std::to_string(height) +
           ", 6144, 25, 0, 50, 0, 5, 5, 0, 0, 0, 0, 0}) -> " + std::to_string(result);
}
std::string exposure(int result = 0)
{
    return "ISP_SetExposure(0, 0, 0, {0, 0, 0, 0, 50, 0, 0, 0, 0, 30, 8000, 0, 36, 0, 30, 0, 5, 5, 5, 0, 0, "
           "0, 0, 0, "
           "0, 0, 0, 0, 5}) -> " +
           std::to_string(result);
}
std::string balance(int result = 0)
{
    return "ISP_SetWhiteBalance(0, 0, {0, 0, 0}) -> " + std::to_string(result);
}
std::string enhance(int result = 0)
{
    return "ISP_SetImageEnhance(0, 0, 0, {0, 128, 128, 128, 128, 0, 128, 128, 0, 0}) -> " +
           std::to_string(result);
}

std::vector<std::string> first_start(uint32_t width, uint32_t height)
{
    return {norm(width, height), encoder(width, height), exposure(), balance(), enhance()};
}

const std::string kUnknownNotice =
    " INFO CLI_EncodeInit: sensor board type not support,now use default 1080P";

void sensor_says(sim::Scenario &camera, const std::string &text)
{
    camera.commands[kSensorType] = sim::CommandScript{text, 0, 0};
}

// A first start-up on a sensor text: the picture it must give, and whether the notice comes.
PlatformCase sensor(const char *name, const std::string &text, uint32_t width, uint32_t height,
                    bool known = true)
{
    Expected want{.status = 0, .trace = {kOpened}};
    if (!known)
        want.messages = {kUnknownNotice};
    return {name, [text](sim::Scenario &camera) { sensor_says(camera, text); },
            [] { return CLI_EncodeInit(); }, want, first_start(width, height)};
}

// A start-up that stops at the sensor read: ERROR line, console line, and the console line's
// character count as the result.
PlatformCase stopped(const char *name, const std::function<void(sim::Scenario &)> &camera,
                     const std::string &message, std::vector<std::string> trace)
{
    const std::string err = "[ERROR]:" + message + "\t@[src/cli_libfun.cpp CLI_EncodeInit]\r\n";
    return {name,
            camera,
            [] { return CLI_EncodeInit(); },
            Expected{.status = static_cast<long long>(err.size()),
                     .messages = {"ERROR CLI_EncodeInit: " + message},
                     .err = err,
                     .trace = std::move(trace)},
            {}};
}

const PlatformCase kEncodeRows[] = {
    // Each row of the sensor table.
    sensor("Imx123Is2048By1536", "IMX123\n", 2048, 1536),
    sensor("Imx290Is1080p", "IMX290\n", 1920, 1080),
    sensor("Imx185Is1080p", "IMX185\n", 1920, 1080),
    sensor("Mn34227Is1080p", "MN34227\n", 1920, 1080),
    sensor("Imx224Is1280By960", "IMX224\n", 1280, 960),
    sensor("Imx225Is1280By960", "IMX225\n", 1280, 960),
    // The table's order decides, not where a name stands in the text.
    sensor("Imx123AndImx290GiveImx123", "IMX123 IMX290\n", 2048, 1536),
    sensor("Imx290AndImx123GiveImx123", "IMX290 IMX123\n", 2048, 1536),
    sensor("Imx225AndImx290GiveImx290", "IMX225/IMX290\n", 1920, 1080),
    sensor("NameInsideALongerLine", "sensor: Sony IMX185LQJ-C\n", 1920, 1080),
    sensor("NameWithoutLineEnd", "MN34227", 1920, 1080),
    // Anything else: 1080p after the notice.
    sensor("UnknownSensorGets1080pAfterTheNotice", "OV4689\n", 1920, 1080, false),
    sensor("NamesAreMatchedInTheirOwnCase", "imx123\n", 1920, 1080, false),
    sensor("CutShortNameIsUnknown", "IMX12\n", 1920, 1080, false),
    // Only the first 50 bytes are read: a name ending at byte 50 counts, one reaching past it not.
    sensor("NameEndingAtByteFiftyCounts", std::string(44, ' ') + "IMX123", 2048, 1536),
    sensor("NameReachingPastByteFiftyIsNotSeen", std::string(45, ' ') + "IMX123\n", 1920, 1080, false),
    sensor("LongTextReadsOnlyItsHead", std::string(50, 'x') + "IMX123\n", 1920, 1080, false),
    // The driver's text ends at its first zero byte.
    sensor("NameAfterAZeroByteIsNotSeen", std::string("x\0IMX123\n", 9), 1920, 1080, false),
    stopped("SensorReaderWillNotStart",
            [](sim::Scenario &camera) { camera.commands[kSensorType].popen_errno = EMFILE; },
            "cat /proc/driver/sensortype error", {"popen cat /proc/driver/sensortype failed"}),
    stopped("EmptyReadFails", [](sim::Scenario &camera) { sensor_says(camera, ""); }, "Read fail exit",
            {kOpened, kClosed}),
    stopped("ReaderExitingWithoutOutputFails",
            [](sim::Scenario &camera) {
                camera.commands[kSensorType] = {"", 1, 0};
            },
            "Read fail exit", {kOpened, kClosed}),
    stopped("ZeroFirstByteIsNull",
            [](sim::Scenario &camera) { sensor_says(camera, std::string("\0IMX290\n", 8)); }, "data is null",
            {kOpened, kClosed}),
    stopped("SingleZeroByteIsNull", [](sim::Scenario &camera) { sensor_says(camera, std::string(1, '\0')); },
            "data is null", {kOpened, kClosed}),
};

class EncodeInit : public lenstest::PlatformTable
{
};
TEST_P(EncodeInit, FirstCall)
{
    // A start-up that got past the read keeps its pipe.
    if (GetParam().want.trace == std::vector<std::string>{kOpened})
        allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, EncodeInit, ::testing::ValuesIn(kEncodeRows), lenstest::platform_case_name);

// ---- The records, word by word -------------------------------------------------------------------

// Fills a stretch of stack with a pattern, so that a record word the start-up forgot to set would
// show the pattern rather than a lucky zero.
__attribute__((noinline)) void scribble_stack()
{
    volatile uint8_t junk[32768];
    for (size_t i = 0; i < sizeof junk; ++i)
        junk[i] = 0xA5;
}

class EncodeRecords : public clitest::SimTest
{
};

TEST_F(EncodeRecords, EveryRecordWordByWordUnsetWordsZero)
{
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call call = run([] {
        scribble_stack();
        return CLI_EncodeInit();
    });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(lenstest::record_of(call, "DRV_SetVideoNorm"), (std::vector<uint32_t>{1920, 1080, 25}));
    EXPECT_EQ(lenstest::record_of(call, "DRV_SetVideoEncodeParam"),
              (std::vector<uint32_t>{1, 6, 1920, 1080, 6144, 25, 0, 50, 0, 5, 5, 0, 0, 0, 0, 0}));
    EXPECT_EQ(lenstest::record_of(call, "ISP_SetExposure"),
              (std::vector<uint32_t>{0, 0, 0, 0, 50, 0, 0, 0, 0, 30, 8000, 0, 36, 0, 30,
                                     0, 5, 5, 5, 0,  0, 0, 0, 0, 0,  0,    0, 0,  5}));
    EXPECT_EQ(lenstest::record_of(call, "ISP_SetWhiteBalance"), (std::vector<uint32_t>{0, 0, 0}));
    EXPECT_EQ(lenstest::record_of(call, "ISP_SetImageEnhance"),
              (std::vector<uint32_t>{0, 128, 128, 128, 128, 0, 128, 128, 0, 0}));

    // The integer arguments: channel 0 everywhere, stream 0, and the image library's zeros.
    const auto integers = [&call](const std::string &operation) {
        const auto calls = call.of(sim::Kind::Platform, operation);
        EXPECT_EQ(calls.size(), 1u) << operation;
        std::vector<int64_t> values = calls.empty() ? std::vector<int64_t>{} : calls[0].values;
        if (!values.empty())
            values.pop_back(); // the record's address
        return values;
    };
    EXPECT_EQ(integers("DRV_SetVideoNorm"), (std::vector<int64_t>{0}));
    EXPECT_EQ(integers("DRV_SetVideoEncodeParam"), (std::vector<int64_t>{0, 0}));
    EXPECT_EQ(integers("ISP_SetExposure"), (std::vector<int64_t>{0, 0, 0}));
    EXPECT_EQ(integers("ISP_SetWhiteBalance"), (std::vector<int64_t>{0, 0}));
    EXPECT_EQ(integers("ISP_SetImageEnhance"), (std::vector<int64_t>{0, 0, 0}));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(call.messages().empty());
}

TEST_F(EncodeRecords, SecondCallGetsTheSameNormAndEncoderRecords)
{
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    run([] { return CLI_EncodeInit(); });
    const Call call = run([] {
        scribble_stack();
        return CLI_EncodeInit();
    });
    EXPECT_EQ(lenstest::record_of(call, "DRV_SetVideoNorm"), (std::vector<uint32_t>{1920, 1080, 25}));
    EXPECT_EQ(lenstest::record_of(call, "DRV_SetVideoEncodeParam"),
              (std::vector<uint32_t>{1, 6, 1920, 1080, 6144, 25, 0, 50, 0, 5, 5, 0, 0, 0, 0, 0}));
}

// ---- Once per process: the image processor's settings, and the result word ---------------------

class EncodeFirstCall : public clitest::SimTest
{
  protected:
    Call start()
    {
        return run([] { return CLI_EncodeInit(); });
    }
};

TEST_F(EncodeFirstCall, SecondCallSetsNormAndEncoderButLeavesTheImageProcessorAlone)
{
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call first = start();
    EXPECT_EQ(lenstest::platform_trace(first), first_start(1920, 1080));
    const Call second = start();
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(lenstest::platform_trace(second),
              (std::vector<std::string>{norm(1920, 1080), encoder(1920, 1080)}));
    EXPECT_EQ(clitest::camera_trace(second), std::vector<std::string>{kOpened});
    EXPECT_TRUE(second.messages().empty());
}

// A repeat call hands back the encoder's result; the first call does not.
TEST_F(EncodeFirstCall, EncoderResultReachesTheCallerOnlyOnARepeatCall)
{
    scenario().platform["DRV_SetVideoEncodeParam"].sequence = {5, 9, -1};
    restart();
    for (int i = 0; i < 3; ++i)
        allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call first = start();
    EXPECT_EQ(first.status, 0) << "the image processor's last load decides the first call";
    EXPECT_EQ(lenstest::platform_trace(first),
              (std::vector<std::string>{norm(1920, 1080), encoder(1920, 1080, 5), exposure(), balance(),
                                        enhance()}));
    EXPECT_EQ(start().status, 9);
    EXPECT_EQ(start().status, -1);
}

TEST_F(EncodeFirstCall, VideoNormResultIsNotLookedAt)
{
    scenario().platform["DRV_SetVideoNorm"].result = -1;
    restart();
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call call = start();
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(lenstest::platform_trace(call).size(), 5u);
    EXPECT_TRUE(call.messages().empty());
}

// The exposure and white-balance loads are noted at INFO without a console line, and the next
// load is made all the same.
TEST_F(EncodeFirstCall, FailedExposureAndBalanceAreNotedAndTheLoadGoesOn)
{
    scenario().platform["ISP_SetExposure"].result = 1;
    scenario().platform["ISP_SetWhiteBalance"].result = -1;
    restart();
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call call = start();
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO CLI_EncodeInit: ISP_SetExposure call failed",
                                        " INFO CLI_EncodeInit: ISP_SetWhiteBalance call failed"}));
    EXPECT_EQ(lenstest::platform_trace(call),
              (std::vector<std::string>{norm(1920, 1080), encoder(1920, 1080), exposure(1), balance(-1),
                                        enhance()}));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
}

// A failed enhancement load gives the result of the line that reported it: the sink's count of
// characters printed.
TEST_F(EncodeFirstCall, FailedEnhancementGivesThePrintResult)
{
    scenario().platform["ISP_SetImageEnhance"].result = 4;
    restart();
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call call = start();
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{" INFO CLI_EncodeInit: ISP_SetImageEnhance call failed"});
    ASSERT_EQ(call.printed.size(), 1u);
    EXPECT_EQ(call.status, static_cast<long long>(call.printed[0].size()));
    EXPECT_GT(call.status, 0);
    EXPECT_EQ(call.err, "") << "noted without a console line";
    EXPECT_EQ(lenstest::platform_trace(call).back(), enhance(4));
}

TEST_F(EncodeFirstCall, EveryLoadFailingIsNeverRetried)
{
    for (const char *operation : {"ISP_SetExposure", "ISP_SetWhiteBalance", "ISP_SetImageEnhance"})
        scenario().platform[operation].result = 1;
    restart();
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call first = start();
    EXPECT_EQ(first.messages(),
              (std::vector<std::string>{" INFO CLI_EncodeInit: ISP_SetExposure call failed",
                                        " INFO CLI_EncodeInit: ISP_SetWhiteBalance call failed",
                                        " INFO CLI_EncodeInit: ISP_SetImageEnhance call failed"}));
    ASSERT_EQ(first.printed.size(), 3u);
    EXPECT_EQ(first.status, static_cast<long long>(first.printed[2].size()));
    const Call second = start();
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(lenstest::platform_trace(second),
              (std::vector<std::string>{norm(1920, 1080), encoder(1920, 1080)}));
}

// Only a call that reaches the image-processor step uses up the first call.
TEST_F(EncodeFirstCall, FailedReadsDoNotUseUpTheFirstCall)
{
    sensor_says(scenario(), "");
    restart();
    const Call empty = start();
    EXPECT_TRUE(lenstest::platform_trace(empty).empty());
    sim::files().command(kSensorType).output = std::string(1, '\0');
    const Call null = start();
    EXPECT_TRUE(lenstest::platform_trace(null).empty());
    sim::files().command(kSensorType).popen_errno = ENOMEM;
    const Call unstarted = start();
    EXPECT_TRUE(lenstest::platform_trace(unstarted).empty());

    sim::files().command(kSensorType) = sim::CommandScript{"IMX224\n", 0, 0};
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call call = start();
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(lenstest::platform_trace(call), first_start(1280, 960));
}

// The sensor is read afresh on every call: a second call on another sensor sets its picture.
TEST_F(EncodeFirstCall, EachCallReadsTheSensorAgain)
{
    sensor_says(scenario(), "OV2718\n");
    restart();
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    const Call first = start();
    EXPECT_EQ(first.messages(), std::vector<std::string>{kUnknownNotice});
    sim::files().command(kSensorType).output = "IMX123\n";
    const Call second = start();
    EXPECT_TRUE(second.messages().empty());
    EXPECT_EQ(lenstest::platform_trace(second),
              (std::vector<std::string>{norm(2048, 1536), encoder(2048, 1536)}));
}

// ---- The pipe kept open --------------------------------------------------------------------------

class EncodePipe : public EncodeFirstCall
{
  protected:
    // The descriptors a start-up left behind.
    std::vector<int> left_by_one_start(long long *status = nullptr)
    {
        const std::set<int> before = clitest::open_descriptors();
        const Call call = start();
        if (status != nullptr)
            *status = call.status;
        std::vector<int> left;
        for (int fd : clitest::open_descriptors())
            if (before.count(fd) == 0)
                left.push_back(fd);
        return left;
    }
};

TEST_F(EncodePipe, EachSuccessfulCallKeepsExactlyOneMoreDescriptorItsSensorPipe)
{
    std::set<int> kept;
    for (int i = 0; i < 3; ++i) {
        long long status = -1;
        const std::vector<int> left = left_by_one_start(&status);
        EXPECT_EQ(status, 0);
        ASSERT_EQ(left.size(), 1u) << "call " << i + 1;
        const auto owner = sim::descriptors().owner(left[0]);
        ASSERT_TRUE(owner.has_value());
        EXPECT_EQ(owner->kind, sim::FdKind::Pipe);
        EXPECT_EQ(owner->what, kSensorType);
        kept.insert(left[0]);
        allow_left_open(clitest::LeftOpen::EncodeInitPipe);
    }
    EXPECT_EQ(kept.size(), 3u) << "three calls, three pipes";
}

TEST_F(EncodePipe, FailurePathsKeepNothing)
{
    sensor_says(scenario(), "");
    restart();
    EXPECT_TRUE(left_by_one_start().empty()) << "empty read";
    sim::files().command(kSensorType).output = std::string("\0\0", 2);
    EXPECT_TRUE(left_by_one_start().empty()) << "zero first byte";
    sim::files().command(kSensorType).popen_errno = EAGAIN;
    EXPECT_TRUE(left_by_one_start().empty()) << "reader not started";
}

} // namespace
