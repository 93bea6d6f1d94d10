// The storage and alarm-port queries through libclidriver.so on the simulated camera: what the
// platform says, handed to the caller as the shell expects it (capacity in units 1024 times
// larger, flash type 2 for eMMC, the system disk by product capability 7).
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "board_case.h"
#include "clidriver/clidriver.h"

namespace
{

using boardtest::BoardCase;
using boardtest::Shown;

// What lands in the caller's words, checked after each row's call; preset so that a word the
// command leaves alone shows it.
constexpr uint32_t kUntouched = 0xA5A5A5A5;
uint32_t g_first = kUntouched;
uint32_t g_second = kUntouched;

std::function<void(sim::Scenario &)> alarm_ports(uint32_t inputs, uint32_t outputs)
{
    return [inputs, outputs](sim::Scenario &camera) { camera.alarm_count = CliAlarmCount{inputs, outputs}; };
}

std::function<void(sim::Scenario &)> answers(const char *operation, int64_t result)
{
    return [operation, result](sim::Scenario &camera) { camera.platform[operation].result = result; };
}

struct StorageCase {
    BoardCase row;
    uint32_t first;  // g_first after the call
    uint32_t second; // g_second after the call
};

void PrintTo(const StorageCase &row, std::ostream *os)
{
    *os << row.row.name;
}

std::string storage_name(const ::testing::TestParamInfo<StorageCase> &info)
{
    return info.param.row.name;
}

const Shown kNullPointer = {.status = 1,
                            .messages = {" INFO CLI_GetAlarmPortNum: NULL alm in/out num pointer"},
                            .platform = {"drv_GetAlarmCnt() -> 0"}};

const StorageCase kRows[] = {
    // Alarm ports: the platform is asked before the pointers are looked at.
    {{"AlarmPortsFromThePlatform",
      alarm_ports(4, 2),
      [] { return CLI_GetAlarmPortNum(&g_first, &g_second); },
      {.platform = {"drv_GetAlarmCnt() -> 0"}}},
     4,
     2},
    {{"AlarmPortsNoneFitted",
      alarm_ports(0, 0),
      [] { return CLI_GetAlarmPortNum(&g_first, &g_second); },
      {.platform = {"drv_GetAlarmCnt() -> 0"}}},
     0,
     0},
    {{"AlarmPortsNullOutputsPointer", alarm_ports(4, 2),
      [] { return CLI_GetAlarmPortNum(&g_first, nullptr); }, kNullPointer},
     kUntouched,
     kUntouched},
    {{"AlarmPortsNullInputsPointer", alarm_ports(4, 2),
      [] { return CLI_GetAlarmPortNum(nullptr, &g_second); }, kNullPointer},
     kUntouched,
     kUntouched},
    {{"AlarmPortsBothPointersNull", alarm_ports(4, 2), [] { return CLI_GetAlarmPortNum(nullptr, nullptr); },
      kNullPointer},
     kUntouched,
     kUntouched},

    // Original capacity, divided by 1024 and rounded down; the argument goes to the platform.
    {{"Capacity1023Is0",
      answers("COMDRV_GetOriginalCapacity", 1023),
      [] { return CLI_GetMmcOriginalCapacity(0, &g_first); },
      {.platform = {"COMDRV_GetOriginalCapacity(0) -> 1023"}}},
     0,
     kUntouched},
    {{"Capacity1024Is1",
      answers("COMDRV_GetOriginalCapacity", 1024),
      [] { return CLI_GetMmcOriginalCapacity(1, &g_first); },
      {.platform = {"COMDRV_GetOriginalCapacity(1) -> 1024"}}},
     1,
     kUntouched},
    {{"CapacityAllOnesIs4194303",
      answers("COMDRV_GetOriginalCapacity", 0xFFFFFFFF),
      [] { return CLI_GetMmcOriginalCapacity(0xFFFFFFFF, &g_first); },
      {.platform = {"COMDRV_GetOriginalCapacity(4294967295) -> 4294967295"}}},
     4194303,
     kUntouched},
    {{"CapacityOfTheHealthyCard",
      nullptr,
      [] { return CLI_GetMmcOriginalCapacity(2, &g_first); },
      {.platform = {"COMDRV_GetOriginalCapacity(2) -> 7634944"}}},
     7456,
     kUntouched},

    // Flash type: only the platform's 1 is eMMC.
    {{"FlashType1IsEmmc",
      answers("drv_GetFlashType", 1),
      [] { return CLI_GetFlashType(&g_first); },
      {.messages = {" INFO CLI_GetFlashType: flash type: EMMC"}, .platform = {"drv_GetFlashType() -> 1"}}},
     2,
     kUntouched},
    {{"FlashType0IsNand",
      answers("drv_GetFlashType", 0),
      [] { return CLI_GetFlashType(&g_first); },
      {.messages = {" INFO CLI_GetFlashType: flash type(default): NAND"},
       .platform = {"drv_GetFlashType() -> 0"}}},
     0,
     kUntouched},
    {{"FlashType2IsNand",
      answers("drv_GetFlashType", 2),
      [] { return CLI_GetFlashType(&g_first); },
      {.messages = {" INFO CLI_GetFlashType: flash type(default): NAND"},
       .platform = {"drv_GetFlashType() -> 2"}}},
     0,
     kUntouched},

    // The system eMMC's disk number.
    {{"SystemDiskWithCapability7",
      answers("drv_IsProductCapSupt", 1),
      [] { return CLI_GetSysEmmcDiskNum(); },
      {.status = 0, .platform = {"drv_IsProductCapSupt(7) -> 1"}}},
     kUntouched,
     kUntouched},
    {{"SystemDiskWithoutCapability7",
      answers("drv_IsProductCapSupt", 0),
      [] { return CLI_GetSysEmmcDiskNum(); },
      {.status = 2, .platform = {"drv_IsProductCapSupt(7) -> 0"}}},
     kUntouched,
     kUntouched},
    {{"SystemDiskOnlyAnswer1MeansTheCapability",
      answers("drv_IsProductCapSupt", 7),
      [] { return CLI_GetSysEmmcDiskNum(); },
      {.status = 2, .platform = {"drv_IsProductCapSupt(7) -> 7"}}},
     kUntouched,
     kUntouched},
};

class Storage : public clitest::SimTest, public ::testing::WithParamInterface<StorageCase>
{
};

TEST_P(Storage, Shows)
{
    const StorageCase &row = GetParam();
    if (row.row.camera) {
        row.row.camera(scenario());
        restart();
    }
    boardtest::expect_shown(run(row.row.command), row.row.want);
    EXPECT_EQ(g_first, row.first);
    EXPECT_EQ(g_second, row.second);
}

INSTANTIATE_TEST_SUITE_P(Board, Storage, ::testing::ValuesIn(kRows), storage_name);

class StorageOrder : public clitest::SimTest
{
};

// The rows show that both happen; here, their order.
TEST_F(StorageOrder, AlarmCountIsAskedBeforeTheNullPointerIsRefused)
{
    const clitest::Call call = run([] { return CLI_GetAlarmPortNum(nullptr, &g_second); });
    ASSERT_EQ(call.journal.size(), 2u);
    EXPECT_EQ(call.journal[0].kind, sim::Kind::Platform);
    EXPECT_EQ(call.journal[0].name, "drv_GetAlarmCnt");
    EXPECT_EQ(call.journal[1].kind, sim::Kind::Print);
}

} // namespace
