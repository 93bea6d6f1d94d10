/*
 * Serial port set-up shared by every serial user: raw 8N1 at a chosen speed, reads of an exact
 * length bounded by a time-out per wait, and the shell's serial port list with the peripheral
 * link's capability table.
 */
#include "cli_libfun_unit.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "link.h"
#include "product.h"

namespace
{

/* The console UART: entry 0 of the shell's port list on every camera. */
constexpr char kConsolePort[] = "/dev/ttyAMBA1";
/* The two RS-232/RS-485 UARTs that a product may wire to its connector. */
constexpr char kUartS1[] = "/dev/ttyS1";
constexpr char kUartS2[] = "/dev/ttyS2";
/* The line that carries the peripheral link (GPS, RFID, ZigBee, the hub). */
constexpr char kLinkPort[] = "/dev/ttyC0";
/* The GPS receiver talks NMEA at 9600 baud until told otherwise. */
constexpr uint32_t kGpsDefaultRate = 9600;

/* A line that select keeps calling readable while read finds nothing has ended: a pipe whose
 * writer closed, a tty that hung up. One empty read is let pass (the loop waits again, as it
 * always has); this many in a row end the read as a failed one, so the shell's process never
 * spins on a dead line. */
constexpr uint32_t kEmptyReadsAtEnd = 3;

/* The termios speed code for a baud rate; rates the UARTs are not run at get 9600. */
speed_t cli_speed_code(uint32_t ulBaudRate)
{
    switch (ulBaudRate) {
    case 19200:
        return B19200;
    case 38400:
        return B38400;
    case 57600:
        return B57600;
    case 115200:
        return B115200;
    default:
        return B9600;
    }
}

} // namespace

uint32_t CLI_SetRsRate(int fd, uint32_t ulBaudRate)
{
    struct termios stLine = {};
    if (tcgetattr(fd, &stLine) != 0) {
        const int lErr = errno; /* the report itself may change errno before perror reads it */
        CLI_FAIL("tcgetattr() fail exit");
        errno = lErr;
        perror("tcgetattr:");
        return 1;
    }
    /* Raw bytes: no line editing, echo or signals from what a peripheral sends. */
    stLine.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE);
    /* No parity marking, stripping, CR/LF translation or software flow control; break handling,
     * IUCLC and IMAXBEL stay as the platform left them. */
    stLine.c_iflag &= ~static_cast<tcflag_t>(IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON |
                                             IXANY | IXOFF);
    stLine.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    /* The speed lives in c_cflag itself; no hardware flow control, 8 data bits, no parity, one
     * stop bit. CLOCAL, CREAD and the control characters stay as they were. */
    stLine.c_cflag &= ~static_cast<tcflag_t>(CBAUD | CBAUDEX | CRTSCTS);
    stLine.c_cflag |= cli_speed_code(ulBaudRate);
    stLine.c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB | CSIZE);
    stLine.c_cflag |= CS8;
    if (tcsetattr(fd, TCSANOW, &stLine) != 0) {
        CLI_FAIL("tcsetattr() fail exit"); /* the words say exit; the caller decides */
        return 1;
    }
    return 0;
}

uint32_t CLI_Treadn(int fd, int32_t lCount, struct timeval stTimeout, void *pvBuf)
{
    uint8_t *pucAt = static_cast<uint8_t *>(pvBuf);
    int32_t lLeft = lCount;
    uint32_t ulEmptyReads = 0;
    if (lCount <= 0)
        return 0;
    /* select cannot watch a descriptor outside its set; such a descriptor is refused as select
     * refuses a bad one, without touching memory beyond the set. */
    if (fd < 0 || fd >= FD_SETSIZE)
        return 1;
    while (lLeft > 0) {
        fd_set stReadable;
        FD_ZERO(&stReadable);
        FD_SET(fd, &stReadable);
        /* Every wait gets the whole time-out again: a slow trickle of bytes keeps the read going. */
        struct timeval stWait = stTimeout;
        const int lReady = select(fd + 1, &stReadable, nullptr, nullptr, &stWait);
        if (lReady < 0)
            return 1;
        if (lReady == 0) {
            CLI_ERROR("read Timeout");
            return 1;
        }
        const ssize_t lGot = read(fd, pucAt, static_cast<size_t>(lLeft));
        if (lGot < 0) {
            CLI_FAIL("read data fail %d", static_cast<int>(lGot));
            return 1;
        }
        if (lGot == 0) {
            /* Readable yet empty: once is no error, but a line that stays so has ended and would
             * otherwise hold the shell in this loop for ever. It fails as a read does. */
            if (++ulEmptyReads >= kEmptyReadsAtEnd) {
                CLI_FAIL("read data fail %d", 0);
                return 1;
            }
            continue;
        }
        ulEmptyReads = 0;
        pucAt += lGot;
        lLeft -= static_cast<int32_t>(lGot);
    }
    return 0;
}

uint32_t CLI_RsInit(CliSerialPort *pstPorts)
{
    if (pstPorts == nullptr) {
        /* A shell without a port list is broken beyond what a status word can tell: the process
         * stops here with the assertion line. */
        fprintf(stderr, "ASSERT[%s | %s | %d]\r\n", kCliSourceFile, __func__, __LINE__);
        exit(0);
    }

    CliSerialPort *const pstConsole = &pstPorts[0];
    pstConsole->ulWord2 = 0;
    for (uint32_t &ulWord : pstConsole->aulWord4To9)
        ulWord = 0;
    pstConsole->pcDevPath = kConsolePort;
    pstConsole->ulFlag = 1;

    /* Which UART each product wires to its second and third connector. */
    const uint32_t ulProduct = g_stCliProduct.ulProductType;
    switch (ulProduct) {
    case 0:
    case 4:
    case 8:
    case 61:
    case 62:
    case 93:
        pstPorts[1].pcDevPath = kUartS1;
        pstPorts[1].ulFlag = 0;
        pstPorts[2].pcDevPath = (ulProduct == 61 || ulProduct == 62) ? kUartS2 : kUartS1;
        pstPorts[2].ulFlag = 0;
        break;
    case 22:
    case 23:
    case 24:
        pstPorts[1].pcDevPath = kUartS2;
        pstPorts[1].ulFlag = 0;
        break;
    default:
        break;
    }

    if (cli_link_line() != nullptr)
        CLI_INFO("Com: %s", cli_link_line());
    /* Every camera of the family carries the GPS receiver straight on the link; the hub, RFID
     * reader and ZigBee radio are declared by the platform that fits them. */
    cli_link_set_line(kLinkPort);
    cli_link_declare(COM_TYPE_GPS, kGpsDefaultRate);
    const CliComDevCap stHub = cli_link_device(COM_TYPE_HUB);
    const CliComDevCap stGps = cli_link_device(COM_TYPE_GPS);
    const CliComDevCap stRfid = cli_link_device(COM_TYPE_RFID);
    const CliComDevCap stZigbee = cli_link_device(COM_TYPE_ZIGBEE);
    CLI_INFO("Cap: HUB[%u][%u] GPS[%u][%u] RFID[%u][%u] ZigBee[%u][%u]", stHub.ulSupport, stHub.ulRate,
             stGps.ulSupport, stGps.ulRate, stRfid.ulSupport, stRfid.ulRate, stZigbee.ulSupport,
             stZigbee.ulRate);
    return 0;
}
