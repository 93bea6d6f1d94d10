// The USB device check (the head of the lsusb listing searched for known identifiers) and the
// system-on-chip report, through libclidriver.so on the simulated camera. Each table row is a
// test case of its own.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"

namespace
{

using clitest::CommandCase;
using clitest::Expected;

constexpr const char *kGpio = "/dev/gpioDev";
constexpr unsigned long kChipIdGet = 0x6001;

// ---- USB devices ---------------------------------------------------------------------------------

const std::string kRootHub = "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n";
const std::string kRealtek8179 = "Bus 001 Device 002: ID 0bda:8179 Realtek Semiconductor Corp. RTL8188EUS "
                                 "802.11n Wireless Network Adapter\n";

// A listing whose bytes before `offset` are root-hub lines (the last one cut where it must be),
// and whose identifier `id` starts exactly at `offset`.
std::string listing_with_id_at(size_t offset, const std::string &id)
{
    std::string listing;
    while (listing.size() < offset)
        listing += kRootHub;
    listing.resize(offset);
    return listing + id + " Wireless Adapter\n";
}

const std::vector<std::string> kListed = {"popen lsusb", "pclose lsusb"};

// lsusb prints `listing`; the check of `type` must find the device (status 0) or not (1), silently.
CommandCase usb(const char *name, uint32_t type, std::string listing, long long status)
{
    return {name,
            [listing](sim::Scenario &camera) {
                camera.commands["lsusb"] = {listing, 0, 0};
            },
            [type] { return CLI_ChipCheckUsbDevice(type); }, Expected{.status = status, .trace = kListed}};
}

Expected usb_call_failed(const std::string &what, std::vector<std::string> trace)
{
    return {.status = 1,
            .messages = {"ERROR CLI_ChipCheckUsbDevice: Function " + what + " call failed"},
            .err = "[src/cli_libfun.cpp CLI_ChipCheckUsbDevice]: " + what + " call failed\r\n",
            .trace = std::move(trace)};
}

const CommandCase kUsbRows[] = {
    usb("HealthyCameraHasItsWirelessAdapter", 0, kRealtek8179 + kRootHub, 0),
    usb("RealtekPair0bda8179", 0, "Bus 001 Device 003: ID 0bda:8179 Realtek Semiconductor Corp.\n", 0),
    usb("Atheros9271", 0, "Bus 001 Device 004: ID 0cf3:9271 Qualcomm Atheros Communications AR9271\n", 0),
    usb("IdentifierF179", 0, "Bus 001 Device 002: ID 0bda:f179 Realtek Semiconductor Corp. RTL8188FTV\n", 0),
    usb("LastIdentifier818b", 0, "Bus 001 Device 002: ID 0bda:818b Realtek Semiconductor Corp. RTL8192EU\n",
        0),
    // lsusb prints identifiers in lower case; the list's "C811" is upper case and never matches it.
    usb("LowerCaseC811IsNotFound", 0, "Bus 001 Device 002: ID 0bda:c811 Realtek Semiconductor Corp.\n", 1),
    usb("UpperCaseC811IsFound", 0, "ID 0BDA:C811\n", 0),
    usb("OnlyRootHubs", 0, kRootHub + kRootHub, 1),
    usb("IdentifierAnywhereInTheText", 0, "serial 98179\n", 0),
    usb("SecondFamilyPair29498700", 1, "Bus 001 Device 005: ID 2949:8700 Wireless Module\n", 0),
    usb("SecondFamily0125", 1, "Bus 001 Device 005: ID 2c7c:0125 Quectel EC25 LTE modem\n", 0),
    usb("SecondFamily9b05", 1, "Bus 001 Device 005: ID 1286:9b05 Wireless\n", 0),
    usb("SecondFamily9b3c", 1, "Bus 001 Device 005: ID 1286:9b3c Wireless\n", 0),
    usb("SecondFamilyNotOnTheHealthyCamera", 1, kRealtek8179 + kRootHub, 1),
    usb("WirelessIdentifiersDoNotCountForTheSecondFamily", 1, "ID 0cf3:9271 ID 0bda:818b\n", 1),
    // Only the first 312 bytes are searched.
    usb("MatchOnTheSixthLineIsNotSeen", 0,
        kRootHub + kRootHub + kRootHub + kRootHub + kRootHub + kRealtek8179, 1),
    usb("IdentifierEndingAtByte312IsSeen", 0, listing_with_id_at(308, "8179"), 0),
    usb("IdentifierCutAtByte312IsNotSeen", 0, listing_with_id_at(309, "8179"), 1),
    usb("IdentifierAfterByte312IsNotSeen", 0, listing_with_id_at(400, "0bda:8179"), 1),
    {"ListingOfAFailedLsusbIsStillSearched",
     [](sim::Scenario &camera) {
         camera.commands["lsusb"] = {kRealtek8179, 1, 0};
     },
     [] { return CLI_ChipCheckUsbDevice(0); }, Expected{.status = 0, .trace = kListed}},
    {"EmptyListing",
     [](sim::Scenario &camera) {
         camera.commands["lsusb"] = {"", 0, 0};
     },
     [] { return CLI_ChipCheckUsbDevice(0); }, usb_call_failed("fread no wlan0", kListed)},
    {"LsusbNotInstalled", [](sim::Scenario &camera) { camera.commands.erase("lsusb"); },
     [] { return CLI_ChipCheckUsbDevice(0); }, usb_call_failed("fread no wlan0", kListed)},
    {"PipeWillNotOpen",
     [](sim::Scenario &camera) {
         camera.commands["lsusb"] = {"", 0, EMFILE};
     },
     [] { return CLI_ChipCheckUsbDevice(0); }, usb_call_failed("popen", {"popen lsusb failed"})},
    // The listing is read before the type is judged.
    {"UnknownTypeTwo", nullptr, [] { return CLI_ChipCheckUsbDevice(2); },
     usb_call_failed("unknow usb device type", kListed)},
    {"UnknownTypeLarge", nullptr, [] { return CLI_ChipCheckUsbDevice(0xFFFFFFFFu); },
     usb_call_failed("unknow usb device type", kListed)},
    {"UnknownTypeWithAnEmptyListing",
     [](sim::Scenario &camera) {
         camera.commands["lsusb"] = {"", 0, 0};
     },
     [] { return CLI_ChipCheckUsbDevice(2); }, usb_call_failed("fread no wlan0", kListed)},
};

class UsbDevice : public clitest::CommandTable
{
};
TEST_P(UsbDevice, Check)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, UsbDevice, ::testing::ValuesIn(kUsbRows), clitest::case_name);

