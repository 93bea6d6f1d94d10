/*
 * The ZigBee coordinator's serial frames, without any I/O: stuffing and unstuffing, the frame
 * header, and the sensor reports the coordinator relays, in the stuffed layout it sends today and
 * in the older unstuffed layout. The commands (zigbee.cpp) decide what to say about a frame; the
 * simulated coordinator, unit tests, benchmarks and fuzz targets use this file as it stands.
 *
 * On the wire a frame opens with 0x01 and closes with 0x03; between them every byte below 0x10
 * travels as 0x02 followed by the byte XOR 0x10, so that the three framing bytes never occur
 * inside a frame. Unstuffed:
 *
 *   offset 0  0x01
 *          1  message type (2 bytes)
 *          3  payload length n (2 bytes)
 *          5  checksum: XOR of the four type and length bytes and of the n payload bytes
 *          6  payload (n bytes)
 *      6 + n  0x03
 *
 * Multi-byte fields are most significant byte first, here and in the sensor frames.
 *
 * A sensor report is a coordinator frame whose payload carries, after six bytes of the
 * coordinator's own (the sender's address and the like), the sensor's frame: head 0xFE, a 16-bit
 * length (the bytes from the data type to the end of the data), data type 3, two bytes not looked
 * at, the sensor command, and its data:
 *
 *   unstuffed offset 12  head 0xFE          15  data type 3      18  command
 *                    13  length (2 bytes)   16  two bytes        19  data
 *
 * Commands: 0x15 temperature then humidity (two 16-bit readings in hundredths), 0x16 particulate
 * matter (one 32-bit reading in hundredths), 0xFE the sensor's firmware version (length - 4
 * characters of text). The older layout carries the same sensor frame without stuffing, after
 * AA F0, a count K (the frame is K + 4 bytes, as the line delivers it), a byte and the sender's
 * device byte: its head is at offset 5 instead of 12.
 *
 * Every reader here takes the length of what it may read and stays inside it.
 */
#ifndef CLIDRIVER_SRC_ZIGBEE_FRAME_H
#define CLIDRIVER_SRC_ZIGBEE_FRAME_H

#include <stdint.h>

/* ---- Framing on the wire --------------------------------------------------------------------- */

constexpr uint8_t kZigbeeFrameStart = 0x01;   /* opens every frame */
constexpr uint8_t kZigbeeFrameEnd = 0x03;     /* closes it */
constexpr uint8_t kZigbeeEscape = 0x02;       /* the next byte travels XOR kZigbeeEscapeMask */
constexpr uint8_t kZigbeeEscapeMask = 0x10;   /* what an escaped byte is XORed with */
constexpr uint8_t kZigbeeStuffedBelow = 0x10; /* bytes below this travel escaped */

/* ---- The unstuffed coordinator frame ---------------------------------------------------------- */

constexpr uint32_t kZigbeeOffType = 1;     /* 16-bit message type */
constexpr uint32_t kZigbeeOffLength = 3;   /* 16-bit payload length */
constexpr uint32_t kZigbeeOffChecksum = 5; /* XOR of type, length and payload */
constexpr uint32_t kZigbeeOffPayload = 6;
constexpr uint32_t kZigbeeFrameOverhead = 7; /* start, type, length, checksum, end */
/* The longest payload a 16-bit length field can announce. */
constexpr uint32_t kZigbeeMaxPayload = 0xFFFF;

/* ---- The sensor frame inside a report --------------------------------------------------------- */

/* Offsets from the sensor frame's head. */
constexpr uint32_t kSensorOffLength = 1;   /* 16-bit length: data type .. end of the data */
constexpr uint32_t kSensorOffDataType = 3; /* must be kSensorDataType */
constexpr uint32_t kSensorOffCommand = 6;  /* what the data is */
constexpr uint32_t kSensorOffData = 7;
/* The length field counts the data type, the two bytes after it and the command besides the
 * data: a version text is the length minus this many characters. */
constexpr uint32_t kSensorLengthOverhead = 4;

constexpr uint8_t kSensorHead = 0xFE;
constexpr uint8_t kSensorDataType = 3; /* a sensor's measurement or version */

