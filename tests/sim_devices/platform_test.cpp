// The simulated camera platform: every driver and image-library operation answers as a healthy
// camera unless scripted, and every call is journaled with its arguments and records.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "clidriver/platform.h"
#include "core/journal.h"
#include "platform/platform.h"
#include "sim_fixture.h"

namespace
{

template <typename T> std::vector<uint8_t> bytes_of(const T &record)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    return std::vector<uint8_t>(bytes, bytes + sizeof record);
}

std::vector<uint8_t> words(const std::vector<uint32_t> &values)
{
    std::vector<uint8_t> bytes(values.size() * 4);
    memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

class Platform : public clitest::SimTest
{
  protected:
    // The machinery itself, on a camera with nothing scripted (the healthy camera of
    // default.toml answers most requests, which would hide the defaults under test).
    void SetUp() override
    {
        SimTest::SetUp();
        scenario() = sim::Scenario{};
        restart();
    }

    sim::Entry last(const std::string &name) const
    {
        const auto entries = sim::journal().select(sim::Kind::Platform, name);
        EXPECT_FALSE(entries.empty()) << name << " was not called";
        return entries.empty() ? sim::Entry{} : entries.back();
    }
};

TEST_F(Platform, UnscriptedOperationsSucceedAndAreJournaledWithTheirArguments)
{
    struct Row {
        const char *name;
        std::function<int64_t()> call;
        std::vector<int64_t> values;
        const char *text;
    };
    const Row rows[] = {
        {"DRV_SetIRCut", [] { return DRV_SetIRCut(0, 3); }, {0, 3}, "DRV_SetIRCut(0, 3) -> 0"},
        {"SetRunLight", [] { return SetRunLight(1, 0); }, {1, 0}, "SetRunLight(1, 0) -> 0"},
        {"DRV_CLI_SetIRLed",
         [] { return DRV_CLI_SetIRLed(1, 2, 500, 4); },
         {1, 2, 500, 4},
         "DRV_CLI_SetIRLed(1, 2, 500, 4) -> 0"},
        {"drv_IsProductCapSupt", [] { return drv_IsProductCapSupt(7); }, {7}, "drv_IsProductCapSupt(7) -> 0"},
        {"drv_GetFlashType", [] { return drv_GetFlashType(); }, {}, "drv_GetFlashType() -> 0"},
        {"ISP_SetAEIris", [] { return ISP_SetAEIris(0, 128); }, {0, 128}, "ISP_SetAEIris(0, 128) -> 0"},
        {"DRV_SIBTest485",
         [] { return DRV_SIBTest485(1, 2, 3, 9600); },
         {1, 2, 3, 9600},
         "DRV_SIBTest485(1, 2, 3, 9600) -> 0"},
        {"DRV_SetHeaterLevel",
         [] { return DRV_SetHeaterLevel(0, 0xFFFFFFFFu); },
         {0, 0xFFFFFFFF},
         "DRV_SetHeaterLevel(0, 4294967295) -> 0"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const uint64_t mark = sim::journal().next_seq();
        EXPECT_EQ(row.call(), 0);
        const auto entries = sim::journal().since(mark);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].kind, sim::Kind::Platform);
        EXPECT_EQ(entries[0].name, row.name);
        EXPECT_EQ(entries[0].values, row.values);
        EXPECT_TRUE(entries[0].records.empty());
        EXPECT_EQ(entries[0].result, 0);
        EXPECT_EQ(entries[0].text, row.text);
    }
}

TEST_F(Platform, StringArgumentIsShownAsText)
{
    EXPECT_EQ(COMDRV_System("iwconfig wlan0 mode monitor"), 0);
    EXPECT_EQ(last("COMDRV_System").text, "COMDRV_System(\"iwconfig wlan0 mode monitor\") -> 0");
    EXPECT_EQ(COMDRV_System(nullptr), 0);
    EXPECT_EQ(last("COMDRV_System").text, "COMDRV_System(NULL) -> 0");
}