// ---- The system-on-chip ----------------------------------------------------------------------------

const std::vector<std::string> kChipAsked = {"open /dev/gpioDev rw", "ioctl /dev/gpioDev 0x6001",
                                             "close /dev/gpioDev"};

CommandCase chip(const char *name, uint32_t id, const std::string &shown)
{
    return {name,
            [id](sim::Scenario &camera) {
                camera.devices[kGpio].requests[kChipIdGet].answer = sim::IoctlAnswer::word(id);
            },
            [] { return CLI_GetCpuInfo(); },
            Expected{.status = 0,
                     .messages = {" INFO CLI_GetCpuInfo: " + shown},
                     .out = shown + "\r\n",
                     .trace = kChipAsked,
                     .requests = {{kChipIdGet, 0, {0}, {id}}}}};
}

const CommandCase kCpuRows[] = {
    chip("Hi3516A", 1, "cpu chipid:HI3516A"),
    chip("Hi3516D", 2, "cpu chipid:HI3516D"),
    chip("UnknownChipThree", 3, "unknown cpu chipid:0x3"),
    chip("UnknownChipZero", 0, "unknown cpu chipid:0"),
    chip("UnknownChipAllOnes", 0xFFFFFFFFu, "unknown cpu chipid:0xffffffff"),
    {"DriverMissing", [](sim::Scenario &camera) { camera.devices[kGpio].present = false; },
     [] { return CLI_GetCpuInfo(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GetCpuInfo: Open file /dev/gpioDev error"},
              .err = "[ERROR]:Open file /dev/gpioDev error\t@[src/cli_libfun.cpp CLI_GetCpuInfo]\r\n",
              .trace = {"open /dev/gpioDev rw failed"}}},
    {"RequestFails",
     [](sim::Scenario &camera) {
         camera.devices[kGpio].requests[kChipIdGet].answer = sim::IoctlAnswer::fail(EIO);
     },
     [] { return CLI_GetCpuInfo(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GetCpuInfo: ioctl cmd[6001] failed"},
              .err = "[ERROR]:ioctl cmd[0x6001]\t@[src/cli_libfun.cpp CLI_GetCpuInfo]\r\n",
              .trace = kChipAsked,
              .requests = {{kChipIdGet, 0, {0}, {0}}}}},
};

class CpuInfo : public clitest::CommandTable
{
};
TEST_P(CpuInfo, Report)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, CpuInfo, ::testing::ValuesIn(kCpuRows), clitest::case_name);

} // namespace
