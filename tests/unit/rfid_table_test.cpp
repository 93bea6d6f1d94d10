// The RFID search's table of distinct IDs as pure logic, compiled straight into the test: a new
// ID goes into the next slot with its two zero bytes and then the count, a known one is found
// however its slot ends, a full table (or a count beyond it) takes nothing more and writes
// nothing past its 1004 bytes, and clearing empties every byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "rfid_frame.h"
#include "rfid_table.h"

namespace
{

// A table with guard bytes after it: nothing may ever be written there.
struct GuardedTable {
    CliRfidTable table;
    uint8_t guard[64];
};

constexpr uint8_t kGuard = 0xEE;

class RfidTable : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        memset(&held_, 0, sizeof held_);
        memset(held_.guard, kGuard, sizeof held_.guard);
    }

    bool guard_intact() const
    {
        for (const uint8_t byte : held_.guard)
            if (byte != kGuard)
                return false;
        return true;
    }

    static std::string id_of(int n)
    {
        char id[16];
        snprintf(id, sizeof id, "%08X", n);
        return id;
    }

    GuardedTable held_;
    CliRfidTable &table_ = held_.table;
};

TEST_F(RfidTable, ANewIdTakesTheNextSlotWithTwoZeroBytesAndRaisesTheCount)
{
    EXPECT_EQ(cli_rfid_table_store(&table_, "001A2BFF"), CLI_RFID_ADDED);
    EXPECT_EQ(cli_rfid_table_store(&table_, "DEADBEEF"), CLI_RFID_ADDED);
    EXPECT_EQ(table_.ulCount, 2u);
    EXPECT_EQ(cli_rfid_table_count(&table_), 2u);
    EXPECT_EQ(std::string(table_.aacId[0], 10), std::string("001A2BFF\0\0", 10));
    EXPECT_EQ(std::string(table_.aacId[1], 10), std::string("DEADBEEF\0\0", 10));
    EXPECT_EQ(std::string(table_.aacId[2], 10), std::string(10, '\0'));
}

TEST_F(RfidTable, AKnownIdIsFoundAndNothingChanges)
{
    ASSERT_EQ(cli_rfid_table_store(&table_, "001A2BFF"), CLI_RFID_ADDED);
    const CliRfidTable before = table_;
    EXPECT_EQ(cli_rfid_table_store(&table_, "001A2BFF"), CLI_RFID_KNOWN);
    EXPECT_EQ(memcmp(&before, &table_, sizeof before), 0);
}

TEST_F(RfidTable, OnlyTheFirstEightCharactersOfASlotAreCompared)
{
    // A slot written by someone else, its last two bytes not zero: still the same ID.
    memcpy(table_.aacId[0], "001A2BFFXY", 10);
    table_.ulCount = 1;
    EXPECT_EQ(cli_rfid_table_store(&table_, "001A2BFF"), CLI_RFID_KNOWN);
    // A slot whose text ends early is another ID.
    memcpy(table_.aacId[1], "001A\0\0\0\0\0\0", 10);
    table_.ulCount = 2;
    EXPECT_EQ(cli_rfid_table_store(&table_, "001A0000"), CLI_RFID_ADDED);
    EXPECT_EQ(table_.ulCount, 3u);
}

TEST_F(RfidTable, SlotsBeyondTheCountAreNotSearched)
{
    memcpy(table_.aacId[5], "001A2BFF\0\0", 10);
    EXPECT_EQ(cli_rfid_table_store(&table_, "001A2BFF"), CLI_RFID_ADDED);
    EXPECT_EQ(table_.ulCount, 1u);
}

TEST_F(RfidTable, AHundredIdsFillItAndTheNextIsRefusedWithNothingWrittenPastIt)
{
    for (int n = 0; n < CLI_RFID_MAX_IDS; ++n)
        ASSERT_EQ(cli_rfid_table_store(&table_, id_of(n).c_str()), CLI_RFID_ADDED) << n;
    const CliRfidTable full = table_;
    EXPECT_EQ(cli_rfid_table_store(&table_, id_of(100).c_str()), CLI_RFID_FULL);
    EXPECT_EQ(cli_rfid_table_store(&table_, id_of(99).c_str()), CLI_RFID_KNOWN)
        << "the last slot is still searched";
    EXPECT_EQ(memcmp(&full, &table_, sizeof full), 0);
    EXPECT_EQ(table_.ulCount, 100u);
    EXPECT_TRUE(guard_intact());
}

TEST_F(RfidTable, ACountBeyondTheTableIsReadAsAFullTable)
{
    for (int n = 0; n < CLI_RFID_MAX_IDS; ++n)
        memcpy(table_.aacId[n], (id_of(n) + std::string(2, '\0')).data(), 10);
    table_.ulCount = 0xFFFFFFFFu;
    EXPECT_EQ(cli_rfid_table_store(&table_, id_of(42).c_str()), CLI_RFID_KNOWN);
    EXPECT_EQ(cli_rfid_table_store(&table_, id_of(4242).c_str()), CLI_RFID_FULL);
    EXPECT_EQ(table_.ulCount, 0xFFFFFFFFu);
    EXPECT_EQ(cli_rfid_table_slots(0xFFFFFFFFu), 100u);
    EXPECT_EQ(cli_rfid_table_slots(7), 7u);
    EXPECT_TRUE(guard_intact());
}

TEST_F(RfidTable, AnEntryIsCopiedWithATerminatingZeroWhateverItsSlotHolds)
{
    memcpy(table_.aacId[99], "0123456789", 10); // no zero byte at all
    char out[CLI_RFID_ID_SIZE + 1];
    ASSERT_TRUE(cli_rfid_table_entry(&table_, 99, out, sizeof out));
    EXPECT_STREQ(out, "0123456789");
    EXPECT_FALSE(cli_rfid_table_entry(&table_, 100, out, sizeof out)) << "no slot 100";
    EXPECT_FALSE(cli_rfid_table_entry(&table_, 0, out, CLI_RFID_ID_SIZE)) << "no room for the zero";
}

TEST_F(RfidTable, ClearingEmptiesTheCountAndEverySlotByte)
{
    for (int n = 0; n < 30; ++n)
        cli_rfid_table_store(&table_, id_of(n).c_str());
    cli_rfid_table_clear(&table_);
    const CliRfidTable empty = {};
    EXPECT_EQ(memcmp(&empty, &table_, sizeof empty), 0);
    EXPECT_TRUE(guard_intact());
}

} // namespace
