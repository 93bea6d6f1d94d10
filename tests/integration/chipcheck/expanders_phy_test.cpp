// The board's chip self-checks through libclidriver.so on the simulated camera: the two I/O
// expanders, the Ethernet PHY's write-read-restore test and the Ethernet check that runs both.
// Each table row is a test case of its own.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"
#include "devices/chardev.h"

namespace
{

using clitest::Call;
using clitest::CommandCase;
using clitest::Expected;
using clitest::Request;

constexpr const char *kGpio = "/dev/gpioDev";
constexpr const char *kNetUser = "/dev/NetUsrDrv";
constexpr unsigned long kPca9555Check = 0x4008;
constexpr unsigned long kPca9534Check = 0x4009;
constexpr unsigned long kPhyRead = 0x1920;
constexpr unsigned long kPhyWrite = 0x1921;
constexpr uint32_t kPattern = 0x8A2;

std::vector<std::string> kGpioAsked(unsigned long request)
{
    return {"open /dev/gpioDev rw", "ioctl /dev/gpioDev " + sim::hex(request), "close /dev/gpioDev"};
}

Expected gpio_unopened(const std::string &function)
{
    return {.status = 1,
            .messages = {"ERROR " + function + ": Open file /dev/gpioDev error"},
            .err = "[ERROR]:Open file /dev/gpioDev error\t@[src/cli_libfun.cpp " + function + "]\r\n",
            .trace = {"open /dev/gpioDev rw failed"}};
}

Expected gpio_request_failed(const std::string &function, unsigned long request, int64_t argument)
{
    char number[16];
    snprintf(number, sizeof number, "%lx", request);
    return {.status = 1,
            .messages = {"ERROR " + function + ": ioctl cmd[" + number + "] failed"},
            .err = "[ERROR]:ioctl cmd[0x" + std::string(number) + "]\t@[src/cli_libfun.cpp " + function +
                   "]\r\n",
            .trace = kGpioAsked(request),
            .requests = {{request, argument, {}, {}}}};
}

void gpio_answers(sim::Scenario &camera, unsigned long request, sim::IoctlAnswer answer)
{
    camera.devices[kGpio].requests[request].answer = answer;
}

// ---- I/O expanders ---------------------------------------------------------------------------

Expected pca9534_ok(uint32_t index)
{
    const std::string text = "PCA9534[" + std::to_string(index) + "] chipcheck test............ok";
    return {.status = 0,
            .messages = {" INFO COM_Chipcheck_PCA9534: " + text},
            .out = text + "\r\n",
            .trace = kGpioAsked(kPca9534Check),
            .requests = {{kPca9534Check, index, {}, {}}}};
}

const CommandCase kExpanderRows[] = {
    {"Pca9555Passes", nullptr, [] { return COM_Chipcheck_PCA9555(); },
     Expected{.status = 0,
              .messages = {" INFO COM_Chipcheck_PCA9555: PCA9555 chipcheck test............ok"},
              .out = "PCA9555 chipcheck test............ok\r\n",
              .trace = kGpioAsked(kPca9555Check),
              .requests = {{kPca9555Check, 0, {}, {}}}}},
    {"Pca9555Fails",
     [](sim::Scenario &camera) { gpio_answers(camera, kPca9555Check, sim::IoctlAnswer::fail(EIO)); },
     [] { return COM_Chipcheck_PCA9555(); }, gpio_request_failed("COM_Chipcheck_PCA9555", kPca9555Check, 0)},
    {"Pca9555DriverMissing", [](sim::Scenario &camera) { camera.devices[kGpio].present = false; },
     [] { return COM_Chipcheck_PCA9555(); }, gpio_unopened("COM_Chipcheck_PCA9555")},
    {"Pca9555DriverBusy", [](sim::Scenario &camera) { camera.devices[kGpio].open_errno = EBUSY; },
     [] { return COM_Chipcheck_PCA9555(); }, gpio_unopened("COM_Chipcheck_PCA9555")},
    {"Pca9534IndexZero", nullptr, [] { return COM_Chipcheck_PCA9534(0); }, pca9534_ok(0)},
    {"Pca9534IndexTwo", nullptr, [] { return COM_Chipcheck_PCA9534(2); }, pca9534_ok(2)},
    {"Pca9534LargeIndexGoesToTheDriver", nullptr, [] { return COM_Chipcheck_PCA9534(4000000000u); },
     pca9534_ok(4000000000u)},
    {"Pca9534Fails",
     [](sim::Scenario &camera) { gpio_answers(camera, kPca9534Check, sim::IoctlAnswer::fail(ENXIO)); },
     [] { return COM_Chipcheck_PCA9534(1); }, gpio_request_failed("COM_Chipcheck_PCA9534", kPca9534Check, 1)},
    {"Pca9534DriverMissing", [](sim::Scenario &camera) { camera.devices[kGpio].present = false; },
     [] { return COM_Chipcheck_PCA9534(1); }, gpio_unopened("COM_Chipcheck_PCA9534")},
};

class Expanders : public clitest::CommandTable
{
};
TEST_P(Expanders, Check)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Expanders, ::testing::ValuesIn(kExpanderRows), clitest::case_name);

