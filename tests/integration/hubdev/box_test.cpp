// The peripheral box's heater and temperature through libclidriver.so, the box behind the hub's
// port 0x0005: every frame written byte for byte (the box's channel frames, 0xE1 and 0x06 for the
// heater, 0x07 for the temperature), the reading as an unsigned byte, a longer answer, every
// failure point (the link that will not open, each send, the receive, a refusal), and the plain
// close of the line on every path.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "clidriver/clidriver.h"
#include "fault_injection.h"
#include "hub_wire.h"
#include "link_fixture.h"
#include "peripherals/box.h"
#include "peripherals/hub.h"

namespace
{

using namespace clitest;
using Lines = std::vector<std::string>;

constexpr uint32_t kHubRate = 115200;
constexpr const char *kSource = "src/cli_libfun.cpp";
constexpr uint8_t kPrepareHeater = 0xE1;
constexpr uint8_t kSwitchHeater = 0x06;
constexpr uint8_t kAskTemperature = 0x07;

std::string console(const std::string &function, const std::string &text)
{
    return "[ERROR]:" + text + "\t@[" + kSource + " " + function + "]\r\n";
}

std::string call_failed(const std::string &function, const std::string &what)
{
    return std::string("[") + kSource + " " + function + "]: " + what + " call failed\r\n";
}

// What opening the box's link writes: the open frame and the rate frame (the hub's own rate) for
// port 0x0005.
std::vector<Bytes> open_frames()
{
    return {hub_frame(kHubPortBox, kHubOpen), hub_frame(kHubPortBox, kHubSetRate, big_endian_rate(kHubRate))};
}

std::vector<Bytes> plus(std::vector<Bytes> frames, std::initializer_list<Bytes> more)
{
    frames.insert(frames.end(), more.begin(), more.end());
    return frames;
}

class PeripheralBox : public LinkTest
{
  protected:
    // The hub on the link with the box behind port 0x0005, declared as a platform with a hub does.
    void hang_box(const sim::BoxSetup &setup, const sim::Misbehaviour &how = {})
    {
        hang_hub([setup, how](sim::HubPeer &hub) {
            auto box = std::make_unique<sim::BoxPeer>(setup);
            box->misbehave(how);
            hub.add_device(kHubPortBox, std::move(box));
        });
        declare(COM_TYPE_HUB, 1, kHubRate);
    }

    static sim::BoxPeer *box()
    {
        sim::HubPeer *behind = hub();
        return behind != nullptr ? dynamic_cast<sim::BoxPeer *>(behind->device(kHubPortBox)) : nullptr;
    }

    // The box's commands that were really carried out, in order.
    static std::vector<uint8_t> box_commands()
    {
        std::vector<uint8_t> commands;
        if (box() != nullptr)
            for (const sim::BoxCommand &command : box()->commands())
                commands.push_back(command.command);
        return commands;
    }

    // The line was closed once, plainly: no close frame for the box's port among the writes.
    static void expect_plain_close(const Call &call)
    {
        EXPECT_EQ(call.of(sim::Kind::Close, kLink).size(), 1u);
        for (const Bytes &frame : writes(call))
            EXPECT_NE(frame, hub_frame(kHubPortBox, kHubClose));
    }

