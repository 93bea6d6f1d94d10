/*
 * The peripheral link: one serial line to the GPS receiver, the RFID reader, the ZigBee radio and
 * the peripheral box. Either a hub sits at the far end and multiplexes the devices, each on a
 * port of its own, with every payload wrapped in a hub frame (hub mode), or one device is wired
 * straight to the line and its bytes pass as they are (direct mode). Hub mode is on exactly when
 * the platform has declared the hub present in the capability table.
 */
#include "cli_libfun_unit.h"

#include <fcntl.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "hub_frame.h"
#include "link.h"

/* Zero at load: no line and no device until CLI_RsInit and the platform fill it. */
CliComCap gastComCap = {};

namespace
{

/* Where each link type sits behind the hub, and how long one read may wait for it. */
struct CliLinkDevice {
    uint16_t usPort;
    time_t lTimeoutSeconds;
};
constexpr CliLinkDevice kLinkDevices[COM_TYPE_COUNT] = {
    {0x0005, 1},  /* COM_TYPE_HUB: the hub's own peripheral box answers at once */
    {0x005D, 15}, /* COM_TYPE_ZIGBEE: sensors report only every few seconds */
    {0x005B, 5},  /* COM_TYPE_GPS: a receiver sends its burst of sentences every second */
    {0x005C, 2},  /* COM_TYPE_RFID: a reader reports tags as it sees them */
};

/* A device is present when its flag is exactly 1; other values are left over from a platform. */
constexpr uint32_t kDevicePresent = 1;
/* Receive attempts before giving up on finding a frame in what the line delivers. */
constexpr uint32_t kRecvAttempts = 10;

bool cli_present(uint32_t ulType)
{
    return gastComCap.astDev[ulType].ulSupport == kDevicePresent;
}

/* The receive shapes below report under the name of the operation the caller asked for. */
constexpr char kRecvFunction[] = "CLI_ComRecv";

/* A read of the link that failed: the read itself has already said how. */
uint32_t cli_read_failed(void)
{
    CLI_ERROR_AS(kRecvFunction, "read data fail");
    return 1;
}

/* Hub mode: the first frame from the expected port with the right kind and checksum. The frame
 * is gathered in a buffer of one frame's size; a length that cannot fit it is dropped without
 * reading on, and the search resumes at the next head byte. */
uint32_t cli_recv_hub(int fd, uint16_t usPort, struct timeval stWait, uint8_t *pucOut, uint32_t *pulOutLen)
{
    uint8_t aucFrame[kHubBufferSize];
    for (uint32_t ulAttempt = 0; ulAttempt < kRecvAttempts; ++ulAttempt) {
        if (CLI_Treadn(fd, 1, stWait, aucFrame) != 0)
            return cli_read_failed();
        CLI_INFO_AS(kRecvFunction, "head 0x%x", aucFrame[0]);
        if (aucFrame[0] != kHubHead)
            continue;
        if (CLI_Treadn(fd, 2, stWait, aucFrame + kHubOffLength) != 0)
            return cli_read_failed();
        const uint32_t ulLength = cli_hub_length(aucFrame);
        CLI_INFO_AS(kRecvFunction, "len %u(0x%x)", ulLength, ulLength);
        if (!cli_hub_length_fits(ulLength)) {
            CLI_ERROR_AS(kRecvFunction, "len %u out of range", ulLength);
            continue;
        }
        if (CLI_Treadn(fd, static_cast<int32_t>(ulLength + 2), stWait, aucFrame + kHubOffKind) != 0)
            return cli_read_failed();
        switch (cli_hub_frame_check(aucFrame, ulLength + 5, usPort)) {
        case CLI_HUB_FRAME_OK:
            *pulOutLen = ulLength - kHubLengthOverhead;
            memcpy(pucOut, aucFrame + kHubOffPayload, ulLength - kHubLengthOverhead);
            return 0;
        case CLI_HUB_FRAME_NOT_HUB:
            /* operators' scripts match this text as it stands */
            CLI_ERROR_AS(kRecvFunction, "date type %d not hub", aucFrame[kHubOffKind]);
            break;
        case CLI_HUB_FRAME_PORT:
            CLI_INFO_AS(kRecvFunction, "data port %d unmatch", static_cast<int>(cli_hub_port(aucFrame)));
            break;
        case CLI_HUB_FRAME_CHECKSUM:
            CLI_ERROR_AS(kRecvFunction, "checksum error");
            break;
        case CLI_HUB_FRAME_LENGTH:
            break; /* the length was checked before reading on */
        }
    }
    return 0;
}

/* An RFID reader on the line: FF 0C, a 16-bit total length M, then M - 4 more bytes. */
uint32_t cli_recv_rfid(int fd, struct timeval stWait, uint8_t *pucOut, uint32_t *pulOutLen)
{
    uint8_t aucFrame[kHubBufferSize];
    for (uint32_t ulAttempt = 0; ulAttempt < kRecvAttempts; ++ulAttempt) {
        if (CLI_Treadn(fd, 2, stWait, aucFrame) != 0)
            return cli_read_failed();
        if (aucFrame[0] != kRfidStart0 || aucFrame[1] != kRfidStart1)
            continue;
        if (CLI_Treadn(fd, 2, stWait, aucFrame + 2) != 0)
            return cli_read_failed();
        const uint32_t ulTotal = (static_cast<uint32_t>(aucFrame[2]) << 8) | aucFrame[3];
        if (!cli_rfid_length_fits(ulTotal, sizeof aucFrame)) {
            CLI_ERROR_AS(kRecvFunction, "len %u out of range", ulTotal);
            continue;
        }
        if (CLI_Treadn(fd, static_cast<int32_t>(ulTotal - kRfidHeaderSize), stWait,
                       aucFrame + kRfidHeaderSize) != 0)
            return cli_read_failed();
        *pulOutLen = ulTotal;
        memcpy(pucOut, aucFrame, ulTotal);
        return 0;
    }
    return 0;
}

/* A ZigBee radio on the line: AA, one byte not examined, a count K, then K + 1 more bytes. */
uint32_t cli_recv_zigbee(int fd, struct timeval stWait, uint8_t *pucOut, uint32_t *pulOutLen)
{
    uint8_t aucFrame[kHubBufferSize];
    for (uint32_t ulAttempt = 0; ulAttempt < kRecvAttempts; ++ulAttempt) {
        if (CLI_Treadn(fd, 2, stWait, aucFrame) != 0)
            return cli_read_failed();
        if (aucFrame[0] != kZigbeeStart)
            continue;
        if (CLI_Treadn(fd, 1, stWait, aucFrame + 2) != 0)
            return cli_read_failed();
        const uint32_t ulCount = aucFrame[2];
        if (!cli_zigbee_length_fits(ulCount, sizeof aucFrame)) {
            CLI_ERROR_AS(kRecvFunction, "len %u out of range", ulCount);
            continue;
        }
        if (CLI_Treadn(fd, static_cast<int32_t>(ulCount + 1), stWait, aucFrame + kZigbeeHeaderSize) != 0)
            return cli_read_failed();
        *pulOutLen = ulCount + kZigbeeOverhead;
        memcpy(pucOut, aucFrame, ulCount + kZigbeeOverhead);
        return 0;
    }
    return 0;
}

} // namespace

