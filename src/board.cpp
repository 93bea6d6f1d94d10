/*
 * The traffic camera's boards: the parking indicator lamps with their flash thread, the control
 * board (SIB) with its lamps, RS-485 port and version, and the storage and alarm-port queries.
 *
 * Everything here goes through the platform's driver library: DRV_SetParkLed for the parking
 * lamps, the SIB operations for the control board, and the manufacturing-data queries for storage
 * and alarm ports. Nothing here opens a device of its own.
 *
 * Two things outlive the command that starts them: the flash thread, which polls its enable flag
 * for the life of the process, and the control-board link, opened on the first board command and
 * never closed. The words they share with the commands are read and written with atomic builtins
 * (a single aligned word each, as on the camera), so a command on the shell's thread and the flash
 * thread never tear or cache them.
 */
#include "cli_libfun_unit.h"

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "sib_version.h"

static_assert(sizeof(CliParkLedCtrl) == 20, "park LED request: five words");
static_assert(sizeof(CliSibPowerLamp) == 12, "power lamp request: three words");
static_assert(sizeof(CliSibVersion) == kSibVersionSize, "the board's version area is eight bytes");
static_assert(sizeof(CliAlarmCount) == 8, "alarm count: inputs and outputs");

/* ---- Parking indicator lamps ------------------------------------------------------------------ */

/* The platform's lamp group of the parking indicator and the level it is driven at; both are the
 * platform's values, handed over unchanged. */
static constexpr uint32_t kParkLedGroup = 2;
static constexpr uint32_t kParkLedLevel = 255;

/* The platform's colour codes. The flash pattern and the all-lamps command use the first two. */
static constexpr uint32_t kParkColour1 = 1;
static constexpr uint32_t kParkColour3 = 3;
static constexpr uint32_t kParkColour4 = 4;

/* One step of the flash pattern lasts this long; a cycle is four steps. */
static constexpr useconds_t kParkFlashStepUs = 200000;
/* How often an idle flash thread looks at its enable flag. */
static constexpr useconds_t kParkFlashPollUs = 500000;

/* The enable flag's value that makes the thread flash; anything else leaves it idle. */
static constexpr int32_t kParkFlashOn = 1;

/* Written by CLI_ParkLedAlternate on the shell's thread, read by every flash thread. A stale read
 * costs one extra cycle or one extra poll, never a torn value. */
static int32_t s_lParkLedFlash = 0;

/* Applies one request to the parking lamps and hands back the platform's answer. The fourth word
 * means nothing to this library and goes as 0. */
static int32_t cli_park_led_set(uint32_t ulColour, uint32_t ulOn)
{
    CliParkLedCtrl stLedCtrl = {kParkLedGroup, ulColour, ulOn, 0, kParkLedLevel};
    return DRV_SetParkLed(&stLedCtrl);
}

/* The operator's colour selector as the platform's colour code; 0 when the selector is not one of
 * the lamps. Selector 2 is colour 3 on the platform: the one the flash pattern uses beside 1. */
static uint32_t cli_park_led_colour(int32_t enLedColor)
{
    switch (enLedColor) {
    case 1:
        return kParkColour1;
    case 2:
        return kParkColour3;
    case 4:
        return kParkColour4;
    default:
        return 0;
    }
}

/* The colour is judged before the on flag, so a call wrong in both reports only the colour. */
uint32_t CLi_ParkLedCtrlSingle(int32_t enLedColor, uint32_t bIsOn)
{
    const uint32_t ulColour = cli_park_led_colour(enLedColor);
    if (ulColour == 0) {
        CLI_FAIL("enLedColor[%d] error", enLedColor);
        return 1;
    }
    if (bIsOn > 1) {
        CLI_FAIL("bIsOn[%u] error", bIsOn);
        return 1;
    }
    if (cli_park_led_set(ulColour, bIsOn) != 0) {
        CLI_FAIL("SetParkLed(&pstLedCtrl) call error");
        return 1;
    }
    return 0;
}

/* Both colours of the pattern, colour 3 first. The operator judges the lamps by eye, so a lamp the
 * platform refuses does not fail the command. */
uint32_t CLI_ParkLedCtrlAll(uint32_t bIsOn)
{
    if (bIsOn > 1) {
        CLI_FAIL("bIsOn[%u] error", bIsOn);
        return 1;
    }
    (void)cli_park_led_set(kParkColour3, bIsOn);
    (void)cli_park_led_set(kParkColour1, bIsOn);
    return 0;
}

/* Both lamps go dark first, so a stopped pattern leaves nothing lit (once the running cycle has
 * ended) and a started one begins from dark. The flash thread must have been started with
 * CLI_ParkLedTestInit for the flag to have an effect. */
