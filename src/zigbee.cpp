/*
 * The ZigBee coordinator on the peripheral link (link type 1, hub port 0x005D) and the battery
 * sensors that join its network: the factory test opens the network, the operator presses the
 * sensor's join button, and the sensor's first reports (temperature and humidity, particulate
 * matter, firmware version) land in the sensor record, which the two queries then print.
 *
 * The coordinator speaks byte-stuffed frames (zigbee_frame.h). Its set-up commands are built at
 * compile time into their wire form; the decoders read the reports it relays.
 */
#include "cli_libfun_unit.h"

#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "hub_frame.h"
#include "link.h"
#include "zigbee_frame.h"

namespace
{

/* ---- The coordinator's set-up commands ---------------------------------------------------------- */

/* Message types of the coordinator's serial protocol. */
constexpr uint16_t kZbSetExtendedPanId = 0x0020; /* 8 bytes; 0 lets the coordinator choose */
constexpr uint16_t kZbSetChannelMask = 0x0021;   /* 32-bit mask of the radio channels it may use */
constexpr uint16_t kZbSetSecurity = 0x0022;      /* key state, then the 16-byte link key */
constexpr uint16_t kZbStartNetwork = 0x0024;     /* no payload: form the network */
constexpr uint16_t kZbPermitJoining = 0x0049;    /* target address, duration, trust-centre significance */
constexpr uint16_t kZbErasePersistent = 0x0012;  /* no payload: forget the network and its sensors */

constexpr uint8_t kZbExtendedPanId[8] = {};
constexpr uint8_t kZbChannel11Only[4] = {0x00, 0x00, 0x08, 0x00};
/* Key state 3: the key below is preconfigured, the sensors hold it from the factory. */
constexpr uint8_t kZbKeyPreconfigured = 3;
/* The default trust-centre link key of the ZigBee Home Automation profile, which every HA sensor
 * is made with: the one key a sensor out of its box can join with. */
constexpr char kZbDefaultTrustCentreKey[] = "ZigBeeAlliance09";
constexpr uint32_t kZbKeySize = sizeof kZbDefaultTrustCentreKey - 1;
static_assert(kZbKeySize == 16, "a ZigBee link key is 16 bytes");
/* Joining through the coordinator itself (short address 0x0000), open until the network is
 * formed again (0xFF), not only through the trust centre. */
constexpr uint8_t kZbPermitJoiningOpen[4] = {0x00, 0x00, 0xFF, 0x00};

/* The longest set-up command on the wire (the security command, 28 bytes), with room to spare. */
constexpr uint32_t kZbCommandWireMax = 32;

/* One command in its wire form, and the words that report a failure to send it. */
struct CliZigbeeCommand {
    const char *pcSendFailed;
    uint8_t aucWire[kZbCommandWireMax];
    uint32_t ulLength;
};

constexpr CliZigbeeCommand cli_zigbee_command(const char *pcSendFailed, uint16_t usType,
                                              const uint8_t *pucPayload, uint32_t ulLen)
{
    CliZigbeeCommand stCommand{pcSendFailed, {}, 0};
    stCommand.ulLength = cli_zigbee_encode(stCommand.aucWire, kZbCommandWireMax, usType, pucPayload, ulLen);
    return stCommand;
}

/* The security command's payload: the key state, then the key's 16 characters as they are. */
struct CliZigbeeKeyPayload {
    uint8_t aucBytes[1 + kZbKeySize];
};
constexpr CliZigbeeKeyPayload cli_zigbee_key_payload(void)
{
    CliZigbeeKeyPayload stPayload{};
    stPayload.aucBytes[0] = kZbKeyPreconfigured;
    for (uint32_t i = 0; i < kZbKeySize; ++i)
        stPayload.aucBytes[1 + i] = static_cast<uint8_t>(kZbDefaultTrustCentreKey[i]);
    return stPayload;
}
constexpr CliZigbeeKeyPayload kZbKeyPayload = cli_zigbee_key_payload();

/* What opens the network for joining, in the order the coordinator needs it: the network's
 * identity, channel and key before it is formed, and joining allowed once it exists. No answer is
 * awaited between them; the coordinator queues what it hears. */
constexpr CliZigbeeCommand kZbNetAllowance[] = {
    /* operators' logs know each command by its number in this list */
    cli_zigbee_command("Send Cmd1 fail", kZbSetExtendedPanId, kZbExtendedPanId, sizeof kZbExtendedPanId),
    cli_zigbee_command("Send Cmd2 fail", kZbSetChannelMask, kZbChannel11Only, sizeof kZbChannel11Only),
    cli_zigbee_command("Send Cmd3 fail", kZbSetSecurity, kZbKeyPayload.aucBytes,
                       sizeof kZbKeyPayload.aucBytes),
    cli_zigbee_command("Send Cmd4 fail", kZbStartNetwork, nullptr, 0),
    cli_zigbee_command("Send Cmd5 fail", kZbPermitJoining, kZbPermitJoiningOpen, sizeof kZbPermitJoiningOpen),
};
constexpr CliZigbeeCommand kZbReset = cli_zigbee_command("", kZbErasePersistent, nullptr, 0);

/* The wire form every coordinator in the field has been sent. */
static_assert(kZbNetAllowance[0].ulLength == 26 && kZbNetAllowance[1].ulLength == 18 &&
                  kZbNetAllowance[2].ulLength == 28 && kZbNetAllowance[3].ulLength == 10 &&
                  kZbNetAllowance[4].ulLength == 17 && kZbReset.ulLength == 10,
              "set-up commands on the wire");
static_assert(cli_zigbee_checksum(kZbSetSecurity, kZbKeyPayload.aucBytes, sizeof kZbKeyPayload.aucBytes) ==
                  0x0E,
              "the default trust-centre key gives the security command checksum 0x0E");

/* ---- The join ------------------------------------------------------------------------------------ */

/* Reports the join waits for: temperature and humidity, particulate matter, version and one more. */
constexpr uint32_t kZbReportsWanted = 4;
/* Receives the join makes before it gives up; each may wait the coordinator's time-out. */
constexpr uint32_t kZbReceiveAttempts = 10;
/* The join's argument that asks for the coordinator to forget its network instead. */
constexpr uint32_t kZbResetInsteadOfJoin = 999;
/* What one receive may hand back: one frame's payload, or a block of the line. */
constexpr uint32_t kZbReceiveSize = kHubBufferSize;

/* The record before any join: nothing heard yet. */
constexpr int32_t kZbNothingHeard = -1;

/* What the sensors reported during the last join; zero at load, so an empty record before any
 * join reads as a bad module, not as a join still to come. */
CliZigbeeSensorRecord gstCliZigbeeSensor = {};

/* A report shown in whole units: the reading in hundredths, as a signed word. */
double cli_zigbee_units(uint32_t ulHundredths)
{
    return static_cast<int32_t>(ulHundredths) / 100.0;
}

/* Stores a version report's text, bounded by the record's room and by the frame; a cut text is
 * reported, since the sensor said something else. */
void cli_zigbee_keep_version(const char *pcFunction, const CliSensorReport *pstReport,
                             CliZigbeeSensorRecord *pstRecord)
{
    const uint32_t ulKept = cli_sensor_version_kept(pstReport);
    if (ulKept != pstReport->ulVersionClaimed)
        CLI_ERROR_AS(pcFunction, "ver len %d out of range, %u kept",
                     static_cast<int32_t>(pstReport->ulVersionClaimed), ulKept);
    memcpy(pstRecord->acVersion, pstReport->pucVersion, ulKept);
    pstRecord->acVersion[ulKept] = '\0';
}

} // namespace

