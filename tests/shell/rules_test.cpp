// How the shell supplies each parameter type, shown on functions of this test: what reaches the
// function, what is printed after it, and which types make a function one the shell refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "commands.h"

namespace
{

using shell::bind;
using shell::Entry;
using shell::make_entry;
using shell::Origin;

struct Seen {
    int fd = 0;
    std::string text;
    std::string edit;
    std::vector<uint8_t> bytes;
    uint8_t past_typed = 0xEE;
    uint32_t length = 0;
    timeval timeout{};
    bool words_preset = false;
    bool buffer_zeroed = false;
    bool ports_zeroed = false;
} g_seen;

uint32_t everything(int fd, const char *text, char *edit, const void *bytes, uint32_t length,
                    struct timeval timeout, uint32_t *word, int *signed_word, void *buffer,
                    CliSerialPort *ports)
{
    g_seen.fd = fd;
    g_seen.text = text;
    g_seen.edit = edit;
    const auto *raw = static_cast<const uint8_t *>(bytes);
    g_seen.bytes.assign(raw, raw + length);
    g_seen.past_typed = raw[1023]; // inside what the shell lends, past what was typed
    g_seen.length = length;
    g_seen.timeout = timeout;
    g_seen.words_preset = *word == 0 && *signed_word == -1;
    const auto *lent = static_cast<const uint8_t *>(buffer);
    g_seen.buffer_zeroed = std::all_of(lent, lent + 1024, [](uint8_t b) { return b == 0; });
    g_seen.ports_zeroed =
        ports[0].pcDevPath == nullptr && ports[2].ulFlag == 0 && ports[2].aulWord4To9[5] == 0;

    edit[0] = 'X';
    *word = 0xABCD;
    *signed_word = -2;
    memcpy(buffer, "\x24\x47\x00\x50", 4);
    ports[0].pcDevPath = "/dev/ttyAMA1";
    ports[0].ulFlag = 1;
    ports[2].ulFlag = 7;
    return 7;
}

Entry everything_entry()
{
    return make_entry("TEST", "everything", Origin::Support, "uint32_t",
                      "(int fd, const char *pcText, char *pcEdit, const void *pvBytes, uint32_t ulLen, "
                      "struct timeval stTimeout, uint32_t *pulWord, int *plWord, void *pvBuf, "
                      "CliSerialPort *pstPorts)",
                      bind(&everything));
}

TEST(Rules, EachTypeIsSuppliedAndPrinted)
{
    const Entry entry = everything_entry();
    ASSERT_TRUE(entry.callable_here()) << entry.refusal;
    EXPECT_EQ(entry.callable->words(), 6u);
    EXPECT_EQ(entry.callable->typed(),
              (std::vector<bool>{true, true, true, true, true, true, false, false, false, false}));
    EXPECT_EQ(shell::usage(entry), "everything fd pcText pcEdit pvBytes ulLen stTimeout");

    std::string error;
    auto call =
        entry.callable->prepare(entry.params, {"-3", "hello world", "abc", "FE 00 04", "5", "1.5"}, error);
    ASSERT_NE(call, nullptr) << error;
    EXPECT_EQ(call->invoke(), 7);
    EXPECT_EQ(g_seen.fd, -3);
    EXPECT_EQ(g_seen.text, "hello world");
    EXPECT_EQ(g_seen.edit, "abc");
    EXPECT_EQ(g_seen.bytes, (std::vector<uint8_t>{0xFE, 0x00, 0x04, 0x00, 0x00}))
        << "zeros after the typed bytes";
    EXPECT_EQ(g_seen.past_typed, 0);
    EXPECT_EQ(g_seen.timeout.tv_sec, 1);
    EXPECT_EQ(g_seen.timeout.tv_usec, 500000);
    EXPECT_TRUE(g_seen.words_preset) << "0 for an unsigned word, -1 (no descriptor) for a signed one";
    EXPECT_TRUE(g_seen.buffer_zeroed);
    EXPECT_TRUE(g_seen.ports_zeroed);
    EXPECT_EQ(call->outputs(), (shell::Lines{
                                   "  pcEdit = \"Xbc\"",
                                   "  *pulWord = 43981 (0xabcd)",
                                   "  *plWord = -2 (0xfffffffe)",
                                   "  pvBuf = 24 47 00 50",
                                   "  pstPorts[0] = \"/dev/ttyAMA1\", flag 1",
                                   "  pstPorts[1] = NULL, flag 0",
                                   "  pstPorts[2] = NULL, flag 7",
                               }));
}

TEST(Rules, RefusedWordNamesTheParameter)
{
    const Entry entry = everything_entry();
    std::string error;
    EXPECT_EQ(entry.callable->prepare(entry.params, {"3", "t", "e", "FE 0G", "5", "1"}, error), nullptr);
    EXPECT_EQ(error, "pvBytes: 'FE 0G' is not hex bytes (pairs of hex digits, like \"FE 00 04\")");
    EXPECT_EQ(entry.callable->prepare(entry.params, {"3", "t", "e", "", "-5", "1"}, error), nullptr);
    EXPECT_EQ(error,
              "ulLen: '-5' is out of range for uint32_t (0 to 4294967295): no sign for an unsigned number");
    EXPECT_EQ(entry.callable->prepare(entry.params, {"3", "t", "e", "", "5", "soon"}, error), nullptr);
    EXPECT_EQ(error, "stTimeout: 'soon' is not a time-out (SECONDS or SECONDS.FRACTION, e.g. 1.5)");
    EXPECT_EQ(entry.callable->prepare(entry.params, {"3"}, error), nullptr);
    EXPECT_EQ(error, "takes 6 words, 1 given");
}

void fill(uint32_t count, void *buffer)
{
    memset(buffer, 0xAB, count);
}

TEST(Rules, LentBufferHoldsTheLargestCountTyped)
{
    const Entry entry =
        make_entry("TEST", "fill", Origin::Support, "void", "(uint32_t ulCount, void *pvBuf)", bind(&fill));
    std::string error;
    auto call = entry.callable->prepare(entry.params, {"4096"}, error);
    ASSERT_NE(call, nullptr) << error;
    EXPECT_EQ(call->invoke(), std::nullopt) << "nothing comes back from a void function";
    const shell::Lines lines = call->outputs();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), std::string("  pvBuf = ").size() + 4096 * 3 - 1);

    EXPECT_EQ(entry.callable->prepare(entry.params, {"2000000"}, error), nullptr);
    EXPECT_EQ(error, "a count of 2000000 is more than the 1048576 bytes the shell lends for pvBuf");
}

