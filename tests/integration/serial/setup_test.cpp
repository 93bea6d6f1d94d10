// Serial port set-up through libclidriver.so on the simulated camera: CLI_SetRsRate on a real
// pty (flags and speed read back from the line), CLI_Treadn against peers that answer, trickle,
// stay silent or hang up, and CLI_RsInit by product type.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "clidriver/clidriver.h"
#include "core/clock.h"
#include "fault_injection.h"
#include "link_fixture.h"

namespace
{

using namespace clitest;
using clitest::Call;

constexpr const char *kUart = "/dev/ttyS1";

// ---- CLI_SetRsRate ------------------------------------------------------------------------------

class SetRsRate : public LinkTest
{
  protected:
    // Opens the UART and leaves it as a cooked terminal at 4800 baud: every flag the command
    // clears is set, and so are flags it must leave alone.
    int open_cooked_uart()
    {
        const int fd = open(kUart, O_RDWR | O_NOCTTY);
        EXPECT_GE(fd, 0);
        termios line{};
        tcgetattr(fd, &line);
        line.c_lflag |= ISIG | ICANON | ECHO | ECHOE | ECHOK | IEXTEN;
        line.c_iflag |= kClearedInput | IGNBRK | BRKINT | IUCLC | IMAXBEL;
        line.c_oflag |= OPOST | ONLCR;
        line.c_cflag |= CRTSCTS | CSTOPB | HUPCL | CLOCAL;
        line.c_cc[VMIN] = 5;
        line.c_cc[VTIME] = 7;
        cfsetospeed(&line, B4800);
        cfsetispeed(&line, B4800);
        EXPECT_EQ(tcsetattr(fd, TCSANOW, &line), 0);
        return fd;
    }

    static termios line_now()
    {
        termios line{};
        EXPECT_TRUE(sim::serial_ports().port(kUart)->line_settings(&line));
        return line;
    }

