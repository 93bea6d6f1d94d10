/*
 * The RFID search's table of distinct tag IDs, read and written byte by byte with atomic accesses
 * (see rfid_table.h for why). Relaxed order suffices for the slot bytes: the count carries the
 * order, released by the search after the slot and acquired by every reader before the slots.
 */
#include "rfid_table.h"

#include "rfid_frame.h"

namespace
{

/* One slot byte, read or written as an atomic access. */
char cli_slot_byte(const CliRfidTable *pstTable, uint32_t ulSlot, uint32_t ulAt)
{
    return __atomic_load_n(&pstTable->aacId[ulSlot][ulAt], __ATOMIC_RELAXED);
}

void cli_set_slot_byte(CliRfidTable *pstTable, uint32_t ulSlot, uint32_t ulAt, char cByte)
{
    __atomic_store_n(&pstTable->aacId[ulSlot][ulAt], cByte, __ATOMIC_RELAXED);
}

/* Whether slot `ulSlot` holds the ID: its first eight characters compared up to the first
 * difference or zero byte, as strncmp over the ID's length compares them. */
bool cli_slot_holds(const CliRfidTable *pstTable, uint32_t ulSlot, const char *pcId)
{
    for (uint32_t i = 0; i < kRfidIdDigits; ++i) {
        const char cStored = cli_slot_byte(pstTable, ulSlot, i);
        if (cStored != pcId[i])
            return false;
        if (cStored == '\0')
            return true;
    }
    return true;
}

} // namespace

uint32_t cli_rfid_table_slots(uint32_t ulCount)
{
    return ulCount < CLI_RFID_MAX_IDS ? ulCount : CLI_RFID_MAX_IDS;
}

uint32_t cli_rfid_table_count(const CliRfidTable *pstTable)
{
    return __atomic_load_n(&pstTable->ulCount, __ATOMIC_ACQUIRE);
}

CliRfidStored cli_rfid_table_store(CliRfidTable *pstTable, const char *pcId)
{
    const uint32_t ulCount = cli_rfid_table_count(pstTable);
    const uint32_t ulStored = cli_rfid_table_slots(ulCount);
    for (uint32_t ulSlot = 0; ulSlot < ulStored; ++ulSlot)
        if (cli_slot_holds(pstTable, ulSlot, pcId))
            return CLI_RFID_KNOWN;
    if (ulCount >= CLI_RFID_MAX_IDS)
        return CLI_RFID_FULL;
    /* The slot first, the zero bytes after the digits included, then the count that covers it. */
    for (uint32_t i = 0; i < CLI_RFID_ID_SIZE; ++i)
        cli_set_slot_byte(pstTable, ulCount, i, i < kRfidIdDigits ? pcId[i] : '\0');
    __atomic_store_n(&pstTable->ulCount, ulCount + 1, __ATOMIC_RELEASE);
    return CLI_RFID_ADDED;
}

bool cli_rfid_table_entry(const CliRfidTable *pstTable, uint32_t ulIndex, char *pcOut, uint32_t ulCapacity)
{
    if (ulIndex >= CLI_RFID_MAX_IDS || pcOut == nullptr || ulCapacity < CLI_RFID_ID_SIZE + 1)
        return false;
    for (uint32_t i = 0; i < CLI_RFID_ID_SIZE; ++i)
        pcOut[i] = cli_slot_byte(pstTable, ulIndex, i);
    pcOut[CLI_RFID_ID_SIZE] = '\0';
    return true;
}

void cli_rfid_table_clear(CliRfidTable *pstTable)
{
    __atomic_store_n(&pstTable->ulCount, 0u, __ATOMIC_RELEASE);
    for (uint32_t ulSlot = 0; ulSlot < CLI_RFID_MAX_IDS; ++ulSlot)
        for (uint32_t i = 0; i < CLI_RFID_ID_SIZE; ++i)
            cli_set_slot_byte(pstTable, ulSlot, i, '\0');
}
