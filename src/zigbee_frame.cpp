/*
 * Unstuffing the ZigBee coordinator's frames and reading the sensor frames they carry. No I/O and
 * no reports: the decoders in zigbee.cpp say what a frame turned out to be.
 */
#include "zigbee_frame.h"

namespace
{

uint32_t cli_read16(const uint8_t *pucAt)
{
    return (static_cast<uint32_t>(pucAt[0]) << 8) | pucAt[1];
}

uint32_t cli_read32(const uint8_t *pucAt)
{
    return (static_cast<uint32_t>(pucAt[0]) << 24) | (static_cast<uint32_t>(pucAt[1]) << 16) |
           (static_cast<uint32_t>(pucAt[2]) << 8) | pucAt[3];
}

} // namespace

CliZigbeeUnstuffed cli_zigbee_unstuff(const uint8_t *pucIn, uint32_t ulLen, uint8_t *pucOut,
                                      uint32_t ulCapacity, uint32_t *pulOutLen)
{
    uint32_t ulOut = 0;
    *pulOutLen = 0;
    if (ulLen == 0)
        return CLI_ZB_UNSTUFFED_OPEN;
    if (ulCapacity == 0)
        return CLI_ZB_UNSTUFFED_NO_ROOM;
    pucOut[ulOut++] = pucIn[0]; /* the start byte, as it came */
    for (uint32_t ulAt = 1; ulAt < ulLen; ++ulAt) {
        uint8_t ucByte = pucIn[ulAt];
        if (ucByte == kZigbeeEscape) {
            if (++ulAt == ulLen) {
                *pulOutLen = ulOut;
                return CLI_ZB_UNSTUFFED_TAIL;
            }
            ucByte = static_cast<uint8_t>(pucIn[ulAt] ^ kZigbeeEscapeMask);
            if (ucByte >= kZigbeeStuffedBelow) {
                *pulOutLen = ulOut;
                return CLI_ZB_UNSTUFFED_BAD_ESCAPE;
            }
        } else if (ucByte == kZigbeeFrameEnd) {
            if (ulOut == ulCapacity) {
                *pulOutLen = ulOut;
                return CLI_ZB_UNSTUFFED_NO_ROOM;
            }
            pucOut[ulOut++] = ucByte;
            *pulOutLen = ulOut;
            return CLI_ZB_UNSTUFFED_WHOLE;
        }
        if (ulOut == ulCapacity) {
            *pulOutLen = ulOut;
            return CLI_ZB_UNSTUFFED_NO_ROOM;
        }
        pucOut[ulOut++] = ucByte;
    }
    *pulOutLen = ulOut;
    return CLI_ZB_UNSTUFFED_OPEN;
}

CliSensorVerdict cli_sensor_read(const uint8_t *pucFrame, uint32_t ulLen, uint32_t ulAt,
                                 CliSensorReport *pstReport)
{
    *pstReport = CliSensorReport{};
    /* The head and the data type say whether this is a sensor frame at all; they are judged
     * whenever the frame reaches them. */
    if (ulLen > ulAt + kSensorOffDataType &&
        (pucFrame[ulAt] != kSensorHead || pucFrame[ulAt + kSensorOffDataType] != kSensorDataType))
        return CLI_SENSOR_HEAD;
    if (ulLen <= ulAt + kSensorOffCommand)
        return CLI_SENSOR_SHORT;

    const uint8_t *const pucData = pucFrame + ulAt + kSensorOffData;
    const uint32_t ulData = ulLen - (ulAt + kSensorOffData); /* bytes from the data to the end */
    pstReport->ucCommand = pucFrame[ulAt + kSensorOffCommand];
    switch (pstReport->ucCommand) {
    case kSensorClimate:
        if (ulData < kSensorClimateSize)
            return CLI_SENSOR_SHORT;
        pstReport->ulTemperature = cli_read16(pucData);
        pstReport->ulHumidity = cli_read16(pucData + 2);
        return CLI_SENSOR_REPORT;
    case kSensorParticulate:
        if (ulData < kSensorParticulateSize)
            return CLI_SENSOR_SHORT;
        pstReport->ulParticulate = cli_read32(pucData);
        return CLI_SENSOR_REPORT;
    case kSensorVersion:
        /* Counted as the camera always has: a field below 4 wraps round to a huge claim, which
         * the record's room then bounds. */
        pstReport->ulVersionClaimed = cli_read16(pucFrame + ulAt + kSensorOffLength) - kSensorLengthOverhead;
        pstReport->pucVersion = pucData;
        pstReport->ulVersionAvailable = ulData;
        return CLI_SENSOR_REPORT;
    default:
        return CLI_SENSOR_COMMAND;
    }
}

uint32_t cli_sensor_version_kept(const CliSensorReport *pstReport)
{
    uint32_t ulKept = pstReport->ulVersionClaimed;
    if (ulKept > pstReport->ulVersionAvailable)
        ulKept = pstReport->ulVersionAvailable;
    if (ulKept > kZigbeeVersionMax)
        ulKept = kZigbeeVersionMax;
    return ulKept;
}
