/*
 * Version reports: the application software from the factory version file, the CPLD from its
 * driver, the network uplink and, on fibre units, the EPON module's release; the product record
 * that the serial set-up reads; and the version commands that have nothing to report on this
 * family and answer with a silent success.
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
#include "product.h"

/* Written at the factory; its first line is the software version string, and what follows the
 * first '-' of that line is the part operators compare with the work order. */
static constexpr char kSoftwareVersionFile[] = "/program/factory/version";

/* Written by the EPON module's daemon: "key=value" lines, one of them "releasever". */
static constexpr char kEponInfoFile[] = "/tmp/epon_dev_info";

/* The uplink type of a fibre unit, as the network driver reports it. */
static constexpr uint32_t kUplinkEpon = 2;

/* The request's name as the driver header spells it. A failed uplink request is reported with the
 * address of this text where the request number would go (see CLI_GetInterfaceVersion). */
static constexpr char kNetUserInterfaceGetName[] = "DEV_NET_USER_INTERFACE_GET";

/* The EPON file is read in pieces of at most this many bytes, terminator included, and the release
 * is shown from a fixed column of the "releasever" line. */
static constexpr int kEponLineSize = 40;
static constexpr char kEponReleaseKey[] = "releasever";
static constexpr size_t kEponReleaseColumn = 11; /* after the key's ten letters and one separator */

/* Zero at load: the product type reads 0 until CLI_GetProductAllVersion has run. */
CliProductRecord g_stCliProduct = {};

/* Camera type codes and their paired codes, for the rest of the camera software; this library
 * only exports the table. */
CliCamType gastCamTypeList[3] = {
    {0x02012A00u, 0xA006u},
    {0x02012A01u, 0xA008u},
    {0x02012A02u, 0xA007u},
};

/* The factory version string shows everything after its first '-': "V5.5.0-2.1.3-20261020" is
 * software 2.1.3-20261020. Characters go to the terminal as they are read, so a line of any
 * length needs no buffer; the line ends at a line feed, a carriage return or the end of file. */
uint32_t COM_Display_SoftVER(void)
{
    FILE *pstFile = fopen(kSoftwareVersionFile, "r");
    if (pstFile == nullptr)
        return CLI_OPEN_FAILED(kSoftwareVersionFile);

    printf("Software            : ");
    uint32_t ulDashes = 0;
    for (int lChar = fgetc(pstFile); lChar != EOF && lChar != '\n' && lChar != '\r'; lChar = fgetc(pstFile)) {
        if (ulDashes != 0)
            putchar(lChar);
        if (lChar == '-')
            ++ulDashes;
    }
    puts("\r");
    fclose(pstFile);
    return 0;
}

uint32_t CLI_GetEncodeVersion(void)
{
    return COM_Display_SoftVER() != 0 ? 1u : 0u;
}

uint32_t Cli_GetVersion_CPLD(void)
{
    uint32_t ulVersion = 0;
    if (CLI_DEVICE_QUERY(kCpldDevice, O_RDWR, kCpldVersionGet, &ulVersion, CLI_REQUEST_NEGATIVE_FAILS) != 0)
        return 1;
    /* Three digits at least: the work order lists CPLD 7 as 007. */
    CLI_RESULT("CPLD                : %03u", ulVersion);
    return 0;
}

/* The label is printed whether or not a release line is found, so the operator sees that the
 * module's file was there; an empty field means it named no release. */
uint32_t COM_GetVersion_Epon(void)
{
    char acLine[kEponLineSize] = {};
    FILE *pstFile = fopen(kEponInfoFile, "r");
    if (pstFile == nullptr) {
        CLI_ERROR("open %s fail", kEponInfoFile);
        return 1;
    }

    printf("EPON Software       : ");
    /* A line longer than the buffer arrives in pieces, each judged as a line of its own. */
    while (fgets(acLine, kEponLineSize, pstFile) != nullptr) {
        if (strncmp(acLine, kEponReleaseKey, sizeof kEponReleaseKey - 1) != 0)
            continue;
        /* Three characters from the release column, never past the end of what was read: a
         * "releasever" line cut short shows no release rather than an earlier line's bytes. */
        if (strlen(acLine) > kEponReleaseColumn)
            printf("%.3s", acLine + kEponReleaseColumn);
        break;
    }
    puts("\r");
    fclose(pstFile);
    return 0;
}

/* Only a fibre unit has anything to report about its uplink; a copper unit stays silent. */
uint32_t CLI_GetInterfaceVersion(void)
{
    /* This driver is missing on models without a managed uplink: its own wording, no console line. */
    const int fd = open(kNetUserDevice, O_RDWR);
    if (fd < 0) {
        CLI_ERROR("open %s fail, May not support", kNetUserDevice);
        return 1;
    }
    CliDevice stDevice = {__func__, kNetUserDevice, fd};

    uint32_t ulType = 0;
    if (cli_device_request(&stDevice, kNetUserInterfaceGet, &ulType) < 0) {
        /* The line carries the address of the request's name rather than the request number, as
         * operators' logs of this failure have always shown a meaningless number here. The
         * address is handed over as the unsigned word the placeholder reads, so the conversion is
         * defined on every processor (on the 32-bit camera it is the whole address). */
        const unsigned ulShown = static_cast<unsigned>(reinterpret_cast<uintptr_t>(kNetUserInterfaceGetName));
        CLI_ERROR("ioctl cmd[%x] failed", ulShown);
        CLI_CONSOLE("ioctl cmd[%#x]", ulShown);
        cli_device_close(&stDevice);
        return 1;
    }
    cli_device_close(&stDevice);
    if (ulType != kUplinkEpon)
        return 0;
    return COM_GetVersion_Epon() != 0 ? 1u : 0u;
}

/* The three reports run in this order whatever each returns, so the operator always sees every
 * line that can be shown. They are called by their exported names: a camera model whose firmware
 * supplies its own sensor or interface report has that one run here. */
uint32_t CLI_GetVersionAll(void)
{
    (void)CLI_GetEncodeVersion();
    (void)CLI_GetSensorVersion();
    (void)CLI_GetInterfaceVersion();
    return 0;
}

/* The product type from the manufacturing data; the serial set-up picks the unit's ports by it. */
uint32_t CLI_GetProductAllVersion(void)
{
    memset(&g_stCliProduct, 0, sizeof g_stCliProduct);
    g_stCliProduct.ulProductType = drv_GetManuparseProductType();
    return 0;
}

/* ---- Parts with no version of their own on this family --------------------------------------- */

/* These parts carry no readable version on this camera family. Each answers success without a
 * word, so a station script that asks for every version goes on without an "unsupport" line. */

/* Spelt so beside CLI_GetMotorVersion: firmware links against both names. */
uint32_t CLI_GetMototVersion(void)
{
    return 0;
}

uint32_t CLI_GetCamVersion(void)
{
    return 0;
}

uint32_t CLI_GetEthernetVersion(void)
{
    return 0;
}

uint32_t CLI_GetMotorVersion(void)
{
    return 0;
}

uint32_t CLI_GetPowerVersion(void)
{
    return 0;
}

uint32_t CLI_GetSensorVersion(void)
{
    return 0;
}
