// Scenario files: every section read into the camera it describes, and every mistake in one
// reported with the file, the line and the key, so that whoever wrote it can fix it at once.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "core/sim.h"
#include "peripherals/peer.h"
#include "scenario/scenario.h"
#include "sim_fixture.h"

namespace
{

std::vector<uint8_t> words(const std::vector<uint32_t> &values)
{
    std::vector<uint8_t> bytes(values.size() * 4);
    memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

std::vector<uint8_t> text_bytes(const std::string &text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

// A folder of files a scenario can name (`from`, `capture`), removed afterwards.
class ScenarioFiles : public clitest::SimTest
{
  protected:
    void SetUp() override
    {
        SimTest::SetUp();
        char pattern[] = "/tmp/clidriver-scenario-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override
    {
        std::filesystem::remove_all(dir_);
        SimTest::TearDown();
    }
    void make(const std::string &name, const std::string &content)
    {
        std::filesystem::create_directories(std::filesystem::path(dir_ + "/" + name).parent_path());
        std::ofstream file(dir_ + "/" + name, std::ios::binary);
        file << content;
        made_.push_back(name);
    }
    sim::Scenario parse(const std::string &text) { return sim::parse_scenario(text, "bench.toml", dir_); }
    // The message of the error `text` raises, or "" when it parses.
    std::string error_of(const std::string &text) { return clitest::scenario_error(text, dir_); }

    std::string dir_;
    std::vector<std::string> made_;
};

// ---- every section -----------------------------------------------------------------------------

TEST_F(ScenarioFiles, CameraSection)
{
    const sim::Scenario read = parse(R"(
[camera]
name = "bench camera"
product_type = 0x02012A01
boot_epoch = 1700000000
)");
    EXPECT_EQ(read.source, "bench.toml");
    EXPECT_EQ(read.product_type, 0x02012A01u);
    EXPECT_EQ(read.boot_epoch, 1700000000);

    const sim::Scenario empty = parse("");
    EXPECT_EQ(empty.product_type, 0u);
    EXPECT_EQ(empty.boot_epoch, sim::kDefaultBootEpochSeconds);
    EXPECT_TRUE(empty.platform.empty());
    EXPECT_TRUE(empty.devices.empty());
    EXPECT_FALSE(empty.alarm_count.has_value());
}

TEST_F(ScenarioFiles, PlatformSection)
{
    const sim::Scenario read = parse(R"(
[platform.DRV_SetIRCut]
result = -1

[platform.DRV_SIBBoardTypeGet]
results = [1, 2]
words = [42, 0x01020304]

[platform.DRV_SIBVersionGet]
text = "1.3A"

[platform.DRV_OpenSIB]
bytes = "01 02 0A ff"

[platform.DRV_SetWifiCfg]
bytes = [1, 2, 255]

[platform.drv_GetAlarmCnt]
inputs = 4
outputs = 2
)");
    ASSERT_EQ(read.platform.count("DRV_SetIRCut"), 1u);
    EXPECT_EQ(read.platform.at("DRV_SetIRCut").result, -1);
    EXPECT_TRUE(read.platform.at("DRV_SetIRCut").sequence.empty());
    EXPECT_TRUE(read.platform.at("DRV_SetIRCut").out.empty());

    const sim::OpScript &board = read.platform.at("DRV_SIBBoardTypeGet");
    EXPECT_FALSE(board.result.has_value());
    EXPECT_EQ(std::vector<int64_t>(board.sequence.begin(), board.sequence.end()),
              (std::vector<int64_t>{1, 2}));
    EXPECT_EQ(board.out, words({42, 0x01020304}));

    std::vector<uint8_t> version = text_bytes("1.3A");
    version.push_back(0);
    EXPECT_EQ(read.platform.at("DRV_SIBVersionGet").out, version) << "text ends with its terminator";
    EXPECT_EQ(read.platform.at("DRV_OpenSIB").out, (std::vector<uint8_t>{0x01, 0x02, 0x0A, 0xFF}));
    EXPECT_EQ(read.platform.at("DRV_SetWifiCfg").out, (std::vector<uint8_t>{1, 2, 255}));

    ASSERT_TRUE(read.alarm_count.has_value());
    EXPECT_EQ(read.alarm_count->ulInputs, 4u);
    EXPECT_EQ(read.alarm_count->ulOutputs, 2u);
    EXPECT_EQ(read.platform.count("drv_GetAlarmCnt"), 0u) << "the count is a record, not a result";

    sim::start(read);
    uint32_t word = 0;
    EXPECT_EQ(DRV_SIBBoardTypeGet(&word), 1);
    EXPECT_EQ(word, 42u);
    EXPECT_EQ(DRV_SIBBoardTypeGet(&word), 2);
    EXPECT_EQ(DRV_SIBBoardTypeGet(&word), 0);
    EXPECT_EQ(DRV_SetIRCut(0, 1), -1);
    EXPECT_EQ(drv_GetAlarmCnt()->ulInputs, 4u);
}

TEST_F(ScenarioFiles, EveryPlatformOperationCanBeScripted)
{
    for (const std::string &name : sim::platform_operations()) {
        if (name == "drv_GetAlarmCnt")
            continue;
        SCOPED_TRACE(name);
        const sim::Scenario read = parse("[platform." + name + "]\nresult = 1\n");
        ASSERT_EQ(read.platform.count(name), 1u);
        EXPECT_EQ(read.platform.at(name).result, 1);
    }
}

TEST_F(ScenarioFiles, FilesSection)
{
    make("version.txt", "V9.9.9\n");
    const sim::Scenario read = parse(R"(
[files]
"/program/factory/version" = { from = "version.txt" }
"/tmp/epon_dev_info" = { content = "ONU\n" }
)");
    ASSERT_EQ(read.files.size(), 2u);
    EXPECT_EQ(read.files.at("/program/factory/version").content, "V9.9.9\n");
    EXPECT_EQ(read.files.at("/program/factory/version").open_errno, 0);
    EXPECT_EQ(read.files.at("/tmp/epon_dev_info").content, "ONU\n");
    const auto entry = [&](const std::string &value) {
        return parse("[files]\n\"/tmp/epon_dev_info\" = " + value + "\n").files.at("/tmp/epon_dev_info");
    };
    EXPECT_FALSE(entry("{ content = \"x\", absent = true }").content.has_value());
    EXPECT_EQ(entry("{ content = \"x\", open_errno = \"EACCES\" }").content, "x");
    EXPECT_EQ(entry("{ content = \"x\", open_errno = \"EACCES\" }").open_errno, EACCES);
    EXPECT_FALSE(entry("{ open_errno = 5 }").content.has_value()) << "a table without content is absent";
    EXPECT_EQ(entry("{ open_errno = 5 }").open_errno, 5);
    EXPECT_EQ(entry("{ content = \"\" }").content, "") << "empty, but there";
    EXPECT_EQ(entry("\"V1\\n\"").content, "V1\n");
}

TEST_F(ScenarioFiles, CommandsSection)
{
    make("usb.txt", "Bus 001 Device 001: ID 1d6b:0002\n");
    const sim::Scenario read = parse(R"(
[commands]
"lsusb" = { from = "usb.txt", status = 1 }
"cat /proc/driver/sensortype" = { output = "IMX290\n", status = 0 }
)");
    ASSERT_EQ(read.commands.size(), 2u);
    EXPECT_EQ(read.commands.at("lsusb").output, "Bus 001 Device 001: ID 1d6b:0002\n");
    EXPECT_EQ(read.commands.at("lsusb").exit_status, 1);
    EXPECT_EQ(read.commands.at("lsusb").popen_errno, 0);
    EXPECT_EQ(read.commands.at("cat /proc/driver/sensortype").output, "IMX290\n");
    const auto entry = [&](const std::string &value) {
        return parse("[commands]\n\"lsusb\" = " + value + "\n").commands.at("lsusb");
    };
    EXPECT_EQ(entry("\"Bus 001\\n\"").output, "Bus 001\n");
    EXPECT_EQ(entry("{ status = 2, fail = \"EAGAIN\" }").output, "");
    EXPECT_EQ(entry("{ status = 2, fail = \"EAGAIN\" }").exit_status, 2);
    EXPECT_EQ(entry("{ status = 2, fail = \"EAGAIN\" }").popen_errno, EAGAIN);
    EXPECT_EQ(entry("{ fail = 24 }").popen_errno, 24);
}

constexpr const char *kDevices = R"(
[devices."/dev/cpld_drv"]

[[devices."/dev/cpld_drv".request]]
number = 0x1950
size = 4
words = [0x5A]

[[devices."/dev/cpld_drv".request]]
number = 0x1951
errno = "EIO"

[[devices."/dev/cpld_drv".request]]
number = 0x1952
size = 8
bytes = "01 02"
result = 3

[[devices."/dev/cpld_drv".request.sequence]]
words = [1, 2]

[[devices."/dev/cpld_drv".request.sequence]]
errno = "EBUSY"

[[devices."/dev/cpld_drv".request.sequence]]
result = 2
errno = "EIO"

[devices."/dev/gyro"]
absent = true

[devices."/dev/motor"]
open_errno = "EBUSY"

[devices."/dev/NetUsrDrv".register_file]
read = 0x8B01
write = 0x8B02
record_words = 4
index_word = 2
value_word = 3
registers = [2, 0x141, 3, 0x0C54]
read_back_or = 0x8000
read_back_and = 0xFFFB
)";

TEST_F(ScenarioFiles, DevicesSectionFields)
{
    const sim::Scenario read = parse(kDevices);
    ASSERT_EQ(read.devices.size(), 4u);
    const sim::DeviceScript &cpld = read.devices.at("/dev/cpld_drv");
    EXPECT_TRUE(cpld.present);
    EXPECT_EQ(cpld.open_errno, 0);
    ASSERT_EQ(cpld.requests.size(), 3u);

    const sim::RequestScript &word = cpld.requests.at(0x1950);
    EXPECT_EQ(word.arg_size, 4u);
    EXPECT_EQ(word.answer.result, 0);
    EXPECT_EQ(word.answer.out, words({0x5A}));
    EXPECT_TRUE(word.sequence.empty());

    const sim::RequestScript &failing = cpld.requests.at(0x1951);
    EXPECT_EQ(failing.arg_size, 0u);
    EXPECT_EQ(failing.answer.result, -1) << "an errno alone means the call fails";
    EXPECT_EQ(failing.answer.err, EIO);

    const sim::RequestScript &sequenced = cpld.requests.at(0x1952);
    EXPECT_EQ(sequenced.arg_size, 8u);
    EXPECT_EQ(sequenced.answer.result, 3);
    EXPECT_EQ(sequenced.answer.out, (std::vector<uint8_t>{1, 2}));
    ASSERT_EQ(sequenced.sequence.size(), 3u);
    EXPECT_EQ(sequenced.sequence[0].result, 0);
    EXPECT_EQ(sequenced.sequence[0].out, words({1, 2}));
    EXPECT_EQ(sequenced.sequence[1].result, -1);
    EXPECT_EQ(sequenced.sequence[1].err, EBUSY);
    EXPECT_EQ(sequenced.sequence[2].result, 2);
    EXPECT_EQ(sequenced.sequence[2].err, EIO);

    EXPECT_FALSE(read.devices.at("/dev/gyro").present);
    EXPECT_TRUE(read.devices.at("/dev/motor").present);
    EXPECT_EQ(read.devices.at("/dev/motor").open_errno, EBUSY);
    const sim::DeviceScript &phy = read.devices.at("/dev/NetUsrDrv");
    EXPECT_EQ(phy.requests.count(0x8B01), 1u);
    EXPECT_EQ(phy.requests.count(0x8B02), 1u);
    EXPECT_EQ(phy.requests.at(0x8B01).arg_size, 16u);
}

TEST_F(ScenarioFiles, DevicesSectionDrivesTheDevices)
{
    sim::start(parse(kDevices));
    errno = 0;
    EXPECT_EQ(open("/dev/gyro", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(open("/dev/motor", O_RDWR), -1);
    EXPECT_EQ(errno, EBUSY);

    const int cpld = open("/dev/cpld_drv", O_RDWR);
    ASSERT_GE(cpld, 0);
    uint32_t record[2] = {0, 0};
    EXPECT_EQ(ioctl(cpld, 0x1950, record), 0);
    EXPECT_EQ(record[0], 0x5Au);
    errno = 0;
    EXPECT_EQ(ioctl(cpld, 0x1951, 0), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ioctl(cpld, 0x1952, record), 0);
    EXPECT_EQ(record[0], 1u);
    EXPECT_EQ(record[1], 2u);
    errno = 0;
    EXPECT_EQ(ioctl(cpld, 0x1952, record), -1);
    EXPECT_EQ(errno, EBUSY);
    errno = 0;
    EXPECT_EQ(ioctl(cpld, 0x1952, record), 2);
    EXPECT_EQ(ioctl(cpld, 0x1952, record), 3);
    EXPECT_EQ(record[0] & 0xFFFF, 0x0201u);
    close(cpld);

    const int phy = open("/dev/NetUsrDrv", O_RDWR);
    ASSERT_GE(phy, 0);
    uint32_t reg[4] = {0, 0, 2, 0};
    EXPECT_EQ(ioctl(phy, 0x8B01, reg), 0);
    EXPECT_EQ(reg[3], (0x141u | 0x8000u) & 0xFFFBu);
    reg[2] = 3;
    EXPECT_EQ(ioctl(phy, 0x8B01, reg), 0);
    EXPECT_EQ(reg[3], (0x0C54u | 0x8000u) & 0xFFFBu);
    uint32_t put[4] = {0, 0, 7, 0x1234};
    EXPECT_EQ(ioctl(phy, 0x8B02, put), 0);
    uint32_t get[4] = {0, 0, 7, 0};
    EXPECT_EQ(ioctl(phy, 0x8B01, get), 0);
    EXPECT_EQ(get[3], 0x9230u);
    close(phy);
}

TEST_F(ScenarioFiles, PortsSection)
{
    const sim::Scenario read = parse(R"(
[ports."/dev/ttyS1"]
peer = "script"
mode = "normal"

[[ports."/dev/ttyS1".rule]]
when_text = "PING"
answer = "50 4F 4E 47"
delay_ms = 20

[[ports."/dev/ttyS1".announce]]
at_ms = 100
bytes_text = "HELLO"

[ports."/dev/ttyS2"]
peer = "script"
mode = "trickle"
trickle_gap_ms = 50

[[ports."/dev/ttyS2".rule]]
when = [0x01]
answer_text = "OK"
once = true

[ports."/dev/ttyC0"]
absent = true

[ports."/dev/ttyAMBA1"]
open_errno = "EBUSY"
)");
    ASSERT_EQ(read.ports.size(), 4u);
    EXPECT_FALSE(read.ports.at("/dev/ttyC0").present);
    EXPECT_FALSE(read.ports.at("/dev/ttyC0").make_peer);
    EXPECT_TRUE(read.ports.at("/dev/ttyAMBA1").present);
    EXPECT_EQ(read.ports.at("/dev/ttyAMBA1").open_errno, EBUSY);

    // With nothing on the line yet the peer runs at 9600 baud: 1041666 ns a byte.
    const sim::Nanos byte = 10 * sim::kSecond / 9600;
    ASSERT_TRUE(read.ports.at("/dev/ttyS1").make_peer);
    EXPECT_TRUE(read.ports.at("/dev/ttyS1").present);
    auto normal = read.ports.at("/dev/ttyS1").make_peer();
    ASSERT_NE(normal, nullptr);
    EXPECT_EQ(normal->next_send(), 100 * sim::kMillisecond) << "the announcement is due";
    normal->receive(text_bytes("PING"), 0);
    const sim::Nanos pong = 20 * sim::kMillisecond + 4 * byte;
    EXPECT_EQ(normal->next_send(), pong);
    EXPECT_EQ(normal->take(pong), text_bytes("PONG"));
    EXPECT_EQ(normal->take(100 * sim::kMillisecond + 5 * byte), text_bytes("HELLO"));
    EXPECT_EQ(normal->next_send(), sim::kNever);

    auto trickle = read.ports.at("/dev/ttyS2").make_peer();
    ASSERT_NE(trickle, nullptr);
    EXPECT_EQ(trickle->next_send(), sim::kNever);
    trickle->receive({0x01}, 0);
    EXPECT_EQ(trickle->next_send(), 50 * sim::kMillisecond);
    EXPECT_EQ(trickle->take(50 * sim::kMillisecond), text_bytes("O"));
    EXPECT_EQ(trickle->take(100 * sim::kMillisecond), text_bytes("K"));
    trickle->receive({0x01}, 200 * sim::kMillisecond);
    EXPECT_EQ(trickle->next_send(), sim::kNever) << "a rule marked once answers once";
}

TEST_F(ScenarioFiles, PortMisbehaviourOptions)
{
    const sim::Scenario read = parse(R"(
[ports."/dev/ttyS1"]
peer = "script"
mode = "silent"
[[ports."/dev/ttyS1".rule]]
when_text = "PING"
answer_text = "PONG"

[ports."/dev/ttyS2"]
peer = "script"
mode = "garbage"
garbage_every_ms = 5
garbage_chunk = 4
garbage_seed = 7

[ports."/dev/ttyC0"]
peer = "script"
hang_up_after = 2

[ports."/dev/ttyAMBA1"]
peer = "script"
hang_up_at_ms = 30
)");
    auto silent = read.ports.at("/dev/ttyS1").make_peer();
    silent->receive(text_bytes("PING"), 0);
    EXPECT_EQ(silent->next_send(), sim::kNever) << "a silent peer hears and never answers";

    auto garbage = read.ports.at("/dev/ttyS2").make_peer();
    EXPECT_EQ(garbage->next_send(), 0);
    EXPECT_EQ(garbage->take(0).size(), 4u);
    EXPECT_EQ(garbage->next_send(), 5 * sim::kMillisecond);
    EXPECT_EQ(garbage->take(10 * sim::kMillisecond).size(), 8u);

    auto hangs_after = read.ports.at("/dev/ttyC0").make_peer();
    hangs_after->receive({0x01}, 0);
    EXPECT_FALSE(hangs_after->hung_up());
    hangs_after->receive({0x02}, 0);
    EXPECT_TRUE(hangs_after->hung_up());

    auto hangs_at = read.ports.at("/dev/ttyAMBA1").make_peer();
    EXPECT_EQ(hangs_at->next_send(), 30 * sim::kMillisecond);
    hangs_at->take(30 * sim::kMillisecond);
    EXPECT_TRUE(hangs_at->hung_up());
}

TEST_F(ScenarioFiles, WifiSection)
{
    make("air.pcap", "");
    const sim::Scenario read = parse(R"(
[wifi]
interface = "ra0"
capture = "air.pcap"
first_arrival_ms = 250
open_error = "ra0: No such device"
fail_compile = true
fail_setfilter = true
dispatch_errors = [-1, 0, -2]
channel_errors = ["EBUSY", 0, 5]
socket_errno = "EMFILE"
)");
    EXPECT_EQ(read.wireless.interface, "ra0");
    EXPECT_EQ(read.capture.interface, "ra0");
    EXPECT_EQ(read.capture.file, dir_ + "/air.pcap");
    EXPECT_EQ(read.capture.first_arrival, 250 * sim::kMillisecond);
    EXPECT_EQ(read.capture.open_error, "ra0: No such device");
    EXPECT_TRUE(read.capture.fail_compile);
    EXPECT_TRUE(read.capture.fail_setfilter);
    EXPECT_EQ(read.capture.dispatch_errors, (std::vector<int>{-1, 0, -2}));
    EXPECT_EQ(std::vector<int>(read.wireless.channel_errnos.begin(), read.wireless.channel_errnos.end()),
              (std::vector<int>{EBUSY, 0, 5}));
    EXPECT_EQ(read.wireless.socket_errno, EMFILE);

    const sim::Scenario plain = parse("[wifi]\n");
    EXPECT_EQ(plain.wireless.interface, "wlan0");
    EXPECT_EQ(plain.capture.file, "");
    EXPECT_TRUE(plain.wireless.channel_errnos.empty());
}

TEST_F(ScenarioFiles, ThreadsSection)
{
    const sim::Scenario read = parse("[threads]\nfail_next = 2\nerrno = \"EPERM\"\n");
    EXPECT_EQ(read.threads.fail_next, 2);
    EXPECT_EQ(read.threads.err, EPERM);
    const sim::Scenario plain = parse("[threads]\nfail_next = 1\n");
    EXPECT_EQ(plain.threads.err, EAGAIN);
}

TEST_F(ScenarioFiles, ControlBoardSection)
{
    const sim::Scenario plain = parse("");
    EXPECT_FALSE(plain.control_board.board_type.has_value());
    EXPECT_FALSE(plain.control_board.version.has_value());

    const sim::Scenario read = parse("[control_board]\nboard_type = 4294967295\nversion = \"2.10B\"\n");
    EXPECT_EQ(read.control_board.board_type, std::optional<uint32_t>(0xFFFFFFFF));
    EXPECT_EQ(read.control_board.version, std::optional<std::string>("2.10B"));

    // Its answers reach the board's operations once the camera starts; a result scripted for the
    // same operation still applies.
    scenario() = parse("[control_board]\nboard_type = 12\nversion = \"1.3A\"\n"
                       "[platform.DRV_SIBVersionGet]\nresult = 1\n");
    restart();
    uint32_t type = 0;
    EXPECT_EQ(DRV_SIBBoardTypeGet(&type), 0);
    EXPECT_EQ(type, 12u);
    CliSibVersion version = {};
    EXPECT_EQ(DRV_SIBVersionGet(&version), 1);
    EXPECT_EQ(std::string(version.acText), "1.3A");
    EXPECT_EQ(sim::board_model().reports().board_type, std::optional<uint32_t>(12));

    // A text of eight characters fills the area: no terminator is written.
    scenario() = parse("[control_board]\nversion = \"12345.67\"\n");
    restart();
    memset(&version, 0x7F, sizeof version);
    EXPECT_EQ(DRV_SIBVersionGet(&version), 0);
    EXPECT_EQ(std::string(version.acText, sizeof version.acText), "12345.67");
}

TEST_F(ScenarioFiles, StartupSection)
{
    const sim::Scenario plain = parse("");
    EXPECT_TRUE(plain.startup.product_record) << "a camera's platform always stores its product record";
    EXPECT_TRUE(plain.startup.serial_ports);
    EXPECT_FALSE(plain.startup.hub.has_value()) << "no hub unless the scenario fits one";
    EXPECT_TRUE(plain.startup.link_devices.empty());

    const sim::Scenario traffic =
        parse("[startup]\nhub = 115200\nrfid = 9600\nzigbee = 38400\ngps = 4800\nproduct_record = false\n");
    EXPECT_FALSE(traffic.startup.product_record);
    EXPECT_TRUE(traffic.startup.serial_ports);
    EXPECT_EQ(traffic.startup.hub, std::optional<uint32_t>(115200));
    const std::map<uint32_t, uint32_t> declared = {{1, 38400}, {2, 4800}, {3, 9600}}; // ZigBee, GPS, RFID
    EXPECT_EQ(traffic.startup.link_devices, declared);

    const sim::Scenario bare = parse("[startup]\nserial_ports = false\n");
    EXPECT_FALSE(bare.startup.serial_ports);
}

TEST_F(ScenarioFiles, DefaultScenarioLoads)
{
    const sim::Scenario read = sim::load_scenario(sim::default_scenario_path());
    EXPECT_EQ(read.source, sim::default_scenario_path());
    EXPECT_EQ(read.product_type, 0u);
    ASSERT_EQ(read.files.count("/program/factory/version"), 1u);
    EXPECT_EQ(read.files.at("/program/factory/version").content, "V5.5.0-2.1.3-20261020\n");
    ASSERT_EQ(read.commands.count("lsusb"), 1u);
    EXPECT_NE(read.commands.at("lsusb").output.find("0bda:8179"), std::string::npos);
    EXPECT_EQ(read.commands.at("cat /proc/driver/sensortype").output, "IMX290\n");
}

// Every TOML example of sim/scenarios/README.md loads as it stands, given the files it names: the
// example folder sits two levels below a folder that holds the repository's tests/data, as
// sim/scenarios does, and holds the two files the files and commands examples read and the
// healthy camera the base example builds on.
TEST(ScenarioReadme, EveryExampleLoads)
{
    namespace fs = std::filesystem;
    std::ifstream readme(std::string(CLIDRIVER_SOURCE_DIR) + "/sim/scenarios/README.md");
    ASSERT_TRUE(readme.good());
    std::vector<std::string> examples;
    std::string line, block;
    bool inside = false;
    while (std::getline(readme, line)) {
        if (!inside && line == "```toml") {
            inside = true;
            block.clear();
        } else if (inside && line == "```") {
            inside = false;
            examples.push_back(block);
        } else if (inside) {
            block += line + "\n";
        }
    }
    ASSERT_GE(examples.size(), 12u) << "the examples of every section";

    char pattern[] = "/tmp/clidriver-readme-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const fs::path root = pattern;
    const fs::path folder = root / "sim" / "scenarios";
    fs::create_directories(folder / "epon");
    fs::create_directories(folder / "usb");
    fs::create_directories(root / "tests");
    fs::create_directory_symlink(fs::path(CLIDRIVER_SOURCE_DIR) / "tests" / "data", root / "tests" / "data");
    std::ofstream(folder / "epon" / "releasever-107.txt") << "V1.0.7\n";
    std::ofstream(folder / "usb" / "only-c811.txt") << "Bus 001 Device 002: ID 0bda:c811\n";
    // The example of a scenario that builds on the healthy camera finds it beside itself.
    fs::copy_file(fs::path(CLIDRIVER_SOURCE_DIR) / "sim" / "scenarios" / "default.toml",
                  folder / "default.toml");
    for (const std::string &example : examples) {
        SCOPED_TRACE(example);
        EXPECT_EQ(clitest::scenario_error(example, folder.string()), "");
    }
    fs::remove_all(root);
}

// A scenario built on another states only what differs: tables merge, a device's requests merge
// by number, a port that names its peer is described anew, and a relative path is read from the
// file that wrote it.
TEST_F(ScenarioFiles, BuildsOnABaseAndStatesOnlyWhatDiffers)
{
    make("logs/a.log", "");
    make("base.toml", R"([camera]
name = "base camera"
product_type = 4
[files]
"/program/factory/version" = "V1-1.0\n"
[[devices."/dev/cpld_drv".request]]
number = 0x1950
size = 4
words = [12]
[[devices."/dev/cpld_drv".request]]
number = 0x1951
size = 4
words = [1]
[ports."/dev/ttyC0"]
peer = "gps"
log = "logs/a.log"
[ports."/dev/ttyS1"]
peer = "gps"
log = "logs/a.log"
)");
    make("faulty/child.toml", R"(base = "../base.toml"
[camera]
name = "child camera"
[[devices."/dev/cpld_drv".request]]
number = 0x1950
size = 4
words = [11]
[ports."/dev/ttyC0"]
mode = "silent"
[ports."/dev/ttyS1"]
peer = "script"
)");
    const sim::Scenario read = sim::load_scenario(dir_ + "/faulty/child.toml");
    EXPECT_EQ(read.name, "child camera");
    EXPECT_EQ(read.product_type, 4u) << "what the child leaves out comes from its base";
    EXPECT_EQ(read.files.at("/program/factory/version").content, "V1-1.0\n");
    const sim::DeviceScript &cpld = read.devices.at("/dev/cpld_drv");
    ASSERT_EQ(cpld.requests.size(), 2u) << "requests merge by number";
    EXPECT_EQ(cpld.requests.at(0x1950).answer.out, (std::vector<uint8_t>{11, 0, 0, 0}));
    EXPECT_EQ(cpld.requests.at(0x1951).answer.out, (std::vector<uint8_t>{1, 0, 0, 0}));
    ASSERT_TRUE(read.ports.at("/dev/ttyC0").make_peer)
        << "the base's receiver, its log found beside the base";
    ASSERT_TRUE(read.ports.at("/dev/ttyS1").make_peer);

    make("faulty/bad.toml", "base = \"../base.toml\"\n[ports.\"/dev/ttyC0\"]\nmood = \"silent\"\n");
    try {
        sim::load_scenario(dir_ + "/faulty/bad.toml");
        ADD_FAILURE() << "a misspelt key laid over the base must be refused";
    } catch (const sim::ScenarioError &error) {
        EXPECT_EQ(std::string(error.what())
                      .rfind(dir_ + "/faulty/bad.toml:3: ports./dev/ttyC0.mood: unknown key", 0),
                  0u)
            << error.what();
    }
    make("loop.toml", "base = \"loop.toml\"\n");
    try {
        sim::load_scenario(dir_ + "/loop.toml");
        ADD_FAILURE() << "a scenario built on itself must be refused";
    } catch (const sim::ScenarioError &error) {
        EXPECT_NE(std::string(error.what()).find("build on each other in a circle"), std::string::npos)
            << error.what();
    }
}

// Every ready camera of the folder loads, builds on the healthy camera and says what it is.
TEST_F(ScenarioFiles, EveryReadyCameraLoads)
{
    for (const char *name : {"default.toml", "traffic.toml", "epon.toml", "faulty/broken-phy.toml",
                             "faulty/silent-gps.toml", "faulty/gps-wrong-rate.toml", "faulty/busy-cpld.toml",
                             "faulty/missing-usb.toml", "faulty/few-satellites.toml"}) {
        const sim::Scenario read = sim::load_scenario(std::string(CLIDRIVER_SCENARIO_DIR "/") + name);
        EXPECT_FALSE(read.name.empty()) << name;
        EXPECT_TRUE(read.devices.count("/dev/gpioDev")) << name << " builds on the healthy camera";
    }
}

TEST_F(ScenarioFiles, FileNamesInAScenarioAreRelativeToIt)
{
    make("camera.toml", "[files]\n\"/program/factory/version\" = { from = \"version.txt\" }\n");
    make("version.txt", "V2.0\n");
    const sim::Scenario read = sim::load_scenario(dir_ + "/camera.toml");
    EXPECT_EQ(read.source, dir_ + "/camera.toml");
    EXPECT_EQ(read.files.at("/program/factory/version").content, "V2.0\n");

    make("absolute.toml", "[files]\n\"/tmp/epon_dev_info\" = { from = \"" + dir_ + "/version.txt\" }\n");
    EXPECT_EQ(sim::load_scenario(dir_ + "/absolute.toml").files.at("/tmp/epon_dev_info").content, "V2.0\n");
}

// ---- mistakes ----------------------------------------------------------------------------------

struct Mistake {
    const char *what;
    std::string text;
    std::string message; // exactly, with {dir} for the scenario's folder
};

const Mistake kMistakes[] = {
    {"unknown top-level key", "[camera]\nname = \"x\"\n\n[cameras]\nname = \"y\"\n",
     "bad.toml:4: cameras: unknown key (expected one of: base, camera, startup, platform, control_board, "
     "files, commands, "
     "devices, ports, "
     "wifi, threads, recording)"},
    {"top-level key that is not a table", "camera = 3\n", "bad.toml:1: camera: expected a table"},
    {"unknown key in camera", "[camera]\nproduct = 1\n",
     "bad.toml:2: camera.product: unknown key (expected one of: name, product_type, boot_epoch)"},
    {"string for an integer", "[camera]\nproduct_type = \"7\"\n",
     "bad.toml:2: camera.product_type: expected an integer"},
    {"unknown platform operation", "\n[platform.DRV_SetIrCut]\nresult = 1\n",
     "bad.toml:2: platform.DRV_SetIrCut: not an operation of the camera platform"},
    {"platform operation that is not a table", "[platform]\nDRV_SetIRCut = 3\n",
     "bad.toml:2: platform.DRV_SetIRCut: expected a table"},
    {"unknown key in a platform operation", "[platform.DRV_SetIRCut]\nresutl = 1\n",
     "bad.toml:2: platform.DRV_SetIRCut.resutl: unknown key (expected one of: result, results, words, text, "
     "bytes, recorded)"},
    {"result sequence with a string", "[platform.ISP_Init]\nresults = [1, \"2\"]\n",
     "bad.toml:2: platform.ISP_Init.results: expected an array of integers"},
    {"alarm count with a result", "[platform.drv_GetAlarmCnt]\nresult = 1\n",
     "bad.toml:2: platform.drv_GetAlarmCnt.result: unknown key (expected one of: inputs, outputs, recorded)"},
    {"misspelt device path", "[devices.\"/dev/gpiodev\"]\nabsent = true\n",
     "bad.toml:1: devices./dev/gpiodev: the library uses no character device \"/dev/gpiodev\"; did you mean "
     "\"/dev/gpioDev\"?"},
    {"misspelt serial port", "[ports.\"/dev/ttyCO\"]\nabsent = true\n",
     "bad.toml:1: ports./dev/ttyCO: the library uses no serial port \"/dev/ttyCO\"; did you mean "
     "\"/dev/ttyC0\"?"},
    {"a file the library never reads", "[files]\n\"/etc/hostname\" = \"cam\"\n",
     "bad.toml:2: files./etc/hostname: the library uses no file \"/etc/hostname\" (it uses: "
     "/program/factory/version, /tmp/epon_dev_info)"},
    {"a command the library never runs", "[commands]\n\"lsusb -v\" = \"\"\n",
     "bad.toml:2: commands.lsusb -v: the library uses no shell command \"lsusb -v\"; did you mean "
     "\"lsusb\"?"},
    {"product type beyond 32 bits", "[camera]\nproduct_type = 4294967296\n",
     "bad.toml:2: camera.product_type: expected 0..4294967295"},
    {"request number beyond 32 bits", "[[devices.\"/dev/motor\".request]]\nnumber = -1\n",
     "bad.toml:2: devices./dev/motor.request[0].number: expected 0..4294967295"},
    {"word beyond 32 bits", "[[devices.\"/dev/motor\".request]]\nnumber = 1\nwords = [1, 4294967296]\n",
     "bad.toml:3: devices./dev/motor.request[0].words: expected values -2147483648..4294967295"},
    {"exit status beyond a byte", "[commands]\n\"lsusb\" = { status = 256 }\n",
     "bad.toml:2: commands.lsusb.status: expected 0..255"},
    {"a base that is missing", "base = \"nowhere.toml\"\n",
     "bad.toml:1: base: cannot read {dir}/nowhere.toml"},
    {"unknown errno name", "[files]\n\"/program/factory/version\" = { open_errno = \"EWHAT\" }\n",
     "bad.toml:2: files./program/factory/version.open_errno: unknown errno name \"EWHAT\""},
    {"errno of the wrong type", "[threads]\nerrno = true\n",
     "bad.toml:2: threads.errno: expected an errno name such as \"EIO\" or a number"},
    {"file that is neither text nor table", "[files]\n\"/tmp/epon_dev_info\" = 3\n",
     "bad.toml:2: files./tmp/epon_dev_info: expected the content (a string) or a table"},
    {"command that is neither text nor table", "[commands]\n\"lsusb\" = [1]\n",
     "bad.toml:2: commands.lsusb: expected the output (a string) or a table"},
    {"unknown key in a file", "[files]\n\"/tmp/epon_dev_info\" = { contents = \"a\" }\n",
     "bad.toml:2: files./tmp/epon_dev_info.contents: unknown key (expected one of: content, from, absent, "
     "open_errno, opens)"},
    {"from a file that does not exist", "[files]\n\"/tmp/epon_dev_info\" = { from = \"missing.txt\" }\n",
     "bad.toml:2: files./tmp/epon_dev_info.from: cannot read {dir}/missing.txt"},
    {"content given twice", "[files]\n\"/tmp/epon_dev_info\" = { content = \"a\", from = \"v.txt\" }\n",
     "bad.toml:2: files./tmp/epon_dev_info.from: give content or from, not both"},
    {"from a folder", "[commands]\n\"lsusb\" = { from = \".\" }\n",
     "bad.toml:2: commands.lsusb.from: cannot read {dir}/."},
    {"unknown peer kind", "[ports.\"/dev/ttyS1\"]\npeer = \"modem\"\n",
     "bad.toml:2: ports./dev/ttyS1.peer: no peripheral called \"modem\" (known: script, hub, gps, box, rfid, "
     "zigbee, ir_lamp, light_sensor, recording)"},
    {"peer option on a port without a peer", "[ports.\"/dev/ttyS1\"]\nmode = \"silent\"\n",
     "bad.toml:2: ports./dev/ttyS1.mode: unknown key (expected one of: absent, open_errno, opens)"},
    {"unknown peer mode", "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\nmode = \"chatty\"\n",
     "bad.toml:3: ports./dev/ttyS1.mode: expected normal, silent, garbage or trickle"},
    {"rule without its bytes",
     "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\n\n[[ports.\"/dev/ttyS1\".rule]]\nanswer_text = \"x\"\n",
     "bad.toml:4: ports./dev/ttyS1.rule[0].when: a rule needs the bytes it answers (when or when_text)"},
    {"rule with its bytes given twice",
     "[ports.\"/dev/ttyS1\"]\npeer = \"script\"\n[[ports.\"/dev/ttyS1\".rule]]\nwhen = \"01\"\nwhen_text = "
     "\"a\"\n",
     "bad.toml:5: ports./dev/ttyS1.rule[0].when_text: give when or when_text, not both"},
    {"time before boot", "[wifi]\nfirst_arrival_ms = -5\n",
     "bad.toml:2: wifi.first_arrival_ms: expected a time in milliseconds, 0 or more"},
    {"request without number", "[[devices.\"/dev/cpld_drv\".request]]\nsize = 4\n",
     "bad.toml:1: devices./dev/cpld_drv.request[0].number: every request needs its number"},
    {"second request without number",
     "[[devices.\"/dev/cpld_drv\".request]]\nnumber = 1\n\n[[devices.\"/dev/cpld_drv\".request]]\nsize = 4\n",
     "bad.toml:4: devices./dev/cpld_drv.request[1].number: every request needs its number"},
    {"unknown key in a request",
     "[[devices.\"/dev/cpld_drv\".request]]\nnumber = 1\nwords = [1]\nwrods = [2]\n",
     "bad.toml:4: devices./dev/cpld_drv.request[0].wrods: unknown key (expected one of: number, size, "
     "result, "
     "errno, words, bytes, sequence)"},
    {"negative request size", "[[devices.\"/dev/cpld_drv\".request]]\nnumber = 1\nsize = -4\n",
     "bad.toml:3: devices./dev/cpld_drv.request[0].size: expected a size in bytes, 0..65536"},
    {"bad hex byte", "[platform.DRV_OpenSIB]\nbytes = \"FE 0G\"\n",
     "bad.toml:2: platform.DRV_OpenSIB.bytes: \"0G\" is not a hexadecimal byte"},
    {"hex byte too long", "[platform.DRV_OpenSIB]\nbytes = \"FE 123\"\n",
     "bad.toml:2: platform.DRV_OpenSIB.bytes: \"123\" is not a hexadecimal byte"},
    {"signed hex byte", "[platform.DRV_OpenSIB]\nbytes = \"FE -1\"\n",
     "bad.toml:2: platform.DRV_OpenSIB.bytes: \"-1\" is not a hexadecimal byte"},
    {"hex byte with a plus", "[platform.DRV_OpenSIB]\nbytes = \"+F\"\n",
     "bad.toml:2: platform.DRV_OpenSIB.bytes: \"+F\" is not a hexadecimal byte"},
    {"byte out of range", "[platform.DRV_OpenSIB]\nbytes = [1,\n 256]\n",
     "bad.toml:3: platform.DRV_OpenSIB.bytes: expected bytes 0..255"},
    {"odd register list", "[devices.\"/dev/NetUsrDrv\".register_file]\nregisters = [1, 2, 3]\n",
     "bad.toml:2: devices./dev/NetUsrDrv.register_file.registers: expected register, value pairs"},
    {"register value word outside the record",
     "[devices.\"/dev/NetUsrDrv\".register_file]\nrecord_words = 2\nvalue_word = 2\n",
     "bad.toml:3: devices./dev/NetUsrDrv.register_file.value_word: word 2 lies outside a record of 2 words "
     "(record_words)"},
    {"register index word below the record", "[devices.\"/dev/NetUsrDrv\".register_file]\nindex_word = -1\n",
     "bad.toml:2: devices./dev/NetUsrDrv.register_file.index_word: word -1 lies outside a record of 3 words "
     "(record_words)"},
    {"register record without words", "[devices.\"/dev/NetUsrDrv\".register_file]\nrecord_words = 0\n",
     "bad.toml:2: devices./dev/NetUsrDrv.register_file.record_words: expected 1 or more words"},
    {"capture that is a folder", "[wifi]\ncapture = \".\"\n",
     "bad.toml:2: wifi.capture: cannot read {dir}/."},
    {"capture file that does not exist", "[wifi]\ncapture = \"nowhere.pcap\"\n",
     "bad.toml:2: wifi.capture: cannot read {dir}/nowhere.pcap"},
    {"unknown channel errno", "[wifi]\nchannel_errors = [\"EBUSY\", \"ENOPE\"]\n",
     "bad.toml:2: wifi.channel_errors: expected an errno name such as \"EBUSY\" or 0"},
    {"unknown key in wifi", "[wifi]\nchanel_errors = []\n",
     "bad.toml:2: wifi.chanel_errors: unknown key (expected one of: interface, capture, first_arrival_ms, "
     "arrival, open_error, fail_compile, fail_setfilter, dispatch_errors, channel_errors, socket_errno)"},
    {"unknown key in startup", "[startup]\nhub_rate = 115200\n",
     "bad.toml:2: startup.hub_rate: unknown key (expected one of: product_record, serial_ports, hub, gps, "
     "rfid, "
     "zigbee)"},
    {"startup speed out of range", "[startup]\nrfid = 0\n",
     "bad.toml:2: startup.rfid: expected 300..4000000"},
    {"startup flag that is not true or false", "[startup]\nserial_ports = 1\n",
     "bad.toml:2: startup.serial_ports: expected true or false"},
    {"unknown key in threads", "[threads]\nfail = 1\n",
     "bad.toml:2: threads.fail: unknown key (expected one of: fail_next, errno)"},
    {"unknown key in control_board", "[control_board]\ntype = 3\n",
     "bad.toml:2: control_board.type: unknown key (expected one of: board_type, version)"},
    {"control board version longer than its area", "[control_board]\nversion = \"1.3ABCDEF\"\n",
     "bad.toml:2: control_board.version: expected at most 8 characters: the board's version area holds 8 "
     "bytes"},
    {"negative board type", "[control_board]\nboard_type = -1\n",
     "bad.toml:2: control_board.board_type: expected 0..4294967295"},
    {"board type given twice",
     "[platform.DRV_SIBBoardTypeGet]\nwords = [3]\n[control_board]\nboard_type = 4\n",
     "bad.toml:4: control_board.board_type: the board type is also written by "
     "[platform.DRV_SIBBoardTypeGet]; "
     "give it once"},
    {"version given twice",
     "[control_board]\nversion = \"1.3A\"\n[platform.DRV_SIBVersionGet]\ntext = \"2.0B\"\n",
     "bad.toml:2: control_board.version: the version text is also written by [platform.DRV_SIBVersionGet]; "
     "give it once"},
};

std::string with_dir(std::string text, const std::string &dir)
{
    const auto at = text.find("{dir}");
    return at == std::string::npos ? text : text.replace(at, 5, dir);
}

TEST_F(ScenarioFiles, MistakesNameTheFileLineAndKey)
{
    for (const Mistake &mistake : kMistakes) {
        SCOPED_TRACE(mistake.what);
        EXPECT_EQ(error_of(mistake.text), with_dir(mistake.message, dir_));
    }
}

TEST_F(ScenarioFiles, TomlSyntaxErrorNamesTheFileAndLine)
{
    const std::string text[] = {"[camera]\nproduct_type = = 3\n", "[camera]\n\nname = \"unterminated\n",
                                "[files\n", "[camera]\nname = \"a\"\nname = \"b\"\n"};
    const char *prefix[] = {"bad.toml:2: ", "bad.toml:3: ", "bad.toml:1: ", "bad.toml:3: "};
    for (size_t i = 0; i < std::size(text); ++i) {
        SCOPED_TRACE(text[i]);
        const std::string message = error_of(text[i]);
        EXPECT_EQ(message.rfind(prefix[i], 0), 0u) << message;
        EXPECT_GT(message.size(), strlen(prefix[i])) << "with toml's description";
    }
}

// A table header whose name does not start as a key is refused like any other syntax error, in
// every build (toml++'s own check of that character is an assertion in a debug build).
TEST_F(ScenarioFiles, MalformedTableHeadersAreRefusedWithTheirLine)
{
    const std::string text[] = {"[=\n", "[[\n",      "[[[a]]]\n",       "[camera]\n[ [\n",
                                "[.\n", "[\"a\"[\n", "[files]\n\n[[.\n"};
    const char *prefix[] = {"bad.toml:1: ", "bad.toml:1: ", "bad.toml:1: ", "bad.toml:2: ",
                            "bad.toml:1: ", "bad.toml:1: ", "bad.toml:3: "};
    for (size_t i = 0; i < std::size(text); ++i) {
        SCOPED_TRACE(text[i]);
        const std::string message = error_of(text[i]);
        EXPECT_EQ(message.rfind(prefix[i], 0), 0u) << message;
        EXPECT_GT(message.size(), strlen(prefix[i])) << "with toml's description";
    }
}

TEST_F(ScenarioFiles, LoadingNamesTheFileItWasGiven)
{
    make("broken.toml", "[camera]\nproduct_type = \"x\"\n");
    try {
        sim::load_scenario(dir_ + "/broken.toml");
        ADD_FAILURE() << "loaded a broken scenario";
    } catch (const sim::ScenarioError &error) {
        EXPECT_EQ(std::string(error.what()),
                  dir_ + "/broken.toml:2: camera.product_type: expected an integer");
    }
    for (const std::string &path : {dir_ + "/missing.toml", dir_}) {
        try {
            sim::load_scenario(path);
            ADD_FAILURE() << "loaded " << path;
        } catch (const sim::ScenarioError &error) {
            EXPECT_EQ(std::string(error.what()), path + ": cannot read the scenario file");
        }
    }
}

} // namespace