uint32_t CLI_ParkLedAlternate(uint32_t ulIgnored, uint32_t ulOn)
{
    (void)ulIgnored;
    (void)cli_park_led_set(kParkColour1, 0);
    (void)cli_park_led_set(kParkColour3, 0);
    __atomic_store_n(&s_lParkLedFlash, ulOn == 1 ? kParkFlashOn : 0, __ATOMIC_RELAXED);
    return 0;
}

/* One 800 ms cycle: colour 1 on and off, then colour 3 on and off, 200 ms each. */
int32_t CLI_ParkLedRunCtl(void)
{
    (void)cli_park_led_set(kParkColour1, 1);
    (void)usleep(kParkFlashStepUs);
    (void)cli_park_led_set(kParkColour1, 0);
    (void)usleep(kParkFlashStepUs);
    (void)cli_park_led_set(kParkColour3, 1);
    (void)usleep(kParkFlashStepUs);
    (void)cli_park_led_set(kParkColour3, 0);
    return usleep(kParkFlashStepUs);
}

/* Runs for the life of the process. The cycle is called by its exported name, so a firmware that
 * brings its own pattern has that one flash here. */
void *CLI_ParkLedFlashThread(void *pvArg)
{
    (void)pvArg;
    for (;;) {
        if (__atomic_load_n(&s_lParkLedFlash, __ATOMIC_RELAXED) == kParkFlashOn)
            (void)CLI_ParkLedRunCtl();
        else
            (void)usleep(kParkFlashPollUs);
    }
}

/* Each call starts one more thread: a station that runs the init twice gets two flashers. The
 * thread is never joined or detached; it lives as long as the shell. */
uint32_t CLI_ParkLedTestInit(void)
{
    pthread_t stParkLedFlashThreadID;
    if (pthread_create(&stParkLedFlashThreadID, nullptr, CLI_ParkLedFlashThread, nullptr) != 0) {
        CLI_FAIL("failed to create stParkLedFlashThreadID");
        return 1;
    }
    return 0;
}

/* ---- Control board (SIB) ---------------------------------------------------------------------- */

/* The board library's running-light test: lamp group 7, stepping every 500 ms; period 0 stops it. */
static constexpr uint32_t kSibWaterLampGroup = 7;
static constexpr uint32_t kSibWaterLampPeriodMs = 500;
static constexpr uint32_t kSibWaterLampStop = 0;

/* The first two words of a power lamp request, as the board library defines them. */
static constexpr uint32_t kSibPowerLampWord1 = 1;
static constexpr uint32_t kSibPowerLampWord2 = 3;

/* The board link's state: 1 until DRV_OpenSIB succeeds, then 0 for the life of the process. */
static constexpr int32_t kSibLinkClosed = 1;
static int32_t s_lSibLinkClosed = kSibLinkClosed;

/* The RS-485 rate handed to every loop test: 0 until the operator sets one. */
static uint32_t s_ulSib485BaudRate = 0;

/* Opens the board link on the first board command. A failed open leaves the link closed, so the
 * next command tries again; reports under the command the operator called. */
static uint32_t cli_sib_open(const char *pcFunction)
{
    if (__atomic_load_n(&s_lSibLinkClosed, __ATOMIC_ACQUIRE) != kSibLinkClosed)
        return 0;
    int32_t lHandle = -1; /* filled by the board library, never used afterwards */
    if (DRV_OpenSIB(&lHandle) != 0) {
        CLI_FAIL_AS(pcFunction, "DRV_OpenSIB faild!!"); /* spelt as operators' logs have always shown it */
        return 1;
    }
    __atomic_store_n(&s_lSibLinkClosed, 0, __ATOMIC_RELEASE);
    return 0;
}

/* The board runs its own light sequence; its status is the command's result, whatever it means to
 * the board library. */
uint32_t CLI_ParkLampLedCtrl(uint32_t ulOn)
{
    if (cli_sib_open(__func__) != 0)
        return 1;
    return static_cast<uint32_t>(
        DRV_SIBCliWaterLampTest(kSibWaterLampGroup, ulOn == 1 ? kSibWaterLampPeriodMs : kSibWaterLampStop));
}

uint32_t CLI_CtrlBoardPowerLedCtrl(uint32_t ulState)
{
    if (cli_sib_open(__func__) != 0)
        return 1;
    CliSibPowerLamp stRequest = {{kSibPowerLampWord1, kSibPowerLampWord2, ulState}};
    if (DRV_SIBPowerlLampCtl(&stRequest) != 0) {
        CLI_CALL_FAILED("DRV_SIBPowerlLampCtl");
        return 1;
    }
    return 0;
}