TEST_F(Platform, StandingResultAnswersEveryCall)
{
    sim::platform().script("DRV_SetIRCut").result = -1;
    sim::platform().script("drv_GetFlashType").result = 1;
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(DRV_SetIRCut(0, call), -1);
        EXPECT_EQ(drv_GetFlashType(), 1u);
    }
    EXPECT_EQ(last("DRV_SetIRCut").text, "DRV_SetIRCut(0, 2) -> -1");
    EXPECT_EQ(last("DRV_SetIRCut").result, -1);
    EXPECT_EQ(sim::platform().script("DRV_SetIRCut").calls, 3);
    EXPECT_EQ(SetRunLight(0, 1), 0) << "other operations are untouched";
}

TEST_F(Platform, SequenceAnswersOncePerCallThenTheStandingResult)
{
    struct Row {
        std::vector<int64_t> sequence;
        std::optional<int64_t> standing;
        std::vector<int32_t> results;
    };
    const Row rows[] = {
        {{1, 2, 3}, 7, {1, 2, 3, 7, 7}},
        {{1, 2, 3}, std::nullopt, {1, 2, 3, 0, 0}},
        {{}, -5, {-5, -5}},
        {{0, -1, 0}, std::nullopt, {0, -1, 0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.sequence.size());
        restart();
        sim::OpScript &script = sim::platform().script("ISP_Init");
        script.sequence.assign(row.sequence.begin(), row.sequence.end());
        script.result = row.standing;
        std::vector<int32_t> results;
        for (size_t i = 0; i < row.results.size(); ++i)
            results.push_back(ISP_Init(0));
        EXPECT_EQ(results, row.results);
    }
}

TEST_F(Platform, OutWordsAreWrittenThroughTheFirstRecord)
{
    sim::platform().script("DRV_SIBBoardTypeGet").out = words({0x2A});
    uint32_t board = 0;
    EXPECT_EQ(DRV_SIBBoardTypeGet(&board), 0);
    EXPECT_EQ(board, 0x2Au);
    const sim::Entry entry = last("DRV_SIBBoardTypeGet");
    ASSERT_EQ(entry.records.size(), 1u);
    EXPECT_EQ(entry.records[0], words({0x2A}));
    EXPECT_EQ(entry.values, std::vector<int64_t>{static_cast<int64_t>(reinterpret_cast<intptr_t>(&board))});
    EXPECT_EQ(entry.text, "DRV_SIBBoardTypeGet({42}) -> 0");
}

TEST_F(Platform, OutNeverWritesPastTheRecord)
{
    sim::platform().script("DRV_SIBBoardTypeGet").out = words({5, 6, 7});
    struct {
        uint32_t board;
        uint32_t guard;
    } held = {0, 0xA5A5A5A5};
    EXPECT_EQ(DRV_SIBBoardTypeGet(&held.board), 0);
    EXPECT_EQ(held.board, 5u);
    EXPECT_EQ(held.guard, 0xA5A5A5A5u);

    sim::platform().script("DRV_SIBVersionGet").out = std::vector<uint8_t>(20, 'x');
    struct {
        CliSibVersion version;
        char guard[4];
    } text = {{}, {'g', 'g', 'g', 'g'}};
    EXPECT_EQ(DRV_SIBVersionGet(&text.version), 0);
    EXPECT_EQ(std::string(text.version.acText, sizeof text.version.acText), std::string(8, 'x'));
    EXPECT_EQ(std::string(text.guard, 4), "gggg");
    EXPECT_EQ(last("DRV_SIBVersionGet").text, "DRV_SIBVersionGet({\"xxxxxxxx\"}) -> 0")
        << "an unterminated text is shown within its record";
}

TEST_F(Platform, OutTextGivesTheVersionText)
{
    const std::string text = "1.3A";
    std::vector<uint8_t> out(text.begin(), text.end());
    out.push_back(0);
    sim::platform().script("DRV_SIBVersionGet").out = out;
    CliSibVersion version;
    memset(&version, 0x7F, sizeof version);
    EXPECT_EQ(DRV_SIBVersionGet(&version), 0);
    EXPECT_STREQ(version.acText, "1.3A");
    EXPECT_EQ(last("DRV_SIBVersionGet").text, "DRV_SIBVersionGet({\"1.3A\"}) -> 0");
}

TEST_F(Platform, NullRecordIsNeitherWrittenNorRead)
{
    sim::platform().script("DRV_SIBBoardTypeGet").out = words({1});
    EXPECT_EQ(DRV_SIBBoardTypeGet(nullptr), 0);
    const sim::Entry entry = last("DRV_SIBBoardTypeGet");
    ASSERT_EQ(entry.records.size(), 1u);
    EXPECT_TRUE(entry.records[0].empty());
    EXPECT_EQ(entry.text, "DRV_SIBBoardTypeGet(NULL) -> 0");
}

TEST_F(Platform, RecordContentsAreJournaled)
{
    CliVideoNorm norm = {1920, 1080, 25};
    EXPECT_EQ(DRV_SetVideoNorm(0, &norm), 0);
    sim::Entry entry = last("DRV_SetVideoNorm");
    EXPECT_EQ(entry.text, "DRV_SetVideoNorm(0, {1920, 1080, 25}) -> 0");
    ASSERT_EQ(entry.records.size(), 1u);
    EXPECT_EQ(entry.records[0], words({1920, 1080, 25}));
    ASSERT_EQ(entry.values.size(), 2u);
    EXPECT_EQ(entry.values[0], 0);

    CliParkLedCtrl led = {2, 3, 1, 0, 255};
    EXPECT_EQ(DRV_SetParkLed(&led), 0);
    EXPECT_EQ(last("DRV_SetParkLed").text, "DRV_SetParkLed({2, 3, 1, 0, 255}) -> 0");
    EXPECT_EQ(last("DRV_SetParkLed").records[0], bytes_of(led));

    CliIspWhiteBalance balance = {{256, 512, 1024}};
    EXPECT_EQ(ISP_SetWhiteBalance(1, 2, &balance), 0);
    EXPECT_EQ(last("ISP_SetWhiteBalance").text, "ISP_SetWhiteBalance(1, 2, {256, 512, 1024}) -> 0");

    CliWifiCfg config = {};
    config.aulWord[278] = 0x12345678;
    EXPECT_EQ(DRV_SetWifiCfg(&config, 6, 0), 0);
    ASSERT_EQ(last("DRV_SetWifiCfg").records.size(), 1u);
    EXPECT_EQ(last("DRV_SetWifiCfg").records[0], bytes_of(config)) << "all 1116 bytes";
}

TEST_F(Platform, HookComputesTheResultAndFillsTheRecord)
{
    std::vector<sim::PlatformCall> seen;
    sim::OpScript &script = sim::platform().script("DRV_EcompassCtrl");
    script.result = -1; // never used while the hook is set
    script.hook = [&seen](sim::PlatformCall &call) -> int64_t {
        seen.push_back(call);
        auto *record = static_cast<CliEcompassRecord *>(call.records[0]);
        record->alWord[call.values[0] == 3 ? 14 : 15] = call.values[0] == 3 ? 271 : -12;
        return call.values[0] == 3 ? 0 : 2;
    };
    CliEcompassRecord record = {};
    EXPECT_EQ(DRV_EcompassCtrl(3, &record), 0);
    EXPECT_EQ(record.alWord[14], 271);
    EXPECT_EQ(DRV_EcompassCtrl(4, &record), 2);
    EXPECT_EQ(record.alWord[15], -12);

    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].name, "DRV_EcompassCtrl");
    ASSERT_EQ(seen[0].records.size(), 1u);
    EXPECT_EQ(seen[0].records[0], &record);
    EXPECT_EQ(seen[0].record_sizes[0], sizeof(CliEcompassRecord));

    const sim::Entry entry = last("DRV_EcompassCtrl");
    EXPECT_EQ(entry.result, 2);
    ASSERT_EQ(entry.records.size(), 1u);
    EXPECT_EQ(entry.records[0], bytes_of(record)) << "records are journaled as the call left them";
}

