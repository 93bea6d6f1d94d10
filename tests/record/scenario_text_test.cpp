// The recorded scenario's text, read back with toml++ (the simulated camera's reader): strings
// and bytes come back exactly, every table the contract names is where a replay looks for it.
#include <gtest/gtest.h>

#include <cerrno>
#include <toml++/toml.h>

#include "scenario_text.h"

namespace
{

using record::Bytes;
using record::Recording;

// One string through the writer's escaping and back through a TOML reader.
std::string round_trip(const std::string &text)
{
    const toml::table parsed = toml::parse("key = " + record::toml_string(text));
    return parsed["key"].value_or(std::string("(not a string)"));
}

TEST(TomlString, PlainTextIsQuotedAsItStands)
{
    EXPECT_EQ(record::toml_string("V1.2-3.4-5"), "\"V1.2-3.4-5\"");
}

TEST(TomlString, QuotesBackslashesAndControlsAreEscaped)
{
    EXPECT_EQ(record::toml_string("a\"b\\c\nd\te\r"), "\"a\\\"b\\\\c\\nd\\te\\r\"");
    EXPECT_EQ(record::toml_string(std::string("\x01\x1f\x7f", 3)), "\"\\u0001\\u001F\\u007F\"");
}

TEST(TomlString, EveryTextComesBackExactly)
{
    for (const std::string text :
         {std::string("lsusb"), std::string("Bus 001 Device 002: ID 0bda:8179 \"Realtek\"\n"),
          std::string("C:\\camera\\log"), std::string("tab\there\r\n"), std::string("\x01\x02\x1b[0m\x7f", 7),
          std::string("25 \xC2\xB0"
                      "C, \xE6\xB8\xA9\xE5\xBA\xA6"),
          std::string("")})
        EXPECT_EQ(round_trip(text), text);
}

TEST(TomlString, BytesThatAreNotUtf8BecomeReplacementCharacters)
{
    EXPECT_FALSE(record::valid_utf8("a\xFF"
                                    "b"));
    EXPECT_FALSE(record::valid_utf8("\xC0\x80"));        // an overlong NUL
    EXPECT_FALSE(record::valid_utf8("\xED\xA0\x80"));    // a surrogate
    EXPECT_FALSE(record::valid_utf8("\xE6\xB8"));        // cut short
    EXPECT_TRUE(record::valid_utf8("\xF0\x9F\x93\xB7")); // U+1F4F7
    EXPECT_EQ(round_trip("a\xFF"
                         "b"),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(TomlString, ErrnoIsWrittenByName)
{
    EXPECT_EQ(record::errno_value(EIO), "\"EIO\"");
    EXPECT_EQ(record::errno_value(ENOTTY), "\"ENOTTY\"");
    EXPECT_EQ(record::errno_value(100000), "100000");
}

// A recording with one of everything, as the interposed entry points would have left it.
Recording sample()
{
    Recording recording;
    recording.camera_name = "traffic \"B\" camera";
    recording.startup_toml = "hub = 115200\nrfid = 9600\n";
    recording.boot_epoch = 1795161600;
    recording.recorder = "clidriver-camera --record, 2026-11-20 08:00:00 UTC";
    for (int i = 0; i < 11; ++i)
        recording.clock_us.push_back(1000LL * i);
    recording.sleeps_ns = {{2000000000, 2000000315}, {1000000, 999000}};
    recording.files["/program/factory/version"].content = {'V', '1', '\n'};
    recording.files["/tmp/epon_dev_info"].open_errno = ENOENT;
    recording.files["/tmp/locked"].open_errno = EACCES;
    recording.files["/tmp/blob"].content = {0x00, 0xFF, 0x10};
    recording.commands["lsusb"] = {0, {'B', 'u', 's', '\n'}, 0};
    recording.commands["cat /proc/driver/sensortype"] = {0, {}, 1};
    recording.commands["iwlist"] = {ENOMEM, {}, 0};

    record::Device &cpld = recording.devices["/dev/cpld_drv"];
    cpld.opened = true;
    record::Request version;
    version.number = 0x1950;
    version.sent = Bytes{0, 0, 0, 0};
    version.bytes = Bytes{0x0C, 0, 0, 0};
    cpld.requests.push_back(version);
    record::Request probe;
    probe.number = 0x4009;
    probe.value = 1;
    probe.result = -1;
    probe.error = EIO;
    cpld.requests.push_back(probe);
    cpld.opens = {0, 0};
    recording.devices["/dev/gyro"].first_open_errno = ENOENT;
    recording.devices["/dev/gyro"].opens = {ENOENT, ENOENT};
    recording.devices["/dev/motor"].first_open_errno = EBUSY;
    // The lens driver busy at first, free at the second try.
    record::Device &gpio = recording.devices["/dev/gpioDev"];
    gpio.opened = true;
    gpio.first_open_errno = EBUSY;
    gpio.opens = {EBUSY, 0};

    record::Port &link = recording.ports["/dev/ttyC0"];
    link.opened = true;
    link.events = {{record::PortEvent::Kind::Open, 0, {}}, {record::PortEvent::Kind::Wrote, 5, {0xFE, 0x00}}};
    recording.ports["/dev/ttyS2"].first_open_errno = ENOENT;

    recording.wifi.interface = "wlan0";
    recording.wifi.opened = true;
    recording.wifi.channel_errors = {EBUSY, 0};

    record::PlatformCall lamp;
    lamp.args = {};
    lamp.result = 0;
    lamp.sent = Bytes{2, 0, 0, 0};
    lamp.bytes = Bytes{2, 0, 0, 0};
    recording.platform["DRV_SetParkLed"].push_back(lamp);
    record::PlatformCall system;
    system.texts = {"ifconfig wlan0 \"up\""};
    system.result = 1;
    recording.platform["COMDRV_System"].push_back(system);
    record::PlatformCall alarms;
    alarms.bytes = Bytes{4, 0, 0, 0, 2, 0, 0, 0};
    recording.platform["drv_GetAlarmCnt"].push_back(alarms);
    record::PlatformCall heater;
    heater.args = {1, 40};
    heater.result = -1;
    recording.platform["DRV_SetHeaterLevel"].push_back(heater);
    return recording;
}

class RenderedScenario : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        rendered = record::render(sample(), "wlan0.pcap");
        try {
            scenario = toml::parse(rendered.scenario);
        } catch (const toml::parse_error &error) {
            FAIL() << error << "\n" << rendered.scenario;
        }
    }
    const record::SideFile *side(const std::string &name) const
    {
        for (const record::SideFile &file : rendered.side_files)
            if (file.name == name)
                return &file;
        return nullptr;
    }
    record::Rendered rendered;
    toml::table scenario;
};

TEST_F(RenderedScenario, CameraAndRecordingHeader)
{
    EXPECT_EQ(scenario["camera"]["name"].value_or(std::string()), "recorded: traffic \"B\" camera");
    EXPECT_EQ(scenario["camera"]["boot_epoch"].value_or(0LL), 1795161600LL);
    EXPECT_EQ(scenario["startup"]["hub"].value_or(0LL), 115200LL);
    EXPECT_EQ(scenario["startup"]["rfid"].value_or(0LL), 9600LL);
    EXPECT_EQ(scenario["recording"]["recorder"].value_or(std::string()),
              "clidriver-camera --record, 2026-11-20 08:00:00 UTC");
    const toml::array *clock = scenario["recording"]["clock_us"].as_array();
    ASSERT_NE(clock, nullptr);
    ASSERT_EQ(clock->size(), 11U);
    EXPECT_EQ((*clock)[0].value_or(-1LL), 0LL);
    EXPECT_EQ((*clock)[10].value_or(-1LL), 10000LL);
    const toml::array *sleeps = scenario["recording"]["sleeps_ns"].as_array();
    ASSERT_NE(sleeps, nullptr);
    ASSERT_EQ(sleeps->size(), 2U);
    EXPECT_EQ(scenario["recording"]["sleeps_ns"][0][1].value_or(0LL), 2000000315LL);
    EXPECT_EQ(scenario["recording"]["sleeps_ns"][1][0].value_or(0LL), 1000000LL);
}

TEST_F(RenderedScenario, FilesAndCommands)
{
    EXPECT_EQ(scenario["files"]["/program/factory/version"]["content"].value_or(std::string()), "V1\n");
    EXPECT_TRUE(scenario["files"]["/tmp/epon_dev_info"]["absent"].value_or(false));
    EXPECT_EQ(scenario["files"]["/tmp/locked"]["open_errno"].value_or(std::string()), "EACCES");
    // Content a TOML string cannot hold goes to a side file, byte for byte.
    const std::string from = scenario["files"]["/tmp/blob"]["from"].value_or(std::string());
    ASSERT_FALSE(from.empty());
    EXPECT_FALSE(scenario["files"]["/tmp/blob"]["content"]);
    const record::SideFile *blob = side(from);
    ASSERT_NE(blob, nullptr);
    EXPECT_EQ(blob->bytes, (Bytes{0x00, 0xFF, 0x10}));

    EXPECT_EQ(scenario["commands"]["lsusb"]["output"].value_or(std::string("?")), "Bus\n");
    EXPECT_EQ(scenario["commands"]["lsusb"]["status"].value_or(-1LL), 0LL);
    EXPECT_EQ(scenario["commands"]["cat /proc/driver/sensortype"]["output"].value_or(std::string("?")), "");
    EXPECT_EQ(scenario["commands"]["cat /proc/driver/sensortype"]["status"].value_or(-1LL), 1LL);
    EXPECT_EQ(scenario["commands"]["iwlist"]["fail"].value_or(std::string()), "ENOMEM");
    EXPECT_FALSE(scenario["commands"]["iwlist"]["output"]);
}

TEST_F(RenderedScenario, DeviceRequestsInOrder)
{
    const toml::array *requests = scenario["devices"]["/dev/cpld_drv"]["recorded"].as_array();
    ASSERT_NE(requests, nullptr);
    ASSERT_EQ(requests->size(), 2U);
    const auto first = scenario["devices"]["/dev/cpld_drv"]["recorded"][0];
    EXPECT_EQ(first["number"].value_or(0LL), 0x1950LL);
    EXPECT_EQ(first["sent"].value_or(std::string()), "00 00 00 00");
    EXPECT_EQ(first["result"].value_or(-9LL), 0LL);
    EXPECT_EQ(first["bytes"].value_or(std::string()), "0C 00 00 00");
    EXPECT_FALSE(first["value"]);
    EXPECT_FALSE(first["errno"]);
    const auto second = scenario["devices"]["/dev/cpld_drv"]["recorded"][1];
    EXPECT_EQ(second["number"].value_or(0LL), 0x4009LL);
    EXPECT_EQ(second["value"].value_or(-1LL), 1LL);
    EXPECT_EQ(second["result"].value_or(0LL), -1LL);
    EXPECT_EQ(second["errno"].value_or(std::string()), "EIO");
    EXPECT_FALSE(second["sent"]);
    EXPECT_TRUE(scenario["devices"]["/dev/gyro"]["absent"].value_or(false));
    EXPECT_EQ(scenario["devices"]["/dev/motor"]["open_errno"].value_or(std::string()), "EBUSY");
    EXPECT_FALSE(scenario["devices"]["/dev/cpld_drv"]["opens"]) << "opens that all went alike need no list";
    EXPECT_FALSE(scenario["devices"]["/dev/gyro"]["opens"]);
    const toml::array *opens = scenario["devices"]["/dev/gpioDev"]["opens"].as_array();
    ASSERT_NE(opens, nullptr);
    ASSERT_EQ(opens->size(), 2U);
    EXPECT_EQ((*opens)[0].value_or(std::string()), "EBUSY");
    EXPECT_EQ((*opens)[1].value_or(-1LL), 0LL);
    EXPECT_FALSE(scenario["devices"]["/dev/gpioDev"]["open_errno"]);
}

TEST_F(RenderedScenario, PortsNameTheirLogs)
{
    EXPECT_EQ(scenario["ports"]["/dev/ttyC0"]["peer"].value_or(std::string()), "recording");
    EXPECT_EQ(scenario["ports"]["/dev/ttyC0"]["log"].value_or(std::string()), "ports/ttyC0.log");
    const record::SideFile *log = side("ports/ttyC0.log");
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(std::string(log->bytes.begin(), log->bytes.end()),
              "# /dev/ttyC0 as the library used it\nopen 0\n> 5 FE 00\n");
    EXPECT_TRUE(scenario["ports"]["/dev/ttyS2"]["absent"].value_or(false));
    EXPECT_FALSE(scenario["ports"]["/dev/ttyS2"]["log"]);
    EXPECT_EQ(side("ports/ttyS2.log"), nullptr);
}

TEST_F(RenderedScenario, WifiCaptureAndChannelRequests)
{
    EXPECT_EQ(scenario["wifi"]["capture"].value_or(std::string()), "wlan0.pcap");
    EXPECT_EQ(scenario["wifi"]["arrival"].value_or(std::string()), "stamped");
    EXPECT_FALSE(scenario["wifi"]["interface"]); // wlan0 is what a scenario means without it
    EXPECT_EQ(scenario["wifi"]["channel_errors"][0].value_or(std::string()), "EBUSY");
    EXPECT_EQ(scenario["wifi"]["channel_errors"][1].value_or(-1LL), 0LL);
    EXPECT_FALSE(scenario["wifi"]["dispatch_errors"]);
}

TEST_F(RenderedScenario, PlatformCallsWithArgumentsAndRecords)
{
    const auto lamp = scenario["platform"]["DRV_SetParkLed"]["recorded"][0];
    ASSERT_TRUE(lamp["args"].is_array());
    EXPECT_TRUE(lamp["args"].as_array()->empty());
    EXPECT_EQ(lamp["result"].value_or(-9LL), 0LL);
    EXPECT_EQ(lamp["sent"].value_or(std::string()), "02 00 00 00");
    EXPECT_EQ(lamp["bytes"].value_or(std::string()), "02 00 00 00");
    const auto system = scenario["platform"]["COMDRV_System"]["recorded"][0];
    EXPECT_EQ(system["texts"][0].value_or(std::string()), "ifconfig wlan0 \"up\"");
    EXPECT_EQ(system["result"].value_or(0LL), 1LL);
    const auto alarms = scenario["platform"]["drv_GetAlarmCnt"]["recorded"][0];
    EXPECT_EQ(alarms["bytes"].value_or(std::string()), "04 00 00 00 02 00 00 00");
    EXPECT_FALSE(alarms["result"]);
    const auto heater = scenario["platform"]["DRV_SetHeaterLevel"]["recorded"][0];
    EXPECT_EQ(heater["args"][0].value_or(0LL), 1LL);
    EXPECT_EQ(heater["args"][1].value_or(0LL), 40LL);
    EXPECT_EQ(heater["result"].value_or(0LL), -1LL);
}

TEST(RenderedEmpty, RunWithoutCallsIsStillAScenario)
{
    Recording recording;
    recording.camera_name = "camera vm";
    recording.boot_epoch = 1795161600;
    recording.recorder = "clidriver-camera --record, 2026-11-20 08:00:00 UTC";
    const record::Rendered rendered = record::render(recording, "wlan0.pcap");
    const toml::table scenario = toml::parse(rendered.scenario);
    EXPECT_EQ(scenario["camera"]["name"].value_or(std::string()), "recorded: camera vm");
    EXPECT_TRUE(scenario["recording"]["clock_us"].as_array()->empty());
    EXPECT_FALSE(scenario["startup"]);
    EXPECT_FALSE(scenario["wifi"]);
    EXPECT_FALSE(scenario["platform"]);
    EXPECT_TRUE(rendered.side_files.empty());
}

} // namespace