/* Sensor commands. */
constexpr uint8_t kSensorClimate = 0x15;     /* temperature, humidity: 16-bit each, in hundredths */
constexpr uint8_t kSensorParticulate = 0x16; /* PM2.5: 32-bit, in hundredths */
constexpr uint8_t kSensorVersion = 0xFE;     /* firmware version text */
constexpr uint32_t kSensorClimateSize = 4;
constexpr uint32_t kSensorParticulateSize = 4;

/* Where the sensor frame starts: after the coordinator's header and six bytes of its own in the
 * stuffed layout, after AA F0 K, a byte and the device byte in the older one. */
constexpr uint32_t kZigbeeSensorAt = 12;
constexpr uint32_t kZigbeeOldSensorAt = 5;

/* ---- The older, unstuffed layout --------------------------------------------------------------- */

constexpr uint8_t kZigbeeOldStart0 = 0xAA;
constexpr uint8_t kZigbeeOldStart1 = 0xF0;
constexpr uint32_t kZigbeeOldOffCount = 2;  /* K: the frame is K + 4 bytes */
constexpr uint32_t kZigbeeOldOffDevice = 4; /* the sender's device byte */
constexpr uint32_t kZigbeeOldOverhead = 4;

/* The version text a sensor record holds: at most this many characters and a terminating zero. */
constexpr uint32_t kZigbeeVersionMax = 31;

/* ---- Building a frame (also at compile time, for the commands the camera sends) --------------- */

/* XOR of a frame's type and length fields and its payload: the checksum it carries. */
constexpr uint8_t cli_zigbee_checksum(uint16_t usType, const uint8_t *pucPayload, uint32_t ulLen)
{
    uint8_t ucSum = static_cast<uint8_t>((usType >> 8) ^ usType ^ (ulLen >> 8) ^ ulLen);
    for (uint32_t i = 0; i < ulLen; ++i)
        ucSum = static_cast<uint8_t>(ucSum ^ pucPayload[i]);
    return ucSum;
}

/* Puts one byte of a frame's inside on the wire at `*pulAt`, escaped when it must be. False when
 * it does not fit `ulCapacity`. */
constexpr bool cli_zigbee_put(uint8_t *pucOut, uint32_t ulCapacity, uint32_t *pulAt, uint8_t ucByte)
{
    const bool bEscaped = ucByte < kZigbeeStuffedBelow;
    if (*pulAt + (bEscaped ? 2u : 1u) > ulCapacity)
        return false;
    if (bEscaped) {
        pucOut[(*pulAt)++] = kZigbeeEscape;
        pucOut[(*pulAt)++] = static_cast<uint8_t>(ucByte ^ kZigbeeEscapeMask);
    } else {
        pucOut[(*pulAt)++] = ucByte;
    }
    return true;
}

/* Stuffs `ulLen` bytes (a frame's inside: type, length, checksum, payload, given as they are)
 * between the start and end bytes into `pucOut`, which holds `ulCapacity` bytes. Returns the
 * number of bytes on the wire, or 0 when they do not fit (what was written then is not a frame). */
constexpr uint32_t cli_zigbee_stuff(const uint8_t *pucInside, uint32_t ulLen, uint8_t *pucOut,
                                    uint32_t ulCapacity)
{
    uint32_t ulAt = 0;
    if (ulCapacity < 2)
        return 0;
    pucOut[ulAt++] = kZigbeeFrameStart;
    for (uint32_t i = 0; i < ulLen; ++i)
        if (!cli_zigbee_put(pucOut, ulCapacity - 1, &ulAt, pucInside[i]))
            return 0;
    pucOut[ulAt++] = kZigbeeFrameEnd;
    return ulAt;
}

/* A whole frame of message type `usType` carrying `ulLen` payload bytes, stuffed, into `pucOut`
 * (`ulCapacity` bytes). Returns its length on the wire, or 0 when the payload is longer than a
 * length field can say or the frame does not fit. */
