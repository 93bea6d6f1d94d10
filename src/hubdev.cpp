/*
 * The devices on the peripheral link besides the GPS receiver and the ZigBee radio: the RFID
 * reader with its background tag search, and the peripheral box's heater and temperature sensor.
 *
 * The tag search runs on a detached thread of its own while the operator goes on with other
 * commands: one command starts it, lists the distinct IDs seen so far, and stops it. The thread and
 * the commands share the exported search flag and tag table without a lock, as stations and the
 * shell know them; every access to them is atomic, so neither side ever reads a torn word.
 */
#include "cli_libfun_unit.h"

#include <pthread.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "hub_frame.h"
#include "link.h"
#include "rfid_frame.h"
#include "rfid_table.h"

/* 1 while a tag search is meant to run; the search thread goes on while it is non-zero. */
volatile int32_t gulCliRfidSearch = 0;
/* The distinct tag IDs the search has seen since it started. */
CliRfidTable gstCliRfidTable = {};

namespace
{

/* ---- RFID search --------------------------------------------------------------------------- */

/* What the operator asks of CLI_GetRfidIDInfo. */
constexpr uint32_t kRfidStart = 0;
constexpr uint32_t kRfidList = 1;
constexpr uint32_t kRfidStop = 2;

constexpr int32_t kSearchOn = 1;
constexpr int32_t kSearchOff = 0;

/* Time the stop gives the thread to see the cleared flag before the table is emptied. */
constexpr unsigned kStopGraceSeconds = 1;
/* Pause after a frame the search could not use, and after a failed receive: a line that fails
 * at once (a reader unplugged, a port hung up) must not keep the thread spinning. */
constexpr useconds_t kSearchPauseMicroseconds = 20 * 1000;
/* How often a new search looks whether the one before has let go of the reader. */
constexpr useconds_t kHandOverPollMicroseconds = 20 * 1000;

/* Which start the running search belongs to, raised by every start. A search that is still inside
 * a receive when the operator stops and starts again finds it changed and leaves, so that two
 * searches never read the reader at once. Private: not part of what stations see. */
uint32_t g_ulSearchStarts = 0;
/* 1 while a search holds the reader's link (from before its open until after its close). */
int32_t g_lReaderHeld = 0;

bool cli_search_flag_set(void)
{
    return __atomic_load_n(&gulCliRfidSearch, __ATOMIC_ACQUIRE) != kSearchOff;
}

/* The search started as number `ulStart` is still the one the operator wants. */
bool cli_search_wanted(uint32_t ulStart)
{
    return cli_search_flag_set() && __atomic_load_n(&g_ulSearchStarts, __ATOMIC_ACQUIRE) == ulStart;
}

/* Waits until no earlier search holds the reader, then holds it. False when this search was
 * stopped or replaced meanwhile: it then never touches the line. */
bool cli_search_take_reader(uint32_t ulStart)
{
    for (;;) {
        int32_t lFree = 0;
        if (__atomic_compare_exchange_n(&g_lReaderHeld, &lFree, 1, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
            return true;
        if (!cli_search_wanted(ulStart))
            return false;
        (void)usleep(kHandOverPollMicroseconds);
    }
}

void cli_search_let_go(void)
{
    __atomic_store_n(&g_lReaderHeld, 0, __ATOMIC_RELEASE);
}

/* ---- Peripheral box ------------------------------------------------------------------------ */

/* The box's commands, in the command byte of its hub frames. */
constexpr uint8_t kBoxPrepareHeater = 0xE1;  /* one byte 0x00, sent before the heater goes on */
constexpr uint8_t kBoxSwitchHeater = 0x06;   /* one byte: kBoxHeaterOn or kBoxHeaterOff */
constexpr uint8_t kBoxAskTemperature = 0x07; /* no payload; the answer's first byte is the reading */
constexpr uint8_t kBoxPrepareByte = 0x00;
constexpr uint8_t kBoxHeaterOn = 0x01;
constexpr uint8_t kBoxHeaterOff = 0x00;

/* The operator's mode that switches the heater on; any other value switches it off. */
constexpr uint32_t kHeaterModeOn = 1;

/* A failed CLI_ComOpen may still hold the line (the speed would not set): the command that asked
 * lets it go, so that a retried command finds no descriptor of an earlier try. */
void cli_drop_failed_open(int fd)
{
    if (fd >= 0)
        (void)close(fd);
}

} // namespace

/* ---- RFID reader ----------------------------------------------------------------------------- */

uint32_t CLI_SetRfidRate(uint32_t ulRate)
{
    /* Taken by the next CLI_ComOpen of the reader's link, the next search's. */
    cli_link_set_rate(COM_TYPE_RFID, ulRate);
    return 0;
}

uint32_t CLI_RfidDataDeal(const uint8_t *pucFrame, CliRfidTable *pstTable)
{
    if (pucFrame == nullptr || pstTable == nullptr) {
        CLI_ERROR("null frame or table");
        return 1;
    }
    /* Callers hand over a whole frame from the link; a tag report is read from its first bytes. */
    char acId[kRfidIdTextSize];
    if (!cli_rfid_tag_id(pucFrame, kRfidTagReportSize, acId, sizeof acId)) {
        CLI_ERROR("unknow or unsupport Cmd"); /* operators' scripts match this text as it stands */
        return 1;
    }
    CLI_INFO("search ID : %s", acId);
    if (cli_rfid_table_store(pstTable, acId) == CLI_RFID_FULL)
        CLI_INFO("ID table full, %s not stored", acId);
    return 0;
}

void *CLI_SearchRfidID(void *pvTable)
{
    CliRfidTable *const pstTable = static_cast<CliRfidTable *>(pvTable);
    const uint32_t ulStart = __atomic_load_n(&g_ulSearchStarts, __ATOMIC_ACQUIRE);
    if (pstTable == nullptr || !cli_search_take_reader(ulStart))
        return nullptr;

    int fd = -1;
    if (CLI_ComOpen(COM_TYPE_RFID, &fd) != 0) {
        CLI_FAIL("open com fail");
        cli_drop_failed_open(fd);
        cli_search_let_go();
        return nullptr; /* the flag stays set: the operator's stop ends this search */
    }
    if (cli_link_hub_mode()) {
        /* Behind the hub only the reader's reports must come back: the GPS and ZigBee channels are
         * closed, then the reader is told to start its inventory. */
        (void)CLI_ComSend(fd, COM_TYPE_GPS, nullptr, 0, kHubCmdClose);
        (void)CLI_ComSend(fd, COM_TYPE_ZIGBEE, nullptr, 0, kHubCmdClose);
        if (CLI_ComSend(fd, COM_TYPE_RFID, kRfidStartInventory, kRfidStartInventorySize, kHubCmdPass) != 0) {
            CLI_CALL_FAILED("CLI_ComSend");
            (void)CLI_ComClose(COM_TYPE_RFID, &fd);
            cli_search_let_go();
            return nullptr;
        }
    }
    /* Reports from before this search (or a half frame) must not start its table. */
    (void)tcflush(fd, TCIOFLUSH);

    uint8_t aucFrame[kHubBufferSize];
    while (cli_search_wanted(ulStart)) {
        uint32_t ulLen = 0; /* stays 0 when the receive finds no frame at all */
        if (CLI_ComRecv(fd, COM_TYPE_RFID, aucFrame, &ulLen) != 0) {
            CLI_ERROR("recv com data fail");
            (void)usleep(kSearchPauseMicroseconds);
            continue;
        }
        /* A receive may outlast the stop's grace: a frame that completes after the stop belongs
         * to no search, and the table is the stop's to empty. */
        if (!cli_search_wanted(ulStart))
            break;
        if (ulLen == 0)
            continue; /* the line held no frame for the reader this time */
        if (cli_rfid_frame_kind(aucFrame, ulLen) == CLI_RFID_SHORT_REPORT) {
            CLI_ERROR("frame len %u too short", ulLen);
        } else {
            /* The decoder reads a tag report's first bytes; of a shorter frame it must find zeros
             * there, never what an earlier frame left in the buffer. */
            if (ulLen < kRfidTagReportSize)
                memset(aucFrame + ulLen, 0, kRfidTagReportSize - ulLen);
            if (CLI_RfidDataDeal(aucFrame, pstTable) == 0)
                continue;
        }
        CLI_ERROR("Data deal fail");
        (void)usleep(kSearchPauseMicroseconds);
    }
    (void)CLI_ComClose(COM_TYPE_RFID, &fd);
    cli_search_let_go();
    return nullptr;
}

uint32_t CLI_GetRfidIDInfo(uint32_t ulOption)
{
    switch (ulOption) {
    case kRfidStart: {
        if (cli_search_flag_set()) {
            CLI_RESULT("Search ID already start");
            return 0;
        }
        cli_rfid_table_clear(&gstCliRfidTable);
        __atomic_add_fetch(&g_ulSearchStarts, 1u, __ATOMIC_ACQ_REL);
        __atomic_store_n(&gulCliRfidSearch, kSearchOn, __ATOMIC_RELEASE);
        pthread_t stThread;
        if (pthread_create(&stThread, nullptr, CLI_SearchRfidID, &gstCliRfidTable) != 0) {
            /* The flag stays set: the next start says the search is on, and a stop clears it. */
            CLI_CALL_FAILED("pthread_create");
            return 1;
        }
        (void)pthread_detach(stThread);
        return 0;
    }
    case kRfidList: {
        /* Whether or not a search runs: the count first, then the slots it covers. */
        const uint32_t ulCount = cli_rfid_table_count(&gstCliRfidTable);
        const uint32_t ulSlots = cli_rfid_table_slots(ulCount);
        for (uint32_t ulSlot = 0; ulSlot < ulSlots; ++ulSlot) {
            char acId[CLI_RFID_ID_SIZE + 1];
            if (cli_rfid_table_entry(&gstCliRfidTable, ulSlot, acId, sizeof acId))
                CLI_RESULT("ID : %s", acId);
        }
        CLI_RESULT("Total Number: %d", static_cast<int>(ulCount));
        return 0;
    }
    case kRfidStop:
        if (!cli_search_flag_set()) {
            CLI_RESULT("Search ID not start");
            return 0;
        }
        __atomic_store_n(&gulCliRfidSearch, kSearchOff, __ATOMIC_RELEASE);
        (void)sleep(kStopGraceSeconds);
        /* A stopped search leaves an empty table: stations list before they stop. */
        cli_rfid_table_clear(&gstCliRfidTable);
        return 0;
    default:
        CLI_RESULT("unknow option"); /* operators' scripts match this text as it stands */
        return 1;
    }
}

/* ---- Peripheral box: heater and temperature --------------------------------------------------- */

/* Both box commands let go of the line with a plain close: the box's port is the hub's own and
 * has no channel to close. */
uint32_t CLI_PeripheralCtrlHeat(uint32_t ulIgnored, uint32_t ulMode)
{
    (void)ulIgnored;
    int fd = -1;
    if (CLI_ComOpen(COM_TYPE_HUB, &fd) != 0) {
        CLI_FAIL("open file fail");
        cli_drop_failed_open(fd);
        return 1;
    }
    const bool bOn = ulMode == kHeaterModeOn;
    if (bOn) {
        if (CLI_ComSend(fd, COM_TYPE_HUB, &kBoxPrepareByte, 1, kBoxPrepareHeater) != 0) {
            CLI_CALL_FAILED("CLI_ComSend");
            (void)close(fd);
            return 1;
        }
    }
    const uint8_t ucSwitch = bOn ? kBoxHeaterOn : kBoxHeaterOff;
    uint32_t ulResult = 0;
    if (CLI_ComSend(fd, COM_TYPE_HUB, &ucSwitch, 1, kBoxSwitchHeater) != 0) {
        CLI_CALL_FAILED("CLI_ComSend");
        ulResult = 1;
    }
    (void)close(fd);
    return ulResult;
}

uint32_t CLI_PeripheralGetTemp(void)
{
    int fd = -1;
    if (CLI_ComOpen(COM_TYPE_HUB, &fd) != 0) {
        CLI_FAIL("open file fail");
        cli_drop_failed_open(fd);
        return 1;
    }
    if (CLI_ComSend(fd, COM_TYPE_HUB, nullptr, 0, kBoxAskTemperature) != 0) {
        CLI_CALL_FAILED("CLI_ComSend");
        (void)close(fd);
        return 1;
    }
    /* The link hands back a whole frame's payload; the reading is its first byte, and whatever a
     * box sends after it is not looked at. No payload at all is no reading. */
    uint8_t aucReply[kHubBufferSize] = {};
    uint32_t ulLen = 0;
    if (CLI_ComRecv(fd, COM_TYPE_HUB, aucReply, &ulLen) != 0 || ulLen == 0) {
        (void)close(fd);
        CLI_CALL_FAILED("CLI_ComRecv");
        return 1;
    }
    CLI_RESULT("Peripheral Temperature: %d", static_cast<int>(aucReply[0]));
    (void)close(fd);
    return 0;
}