TEST_F(Platform, HookLeavesTheSequenceForLater)
{
    sim::OpScript &script = sim::platform().script("ISP_Init");
    script.sequence = {5, 6};
    script.hook = [](sim::PlatformCall &) -> int64_t { return 9; };
    EXPECT_EQ(ISP_Init(0), 9);
    EXPECT_EQ(ISP_Init(0), 9);
    sim::platform().script("ISP_Init").hook = nullptr;
    EXPECT_EQ(ISP_Init(0), 5);
    EXPECT_EQ(ISP_Init(0), 6);
    EXPECT_EQ(ISP_Init(0), 0);
}

TEST_F(Platform, ScenarioScriptsApplyOnStart)
{
    sim::OpScript script;
    script.sequence = {3, 4};
    script.result = 1;
    scenario().platform["DRV_WaitMotor"] = script;
    restart();
    EXPECT_EQ(DRV_WaitMotor(0, 1, 2), 3);
    EXPECT_EQ(DRV_WaitMotor(0, 1, 2), 4);
    EXPECT_EQ(DRV_WaitMotor(0, 1, 2), 1);
    restart();
    EXPECT_EQ(DRV_WaitMotor(0, 1, 2), 3) << "a restart begins the sequence again";
}

TEST_F(Platform, AlarmCountIsTheScenariosRecord)
{
    const CliAlarmCount *count = drv_GetAlarmCnt();
    ASSERT_NE(count, nullptr);
    EXPECT_EQ(count->ulInputs, 0u);
    EXPECT_EQ(count->ulOutputs, 0u);
    EXPECT_EQ(last("drv_GetAlarmCnt").text, "drv_GetAlarmCnt() -> 0");

    for (const CliAlarmCount wanted : {CliAlarmCount{2, 1}, CliAlarmCount{4, 2}, CliAlarmCount{16, 0}}) {
        scenario().alarm_count = wanted;
        restart();
        const CliAlarmCount *now = drv_GetAlarmCnt();
        ASSERT_NE(now, nullptr);
        EXPECT_EQ(now->ulInputs, wanted.ulInputs);
        EXPECT_EQ(now->ulOutputs, wanted.ulOutputs);
        EXPECT_EQ(drv_GetAlarmCnt(), now) << "the platform owns one record";
    }
}

