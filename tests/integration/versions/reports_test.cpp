// The version reports through libclidriver.so on the simulated camera: what the operator sees on
// the console and in the diagnostic lines, what the status word says, and what the commands did
// to the camera's files and drivers. Each table row is a test case of its own.
#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "command_case.h"

namespace
{

using namespace std::string_literals;
using clitest::Call;
using clitest::CommandCase;
using clitest::Expected;
using clitest::Request;

constexpr const char *kVersionFile = "/program/factory/version";
constexpr const char *kEponFile = "/tmp/epon_dev_info";
constexpr const char *kCpld = "/dev/cpld_drv";
constexpr const char *kNetUser = "/dev/NetUsrDrv";
constexpr unsigned long kCpldVersionGet = 0x1950;
constexpr unsigned long kInterfaceGet = 0x1923;

const std::string kSoftwareLabel = "Software            : ";
const std::string kEponLabel = "EPON Software       : ";

// ---- Software version: COM_Display_SoftVER and CLI_GetEncodeVersion ----------------------------

// The factory file holds `content`; the operator must see `shown` after the label.
CommandCase software(const char *name, std::string content, std::string shown)
{
    return {name, [content](sim::Scenario &camera) { camera.files[kVersionFile].content = content; },
            [] { return COM_Display_SoftVER(); },
            Expected{.status = 0,
                     .out = kSoftwareLabel + shown + "\r\n",
                     .trace = {"open /program/factory/version r", "close /program/factory/version"}}};
}

// Reported by the reader of the file, whichever command asked for it.
const Expected kSoftwareFileUnreadable = {
    .status = 1,
    .messages = {"ERROR COM_Display_SoftVER: Open file /program/factory/version error"},
    .err = "[ERROR]:Open file /program/factory/version error\t@[src/cli_libfun.cpp COM_Display_SoftVER]\r\n",
    .trace = {"open /program/factory/version r failed"}};

const CommandCase kSoftware[] = {
    software("FactoryString", "V5.5.0-2.1.3-20261020\n", "2.1.3-20261020"),
    software("EverythingAfterTheFirstDash", "V1.2-3.4-5\n", "3.4-5"),
    software("LastLineWithoutLineFeed", "V1.2-3.4-5", "3.4-5"),
    software("OnlyTheFirstLine", "V1.2-3.4\nV9.9-9.9\n", "3.4"),
    software("CarriageReturnEndsTheLine", "V1.2-3.4\r\nnotes-here\r\n", "3.4"),
    software("NoDashShowsNothing", "V5.5.0\n", ""),
    software("NoDashOnTheFirstLineShowsNothing", "V5.5.0\nbuild-2026\n", ""),
    software("EmptyFile", "", ""),
    software("EmptyFirstLine", "\n-1.0\n", ""),
    software("DashFirst", "-1.0.3\n", "1.0.3"),
    software("DashLast", "V1.2-\n", ""),
    software("TwoDashesInARow", "V1--2\n", "-2"),
    software("ControlCharacterBeforeTheDashIsDropped", "V1\x01\x7f.2-3.4\n", "3.4"),
    software("ControlCharacterAfterTheDashIsShownAsItStands", "V1.2-3\x01.4\x7f\n", "3\x01.4\x7f"),
    software("TabAndBlanksAfterTheDash", "V1 - 3.4\tbeta\n", " 3.4\tbeta"),
    software("ZeroByteAfterTheDashIsShownAsItStands", "V1-a\0b\n"s, "a\0b"s),
    software("EightBitBytesAfterTheDash", "V1-\xc3\xa9t\xe9\n", "\xc3\xa9t\xe9"),
    software("LongLineShownWhole", "V1-" + std::string(5000, '7') + "\n", std::string(5000, '7')),
    {"FileMissing", [](sim::Scenario &camera) { camera.files[kVersionFile].content.reset(); },
     [] { return COM_Display_SoftVER(); }, kSoftwareFileUnreadable},
    {"FileRefused", [](sim::Scenario &camera) { camera.files[kVersionFile].open_errno = EACCES; },
     [] { return COM_Display_SoftVER(); }, kSoftwareFileUnreadable},
    // The encoder's version is the software version: the same lines, the same verdict.
    {"EncodeVersionShowsTheSoftware", nullptr, [] { return CLI_GetEncodeVersion(); },
     Expected{.status = 0,
              .out = kSoftwareLabel + "2.1.3-20261020\r\n",
              .trace = {"open /program/factory/version r", "close /program/factory/version"}}},
    {"EncodeVersionFailsWithTheFile",
     [](sim::Scenario &camera) { camera.files[kVersionFile].content.reset(); },
     [] { return CLI_GetEncodeVersion(); }, kSoftwareFileUnreadable},
};

class SoftwareVersion : public clitest::CommandTable
{
};
TEST_P(SoftwareVersion, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, SoftwareVersion, ::testing::ValuesIn(kSoftware), clitest::case_name);

// ---- CPLD version ---------------------------------------------------------------------------------

CommandCase cpld(const char *name, uint32_t version, std::string shown)
{
    return {name,
            [version](sim::Scenario &camera) {
                camera.devices[kCpld].requests[kCpldVersionGet].answer = sim::IoctlAnswer::word(version);
            },
            [] { return Cli_GetVersion_CPLD(); },
            Expected{.status = 0,
                     .messages = {" INFO Cli_GetVersion_CPLD: CPLD                : " + shown},
                     .out = "CPLD                : " + shown + "\r\n",
                     .trace = {"open /dev/cpld_drv rw", "ioctl /dev/cpld_drv 0x1950", "close /dev/cpld_drv"},
                     .requests = {{kCpldVersionGet, 0, {0}, {version}}}}};
}

const Expected kCpldUnopened = {
    .status = 1,
    .messages = {"ERROR Cli_GetVersion_CPLD: Open file /dev/cpld_drv error"},
    .err = "[ERROR]:Open file /dev/cpld_drv error\t@[src/cli_libfun.cpp Cli_GetVersion_CPLD]\r\n",
    .trace = {"open /dev/cpld_drv rw failed"}};

const Expected kCpldRequestFailed = {
    .status = 1,
    .messages = {"ERROR Cli_GetVersion_CPLD: ioctl cmd[1950] failed"},
    .err = "[ERROR]:ioctl cmd[0x1950]\t@[src/cli_libfun.cpp Cli_GetVersion_CPLD]\r\n",
    .trace = {"open /dev/cpld_drv rw", "ioctl /dev/cpld_drv 0x1950", "close /dev/cpld_drv"},
    .requests = {{kCpldVersionGet, 0, {0}, {0}}}};

const CommandCase kCpldRows[] = {
    cpld("HealthyCamera", 12, "012"),
    cpld("SevenIsPaddedToThreeDigits", 7, "007"),
    cpld("Zero", 0, "000"),
    cpld("ThreeDigits", 255, "255"),
    cpld("MoreThanThreeDigitsShownWhole", 1234, "1234"),
    cpld("LargestWord", 0xFFFFFFFFu, "4294967295"),
    {"DriverMissing", [](sim::Scenario &camera) { camera.devices[kCpld].present = false; },
     [] { return Cli_GetVersion_CPLD(); }, kCpldUnopened},
    {"DriverBusy", [](sim::Scenario &camera) { camera.devices[kCpld].open_errno = EBUSY; },
     [] { return Cli_GetVersion_CPLD(); }, kCpldUnopened},
    {"RequestFails",
     [](sim::Scenario &camera) {
         camera.devices[kCpld].requests[kCpldVersionGet].answer = sim::IoctlAnswer::fail(EIO);
     },
     [] { return Cli_GetVersion_CPLD(); }, kCpldRequestFailed},
    {"RequestRefusedByAnOlderDriver",
     [](sim::Scenario &camera) {
         camera.devices[kCpld].requests[kCpldVersionGet].answer = sim::IoctlAnswer::fail(ENOTTY);
     },
     [] { return Cli_GetVersion_CPLD(); }, kCpldRequestFailed},
    // Only a negative answer is a failure: a driver that answers 1 has still filled the word.
    {"PositiveAnswerIsASuccess",
     [](sim::Scenario &camera) {
         camera.devices[kCpld].requests[kCpldVersionGet].answer = sim::IoctlAnswer::word(9, 1);
     },
     [] { return Cli_GetVersion_CPLD(); },
     Expected{.status = 0,
              .messages = {" INFO Cli_GetVersion_CPLD: CPLD                : 009"},
              .out = "CPLD                : 009\r\n",
              .trace = {"open /dev/cpld_drv rw", "ioctl /dev/cpld_drv 0x1950", "close /dev/cpld_drv"},
              .requests = {{kCpldVersionGet, 0, {0}, {9}}}}},
};

class CpldVersion : public clitest::CommandTable
{
};
TEST_P(CpldVersion, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, CpldVersion, ::testing::ValuesIn(kCpldRows), clitest::case_name);

// ---- EPON release ---------------------------------------------------------------------------------

// The EPON module wrote `content`; the operator must see `shown` after the label.
CommandCase epon(const char *name, std::string content, std::string shown)
{
    return {name, [content](sim::Scenario &camera) { camera.files[kEponFile].content = content; },
            [] { return COM_GetVersion_Epon(); },
            Expected{.status = 0,
                     .out = kEponLabel + shown + "\r\n",
                     .trace = {"open /tmp/epon_dev_info r", "close /tmp/epon_dev_info"}}};
}

const Expected kEponFileUnreadable = {.status = 1,
                                      .messages = {"ERROR COM_GetVersion_Epon: open /tmp/epon_dev_info fail"},
                                      .trace = {"open /tmp/epon_dev_info r failed"}};

const std::string kEponModuleFile = "devtype=ONU\n"
                                    "vendor=FiberHome\n"
                                    "hardwarever=WKE2.134.285A\n"
                                    "releasever=RP2513\n"
                                    "loid=\n"
                                    "mac=00:0e:5e:12:34:56\n";

const CommandCase kEponRows[] = {
    epon("ThreeCharactersAfterTheSeparator", "releasever=1.07\n", "1.0"),
    epon("ReleaseAmongTheModuleLines", kEponModuleFile, "RP2"),
    epon("SeparatorIsAnyCharacter", "releasever:V2.3.4\n", "V2."),
    epon("NoReleaseLine", "devtype=ONU\nvendor=FiberHome\n", ""),
    epon("EmptyFile", "", ""),
    epon("LongLineBeforeTheRelease", "description=" + std::string(60, 'x') + "\nreleasever=1.07\n", "1.0"),
    // A line longer than the 40-byte buffer is read in pieces, and a piece is judged as a line.
    epon("PieceOfALongLineThatStartsWithTheKey", std::string(39, 'x') + "releasever=9.99\n", "9.9"),
    epon("FirstReleaseLineWins", "releasever=1.07\nreleasever=2.00\n", "1.0"),
    epon("KeyIsCaseSensitive", "ReleaseVer=1.07\n", ""),
    epon("KeyMustStartTheLine", " releasever=1.07\n", ""),
    epon("ShortReleaseKeepsItsLineFeed", "releasever=1\n", "1\n"),
    epon("KeyAloneShowsNothing", "releasever\n", ""),
    epon("KeyAndSeparatorOnlyShowsTheLineFeed", "releasever=\n", "\n"),
    // The buffer still holds the earlier, longer line behind the cut-short one: none of it shows.
    epon("CutShortLastLineShowsNoEarlierBytes", "mac=00:0e:5e:12:34:56\nreleasever", ""),
    epon("WindowsLineEndings", "devtype=ONU\r\nreleasever=1.07\r\n", "1.0"),
    {"FileMissing", nullptr, [] { return COM_GetVersion_Epon(); }, kEponFileUnreadable},
    {"FileRefused", [](sim::Scenario &camera) { camera.files[kEponFile].open_errno = EACCES; },
     [] { return COM_GetVersion_Epon(); }, kEponFileUnreadable},
};

class EponVersion : public clitest::CommandTable
{
};
TEST_P(EponVersion, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, EponVersion, ::testing::ValuesIn(kEponRows), clitest::case_name);

// ---- Network uplink ----------------------------------------------------------------------------

void uplink(sim::Scenario &camera, uint32_t type)
{
    camera.devices[kNetUser].requests[kInterfaceGet].answer = sim::IoctlAnswer::word(type);
}

const std::vector<std::string> kUplinkAsked = {"open /dev/NetUsrDrv rw", "ioctl /dev/NetUsrDrv 0x1923",
                                               "close /dev/NetUsrDrv"};

CommandCase copper(const char *name, uint32_t type)
{
    return {name, [type](sim::Scenario &camera) { uplink(camera, type); },
            [] { return CLI_GetInterfaceVersion(); },
            Expected{.status = 0, .trace = kUplinkAsked, .requests = {{kInterfaceGet, 0, {0}, {type}}}}};
}

const CommandCase kInterfaceRows[] = {
    copper("CopperUnitIsSilent", 1),
    copper("TypeZeroIsSilent", 0),
    copper("TypeThreeIsSilent", 3),
    {"EponUnitShowsTheRelease",
     [](sim::Scenario &camera) {
         uplink(camera, 2);
         camera.files[kEponFile].content = "releasever=1.07\n";
     },
     [] { return CLI_GetInterfaceVersion(); },
     Expected{.status = 0,
              .out = kEponLabel + "1.0\r\n",
              .trace =
                  clitest::concat(kUplinkAsked, {"open /tmp/epon_dev_info r", "close /tmp/epon_dev_info"}),
              .requests = {{kInterfaceGet, 0, {0}, {2}}}}},
    {"EponUnitWithoutItsFileFails", [](sim::Scenario &camera) { uplink(camera, 2); },
     [] { return CLI_GetInterfaceVersion(); },
     Expected{.status = 1,
              .messages = {"ERROR COM_GetVersion_Epon: open /tmp/epon_dev_info fail"},
              .trace = clitest::concat(kUplinkAsked, {"open /tmp/epon_dev_info r failed"}),
              .requests = {{kInterfaceGet, 0, {0}, {2}}}}},
    {"DriverMissing", [](sim::Scenario &camera) { camera.devices[kNetUser].present = false; },
     [] { return CLI_GetInterfaceVersion(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GetInterfaceVersion: open /dev/NetUsrDrv fail, May not support"},
              .trace = {"open /dev/NetUsrDrv rw failed"}}},
    {"DriverRefuses", [](sim::Scenario &camera) { camera.devices[kNetUser].open_errno = EACCES; },
     [] { return CLI_GetInterfaceVersion(); },
     Expected{.status = 1,
              .messages = {"ERROR CLI_GetInterfaceVersion: open /dev/NetUsrDrv fail, May not support"},
              .trace = {"open /dev/NetUsrDrv rw failed"}}},
};

class InterfaceVersion : public clitest::CommandTable
{
};
TEST_P(InterfaceVersion, Shows)
{
    run_row();
}
INSTANTIATE_TEST_SUITE_P(Table, InterfaceVersion, ::testing::ValuesIn(kInterfaceRows), clitest::case_name);

class Versions : public clitest::SimTest
{
};

// The failed uplink request is reported with a number that stands for the request's name, not its
// request number: the line's shape is what matters, the number means nothing.
TEST_F(Versions, FailedUplinkRequestIsReportedAndFails)
{
    scenario().devices[kNetUser].requests[kInterfaceGet].answer = sim::IoctlAnswer::fail(EIO);
    restart();
    const Call call = run([] { return CLI_GetInterfaceVersion(); });
    EXPECT_EQ(call.status, 1);
    ASSERT_EQ(call.lines.size(), 1u);
    EXPECT_EQ(call.lines[0].level, "ERROR");
    EXPECT_EQ(call.lines[0].function, "CLI_GetInterfaceVersion");
    EXPECT_TRUE(std::regex_match(call.lines[0].text, std::regex("ioctl cmd\\[[0-9a-f]+\\] failed\n")))
        << call.lines[0].text;
    EXPECT_TRUE(std::regex_match(
        call.err, std::regex("\\[ERROR\\]:ioctl cmd\\[0x[0-9a-f]+\\]\t@\\[src/cli_libfun\\.cpp "
                             "CLI_GetInterfaceVersion\\]\r\n")))
        << call.err;
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(clitest::camera_trace(call), kUplinkAsked);
    EXPECT_EQ(clitest::requests(call), (std::vector<Request>{{kInterfaceGet, 0, {0}, {0}}}));
    clitest::expect_reported_by_command_unit(call);
}

// ---- Everything at once ------------------------------------------------------------------------

TEST_F(Versions, AllOnTheHealthyCameraShowsTheSoftware)
{
    const Call call = run([] { return CLI_GetVersionAll(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, kSoftwareLabel + "2.1.3-20261020\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(call.printed.empty());
    EXPECT_EQ(
        clitest::camera_trace(call),
        clitest::concat({"open /program/factory/version r", "close /program/factory/version"}, kUplinkAsked));
}

TEST_F(Versions, AllOnTheEponUnitShowsSoftwareThenEpon)
{
    use_scenario_file(CLIDRIVER_SCENARIO_DIR "/epon.toml");
    const Call call = run([] { return CLI_GetVersionAll(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.out, kSoftwareLabel + "2.1.3-20261020\r\n" + kEponLabel + "1.0\r\n");
    EXPECT_EQ(call.err, "");
    EXPECT_TRUE(call.printed.empty());
    EXPECT_EQ(
        clitest::camera_trace(call),
        clitest::concat(clitest::concat({"open /program/factory/version r", "close /program/factory/version"},
                                        kUplinkAsked),
                        {"open /tmp/epon_dev_info r", "close /tmp/epon_dev_info"}));
}

TEST_F(Versions, AllSucceedsWhenEveryReportFails)
{
    scenario().files[kVersionFile].content.reset();
    scenario().devices[kNetUser].present = false;
    restart();
    const Call call = run([] { return CLI_GetVersionAll(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{
                  "ERROR COM_Display_SoftVER: Open file /program/factory/version error",
                  "ERROR CLI_GetInterfaceVersion: open /dev/NetUsrDrv fail, May not support"}));
    EXPECT_EQ(
        call.err,
        "[ERROR]:Open file /program/factory/version error\t@[src/cli_libfun.cpp COM_Display_SoftVER]\r\n");
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(clitest::camera_trace(call), (std::vector<std::string>{"open /program/factory/version r failed",
                                                                     "open /dev/NetUsrDrv rw failed"}));
}

TEST_F(Versions, AllOnAnEponUnitWithoutItsFileStillSucceeds)
{
    use_scenario_file(CLIDRIVER_SCENARIO_DIR "/epon.toml");
    scenario().files[kEponFile].content.reset();
    restart();
    const Call call = run([] { return CLI_GetVersionAll(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              std::vector<std::string>{"ERROR COM_GetVersion_Epon: open /tmp/epon_dev_info fail"});
    EXPECT_EQ(call.out, kSoftwareLabel + "2.1.3-20261020\r\n");
}

// ---- Product record and the silent version commands --------------------------------------------

TEST_F(Versions, ProductAllVersionAsksThePlatformOnceAndPrintsNothing)
{
    scenario().product_type = 62;
    restart();
    const Call call = run([] { return CLI_GetProductAllVersion(); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.printed.empty());
    EXPECT_EQ(call.out + call.err, "");
    const auto asked = call.of(sim::Kind::Platform);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].name, "drv_GetManuparseProductType");
    EXPECT_EQ(asked[0].result, 62);
    EXPECT_TRUE(clitest::camera_trace(call).empty());
}

struct SilentCommand {
    const char *name;
    uint32_t (*command)();
    uint32_t (*fallback)(); // the default under the double-underscore name, where there is one
};

const SilentCommand kSilent[] = {
    {"CLI_GetMototVersion", CLI_GetMototVersion, nullptr},
    {"CLI_GetCamVersion", CLI_GetCamVersion, __CLI_GetCamVersion},
    {"CLI_GetEthernetVersion", CLI_GetEthernetVersion, __CLI_GetEthernetVersion},
    {"CLI_GetMotorVersion", CLI_GetMotorVersion, __CLI_GetMotorVersion},
    {"CLI_GetPowerVersion", CLI_GetPowerVersion, __CLI_GetPowerVersion},
    {"CLI_GetSensorVersion", CLI_GetSensorVersion, __CLI_GetSensorVersion},
};

TEST_F(Versions, PartsWithoutAVersionAnswerSilentSuccess)
{
    for (const SilentCommand &row : kSilent) {
        SCOPED_TRACE(row.name);
        const Call call = run(row.command);
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.journal.empty()) << "touches nothing, prints nothing";
        EXPECT_EQ(call.out + call.err, "");
        if (row.fallback == nullptr)
            continue;
        const Call fallback = run(row.fallback);
        EXPECT_EQ(fallback.messages(),
                  std::vector<std::string>{" INFO __" + std::string(row.name) + ": unsupport this function"})
            << "the default stays callable under its own name";
    }
    EXPECT_NE(reinterpret_cast<void *>(CLI_GetMototVersion), reinterpret_cast<void *>(CLI_GetMotorVersion))
        << "both spellings are commands of their own";
}

} // namespace