// ---- Ethernet PHY: write the pattern, read it back, put the register back --------------------------

// A PHY on the network driver: registers held in the device, some bits possibly stuck.
struct PhyPart {
    uint32_t stuck_set = 0;    // bits that always read back as 1
    uint32_t stuck_clear = 0;  // bits that always read back as 0
    uint32_t reg = 27;         // the register under test
    uint32_t earlier = 0x0400; // what it holds before the check
};

struct PhyCase {
    const char *name;
    PhyPart part;
    int32_t shift;
    uint32_t read_back; // what the second read returns
    bool passes;
    std::string mismatch; // the report when it does not
};

void PrintTo(const PhyCase &row, std::ostream *os)
{
    *os << row.name;
}

const PhyCase kPhyRows[] = {
    {"ExactReadBackPasses", {}, 0, 0x8A2, true, ""},
    {"BitZeroStuckFailsAnExactCompare",
     {.stuck_set = 1},
     0,
     0x8A3,
     false,
     "PHY_TEST_VALUE[0x8a2] != lCheckVal[0x8a3]"},
    {"BitZeroStuckPassesWhenShiftedOut", {.stuck_set = 1}, 1, 0x8A3, true, ""},
    {"BitOneStuckClearFailsWithShiftOne",
     {.stuck_clear = 2},
     1,
     0x8A0,
     false,
     "PHY_TEST_VALUE[0x451] != lCheckVal[0x450]"},
    {"BitOneStuckClearPassesWithShiftTwo", {.stuck_clear = 2}, 2, 0x8A0, true, ""},
    {"DeadPhyReadsZero", {.stuck_clear = 0xFFFFFFFFu}, 0, 0, false, "PHY_TEST_VALUE[0x8a2] != lCheckVal[0]"},
    // The read-back counts as signed: a high bit stuck at one shifts in ones.
    {"TopBitStuckShiftsArithmetically",
     {.stuck_set = 0x80000000u},
     4,
     0x800008A2u,
     false,
     "PHY_TEST_VALUE[0x8a] != lCheckVal[0xf800008a]"},
    // Only the low byte of the shift counts, and a count of 32 or more leaves just the sign.
    {"ShiftOf256IsAnExactCompare",
     {.stuck_set = 1},
     256,
     0x8A3,
     false,
     "PHY_TEST_VALUE[0x8a2] != lCheckVal[0x8a3]"},
    {"ShiftOf32LeavesOnlyTheSign", {.stuck_set = 1}, 32, 0x8A3, true, ""},
    {"ShiftOf32StillSeesANegativeReadBack",
     {.stuck_set = 0x80000000u},
     32,
     0x800008A2u,
     false,
     "PHY_TEST_VALUE[0] != lCheckVal[0xffffffff]"},
    {"NegativeShiftUsesItsLowByte", {.stuck_set = 0xFF}, -1, 0x8FF, true, ""},
    {"OtherRegister", {.reg = 4, .earlier = 0x01E1}, 0, 0x8A2, true, ""},
};