    static constexpr tcflag_t kClearedInput =
        IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXANY | IXOFF;
};

TEST_F(SetRsRate, MakesTheLineRawEightNoneOneAndClearsOnlyWhatItMust)
{
    const int fd = open_cooked_uart();
    const termios before = line_now();
    ASSERT_EQ(before.c_iflag & kClearedInput, kClearedInput) << "the pty keeps every flag the test sets";
    ASSERT_NE(before.c_cflag & CRTSCTS, 0u);
    ASSERT_NE(before.c_cflag & CSTOPB, 0u);
    ASSERT_EQ(sim::serial_ports().port(kUart)->baud(), 4800u);

    const Call call = run([&] { return CLI_SetRsRate(fd, 4800); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, 0);

    const termios after = line_now();
    EXPECT_EQ(sim::serial_ports().port(kUart)->baud(), 9600u) << "4800 is not a rate the UARTs run at";
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B9600));
    EXPECT_EQ(after.c_lflag & (ISIG | ICANON | ECHO | ECHOE), 0u);
    EXPECT_EQ(after.c_lflag & (ECHOK | IEXTEN), ECHOK | IEXTEN) << "other local flags stay";
    EXPECT_EQ(after.c_iflag & kClearedInput, 0u);
    EXPECT_EQ(after.c_iflag & (IGNBRK | BRKINT | IUCLC | IMAXBEL), IGNBRK | BRKINT | IUCLC | IMAXBEL);
    EXPECT_EQ(after.c_oflag & OPOST, 0u);
    EXPECT_EQ(after.c_oflag & ONLCR, static_cast<tcflag_t>(ONLCR)) << "only OPOST is cleared";
    EXPECT_EQ(after.c_cflag & (CRTSCTS | CSTOPB | PARENB), 0u);
    EXPECT_EQ(after.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(after.c_cflag & (CLOCAL | CREAD | HUPCL), CLOCAL | CREAD | HUPCL);
    EXPECT_EQ(after.c_cc[VMIN], 5) << "the control characters are not touched";
    EXPECT_EQ(after.c_cc[VTIME], 7);
    close(fd);
}

struct SpeedRow {
    uint32_t asked;
    unsigned line;
};

// Rows show by name in test listings.
void PrintTo(const SpeedRow &row, std::ostream *out)
{
    *out << row.asked << " baud";
}

class SetRsRateSpeeds : public SetRsRate, public ::testing::WithParamInterface<SpeedRow>
{
};

TEST_P(SetRsRateSpeeds, ChoosesTheSpeedCode)
{
    const int fd = open_cooked_uart();
    const Call call = run([&] { return CLI_SetRsRate(fd, GetParam().asked); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(sim::serial_ports().port(kUart)->baud(), GetParam().line);
    close(fd);
}

INSTANTIATE_TEST_SUITE_P(Rates, SetRsRateSpeeds,
                         ::testing::Values(SpeedRow{19200, 19200}, SpeedRow{38400, 38400},
                                           SpeedRow{57600, 57600}, SpeedRow{115200, 115200},
                                           SpeedRow{9600, 9600}, SpeedRow{4800, 9600}, SpeedRow{0, 9600},
                                           SpeedRow{1200, 9600}, SpeedRow{230400, 9600},
                                           SpeedRow{0xFFFFFFFFu, 9600}),
                         [](const auto &info) { return "Asked" + std::to_string(info.param.asked); });

TEST_F(SetRsRate, ADescriptorThatIsNoTerminalFailsTcgetattr)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Call call = run([&] { return CLI_SetRsRate(ends[0], 9600); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_SetRsRate: tcgetattr() fail exit"});
    EXPECT_EQ(call.err, "[ERROR]:tcgetattr() fail exit\t@[src/cli_libfun.cpp CLI_SetRsRate]\r\n"
                        "tcgetattr:: Inappropriate ioctl for device\n");
    EXPECT_EQ(call.out, "");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(SetRsRate, ALineThatFailsTcgetattrIsLeftOpenAndUnchanged)
{
    const int fd = open_cooked_uart();
    faults().tcgetattr.arm(0, 1);
    const Call call = run([&] { return CLI_SetRsRate(fd, 115200); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_SetRsRate: tcgetattr() fail exit"});
    EXPECT_EQ(call.err, "[ERROR]:tcgetattr() fail exit\t@[src/cli_libfun.cpp CLI_SetRsRate]\r\n"
                        "tcgetattr:: Input/output error\n");
    EXPECT_EQ(sim::serial_ports().port(kUart)->baud(), 4800u);
    EXPECT_NE(fcntl(fd, F_GETFD), -1) << "the descriptor stays open";
    EXPECT_TRUE(call.of(sim::Kind::Close).empty());
    close(fd);
}

TEST_F(SetRsRate, ALineThatRefusesTheSettingsIsLeftAsItWas)
{
    const int fd = open_cooked_uart();
    faults().tcsetattr.arm(0, 1);
    const Call call = run([&] { return CLI_SetRsRate(fd, 115200); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_SetRsRate: tcsetattr() fail exit"});
    EXPECT_EQ(call.err, "[ERROR]:tcsetattr() fail exit\t@[src/cli_libfun.cpp CLI_SetRsRate]\r\n");
    const termios after = line_now();
    EXPECT_EQ(sim::serial_ports().port(kUart)->baud(), 4800u);
    EXPECT_NE(after.c_lflag & ICANON, 0u);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    close(fd);
}

// ---- CLI_Treadn ---------------------------------------------------------------------------------

class Treadn : public LinkTest
{
  protected:
    // The link opened raw at 9600, as the link operations leave it.
    int open_raw_link()
    {
        const int fd = open(kLink, O_RDWR | O_NOCTTY);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(CLI_SetRsRate(fd, 9600), 0u);
        return fd;
    }
};

TEST_F(Treadn, NothingAskedIsDoneAtOnceWithoutWaiting)
{
    hang_device([](sim::ScriptedPeer &) {});
    const int fd = open_raw_link();
    GuardedBuffer buffer;
    for (int32_t count : {0, -1, -1024}) {
        const Call call = run([&] { return CLI_Treadn(fd, count, timeval{5, 0}, buffer.data()); });
        EXPECT_EQ(call.status, 0) << count;
        EXPECT_EQ(call.waited, 0) << "no select, so no wait";
        EXPECT_TRUE(call.messages().empty());
    }
    // Without a select even a descriptor that cannot be watched is fine.
    EXPECT_EQ(run([&] { return CLI_Treadn(-1, 0, timeval{5, 0}, buffer.data()); }).status, 0);
    EXPECT_TRUE(buffer.untouched_from(0));
    close(fd);
}

TEST_F(Treadn, ReadsExactlyTheBytesAskedForAndLeavesTheRestOnTheLine)
{
    hang_device([](sim::ScriptedPeer &peer) {
        peer.add_rule({bytes_of("?"), bytes_of("hello world"), 20 * kMillisecond});
    });
    const int fd = open_raw_link();
    ASSERT_EQ(write(fd, "?", 1), 1);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 5, timeval{1, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(buffer.first(5), bytes_of("hello"));
    EXPECT_TRUE(buffer.untouched_from(5));
    EXPECT_EQ(call.waited, 20 * kMillisecond + 11 * kByteAt9600);
    GuardedBuffer rest;
    EXPECT_EQ(run([&] { return CLI_Treadn(fd, 6, timeval{1, 0}, rest.data()); }).status, 0);
    EXPECT_EQ(rest.first(6), bytes_of(" world"));
    close(fd);
}

TEST_F(Treadn, ThreeOfFiveBytesThenSilenceTimesOutAndKeepsTheThree)
{
    hang_device([](sim::ScriptedPeer &peer) { peer.announce(100 * kMillisecond, {0x31, 0x32, 0x33}); });
    const int fd = open_raw_link();
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 5, timeval{2, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read Timeout"});
    EXPECT_EQ(call.err, "") << "a time-out has no console line";
    EXPECT_EQ(buffer.first(3), (Bytes{0x31, 0x32, 0x33}));
    EXPECT_TRUE(buffer.untouched_from(3));
    // The bytes arrive, then the second wait runs its whole time-out.
    EXPECT_EQ(call.waited, 100 * kMillisecond + 3 * kByteAt9600 + 2 * kSecond);
    close(fd);
}

TEST_F(Treadn, ASilentLineTimesOutAfterExactlyOneTimeOut)
{
    hang_device([](sim::ScriptedPeer &) {});
    const int fd = open_raw_link();
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 1, timeval{3, 250000}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read Timeout"});
    EXPECT_EQ(call.waited, 3 * kSecond + 250 * kMillisecond);
    EXPECT_TRUE(buffer.untouched_from(0));
    close(fd);
}

TEST_F(Treadn, EachWaitGetsTheWholeTimeOutAgainSoATrickleReadsOnAndOn)
{
    hang_device([](sim::ScriptedPeer &peer) {
        peer.add_rule({bytes_of("?"), bytes_of("abcd")});
        peer.misbehave({.mode = sim::Misbehaviour::Mode::Trickle, .trickle_gap = 400 * kMillisecond});
    });
    const int fd = open_raw_link();
    ASSERT_EQ(write(fd, "?", 1), 1);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 4, timeval{0, 500000}, buffer.data()); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(buffer.first(4), bytes_of("abcd"));
    EXPECT_EQ(call.waited, 1600 * kMillisecond) << "four waits of 400 ms, each under the 500 ms time-out";
    close(fd);
}

TEST_F(Treadn, AFailedSelectReturnsOneWithoutAWord)
{
    // A number nothing holds, above those the output capture will take: select refuses it.
    int spare[8];
    for (int &number : spare)
        number = open("/dev/null", O_RDONLY);
    for (int number : spare)
        close(number);
    const int fd = spare[7];
    ASSERT_GE(fd, 0);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 4, timeval{1, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_TRUE(call.messages().empty());
    EXPECT_EQ(call.err, "");
    EXPECT_EQ(call.waited, 0);
}

TEST_F(Treadn, DescriptorsSelectCannotWatchAreRefusedLikeABadOne)
{
    GuardedBuffer buffer;
    for (int fd : {-1, FD_SETSIZE, FD_SETSIZE + 100}) {
        const Call call = run([&] { return CLI_Treadn(fd, 4, timeval{1, 0}, buffer.data()); });
        EXPECT_EQ(call.status, 1) << fd;
        EXPECT_TRUE(call.messages().empty());
    }
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(Treadn, AFailedReadIsReportedWithItsResult)
{
    // A directory is always "readable" and every read of it fails.
    const int fd = open("/", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 4, timeval{1, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read data fail -1"});
    EXPECT_EQ(call.err, "[ERROR]:read data fail -1\t@[src/cli_libfun.cpp CLI_Treadn]\r\n");
    close(fd);
}

TEST_F(Treadn, AnEmptyReadIsNoErrorTheLoopWaitsAgain)
{
    hang_device([](sim::ScriptedPeer &peer) { peer.announce(0, bytes_of("12345")); });
    const int fd = open_raw_link();
    for (int empties : {1, 2}) {
        faults().empty_read.arm(0, empties);
        GuardedBuffer buffer;
        const Call call = run([&] { return CLI_Treadn(fd, 2, timeval{1, 0}, buffer.data()); });
        EXPECT_EQ(call.status, 0) << empties << " empty reads in a row";
        EXPECT_TRUE(call.messages().empty());
        EXPECT_EQ(buffer.first(2), empties == 1 ? bytes_of("12") : bytes_of("34"));
    }
    close(fd);
}

TEST_F(Treadn, ALineThatStaysReadableButEmptyHasEndedAndFailsAtOnce)
{
    hang_device([](sim::ScriptedPeer &peer) { peer.announce(0, bytes_of("12345")); });
    const int fd = open_raw_link();
    faults().empty_read.arm(0, 3);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 2, timeval{1, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read data fail 0"});
    EXPECT_EQ(call.err, "[ERROR]:read data fail 0\t@[src/cli_libfun.cpp CLI_Treadn]\r\n");
    EXPECT_EQ(faults().empty_read.calls, 3) << "three empty reads, then no more tries";
    close(fd);
}

TEST_F(Treadn, APipeWhoseWriterClosedEndsTheReadInsteadOfSpinning)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    close(ends[1]);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(ends[0], 5, timeval{5, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read data fail 0"});
    EXPECT_EQ(buffer.first(2), bytes_of("ab")) << "what came before the end stays";
    EXPECT_TRUE(buffer.untouched_from(2));
    EXPECT_EQ(call.waited, 0);
    close(ends[0]);
}

TEST_F(Treadn, ALineThatHungUpEndsTheReadInsteadOfSpinning)
{
    hang_device([](sim::ScriptedPeer &peer) { peer.misbehave({.hang_up_after = 1}); });
    const int fd = open_raw_link();
    ASSERT_EQ(write(fd, "x", 1), 1);
    GuardedBuffer buffer;
    const Call call = run([&] { return CLI_Treadn(fd, 4, timeval{5, 0}, buffer.data()); });
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.messages(), std::vector<std::string>{"ERROR CLI_Treadn: read data fail 0"});
    EXPECT_LT(call.waited, 5 * kSecond);
    close(fd);
}

// ---- CLI_RsInit ---------------------------------------------------------------------------------

// Three records as the shell hands them over, every word set to something the command must
// either replace or leave alone.
struct PortList {
    static constexpr const char *kShellPath = "/dev/shell-own";
    CliSerialPort records[3];
    PortList()
    {
        for (CliSerialPort &record : records) {
            record.pcDevPath = kShellPath;
            record.ulWord2 = 0x22222222;
            record.ulFlag = 0x33333333;
            for (uint32_t &word : record.aulWord4To9)
                word = 0x44444444;
        }
    }
};

struct ProductRow {
    uint32_t product;
    const char *port1; // null: record left as the shell had it
    const char *port2;
};

// Rows show by name in test listings.
void PrintTo(const ProductRow &row, std::ostream *out)
{
    *out << "product type " << row.product;
}

class RsInit : public LinkTest
{
  protected:
    // Stores the product type in the product record as the version command does at start-up.
    void product(uint32_t type)
    {
        scenario().product_type = type;
        restart();
        run([] { return CLI_GetProductAllVersion(); });
    }

    static const std::string kCapAfterInit;
};

const std::string RsInit::kCapAfterInit =
    " INFO CLI_RsInit: Cap: HUB[0][0] GPS[1][9600] RFID[0][0] ZigBee[0][0]";

class RsInitByProduct : public RsInit, public ::testing::WithParamInterface<ProductRow>
{
};

TEST_P(RsInitByProduct, FillsThePortListAndTheLinkTable)
{
    const ProductRow &row = GetParam();
    product(row.product);
    PortList ports;
    const Call call = run([&] { return CLI_RsInit(ports.records); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(), std::vector<std::string>{kCapAfterInit});
    EXPECT_EQ(call.out, "");
    EXPECT_EQ(call.err, "");

    EXPECT_STREQ(ports.records[0].pcDevPath, "/dev/ttyAMBA1");
    EXPECT_EQ(ports.records[0].ulWord2, 0u);
    EXPECT_EQ(ports.records[0].ulFlag, 1u);
    for (uint32_t word : ports.records[0].aulWord4To9)
        EXPECT_EQ(word, 0u);

    const char *expected[] = {row.port1, row.port2};
    for (int index = 1; index <= 2; ++index) {
        SCOPED_TRACE("record " + std::to_string(index));
        const CliSerialPort &record = ports.records[index];
        if (expected[index - 1] == nullptr) {
            EXPECT_STREQ(record.pcDevPath, PortList::kShellPath);
            EXPECT_EQ(record.ulFlag, 0x33333333u);
        } else {
            EXPECT_STREQ(record.pcDevPath, expected[index - 1]);
            EXPECT_EQ(record.ulFlag, 0u);
        }
        EXPECT_EQ(record.ulWord2, 0x22222222u) << "only the path and the flag are the library's";
        for (uint32_t word : record.aulWord4To9)
            EXPECT_EQ(word, 0x44444444u);
    }

    EXPECT_STREQ(gastComCap.pcDevPath, "/dev/ttyC0");
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_GPS].ulSupport, 1u);
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_GPS].ulRate, 9600u);
    for (uint32_t type : {COM_TYPE_HUB, COM_TYPE_ZIGBEE, COM_TYPE_RFID}) {
        EXPECT_EQ(gastComCap.astDev[type].ulSupport, 0u);
        EXPECT_EQ(gastComCap.astDev[type].ulRate, 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Products, RsInitByProduct,
    ::testing::Values(ProductRow{0, "/dev/ttyS1", "/dev/ttyS1"}, ProductRow{4, "/dev/ttyS1", "/dev/ttyS1"},
                      ProductRow{8, "/dev/ttyS1", "/dev/ttyS1"}, ProductRow{22, "/dev/ttyS2", nullptr},
                      ProductRow{23, "/dev/ttyS2", nullptr}, ProductRow{24, "/dev/ttyS2", nullptr},
                      ProductRow{61, "/dev/ttyS1", "/dev/ttyS2"}, ProductRow{62, "/dev/ttyS1", "/dev/ttyS2"},
                      ProductRow{93, "/dev/ttyS1", "/dev/ttyS1"}, ProductRow{7, nullptr, nullptr},
                      ProductRow{60, nullptr, nullptr}, ProductRow{0xFFFFFFFFu, nullptr, nullptr}),
    [](const auto &info) { return "Product" + std::to_string(info.param.product); });

TEST_F(RsInit, BeforeTheVersionCommandTheProductTypeIsZero)
{
    scenario().product_type = 62;
    restart(); // the platform knows 62, but nothing has asked it yet
    PortList ports;
    EXPECT_EQ(run([&] { return CLI_RsInit(ports.records); }).status, 0);
    EXPECT_STREQ(ports.records[1].pcDevPath, "/dev/ttyS1");
    EXPECT_STREQ(ports.records[2].pcDevPath, "/dev/ttyS1");
}

TEST_F(RsInit, ASecondCallNamesTheLineTheFirstOneSet)
{
    PortList first;
    ASSERT_EQ(run([&] { return CLI_RsInit(first.records); }).status, 0);
    PortList second;
    const Call call = run([&] { return CLI_RsInit(second.records); });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO CLI_RsInit: Com: /dev/ttyC0", kCapAfterInit}));
}

TEST_F(RsInit, KeepsWhatThePlatformDeclaredAndResetsOnlyTheGpsEntry)
{
    gastComCap.pcDevPath = "/dev/ttyS2";
    gastComCap.astDev[COM_TYPE_HUB] = {1, 115200};
    gastComCap.astDev[COM_TYPE_ZIGBEE] = {2, 38400};
    gastComCap.astDev[COM_TYPE_GPS] = {0, 4800};
    gastComCap.astDev[COM_TYPE_RFID] = {1, 19200};
    PortList ports;
    const Call call = run([&] { return CLI_RsInit(ports.records); });
    EXPECT_EQ(call.messages(),
              (std::vector<std::string>{" INFO CLI_RsInit: Com: /dev/ttyS2",
                                        " INFO CLI_RsInit: Cap: HUB[1][115200] GPS[1][9600] RFID[1][19200] "
                                        "ZigBee[2][38400]"}));
    EXPECT_STREQ(gastComCap.pcDevPath, "/dev/ttyC0");
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_ZIGBEE].ulSupport, 2u);
    EXPECT_EQ(gastComCap.astDev[COM_TYPE_RFID].ulRate, 19200u);
}

class RsInitDeathTest : public RsInit
{
};

// The source line of the assertion report, which the line names.
int assert_line()
{
    std::ifstream source(CLIDRIVER_SOURCE_DIR "/src/serial.cpp");
    std::string text;
    for (int number = 1; std::getline(source, text); ++number)
        if (text.find("\"ASSERT[%s | %s | %d]\\r\\n\"") != std::string::npos)
            return number;
    return -1;
}

TEST_F(RsInitDeathTest, ANullListEndsTheProcessWithStatusZeroAfterTheAssertLine)
{
    const int line = assert_line();
    ASSERT_GT(line, 0);
    EXPECT_EXIT(CLI_RsInit(nullptr), ::testing::ExitedWithCode(0),
                "^ASSERT\\[src/cli_libfun\\.cpp \\| CLI_RsInit \\| " + std::to_string(line) + "\\]\r\n$");
}

} // namespace