bool cli_link_hub_mode(void)
{
    return cli_present(COM_TYPE_HUB);
}

const char *cli_link_line(void)
{
    return gastComCap.pcDevPath;
}

void cli_link_set_line(const char *pcPath)
{
    gastComCap.pcDevPath = pcPath;
}

void cli_link_declare(uint32_t ulType, uint32_t ulRate)
{
    if (ulType >= COM_TYPE_COUNT)
        return;
    gastComCap.astDev[ulType].ulSupport = kDevicePresent;
    gastComCap.astDev[ulType].ulRate = ulRate;
}

void cli_link_set_rate(uint32_t ulType, uint32_t ulRate)
{
    if (ulType < COM_TYPE_COUNT)
        gastComCap.astDev[ulType].ulRate = ulRate;
}

CliComDevCap cli_link_device(uint32_t ulType)
{
    return ulType < COM_TYPE_COUNT ? gastComCap.astDev[ulType] : CliComDevCap{0, 0};
}

uint32_t CLI_ComOpen(uint32_t ulType, int *pFd)
{
    if (ulType >= COM_TYPE_COUNT || gastComCap.pcDevPath == nullptr) {
        CLI_FAIL("unsupport Type %u", ulType);
        return 1;
    }
    if (!cli_present(ulType)) {
        CLI_FAIL("Device unsupport this Type %u", ulType);
        return 1;
    }
    if (pFd == nullptr) {
        CLI_FAIL("null fd pointer");
        return 1;
    }
    const int fd = open(gastComCap.pcDevPath, O_RDWR | O_NOCTTY);
    *pFd = fd;
    if (fd < 0)
        return CLI_OPEN_FAILED(gastComCap.pcDevPath);
    /* The line runs at the hub's speed when there is one; the device's own speed is told to the
     * hub below. */
    const uint32_t ulLineRate =
        cli_link_hub_mode() ? gastComCap.astDev[COM_TYPE_HUB].ulRate : gastComCap.astDev[ulType].ulRate;
    if (CLI_SetRsRate(fd, ulLineRate) != 0) {
        CLI_CALL_FAILED("CLI_SetRsRate");
        return 1; /* the descriptor stays open in *pFd: the caller still holds the line */
    }
    if (!cli_link_hub_mode())
        return 0;

    /* The hub routes nothing to a channel it has not opened, and runs the device's UART at the
     * rate it was last told: open first, then the rate. */
    if (CLI_ComSend(fd, ulType, nullptr, 0, kHubCmdOpen) != 0) {
        CLI_CALL_FAILED("CLI_ComSend");
        close(fd);
        *pFd = -1;
        return 1;
    }
    const uint32_t ulRate = gastComCap.astDev[ulType].ulRate;
    const uint8_t aucRate[4] = {static_cast<uint8_t>(ulRate >> 24), static_cast<uint8_t>(ulRate >> 16),
                                static_cast<uint8_t>(ulRate >> 8), static_cast<uint8_t>(ulRate)};
    if (CLI_ComSend(fd, ulType, aucRate, sizeof aucRate, kHubCmdSetRate) != 0) {
        CLI_CALL_FAILED("CLI_ComSend");
        CLI_ComClose(ulType, pFd);
        return 1;
    }
    return 0;
}