class PhyBench : public clitest::SimTest
{
  protected:
    // Installs the PHY on the network driver and keeps a hold on its registers.
    std::shared_ptr<sim::RegisterFile> install(const PhyPart &part)
    {
        auto file = std::make_shared<sim::RegisterFile>();
        file->read_request = kPhyRead;
        file->write_request = kPhyWrite;
        file->registers = {{part.reg, part.earlier}};
        file->read_back_or = part.stuck_set;
        file->read_back_and = ~part.stuck_clear;
        sim::DeviceScript &device = scenario().devices[kNetUser];
        device.present = true;
        sim::install_register_file(device, file);
        return file;
    }
};

class Phy : public PhyBench, public ::testing::WithParamInterface<PhyCase>
{
};

TEST_P(Phy, WritesReadsAndRestores)
{
    const PhyCase &row = GetParam();
    const auto file = install(row.part);
    restart();
    const Call call = run([&] { return COM_Chipcheck_Phy(row.part.reg, row.shift); });

    const uint32_t first_read = (row.part.earlier | row.part.stuck_set) & ~row.part.stuck_clear;
    const uint32_t reg = row.part.reg;
    EXPECT_EQ(clitest::requests(call),
              (std::vector<Request>{{kPhyRead, 0, {0, reg, 0}, {0, reg, first_read}},
                                    {kPhyWrite, 0, {0, reg, kPattern}, {0, reg, kPattern}},
                                    {kPhyRead, 0, {0, reg, kPattern}, {0, reg, row.read_back}},
                                    {kPhyWrite, 0, {0, reg, first_read}, {0, reg, first_read}}}));
    EXPECT_EQ(file->registers.at(reg), first_read)
        << "the register holds again what it held before the check";
    EXPECT_EQ(clitest::camera_trace(call),
              (std::vector<std::string>{"open /dev/NetUsrDrv rw", "ioctl /dev/NetUsrDrv 0x1920",
                                        "ioctl /dev/NetUsrDrv 0x1921", "ioctl /dev/NetUsrDrv 0x1920",
                                        "ioctl /dev/NetUsrDrv 0x1921", "close /dev/NetUsrDrv"}));
    if (row.passes) {
        EXPECT_EQ(call.status, 0);
        EXPECT_EQ(call.messages(),
                  std::vector<std::string>{" INFO COM_Chipcheck_Phy: Phy chipcheck test.............ok"});
        EXPECT_EQ(call.out, "Phy chipcheck test.............ok\r\n");
        EXPECT_EQ(call.err, "");
    } else {
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR COM_Chipcheck_Phy: " + row.mismatch});
        EXPECT_EQ(call.out, "");
        EXPECT_EQ(call.err, "[ERROR]:" + row.mismatch + "\t@[src/cli_libfun.cpp COM_Chipcheck_Phy]\r\n");
    }
    clitest::expect_reported_by_command_unit(call);
}

INSTANTIATE_TEST_SUITE_P(Table, Phy, ::testing::ValuesIn(kPhyRows),
                         [](const ::testing::TestParamInfo<PhyCase> &info) {
                             return std::string(info.param.name);
                         });

// Fault injection by countdown: each of the four requests fails in turn. The check stops at the
// failure, reports that request and closes the driver; once the pattern is in, it stays.
class PhyFaults : public PhyBench
{
};

