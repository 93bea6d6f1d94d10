// The external IR lamp unit on the console UART through libclidriver.so: the three frames byte for
// byte as the unit receives and obeys them, the port not checked when switching off, the refusals,
// a port that will not open or take its speed, a short write, and a unit that hung up.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <termios.h>
#include <vector>

#include "clidriver/clidriver.h"
#include "fault_injection.h"
#include "lights_fixture.h"
#include "peripherals/ir_lamp.h"
#include "peripherals/light_sensor.h"

namespace
{

using clitest::Call;
using lightstest::Bytes;
using lightstest::console;
using Lines = std::vector<std::string>;

// The unit's frames, as its manual lists them.
const Bytes kOnPort0 = {0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x49};
const Bytes kOnPort1 = {0xFF, 0x01, 0x20, 0x2D, 0x43, 0xE8, 0x79};
const Bytes kOff = {0xFF, 0x01, 0x20, 0x2D, 0x50, 0x00, 0x9E};

class LampUnit : public lightstest::AccessoryTest
{
  protected:
    void SetUp() override
    {
        AccessoryTest::SetUp();
        hang_unit();
    }

    void hang_unit(const sim::Misbehaviour &how = {})
    {
        hang([how] {
            auto unit = std::make_unique<sim::IrLampPeer>(0x01);
            unit->misbehave(how);
            return unit;
        });
    }

    static sim::IrLampPeer *unit() { return peer<sim::IrLampPeer>(); }

    // A switch the unit heard whole and obeyed, and nothing printed.
    void expect_sent(const Call &call, const Bytes &frame)
    {
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.messages().empty());
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(call.err, "");
        EXPECT_EQ(writes(call), std::vector<Bytes>{frame}) << "the seven bytes in one write";
        EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
        EXPECT_EQ(line_baud(), 9600u);
        ASSERT_NE(unit(), nullptr);
        ASSERT_FALSE(unit()->requests().empty());
        EXPECT_EQ(unit()->requests().back().frame.bytes, frame);
        EXPECT_EQ(unit()->requests().back().verdict, sim::LampVerdict::Obeyed);
        EXPECT_EQ(call.waited, 0) << "the command only writes; it waits for no answer";
    }
};

TEST_F(LampUnit, Port0OnSendsItsFrameAndTheUnitLightsPort0)
{
    const Call call = run([] { return CLI_IrLed232Ctrl(0, 1); });
    expect_sent(call, kOnPort0);
    EXPECT_TRUE(unit()->lamps_on(0));
    EXPECT_FALSE(unit()->lamps_on(1));
}

TEST_F(LampUnit, Port1OnSendsItsFrameAndTheUnitLightsPort1)
{
    const Call call = run([] { return CLI_IrLed232Ctrl(1, 1); });
    expect_sent(call, kOnPort1);
    EXPECT_FALSE(unit()->lamps_on(0));
    EXPECT_TRUE(unit()->lamps_on(1));
}

TEST_F(LampUnit, OffPutsOutEveryLamp)
{
    run([] { return CLI_IrLed232Ctrl(0, 1); });
    run([] { return CLI_IrLed232Ctrl(1, 1); });
    ASSERT_TRUE(unit()->lamps_on(0) && unit()->lamps_on(1));
    const Call call = run([] { return CLI_IrLed232Ctrl(1, 0); });
    expect_sent(call, kOff);
    EXPECT_FALSE(unit()->lamps_on(0));
    EXPECT_FALSE(unit()->lamps_on(1));
    EXPECT_EQ(unit()->requests().size(), 3u);
}

TEST_F(LampUnit, SwitchingOffDoesNotCheckThePort)
{
    expect_sent(run([] { return CLI_IrLed232Ctrl(5, 0); }), kOff);
    expect_sent(run([] { return CLI_IrLed232Ctrl(0xFFFFFFFFu, 0); }), kOff);
}

TEST_F(LampUnit, AnySwitchOtherThan1IsOff)
{
    expect_sent(run([] { return CLI_IrLed232Ctrl(0, 2); }), kOff);
    expect_sent(run([] { return CLI_IrLed232Ctrl(1, 0xFFFFFFFFu); }), kOff);
}