uint32_t CLI_ComClose(uint32_t ulType, int *pFd)
{
    if (pFd == nullptr) {
        CLI_ERROR("null fd pointer");
        return 0;
    }
    if (cli_link_hub_mode() && CLI_ComSend(*pFd, ulType, nullptr, 0, kHubCmdClose) != 0)
        CLI_FAIL("open Com fail"); /* operators' scripts match this text as it stands */
    close(*pFd);
    /* The number may be handed out again at once; a second close through the same record must
     * not reach whatever opened it next. */
    *pFd = -1;
    return 0;
}

uint32_t CLI_ComSend(int fd, uint32_t ulType, const void *pvData, uint32_t ulLen, uint32_t ulCommand)
{
    if (ulType >= COM_TYPE_COUNT) {
        CLI_ERROR("unknow data type");
        return 1;
    }
    if (!cli_link_hub_mode()) {
        /* A short or failed write shows as a missing answer; the callers' receive reports it. */
        const ssize_t lWritten = write(fd, pvData, ulLen);
        (void)lWritten;
        return 0;
    }
    if (ulLen > kHubMaxPayload) {
        CLI_ERROR("data len %u too long", ulLen);
        return 1;
    }
    if (pvData == nullptr && ulLen != 0) {
        CLI_ERROR("data len %u without data", ulLen);
        return 1;
    }
    uint8_t aucFrame[kHubBufferSize];
    const uint32_t ulSize =
        cli_hub_frame_build(aucFrame, sizeof aucFrame, kLinkDevices[ulType].usPort,
                            static_cast<uint8_t>(ulCommand), static_cast<const uint8_t *>(pvData), ulLen);
    const ssize_t lWritten = write(fd, aucFrame, ulSize);
    (void)lWritten;
    return 0;
}

uint32_t CLI_ComRecv(int fd, uint32_t ulType, void *pvOut, uint32_t *pulOutLen)
{
    if (ulType >= COM_TYPE_COUNT) {
        CLI_ERROR("unknow data type");
        return 1;
    }
    if (pvOut == nullptr || pulOutLen == nullptr) {
        CLI_ERROR("null receive buffer");
        return 1;
    }
    uint8_t *const pucOut = static_cast<uint8_t *>(pvOut);
    const struct timeval stWait = {kLinkDevices[ulType].lTimeoutSeconds, 0};
    if (cli_link_hub_mode())
        return cli_recv_hub(fd, kLinkDevices[ulType].usPort, stWait, pucOut, pulOutLen);

    /* Straight on the line only one device can answer; the first present one, in this order,
     * says how its bytes are framed, whatever type the caller named. */
    if (cli_present(COM_TYPE_GPS)) {
        if (CLI_Treadn(fd, kLinkGpsBlockSize, stWait, pucOut) != 0)
            return cli_read_failed();
        *pulOutLen = kLinkGpsBlockSize;
        return 0;
    }
    if (cli_present(COM_TYPE_RFID))
        return cli_recv_rfid(fd, stWait, pucOut, pulOutLen);
    if (cli_present(COM_TYPE_ZIGBEE))
        return cli_recv_zigbee(fd, stWait, pucOut, pulOutLen);
    return 0;
}

int32_t CLI_GetCheckSum(const uint8_t *pucData, uint32_t ulLen)
{
    return static_cast<int32_t>(cli_byte_sum(pucData, ulLen));
}