TEST_F(PhyFaults, EachOfTheFourRequestsFailingInTurn)
{
    struct Step {
        unsigned long request;
        int call; // which call of that request fails
        const char *number;
        uint32_t left_in_register;
    };
    const Step steps[] = {
        {kPhyRead, 1, "1920", 0x0400},
        {kPhyWrite, 1, "1921", 0x0400},
        {kPhyRead, 2, "1920", kPattern},
        {kPhyWrite, 2, "1921", kPattern},
    };
    for (size_t failing = 0; failing < 4; ++failing) {
        const Step &step = steps[failing];
        SCOPED_TRACE("request " + std::to_string(failing + 1) + " fails");
        scenario() = sim::load_scenario(sim::default_scenario_path());
        const auto file = install({});
        scenario().devices[kNetUser].requests[step.request].on_call[step.call] = sim::IoctlAnswer::fail(EIO);
        restart();
        const Call call = run([] { return COM_Chipcheck_Phy(27, 0); });

        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR COM_Chipcheck_Phy: ioctl cmd[" +
                                                            std::string(step.number) + "] failed"});
        EXPECT_EQ(call.err, "[ERROR]:ioctl cmd[0x" + std::string(step.number) +
                                "]\t@[src/cli_libfun.cpp COM_Chipcheck_Phy]\r\n");
        EXPECT_EQ(call.out, "");
        const auto issued = clitest::requests(call);
        ASSERT_EQ(issued.size(), failing + 1) << "nothing runs after the failing request";
        EXPECT_EQ(issued.back().number, step.request);
        const auto trace = clitest::camera_trace(call);
        ASSERT_FALSE(trace.empty());
        EXPECT_EQ(trace.front(), "open /dev/NetUsrDrv rw");
        EXPECT_EQ(trace.back(), "close /dev/NetUsrDrv");
        EXPECT_EQ(file->registers.at(27), step.left_in_register);
        clitest::expect_reported_by_command_unit(call);
    }
}

// The driver marks a failed access with -1 alone; another result is a completed access.
TEST_F(PhyFaults, OnlyMinusOneIsAFailure)
{
    const auto file = install({});
    scenario().devices[kNetUser].requests[kPhyWrite].on_call[1] = sim::IoctlAnswer{-2, EIO, {}};
    restart();
    const Call call = run([] { return COM_Chipcheck_Phy(27, 0); });
    // The pattern was never written, so the read-back shows the register's own value.
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{"ERROR COM_Chipcheck_Phy: PHY_TEST_VALUE[0x8a2] != lCheckVal[0x400]"});
    EXPECT_EQ(clitest::requests(call).size(), 4u) << "all four requests ran";
    EXPECT_EQ(file->registers.at(27), 0x0400u);
}

TEST_F(PhyFaults, DriverMissing)
{
    scenario().devices[kNetUser].present = false;
    restart();
    const Call call = run([] { return COM_Chipcheck_Phy(27, 0); });
    clitest::expect_call(
        call, {.status = 1,
               .messages = {"ERROR COM_Chipcheck_Phy: Open file /dev/NetUsrDrv error"},
               .err = "[ERROR]:Open file /dev/NetUsrDrv error\t@[src/cli_libfun.cpp COM_Chipcheck_Phy]\r\n",
               .trace = {"open /dev/NetUsrDrv rw failed"}});
}

// ---- The Ethernet check: PHY register 27 exactly, then the PCA9555, always both ------------------

const std::vector<std::string> kPhyTrace = {"open /dev/NetUsrDrv rw",      "ioctl /dev/NetUsrDrv 0x1920",
                                            "ioctl /dev/NetUsrDrv 0x1921", "ioctl /dev/NetUsrDrv 0x1920",
                                            "ioctl /dev/NetUsrDrv 0x1921", "close /dev/NetUsrDrv"};

const std::vector<Request> kPhyRequests = {{kPhyRead, 0, {0, 27, 0}, {0, 27, 0x400}},
                                           {kPhyWrite, 0, {0, 27, kPattern}, {0, 27, kPattern}},
                                           {kPhyRead, 0, {0, 27, kPattern}, {0, 27, kPattern}},
                                           {kPhyWrite, 0, {0, 27, 0x400}, {0, 27, 0x400}},
                                           {kPca9555Check, 0, {}, {}}};

