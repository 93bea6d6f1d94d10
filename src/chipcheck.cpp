/*
 * Chip self-checks of the main board: the two I/O expanders and the Ethernet PHY, the USB devices
 * attached, and the system-on-chip model. A check's verdict is its status word (0 passed, 1
 * failed); a passed check also prints an "...ok" line for the operator.
 */
#include "cli_libfun_unit.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "device.h"
#include "devices.h"

/* The pattern written into the PHY register under test: mixed ones and zeros in both bytes, so a
 * register that keeps only some bits, or none, reads back something else. */
static constexpr int32_t kPhyTestValue = 0x8A2;

/* The PHY register the Ethernet check writes (0x1B), compared bit for bit. */
static constexpr uint32_t kEthernetCheckRegister = 27;

/* Chip identities the GPIO driver reports. */
static constexpr uint32_t kChipIdHi3516A = 1;
static constexpr uint32_t kChipIdHi3516D = 2;

/* Only the head of the USB listing is searched, a few lines: a device listed after it is not seen.
 * The buffer holds one byte more so that it stays terminated. */
static constexpr size_t kUsbListingHead = 312;

/* Identifiers of each USB device type, tried in this order as plain substrings of the listing. The
 * lists stand as the station has always used them: "C811" is upper case although lsusb prints
 * lower case, so it never matches; a device behind it is found by another entry or not at all. */
static const char *const kapcUsbWlanIds[] = {"9271", "f179", "8179", "C811", "818b", nullptr};
static const char *const kapcUsbSecondIds[] = {"2949:8700", "0125", "9b05", "9b3c", nullptr};

/* One access to a PHY register, as the network driver takes it. */
struct CliPhyAccess {
    uint32_t ulReserved; /* always 0 */
    uint32_t ulRegister;
    uint32_t ulValue; /* filled by a read, taken by a write */
};

/* A right shift by the low byte of the count, as the ARM core shifts: a count of 32 or more
 * leaves only the sign. Signed values shift arithmetically. */
static int32_t cli_shift_right(int32_t lValue, int32_t lShift)
{
    const uint32_t ulCount = static_cast<uint32_t>(lShift) & 0xFFu;
    if (ulCount >= 32)
        return lValue < 0 ? -1 : 0;
    return lValue >> ulCount;
}

/* The expander checks pass their argument by value: none for the PCA9555, the index for the
 * PCA9534. */
static uint32_t cli_check_expander(const char *pcFunction, unsigned long ulRequest, unsigned long ulArgument)
{
    CliDevice stDevice;
    if (!cli_device_open(&stDevice, pcFunction, kGpioDevice, O_RDWR))
        return 1;
    if (cli_device_request_value(&stDevice, ulRequest, ulArgument) < 0)
        return cli_device_failed(&stDevice, ulRequest);
    cli_device_close(&stDevice);
    return 0;
}

uint32_t COM_Chipcheck_PCA9555(void)
{
    if (cli_check_expander(__func__, kPca9555Check, 0) != 0)
        return 1;
    CLI_RESULT("PCA9555 chipcheck test............ok");
    return 0;
}

uint32_t COM_Chipcheck_PCA9534(uint32_t ulIndex)
{
    if (cli_check_expander(__func__, kPca9534Check, ulIndex) != 0)
        return 1;
    CLI_RESULT("PCA9534[%u] chipcheck test............ok", ulIndex);
    return 0;
}

/* Writes the test pattern into one PHY register, reads it back and puts the register's value back
 * as it was. The shift lets a caller ignore low bits that a PHY does not keep. A request that
 * fails ends the check where it stands: after the pattern went in, it stays in the register. The
 * driver reports a failed MDIO access as -1; any other result is a completed access. */
