/*
 * The table of distinct tag IDs that the RFID search fills (gstCliRfidTable, or any table of the
 * same layout): a count, then 100 slots of 10 bytes, each an ID as eight hexadecimal digits and
 * two zero bytes.
 *
 * The search thread adds IDs while the operator's commands list and clear the table, with no
 * lock between them. Every byte of the table is therefore read and written as an atomic access
 * of its own size, so the layout stays the one the shell and stations know, and the count is
 * published after the slot it covers: whoever reads the count sees every slot below it whole.
 * Only one thread adds at a time (the search); clearing is the caller's, when no search adds.
 */
#ifndef CLIDRIVER_SRC_RFID_TABLE_H
#define CLIDRIVER_SRC_RFID_TABLE_H

#include <stdint.h>

#include "clidriver/clidriver.h"

/* What became of an ID handed to the table. */
enum CliRfidStored {
    CLI_RFID_KNOWN, /* already in the table */
    CLI_RFID_ADDED, /* stored in the next slot, the count raised */
    CLI_RFID_FULL,  /* new, but all 100 slots are taken: not stored, the count kept */
};

/* Looks for the ID `pcId` (eight characters) among the stored entries and adds it if it is new
 * and there is room. A count beyond the table (never written by this library) is read as a full
 * table. */
CliRfidStored cli_rfid_table_store(CliRfidTable *pstTable, const char *pcId);

/* The count as stored, read after every slot it covers was written. */
uint32_t cli_rfid_table_count(const CliRfidTable *pstTable);

/* The number of slots a count covers: the count, at most the table's 100 slots. */
uint32_t cli_rfid_table_slots(uint32_t ulCount);

/* Copies slot `ulIndex` (below 100) into `pcOut`, which holds `ulCapacity` bytes, with a
 * terminating zero whatever the slot holds; returns false for an index outside the table or too
 * small a buffer (nothing written then). */
bool cli_rfid_table_entry(const CliRfidTable *pstTable, uint32_t ulIndex, char *pcOut, uint32_t ulCapacity);

/* Back to no entries: the count first, then every slot byte. */
void cli_rfid_table_clear(CliRfidTable *pstTable);

#endif /* CLIDRIVER_SRC_RFID_TABLE_H */