    // Whether the entry of `first` kind comes before the first of `second` kind in the journal.
    static bool before(const Call &call, sim::Kind first, sim::Kind second)
    {
        const std::vector<sim::Entry> a = call.of(first);
        const std::vector<sim::Entry> b = call.of(second);
        return !a.empty() && !b.empty() && a.front().seq < b.front().seq;
    }
};

// ---- Heater -------------------------------------------------------------------------------------

TEST_F(PeripheralBox, HeaterOnSendsThePreparationThenTheSwitchAndClosesTheLinePlainly)
{
    hang_box({.temperature = 23});
    const Call call = run([] { return CLI_PeripheralCtrlHeat(0, 1); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), plus(open_frames(), {hub_frame(kHubPortBox, kPrepareHeater, {0x00}),
                                                 hub_frame(kHubPortBox, kSwitchHeater, {0x01})}));
    expect_plain_close(call);
    EXPECT_EQ(call.waited, 0);
    ASSERT_NE(box(), nullptr);
    EXPECT_TRUE(box()->heater_on());
}

TEST_F(PeripheralBox, TheFirstArgumentIsNotLookedAt)
{
    hang_box({});
    const Call call = run([] { return CLI_PeripheralCtrlHeat(0xFFFFFFFFu, 1); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), plus(open_frames(), {hub_frame(kHubPortBox, kPrepareHeater, {0x00}),
                                                 hub_frame(kHubPortBox, kSwitchHeater, {0x01})}));
}

class HeaterOff : public PeripheralBox, public ::testing::WithParamInterface<uint32_t>
{
};

TEST_P(HeaterOff, AnyModeButOneSendsTheSwitchOffAlone)
{
    hang_box({});
    const uint32_t mode = GetParam();
    ASSERT_EQ(CLI_PeripheralCtrlHeat(0, 1), 0u);
    ASSERT_TRUE(box()->heater_on());
    const Call call = run([mode] { return CLI_PeripheralCtrlHeat(0, mode); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), plus(open_frames(), {hub_frame(kHubPortBox, kSwitchHeater, {0x00})}));
    expect_plain_close(call);
    EXPECT_FALSE(box()->heater_on());
}

INSTANTIATE_TEST_SUITE_P(Modes, HeaterOff, ::testing::Values(0u, 2u, 0xFFFFFFFFu),
                         [](const auto &info) { return "Mode" + std::to_string(info.index); });

TEST_F(PeripheralBox, AFailedPreparationStopsBeforeTheSwitch)
{
    hang_box({});
    faults().com_send.arm(2, 1); // open and rate pass, the 0xE1 frame fails
    const Call call = run([] { return CLI_PeripheralCtrlHeat(0, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_PeripheralCtrlHeat: Function CLI_ComSend call failed"}));
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralCtrlHeat", "CLI_ComSend"));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(writes(call), open_frames()) << "no 0x06 frame after the failed 0xE1";
    expect_plain_close(call);
    EXPECT_TRUE(before(call, sim::Kind::Print, sim::Kind::Close)) << "reported, then closed";
    EXPECT_FALSE(box()->heater_on());
}

struct SwitchFailure {
    const char *name;
    uint32_t mode;
    int sends_before; // sends that pass before the switch fails
    std::vector<Bytes> written;
};

void PrintTo(const SwitchFailure &row, std::ostream *os)
{
    *os << row.name;
}

class FailedSwitch : public PeripheralBox, public ::testing::WithParamInterface<SwitchFailure>
{
};

TEST_P(FailedSwitch, IsReportedAndTheLineStillClosed)
{
    hang_box({});
    faults().com_send.arm(GetParam().sends_before, 1);
    const uint32_t mode = GetParam().mode;
    const Call call = run([mode] { return CLI_PeripheralCtrlHeat(0, mode); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_PeripheralCtrlHeat: Function CLI_ComSend call failed"}));
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralCtrlHeat", "CLI_ComSend"));
    EXPECT_EQ(writes(call), GetParam().written);
    expect_plain_close(call);
    EXPECT_TRUE(before(call, sim::Kind::Print, sim::Kind::Close));
}

INSTANTIATE_TEST_SUITE_P(
    Switches, FailedSwitch,
    ::testing::Values(SwitchFailure{"On", 1, 3,
                                    plus(open_frames(), {hub_frame(kHubPortBox, kPrepareHeater, {0x00})})},
                      SwitchFailure{"Off", 0, 2, open_frames()}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- Temperature --------------------------------------------------------------------------------

struct Reading {
    const char *name;
    uint8_t temperature;
    std::vector<uint8_t> extra; // bytes the box sends after the reading
    const char *shown;
    const char *length_line; // the link's report of the answer's length field
};

void PrintTo(const Reading &row, std::ostream *os)
{
    *os << row.name;
}

class Temperature : public PeripheralBox, public ::testing::WithParamInterface<Reading>
{
};

TEST_P(Temperature, IsTheReplysFirstByteAsAnUnsignedNumber)
{
    const Reading &row = GetParam();
    hang_box({.temperature = row.temperature, .extra_bytes = row.extra});
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 0);
    const size_t length = 1 + row.extra.size() + 4;
    EXPECT_EQ(call.messages(),
              (Lines{" INFO CLI_ComRecv: head 0xfe", row.length_line,
                     std::string(" INFO CLI_PeripheralGetTemp: Peripheral Temperature: ") + row.shown}));
    EXPECT_EQ(call.out, std::string("Peripheral Temperature: ") + row.shown + "\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(writes(call), plus(open_frames(), {hub_frame(kHubPortBox, kAskTemperature)}));
    expect_plain_close(call);
    // The answer: a frame of length + 5 bytes at the hub's 115200 baud.
    EXPECT_EQ(call.waited, static_cast<sim::Nanos>(length + 5) * kByteAt115200);
}

INSTANTIATE_TEST_SUITE_P(
    Readings, Temperature,
    ::testing::Values(Reading{"TwentyThree", 23, {}, "23", " INFO CLI_ComRecv: len 5(0x5)"},
                      Reading{"HighBitSet", 0xF6, {}, "246", " INFO CLI_ComRecv: len 5(0x5)"},
                      Reading{"Zero", 0, {}, "0", " INFO CLI_ComRecv: len 5(0x5)"},
                      Reading{"Highest", 0xFF, {}, "255", " INFO CLI_ComRecv: len 5(0x5)"},
                      Reading{"LongerReply", 23, std::vector<uint8_t>(100, 0x55), "23",
                              " INFO CLI_ComRecv: len 105(0x69)"},
                      Reading{"LongestReply", 0xF6, std::vector<uint8_t>(1014, 0x01), "246",
                              " INFO CLI_ComRecv: len 1019(0x3fb)"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(PeripheralBox, AFailedTemperatureRequestIsReportedAndNothingIsRead)
{
    hang_box({.temperature = 23});
    faults().com_send.arm(2, 1);
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_PeripheralGetTemp: Function CLI_ComSend call failed"}));
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralGetTemp", "CLI_ComSend"));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(writes(call), open_frames());
    expect_plain_close(call);
    EXPECT_TRUE(before(call, sim::Kind::Print, sim::Kind::Close));
    EXPECT_EQ(call.waited, 0);
}

TEST_F(PeripheralBox, ABoxThatDoesNotAnswerFailsTheReceiveAfterItsSecond)
{
    hang_box({}); // no temperature: 0x07 goes unanswered
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_Treadn: read Timeout", "ERROR CLI_ComRecv: read data fail",
                                      "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"}));
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralGetTemp", "CLI_ComRecv"));
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.waited, kSecond);
    expect_plain_close(call);
    // Closed first, then reported.
    const std::vector<sim::Entry> closes = call.of(sim::Kind::Close, kLink);
    const std::vector<sim::Entry> prints = call.of(sim::Kind::Print);
    ASSERT_EQ(prints.size(), 3u);
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_LT(prints[1].seq, closes[0].seq);
    EXPECT_GT(prints[2].seq, closes[0].seq);
}

TEST_F(PeripheralBox, ASilentBoxFailsTheReceiveTheSameWay)
{
    hang_box({.temperature = 23}, {.mode = sim::Misbehaviour::Mode::Silent});
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralGetTemp", "CLI_ComRecv"));
    EXPECT_EQ(call.waited, kSecond);
}

TEST_F(PeripheralBox, ARefusalWithAnEmptyFrameIsNoReading)
{
    hang_box({.temperature = 23, .refusals = {{kAskTemperature, sim::HubFrame::of(sim::kHubPortBox, 0x15)}}});
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 4(0x4)",
                                      "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"}));
    EXPECT_EQ(call.err, call_failed("CLI_PeripheralGetTemp", "CLI_ComRecv"));
    EXPECT_EQ(call.out, "") << "no reading printed for a frame without one";
    expect_plain_close(call);
}

TEST_F(PeripheralBox, TheReplysCommandByteIsNotLookedAt)
{
    hang_box({.temperature = 23,
              .refusals = {{kAskTemperature, sim::HubFrame::of(sim::kHubPortBox, 0x15, {0xEE})}}});
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, "Peripheral Temperature: 238\r\n");
}

TEST_F(PeripheralBox, AnAnswerWithABadChecksumIsPassedOverAndTheReceiveThenTimesOut)
{
    hang_box({.temperature = 23}, {.bad_checksum = {1}});
    const Call call = run([] { return CLI_PeripheralGetTemp(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{" INFO CLI_ComRecv: head 0xfe", " INFO CLI_ComRecv: len 5(0x5)",
                                      "ERROR CLI_ComRecv: checksum error", "ERROR CLI_Treadn: read Timeout",
                                      "ERROR CLI_ComRecv: read data fail",
                                      "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"}));
    EXPECT_EQ(call.waited, 10 * kByteAt115200 + kSecond);
}

// ---- Opening the box's link ---------------------------------------------------------------------

// What keeps the box's link from opening.
enum class Obstacle { NoLineNamed, NoHubDeclared, PortRefuses, SpeedRefused };

struct OpenFailure {
    const char *name;
    Obstacle obstacle;
    Lines link_lines;     // what CLI_ComOpen reports
    std::string link_err; // and on standard error
};

void PrintTo(const OpenFailure &row, std::ostream *os)
{
    *os << row.name;
}

class BoxOpenFailure : public PeripheralBox, public ::testing::WithParamInterface<OpenFailure>
{
  protected:
    void put_in_the_way(Obstacle obstacle)
    {
        switch (obstacle) {
        case Obstacle::NoLineNamed:
            break; // the serial set-up never named the link's line
        case Obstacle::NoHubDeclared:
            hang_box({});
            gastComCap.astDev[COM_TYPE_HUB].ulSupport = 0;
            break;
        case Obstacle::PortRefuses:
            scenario().ports[kLink].open_errno = EACCES;
            restart();
            declare(COM_TYPE_HUB, 1, kHubRate);
            break;
        case Obstacle::SpeedRefused:
            hang_box({});
            faults().tcsetattr.arm(0, 2); // once for each command
            break;
        }
    }
};

TEST_P(BoxOpenFailure, FailsBothCommandsWithoutAFrameOrADescriptorLeft)
{
    put_in_the_way(GetParam().obstacle);
    for (const bool temperature : {false, true}) {
        const Call call = run(
            [temperature] { return temperature ? CLI_PeripheralGetTemp() : CLI_PeripheralCtrlHeat(0, 1); });
        const std::string function = temperature ? "CLI_PeripheralGetTemp" : "CLI_PeripheralCtrlHeat";
        EXPECT_EQ(call.status, 1) << function;
        Lines lines = GetParam().link_lines;
        lines.push_back("ERROR " + function + ": open file fail");
        EXPECT_EQ(call.messages(), lines) << function;
        EXPECT_EQ(call.err, GetParam().link_err + console(function, "open file fail")) << function;
        EXPECT_EQ(call.out, "");
        EXPECT_TRUE(writes(call).empty()) << function;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Links, BoxOpenFailure,
    ::testing::Values(OpenFailure{"NoLineNamed",
                                  Obstacle::NoLineNamed,
                                  {"ERROR CLI_ComOpen: unsupport Type 0"},
                                  console("CLI_ComOpen", "unsupport Type 0")},
                      OpenFailure{"NoHubDeclared",
                                  Obstacle::NoHubDeclared,
                                  {"ERROR CLI_ComOpen: Device unsupport this Type 0"},
                                  console("CLI_ComOpen", "Device unsupport this Type 0")},
                      OpenFailure{"PortRefuses",
                                  Obstacle::PortRefuses,
                                  {"ERROR CLI_ComOpen: Open file /dev/ttyC0 error"},
                                  console("CLI_ComOpen", "Open file /dev/ttyC0 error")},
                      OpenFailure{"SpeedRefused",
                                  Obstacle::SpeedRefused,
                                  {"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                   "ERROR CLI_ComOpen: Function CLI_SetRsRate call failed"},
                                  console("CLI_SetRsRate", "tcsetattr() fail exit") +
                                      call_failed("CLI_ComOpen", "CLI_SetRsRate")}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