TEST_F(Platform, ProductTypeIsTheScenarios)
{
    for (uint32_t type : {0u, 0x02012A00u, 0x02012A01u, 7u}) {
        scenario().product_type = type;
        restart();
        EXPECT_EQ(drv_GetManuparseProductType(), type);
        EXPECT_EQ(last("drv_GetManuparseProductType").text,
                  "drv_GetManuparseProductType() -> " + std::to_string(type));
    }
    sim::OpScript script;
    script.sequence = {9};
    scenario().platform["drv_GetManuparseProductType"] = script;
    restart();
    EXPECT_EQ(drv_GetManuparseProductType(), 9u) << "a script of the operation itself wins";
}

TEST_F(Platform, PrintSinkJournalsTheFormattedTextUnchanged)
{
    struct Row {
        std::function<int()> print;
        std::string text;
    };
    const std::string long_text(5000, 'L');
    const Row rows[] = {
        {[] { return Cli_Common_Print("%s:%d %c\n", "abc", 42, 'x'); }, "abc:42 x\n"},
        {[] { return Cli_Common_Print("100%% done\r\n"); }, "100% done\r\n"},
        {[] { return Cli_Common_Print("%s", ""); }, ""},
        {[] { return Cli_Common_Print("%08X|%-4s|%5.2f", 0xBEEFu, "ab", 3.14159); }, "0000BEEF|ab  | 3.14"},
        {[&long_text] { return Cli_Common_Print("%s\n", long_text.c_str()); }, long_text + "\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text.substr(0, 20));
        const uint64_t mark = sim::journal().next_seq();
        EXPECT_EQ(row.print(), static_cast<int>(row.text.size()));
        const auto entries = sim::journal().since(mark);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].kind, sim::Kind::Print);
        EXPECT_EQ(entries[0].name, "Cli_Common_Print");
        EXPECT_EQ(entries[0].text, row.text);
    }
}

TEST_F(Platform, PrintSinkAlsoWritesToTheConsoleWhenOneIsSet)
{
    char *buffer = nullptr;
    size_t size = 0;
    FILE *console = open_memstream(&buffer, &size);
    ASSERT_NE(console, nullptr);
    sim::platform().set_console(console);
    Cli_Common_Print("line %d\n", 1);
    Cli_Common_Print("line %d\n", 2);
    sim::platform().set_console(nullptr);
    Cli_Common_Print("journal only\n");
    fclose(console);
    EXPECT_EQ(std::string(buffer, size), "line 1\nline 2\n");
    free(buffer);
    EXPECT_EQ(sim::journal().select(sim::Kind::Print).size(), 3u);
}

} // namespace