const CommandCase kEthernetRows[] = {
    {"BothPass", nullptr, [] { return CLI_ChipCheckEthernet(); },
     Expected{.status = 0,
              .messages = {" INFO COM_Chipcheck_Phy: Phy chipcheck test.............ok",
                           " INFO COM_Chipcheck_PCA9555: PCA9555 chipcheck test............ok"},
              .out = "Phy chipcheck test.............ok\r\nPCA9555 chipcheck test............ok\r\n",
              .trace = clitest::concat(kPhyTrace, kGpioAsked(kPca9555Check)),
              .requests = kPhyRequests}},
    {"PhyFailsExpanderStillChecked",
     [](sim::Scenario &camera) {
         auto file = std::make_shared<sim::RegisterFile>();
         file->read_request = kPhyRead;
         file->write_request = kPhyWrite;
         file->registers = {{27, 0x400}};
         file->read_back_or = 1;
         sim::install_register_file(camera.devices[kNetUser], file);
     },
     [] { return CLI_ChipCheckEthernet(); },
     Expected{
         .status = 1,
         .messages = {"ERROR COM_Chipcheck_Phy: PHY_TEST_VALUE[0x8a2] != lCheckVal[0x8a3]",
                      " INFO COM_Chipcheck_PCA9555: PCA9555 chipcheck test............ok"},
         .out = "PCA9555 chipcheck test............ok\r\n",
         .err =
             "[ERROR]:PHY_TEST_VALUE[0x8a2] != lCheckVal[0x8a3]\t@[src/cli_libfun.cpp COM_Chipcheck_Phy]\r\n",
         .trace = clitest::concat(kPhyTrace, kGpioAsked(kPca9555Check)),
         .requests = {{kPhyRead, 0, {0, 27, 0}, {0, 27, 0x401}},
                      {kPhyWrite, 0, {0, 27, kPattern}, {0, 27, kPattern}},
                      {kPhyRead, 0, {0, 27, kPattern}, {0, 27, 0x8A3}},
                      {kPhyWrite, 0, {0, 27, 0x401}, {0, 27, 0x401}},
                      {kPca9555Check, 0, {}, {}}}}},
    {"ExpanderFails",
     [](sim::Scenario &camera) { gpio_answers(camera, kPca9555Check, sim::IoctlAnswer::fail(EIO)); },
     [] { return CLI_ChipCheckEthernet(); },
     Expected{.status = 1,
              .messages = {" INFO COM_Chipcheck_Phy: Phy chipcheck test.............ok",
                           "ERROR COM_Chipcheck_PCA9555: ioctl cmd[4008] failed"},
              .out = "Phy chipcheck test.............ok\r\n",
              .err = "[ERROR]:ioctl cmd[0x4008]\t@[src/cli_libfun.cpp COM_Chipcheck_PCA9555]\r\n",
              .trace = clitest::concat(kPhyTrace, kGpioAsked(kPca9555Check)),
              .requests = kPhyRequests}},
    {"BothDriversMissing",
     [](sim::Scenario &camera) {
         camera.devices[kNetUser].present = false;
         camera.devices[kGpio].present = false;
     },
     [] { return CLI_ChipCheckEthernet(); },
     Expected{.status = 1,
              .messages = {"ERROR COM_Chipcheck_Phy: Open file /dev/NetUsrDrv error",
                           "ERROR COM_Chipcheck_PCA9555: Open file /dev/gpioDev error"},
              .err = "[ERROR]:Open file /dev/NetUsrDrv error\t@[src/cli_libfun.cpp COM_Chipcheck_Phy]\r\n"
                     "[ERROR]:Open file /dev/gpioDev error\t@[src/cli_libfun.cpp COM_Chipcheck_PCA9555]\r\n",
              .trace = {"open /dev/NetUsrDrv rw failed", "open /dev/gpioDev rw failed"}}},
};

class Ethernet : public clitest::CommandTable
{
};
TEST_P(Ethernet, Check)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, Ethernet, ::testing::ValuesIn(kEthernetRows), clitest::case_name);

// The unit with a broken PHY, as its scenario file describes it.
TEST_F(PhyFaults, BrokenPhyScenarioFailsTheEthernetCheck)
{
    use_scenario_file(CLIDRIVER_SCENARIO_DIR "/faulty/broken-phy.toml");
    const Call call = run([] { return CLI_ChipCheckEthernet(); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), (std::vector<std::string>{
                                   "ERROR COM_Chipcheck_Phy: PHY_TEST_VALUE[0x8a2] != lCheckVal[0x8a3]",
                                   " INFO COM_Chipcheck_PCA9555: PCA9555 chipcheck test............ok"}));
    EXPECT_EQ(call.out, "PCA9555 chipcheck test............ok\r\n");
    const Call shifted = run([] { return COM_Chipcheck_Phy(27, 1); });
    EXPECT_EQ(shifted.status, 0) << "the stuck bit is the lowest: a shift of one passes";
}

} // namespace