void nothing_written(void *buffer)
{
    (void)buffer;
}

TEST(Rules, UntouchedBufferSaysSo)
{
    const Entry entry =
        make_entry("TEST", "nothing", Origin::Support, "void", "(void *pvBuf)", bind(&nothing_written));
    std::string error;
    auto call = entry.callable->prepare(entry.params, {}, error);
    ASSERT_NE(call, nullptr);
    call->invoke();
    EXPECT_EQ(call->outputs(), shell::Lines{"  pvBuf = (all zero)"});
}

int32_t small(uint8_t value)
{
    return -value;
}

TEST(Rules, StatusKeepsItsSignAndRange)
{
    const Entry entry =
        make_entry("TEST", "small", Origin::Support, "int32_t", "(uint8_t ucValue)", bind(&small));
    std::string error;
    auto call = entry.callable->prepare(entry.params, {"0xff"}, error);
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(call->invoke(), -255);
    EXPECT_EQ(entry.callable->prepare(entry.params, {"256"}, error), nullptr);
    EXPECT_EQ(entry.callable->status_lowest(), INT32_MIN);
    EXPECT_EQ(entry.callable->status_highest(), static_cast<uint64_t>(INT32_MAX));
}

void *thread_body(void *argument)
{
    return argument;
}
uint32_t rfid(const uint8_t *frame, CliRfidTable *table)
{
    return frame != nullptr && table != nullptr;
}
int32_t capture(const char *device, int32_t ignored, ulink_capture *handle)
{
    return device != nullptr && ignored == 0 && handle != nullptr;
}
char *text_back(void)
{
    return nullptr;
}

TEST(Rules, TypesTheShellCannotSupplyAreRefusedByName)
{
    const Entry body = make_entry("TEST", "CLI_ParkLedFlashThread", Origin::Support, "void *",
                                  "(void *pvArg)", bind(&thread_body));
    EXPECT_FALSE(body.callable_here());
    EXPECT_EQ(body.refusal,
              "CLI_ParkLedFlashThread is a thread body (void *(void *)) that the library starts on a "
              "thread of its own; the shell cannot call it");

    const Entry table = make_entry("TEST", "CLI_RfidDataDeal", Origin::Support, "uint32_t",
                                   "(const uint8_t *pucFrame, CliRfidTable *pstTable)", bind(&rfid));
    EXPECT_EQ(table.refusal,
              "CLI_RfidDataDeal takes CliRfidTable *pstTable, which the shell cannot supply; call it "
              "from a program instead");

    const Entry handle =
        make_entry("TEST", "ulink_recv_open", Origin::Support, "int32_t",
                   "(const char *pcDevice, int32_t lIgnored, ulink_capture *pstCapture)", bind(&capture));
    EXPECT_NE(handle.refusal.find("ulink_capture *pstCapture"), std::string::npos) << handle.refusal;

    const Entry pointer =
        make_entry("TEST", "text_back", Origin::Support, "char *", "(void)", bind(&text_back));
    EXPECT_EQ(pointer.refusal, "text_back returns char *, which the shell cannot report");

    std::string error;
    EXPECT_EQ(table.callable->prepare(table.params, {"FE"}, error), nullptr);
    EXPECT_FALSE(error.empty());
}

} // namespace