uint32_t CLI_ZigBeeDataDealNew(const uint8_t *pucData, uint32_t ulSize, CliZigbeeSensorRecord *pstRecord,
                               uint32_t *pulCount)
{
    if (pucData == nullptr) {
        CLI_ERROR("data NULL");
        return 1;
    }
    if (pstRecord == nullptr || pulCount == nullptr) {
        CLI_ERROR("record NULL");
        return 1;
    }
    if (ulSize == 0) {
        CLI_ERROR("data len %u too short", ulSize);
        return 1;
    }
    if (pucData[0] != kZigbeeFrameStart) {
        CLI_ERROR("first word[0x%x] != 0x1", pucData[0]);
        return 1;
    }
    /* Unstuffing never lengthens a frame: a work buffer of the input's size holds any of them. */
    uint8_t *const pucFrame = static_cast<uint8_t *>(malloc(ulSize));
    if (pucFrame == nullptr) {
        CLI_ERROR("malloc fail, len: %u", ulSize);
        return 1;
    }
    uint32_t ulLen = 0;
    uint32_t ulResult = 1;
    switch (cli_zigbee_unstuff(pucData, ulSize, pucFrame, ulSize, &ulLen)) {
    case CLI_ZB_UNSTUFFED_TAIL:
        CLI_ERROR("data fomat err(tail)"); /* operators' scripts match this text as it stands */
        break;
    case CLI_ZB_UNSTUFFED_BAD_ESCAPE:
    case CLI_ZB_UNSTUFFED_NO_ROOM:
        break; /* a byte that was never stuffed: line noise, dropped without a word */
    case CLI_ZB_UNSTUFFED_WHOLE:
        --ulLen; /* the end byte frames the data, it is none of it */
        [[fallthrough]];
    case CLI_ZB_UNSTUFFED_OPEN: {
        /* A frame cut short by the end of the input is taken as far as it goes. */
        CliSensorReport stReport;
        const CliSensorVerdict enVerdict = cli_sensor_read(pucFrame, ulLen, kZigbeeSensorAt, &stReport);
        if (enVerdict == CLI_SENSOR_HEAD) {
            CLI_ERROR("sens data fomat err, data head[0x%x] should be 0xfe, data type[0x%x] should be 0x%x",
                      pucFrame[kZigbeeSensorAt], pucFrame[kZigbeeSensorAt + kSensorOffDataType],
                      kSensorDataType);
            break;
        }
        /* Head and data type were right, as far as the frame went: it comes from a sensor. */
        if (ulLen > kZigbeeSensorAt + kSensorOffDataType)
            pstRecord->lState = 0;
        if (enVerdict == CLI_SENSOR_SHORT) {
            CLI_ERROR("data len %u too short", ulLen);
            break;
        }
        if (enVerdict == CLI_SENSOR_COMMAND) {
            CLI_FAIL("unknow Cmd type %d", stReport.ucCommand);
            break;
        }
        switch (stReport.ucCommand) {
        case kSensorParticulate:
            pstRecord->ulParticulate = stReport.ulParticulate;
            ++*pulCount;
            CLI_INFO("pm info get: %d\n",
                     static_cast<int32_t>(stReport.ulParticulate)); /* the extra line is kept */
            break;
        case kSensorClimate:
            pstRecord->ulTemperature = stReport.ulTemperature;
            pstRecord->ulHumidity = stReport.ulHumidity;
            CLI_INFO("hum info get, hum: %d temp: %d\n", static_cast<int32_t>(stReport.ulHumidity),
                     static_cast<int32_t>(stReport.ulTemperature));
            ++*pulCount;
            break;
        default: /* kSensorVersion */
            cli_zigbee_keep_version(__func__, &stReport, pstRecord);
            ++*pulCount;
            CLI_INFO("ver info get\n");
            break;
        }
        ulResult = 0;
        break;
    }
    }
    free(pucFrame);
    return ulResult;
}