uint32_t COM_Chipcheck_Phy(uint32_t ulRegister, int32_t lShift)
{
    CliDevice stDevice;
    if (!CLI_DEVICE_OPEN(&stDevice, kNetUserDevice, O_RDWR))
        return 1;

    /* Read, write the pattern, read it back, restore: each access fails only with -1. */
    CliPhyAccess stAccess = {0, ulRegister, 0};
    if (cli_request_failed(cli_device_request(&stDevice, kPhyRegisterRead, &stAccess), CLI_REQUEST_MINUS_ONE))
        return cli_device_failed(&stDevice, kPhyRegisterRead);
    const uint32_t ulSaved = stAccess.ulValue;

    stAccess.ulValue = static_cast<uint32_t>(kPhyTestValue);
    if (cli_request_failed(cli_device_request(&stDevice, kPhyRegisterWrite, &stAccess),
                           CLI_REQUEST_MINUS_ONE))
        return cli_device_failed(&stDevice, kPhyRegisterWrite);
    if (cli_request_failed(cli_device_request(&stDevice, kPhyRegisterRead, &stAccess), CLI_REQUEST_MINUS_ONE))
        return cli_device_failed(&stDevice, kPhyRegisterRead);
    const int32_t lCheckVal = static_cast<int32_t>(stAccess.ulValue);

    stAccess.ulValue = ulSaved;
    if (cli_request_failed(cli_device_request(&stDevice, kPhyRegisterWrite, &stAccess),
                           CLI_REQUEST_MINUS_ONE))
        return cli_device_failed(&stDevice, kPhyRegisterWrite);
    cli_device_close(&stDevice);

    const int32_t lExpected = cli_shift_right(kPhyTestValue, lShift);
    const int32_t lSeen = cli_shift_right(lCheckVal, lShift);
    if (lExpected != lSeen) {
        CLI_FAIL("PHY_TEST_VALUE[%#x] != lCheckVal[%#x]", static_cast<unsigned>(lExpected),
                 static_cast<unsigned>(lSeen));
        return 1;
    }
    CLI_RESULT("Phy chipcheck test.............ok");
    return 0;
}

/* Both checks always run, the PHY first, so the operator sees every chip that failed. */
uint32_t CLI_ChipCheckEthernet(void)
{
    uint32_t ulResult = COM_Chipcheck_Phy(kEthernetCheckRegister, 0);
    ulResult |= COM_Chipcheck_PCA9555();
    return ulResult;
}

/* Whether a device of the given type shows in the head of the lsusb listing. A device found
 * prints nothing; a device missing is only the status word, the station reports it. */
uint32_t CLI_ChipCheckUsbDevice(uint32_t ulUsbType)
{
    FILE *pstPipe = popen("lsusb", "r");
    if (pstPipe == nullptr) {
        CLI_CALL_FAILED("popen");
        return 1;
    }
    char acListing[kUsbListingHead + 1] = {};
    const size_t ulRead = fread(acListing, 1, kUsbListingHead, pstPipe);
    pclose(pstPipe);
    if (ulRead == 0) {
        CLI_CALL_FAILED("fread no wlan0");
        return 1;
    }

    const char *const *ppcIds = nullptr;
    if (ulUsbType == 0) {
        ppcIds = kapcUsbWlanIds;
    } else if (ulUsbType == 1) {
        ppcIds = kapcUsbSecondIds;
    } else {
        CLI_CALL_FAILED("unknow usb device type"); /* spelt as station logs match it */
        return 1;
    }
    for (; *ppcIds != nullptr; ++ppcIds)
        if (strstr(acListing, *ppcIds) != nullptr)
            return 0;
    return 1;
}

/* Any identity the driver gives is a successful read; one this library does not know is shown as
 * a number for the operator to look up. */
uint32_t CLI_GetCpuInfo(void)
{
    uint32_t ulChipId = 0;
    if (CLI_DEVICE_QUERY(kGpioDevice, O_RDWR, kChipIdGet, &ulChipId, CLI_REQUEST_NEGATIVE_FAILS) != 0)
        return 1;

    if (ulChipId == kChipIdHi3516A)
        CLI_RESULT("cpu chipid:HI3516A");
    else if (ulChipId == kChipIdHi3516D)
        CLI_RESULT("cpu chipid:HI3516D");
    else
        CLI_RESULT("unknown cpu chipid:%#x", ulChipId);
    return 0;
}