/* Only stored: the board hears the rate with the next loop test. */
void CLI_SetCtrlBoard485BaudRata(uint32_t ulBaudRate)
{
    __atomic_store_n(&s_ulSib485BaudRate, ulBaudRate, __ATOMIC_RELAXED);
}

/* The three arguments mean what the board library makes of them; the third is a byte there. */
uint32_t CLI_CtrlBoard485Test(uint32_t ulArg1, uint32_t ulArg2, uint32_t ulArg3)
{
    if (cli_sib_open(__func__) != 0)
        return 1;
    const uint8_t ucArg3 = static_cast<uint8_t>(ulArg3 & 0xFFu);
    if (DRV_SIBTest485(ulArg1, ulArg2, ucArg3, __atomic_load_n(&s_ulSib485BaudRate, __ATOMIC_RELAXED)) != 0) {
        CLI_CALL_FAILED("DRV_SIBTest485");
        return 1;
    }
    return 0;
}

/* The board type, then the PCB revision and the MCU version taken out of the board's version
 * text ("1.3A": PCB A, MCU 13). */
uint32_t CLI_GetCtrlBoardVersion(void)
{
    uint32_t ulBoardType = 0;
    CliSibVersion stVersion = {};
    char acPcb[kSibPartSize] = {};
    char acMcu[kSibPartSize] = {};
    if (cli_sib_open(__func__) != 0)
        return 1;
    if (DRV_SIBBoardTypeGet(&ulBoardType) != 0) {
        CLI_CALL_FAILED("DRV_SIBBoardTypeGet");
        return 1;
    }
    if (DRV_SIBVersionGet(&stVersion) != 0) {
        /* Named so in operators' logs, although the operation is DRV_SIBVersionGet. */
        CLI_FAIL("DRV_SIBGetVersion faild!!");
        return 1;
    }
    CLI_RESULT("ctrl board: ");
    CLI_RESULT("Board type          : %02u", ulBoardType);
    cli_sib_pcb_text(stVersion.acText, sizeof stVersion.acText, acPcb, sizeof acPcb);
    cli_sib_mcu_text(stVersion.acText, sizeof stVersion.acText, acMcu, sizeof acMcu);
    CLI_RESULT("PCB                 : %s", acPcb);
    CLI_RESULT("MCU                 : %s", acMcu);
    return 0;
}

/* Updating the control board is done by the board's own tools, not from this command line. */
uint32_t CLI_CtrlboardUpdate(void)
{
    return 1;
}

/* ---- Storage and alarm ports ------------------------------------------------------------------ */

/* Flash kinds: what the platform says for eMMC, and the codes the caller receives. */
static constexpr uint32_t kPlatformFlashEmmc = 1;
static constexpr uint32_t kFlashTypeNand = 0;
static constexpr uint32_t kFlashTypeEmmc = 2;

/* The product capability that says the system sits on an eMMC of its own, and the disk numbers
 * the system eMMC has with and without it. */
static constexpr uint32_t kCapSystemEmmc = 7;
static constexpr uint32_t kSysEmmcDiskWithCap = 0;
static constexpr uint32_t kSysEmmcDiskWithoutCap = 2;

/* The platform reports the card's original capacity in units 1024 times smaller than the caller's
 * (kilobytes for megabytes). */
static constexpr unsigned kCapacityUnitShift = 10;

/* The platform is asked first, so it sees the query even when the pointers are then refused. */
uint32_t CLI_GetAlarmPortNum(uint32_t *pulIn, uint32_t *pulOut)
{
    const CliAlarmCount *pstCount = drv_GetAlarmCnt();
    if (pulIn == nullptr || pulOut == nullptr) {
        CLI_INFO("NULL alm in/out num pointer");
        return 1;
    }
    *pulIn = pstCount->ulInputs;
    *pulOut = pstCount->ulOutputs;
    return 0;
}

uint32_t CLI_GetMmcOriginalCapacity(uint32_t ulArg, uint32_t *pulCapacity)
{
    *pulCapacity = COMDRV_GetOriginalCapacity(ulArg) >> kCapacityUnitShift;
    return 0;
}

/* Anything the platform does not call eMMC is taken as NAND, the family's usual flash. */
uint32_t CLI_GetFlashType(uint32_t *pulType)
{
    if (drv_GetFlashType() == kPlatformFlashEmmc) {
        *pulType = kFlashTypeEmmc;
        CLI_INFO("flash type: EMMC");
    } else {
        *pulType = kFlashTypeNand;
        CLI_INFO("flash type(default): NAND");
    }
    return 0;
}

uint32_t CLI_GetSysEmmcDiskNum(void)
{
    return drv_IsProductCapSupt(kCapSystemEmmc) == 1 ? kSysEmmcDiskWithCap : kSysEmmcDiskWithoutCap;
}