uint32_t CLI_ZigBeeDataDeal(const uint8_t *pucFrame, CliZigbeeSensorRecord *pstRecord, uint32_t *pulCount)
{
    if (pucFrame == nullptr || pstRecord == nullptr || pulCount == nullptr) {
        CLI_ERROR("data NULL");
        return 1;
    }
    /* The frame is what the line delivered, AA F0 and a count K: K + 4 bytes, read no further. */
    if (pucFrame[0] != kZigbeeOldStart0 || pucFrame[1] != kZigbeeOldStart1) {
        CLI_ERROR("data head error");
        return 1;
    }
    const uint32_t ulLen = cli_zigbee_old_length(pucFrame);
    CliSensorReport stReport;
    const CliSensorVerdict enVerdict = cli_sensor_read(pucFrame, ulLen, kZigbeeOldSensorAt, &stReport);
    /* A frame too short to hold its head has none. */
    if (enVerdict == CLI_SENSOR_HEAD || ulLen <= kZigbeeOldSensorAt + kSensorOffDataType) {
        CLI_ERROR("data head error");
        return 1;
    }
    pstRecord->lState = pucFrame[kZigbeeOldOffDevice];
    if (enVerdict == CLI_SENSOR_SHORT) {
        CLI_ERROR("data len %u too short", ulLen);
        return 1;
    }
    switch (stReport.ucCommand) {
    case kSensorParticulate:
        pstRecord->ulParticulate = stReport.ulParticulate;
        break;
    case kSensorClimate:
        pstRecord->ulHumidity = stReport.ulHumidity;
        pstRecord->ulTemperature = stReport.ulTemperature;
        break;
    case kSensorVersion:
        cli_zigbee_keep_version(__func__, &stReport, pstRecord);
        break;
    default:
        CLI_FAIL("unknow Cmd type %u", stReport.ucCommand);
        return 1;
    }
    ++*pulCount;
    return 0;
}

uint32_t CLI_ZigBeeNetAllowance(int fd)
{
    for (const CliZigbeeCommand &stCommand : kZbNetAllowance) {
        if (CLI_ComSend(fd, COM_TYPE_ZIGBEE, stCommand.aucWire, stCommand.ulLength, kHubCmdPass) != 0) {
            int lLink = fd; /* the caller's descriptor is closed through a copy of its own */
            (void)CLI_ComClose(COM_TYPE_ZIGBEE, &lLink);
            CLI_ERROR("%s", stCommand.pcSendFailed);
            return 1;
        }
    }
    return 0;
}