constexpr uint32_t cli_zigbee_encode(uint8_t *pucOut, uint32_t ulCapacity, uint16_t usType,
                                     const uint8_t *pucPayload, uint32_t ulLen)
{
    if (ulLen > kZigbeeMaxPayload || (pucPayload == nullptr && ulLen != 0) || ulCapacity < 2)
        return 0;
    const uint8_t aucHeader[5] = {static_cast<uint8_t>(usType >> 8), static_cast<uint8_t>(usType),
                                  static_cast<uint8_t>(ulLen >> 8), static_cast<uint8_t>(ulLen),
                                  cli_zigbee_checksum(usType, pucPayload, ulLen)};
    uint32_t ulAt = 0;
    pucOut[ulAt++] = kZigbeeFrameStart;
    for (const uint8_t ucByte : aucHeader)
        if (!cli_zigbee_put(pucOut, ulCapacity - 1, &ulAt, ucByte))
            return 0;
    for (uint32_t i = 0; i < ulLen; ++i)
        if (!cli_zigbee_put(pucOut, ulCapacity - 1, &ulAt, pucPayload[i]))
            return 0;
    pucOut[ulAt++] = kZigbeeFrameEnd;
    return ulAt;
}

/* ---- Reading ---------------------------------------------------------------------------------- */

/* How unstuffing ended. */
enum CliZigbeeUnstuffed {
    CLI_ZB_UNSTUFFED_WHOLE,      /* up to and with the end byte */
    CLI_ZB_UNSTUFFED_OPEN,       /* the input ran out before an end byte: what came is the frame */
    CLI_ZB_UNSTUFFED_TAIL,       /* the input ends right after an escape byte */
    CLI_ZB_UNSTUFFED_BAD_ESCAPE, /* an escaped byte that is not below 0x10 once unescaped */
    CLI_ZB_UNSTUFFED_NO_ROOM,    /* the output holds fewer bytes than the input could give */
};

/* Unstuffs the frame at the start of `ulLen` input bytes into `pucOut` (`ulCapacity` bytes): the
 * first byte as it is, then every following byte, an escape and the byte after it as one, up to
 * and with the first end byte. `*pulOutLen` is the number of bytes stored, also when it fails.
 * The output never holds more bytes than the input gave, so a capacity of `ulLen` always does. */
CliZigbeeUnstuffed cli_zigbee_unstuff(const uint8_t *pucIn, uint32_t ulLen, uint8_t *pucOut,
                                      uint32_t ulCapacity, uint32_t *pulOutLen);

/* What a sensor frame says. */
enum CliSensorVerdict {
    CLI_SENSOR_REPORT,  /* a report of a known command, whole */
    CLI_SENSOR_HEAD,    /* the head or the data type is wrong */
    CLI_SENSOR_SHORT,   /* the frame ends before the bytes its command needs */
    CLI_SENSOR_COMMAND, /* a command this camera does not know */
};

struct CliSensorReport {
    uint8_t ucCommand;      /* kSensorClimate, kSensorParticulate, kSensorVersion or unknown */
    uint32_t ulTemperature; /* climate: the 16-bit readings, unsigned */
    uint32_t ulHumidity;
    uint32_t ulParticulate;      /* particulate: the 32-bit reading */
    uint32_t ulVersionClaimed;   /* version: the length field minus 4, modulo 2^32 as the camera
                                    has always counted it (a field below 4 claims billions) */
    const uint8_t *pucVersion;   /* version: where its text starts in the frame */
    uint32_t ulVersionAvailable; /* version: the bytes from there to the end of the frame */
};

/* Reads the sensor frame at offset `ulAt` of a decoded frame of `ulLen` bytes (kZigbeeSensorAt or
 * kZigbeeOldSensorAt). The head and data type are looked at first, when the frame reaches them:
 * a wrong one gives CLI_SENSOR_HEAD. A frame that ends before its command byte, or before the
 * data its command needs, gives CLI_SENSOR_SHORT. The report's fields come from inside the frame
 * only; those its command does not carry are 0. */
CliSensorVerdict cli_sensor_read(const uint8_t *pucFrame, uint32_t ulLen, uint32_t ulAt,
                                 CliSensorReport *pstReport);

/* The length of an older frame as its count says (K + 4), given its first three bytes. */
static inline uint32_t cli_zigbee_old_length(const uint8_t *pucFrame)
{
    return static_cast<uint32_t>(pucFrame[kZigbeeOldOffCount]) + kZigbeeOldOverhead;
}

/* How many version characters a record takes from a report: what the sensor claims, at most what
 * the frame holds and at most kZigbeeVersionMax. */
uint32_t cli_sensor_version_kept(const CliSensorReport *pstReport);

#endif /* CLIDRIVER_SRC_ZIGBEE_FRAME_H */