TEST_F(LampUnit, Port5OnIsRefusedAndOpensNothing)
{
    const Call call = run([] { return CLI_IrLed232Ctrl(5, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_IrLed232Ctrl: portnum error(only support 0|1)"});
    EXPECT_EQ(call.err, console("CLI_IrLed232Ctrl", "portnum error(only support 0|1)"));
    EXPECT_EQ(call.out, "");
    EXPECT_TRUE(clitest::camera_trace(call).empty());
    EXPECT_TRUE(writes(call).empty());
}

TEST_F(LampUnit, Port2OnIsRefused)
{
    const Call call = run([] { return CLI_IrLed232Ctrl(2, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_IrLed232Ctrl: portnum error(only support 0|1)"});
    EXPECT_TRUE(clitest::camera_trace(call).empty());
}

// The port's open failure is reported through perror only, naming the port.
TEST_F(LampUnit, APortThatDoesNotExistIsReportedThroughPerrorOnly)
{
    scenario().ports[lightstest::kAccessory].present = false;
    restart();
    const Call call = run([] { return CLI_IrLed232Ctrl(0, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "/dev/ttyAMBA1: No such file or directory\n");
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(clitest::camera_trace(call), Lines{"open /dev/ttyAMBA1 rw failed"});
}

TEST_F(LampUnit, APortHeldElsewhereIsReportedThroughPerror)
{
    scenario().ports[lightstest::kAccessory] = sim::PortScript{true, EBUSY, nullptr};
    restart();
    const Call call = run([] { return CLI_IrLed232Ctrl(1, 0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "/dev/ttyAMBA1: Device or resource busy\n");
}

TEST_F(LampUnit, ASpeedThatCannotBeReadClosesThePortAndSendsNothing)
{
    clitest::faults().tcgetattr.arm(0, 1);
    const Call call = run([] { return CLI_IrLed232Ctrl(0, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_SetRsRate: tcgetattr() fail exit",
                                      "ERROR CLI_IrLed232Ctrl: Set Rate failed"}));
    EXPECT_EQ(call.err, console("CLI_SetRsRate", "tcgetattr() fail exit") +
                            "tcgetattr:: Input/output error\n" +
                            console("CLI_IrLed232Ctrl", "Set Rate failed"));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
    EXPECT_TRUE(writes(call).empty());
}

TEST_F(LampUnit, ASpeedThatCannotBeSetClosesThePortAndSendsNothing)
{
    clitest::faults().tcsetattr.arm(0, 1);
    const Call call = run([] { return CLI_IrLed232Ctrl(1, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (Lines{"ERROR CLI_SetRsRate: tcsetattr() fail exit",
                                      "ERROR CLI_IrLed232Ctrl: Set Rate failed"}));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
    EXPECT_TRUE(writes(call).empty());
}

TEST_F(LampUnit, AShortWriteFailsWithTheCountWrittenAndTheUnitObeysNothing)
{
    clitest::faults().short_write.arm(0, 1);
    const Call call = run([] { return CLI_IrLed232Ctrl(0, 1); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_IrLed232Ctrl: write num lRet is 3"});
    EXPECT_EQ(call.err, "") << "no console line for a short write";
    EXPECT_EQ(writes(call), (std::vector<Bytes>{{0xFF, 0x01, 0x20}}));
    EXPECT_EQ(clitest::camera_trace(call), (Lines{"open /dev/ttyAMBA1 rw", "close /dev/ttyAMBA1"}));
    EXPECT_TRUE(unit()->requests().empty());
    EXPECT_FALSE(unit()->lamps_on(0));
}

TEST_F(LampUnit, AWriteThatTakesNothingFailsWithZero)
{
    clitest::faults().short_write_keeps = 0;
    clitest::faults().short_write.arm(0, 1);
    const Call call = run([] { return CLI_IrLed232Ctrl(1, 0); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), Lines{"ERROR CLI_IrLed232Ctrl: write num lRet is 0"});
    EXPECT_TRUE(writes(call).empty());
}

// A unit that hangs up after its first frame: the line is dead, and the next command cannot even
// open the port.
TEST_F(LampUnit, AfterTheUnitHungUpThePortNoLongerOpens)
{
    hang_unit({.hang_up_after = 7});
    const Call first = run([] { return CLI_IrLed232Ctrl(0, 1); });
    EXPECT_EQ(first.status, 0) << "the frame went out whole before the unit let go";
    const Call second = run([] { return CLI_IrLed232Ctrl(0, 0); });
    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(second.messages().empty());
    EXPECT_EQ(second.err, "/dev/ttyAMBA1: Input/output error\n");
    EXPECT_EQ(clitest::camera_trace(second), Lines{"open /dev/ttyAMBA1 rw failed"});
}

// Whatever a chattering unit sent before is flushed; the frame still goes out whole.
TEST_F(LampUnit, NoiseOnTheLineDoesNotDisturbTheFrame)
{
    hang_unit({.mode = sim::Misbehaviour::Mode::Garbage, .garbage_seed = 7});
    expect_sent(run([] { return CLI_IrLed232Ctrl(1, 1); }), kOnPort1);
    EXPECT_TRUE(unit()->lamps_on(1));
}

// On the healthy camera the line carries the light sensor, which hears the lamp frame and leaves it.
class LampFrameOnTheHealthyCamera : public lightstest::AccessoryTest
{
};

TEST_F(LampFrameOnTheHealthyCamera, GoesOutWholeAndTheLightSensorDoesNotAnswerIt)
{
    const Call call = run([] { return CLI_IrLed232Ctrl(0, 1); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(writes(call), std::vector<Bytes>{kOnPort0});
    auto *sensor = peer<sim::LightSensorPeer>();
    ASSERT_NE(sensor, nullptr);
    ASSERT_EQ(sensor->heard().size(), 1u);
    EXPECT_EQ(sensor->heard()[0].bytes, kOnPort0);
    EXPECT_EQ(sensor->replies(), 0u);
}

} // namespace