uint32_t CLI_NetAccess(uint32_t ulSeconds)
{
    int fd = -1;
    if (CLI_ComOpen(COM_TYPE_ZIGBEE, &fd) != 0) {
        CLI_ERROR("open Zigbee fail");
        return 1;
    }
    /* Behind the hub the GPS receiver and the RFID reader share the line: their channels are
     * closed so that only the coordinator's frames come back. */
    if (cli_link_hub_mode()) {
        (void)CLI_ComSend(fd, COM_TYPE_GPS, nullptr, 0, kHubCmdClose);
        (void)CLI_ComSend(fd, COM_TYPE_RFID, nullptr, 0, kHubCmdClose);
    }
    CliZigbeeSensorRecord *const pstRecord = &gstCliZigbeeSensor;
    pstRecord->ulTemperature = 0;
    pstRecord->ulHumidity = 0;
    pstRecord->ulParticulate = 0;
    memset(pstRecord->acVersion, 0, sizeof pstRecord->acVersion);
    pstRecord->lState = kZbNothingHeard;
    uint32_t ulReports = 0;

    if (ulSeconds == kZbResetInsteadOfJoin) {
        (void)CLI_ComSend(fd, COM_TYPE_ZIGBEE, kZbReset.aucWire, kZbReset.ulLength, kHubCmdPass);
        (void)CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
        return 0;
    }
    if (CLI_ZigBeeNetAllowance(fd) != 0) {
        /* The allowance has closed the line already. The link takes this second close, which only
         * says goodbye to the hub; its number is forgotten first, so that a descriptor opened
         * meanwhile under the same number is left alone. */
        fd = -1;
        (void)CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
        CLI_ERROR("set net allowance fail");
        return 1;
    }

    /* The operator is asked only once the wait is over: a sensor pressed earlier would join
     * before the network is ready for it. */
    unsigned int ulLeft = ulSeconds;
    while (ulLeft > 0)
        ulLeft = sleep(ulLeft);
    CLI_RESULT("Please push Client button");
    (void)tcflush(fd, TCIOFLUSH); /* what the coordinator said while setting up is not a report */

    uint8_t aucReceived[kZbReceiveSize];
    bool bEnough = false;
    for (uint32_t ulAttempt = 0; ulAttempt < kZbReceiveAttempts && !bEnough; ++ulAttempt) {
        /* Each receive starts from a clean buffer: a receive that finds nothing leaves it as it
         * was, and the last report must not be counted twice. */
        memset(aucReceived, 0, sizeof aucReceived);
        uint32_t ulLength = 0;
        if (CLI_ComRecv(fd, COM_TYPE_ZIGBEE, aucReceived, &ulLength) != 0) {
            /* The attempt counts, and the next ones fail alike on the closed link. */
            (void)CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
            CLI_CALL_FAILED("CLI_ComRecv");
            continue;
        }
        (void)CLI_ZigBeeDataDealNew(aucReceived, sizeof aucReceived, pstRecord, &ulReports);
        bEnough = ulReports >= kZbReportsWanted;
    }
    (void)CLI_ComClose(COM_TYPE_ZIGBEE, &fd);
    if (bEnough)
        return 0;
    CLI_FAIL("ZigBee Recv Times out");
    return 1;
}

uint32_t CLI_GetZigbeeSensorInfo(void)
{
    const CliZigbeeSensorRecord *const pstRecord = &gstCliZigbeeSensor;
    const bool bClimate = pstRecord->ulTemperature != 0 || pstRecord->ulHumidity != 0;
    const bool bParticulate = pstRecord->ulParticulate != 0;
    if (bClimate)
        CLI_RESULT(" Temperature: %.1lf\n Humidity: %.1lf", cli_zigbee_units(pstRecord->ulTemperature),
                   cli_zigbee_units(pstRecord->ulHumidity));
    if (bParticulate)
        CLI_RESULT(" PM2.5: %.2lf", cli_zigbee_units(pstRecord->ulParticulate));
    if (bClimate || bParticulate)
        return 0;
    if (pstRecord->lState != kZbNothingHeard)
        CLI_RESULT("Bad ZigBee modules"); /* a join heard the module but no reading came */
    else
        CLI_RESULT("Init State or Bad ZigBee");
    return 1;
}

uint32_t CLI_GetZigbeeVersion(void)
{
    const CliZigbeeSensorRecord *const pstRecord = &gstCliZigbeeSensor;
    if (pstRecord->acVersion[0] != '\0') {
        CLI_RESULT(" Software: %s", pstRecord->acVersion);
        return 0;
    }
    CLI_RESULT("Init State or Bad ZigBee");
    return 1;
}

/* Taken by the next CLI_ComOpen of the ZigBee link. */
uint32_t CLI_SetZigbeeRate(uint32_t ulRate)
{
    cli_link_set_rate(COM_TYPE_ZIGBEE, ulRate);
    return 0;
}
