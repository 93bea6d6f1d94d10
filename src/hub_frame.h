/*
 * The frames of the peripheral link, without any I/O: building a hub frame into a caller's
 * buffer, checking one read off the line, and the length checks of the frames that devices wired
 * straight to the line send. The link operations (link.cpp) do the reading and writing; unit
 * tests, fuzz targets and benchmarks compile this file directly.
 *
 * Hub frame, multi-byte fields most significant byte first:
 *
 *   offset 0  head 0xFE
 *          1  length L (2 bytes): bytes from offset 3 to the end of the payload, payload + 4
 *          3  kind 0x01
 *          4  port (2 bytes) of the device behind the hub
 *          6  command
 *          7  payload (L - 4 bytes), passed through unchanged
 *      L + 3  checksum (2 bytes): the byte sum of offsets 3 .. L + 2, low 16 bits
 *
 * There is no escaping: the head byte may occur inside the payload, and only the length tells
 * where a frame ends.
 */
#ifndef CLIDRIVER_SRC_HUB_FRAME_H
#define CLIDRIVER_SRC_HUB_FRAME_H

#include <stdint.h>

/* ---- Hub frame layout ------------------------------------------------------------------------ */

constexpr uint8_t kHubHead = 0xFE; /* first byte of every frame; the hub resynchronises on it */
constexpr uint8_t kHubKind = 0x01; /* frame kind of hub traffic; anything else is not for us */

constexpr uint32_t kHubOffLength = 1;  /* 16-bit length L */
constexpr uint32_t kHubOffKind = 3;    /* first byte counted by L and by the checksum */
constexpr uint32_t kHubOffPort = 4;    /* 16-bit port: the hub routes the payload by it */
constexpr uint32_t kHubOffCommand = 6; /* what the hub does with the payload */
constexpr uint32_t kHubOffPayload = 7;

constexpr uint32_t kHubLengthOverhead = 4; /* kind, port and command are counted in L */
constexpr uint32_t kHubFrameOverhead = 9;  /* head, length, kind, port, command, checksum */

/* One frame in either direction fits this buffer: the library never holds more of the line. */
constexpr uint32_t kHubBufferSize = 1024;
/* The longest payload a 1024-byte frame can carry. */
constexpr uint32_t kHubMaxPayload = kHubBufferSize - kHubFrameOverhead;
/* The longest length field a received frame may carry: L + 5 bytes must fit the buffer. */
constexpr uint32_t kHubMaxLength = kHubMaxPayload + kHubLengthOverhead;

/* Command bytes the library sends to the hub. */
constexpr uint8_t kHubCmdPass = 3;    /* pass the payload to the device on the port */
constexpr uint8_t kHubCmdOpen = 4;    /* open the device's channel (no payload) */
constexpr uint8_t kHubCmdClose = 5;   /* close the device's channel (no payload) */
constexpr uint8_t kHubCmdSetRate = 6; /* set the device's baud rate: 4 bytes, most significant first */

/* ---- Frames of devices wired straight to the line -------------------------------------------- */

constexpr uint8_t kRfidStart0 = 0xFF; /* an RFID reader frame starts FF 0C */
constexpr uint8_t kRfidStart1 = 0x0C;
constexpr uint32_t kRfidHeaderSize = 4;   /* FF 0C and the 16-bit total length M */
constexpr uint8_t kZigbeeStart = 0xAA;    /* a ZigBee radio frame starts AA, any byte, then K */
constexpr uint32_t kZigbeeHeaderSize = 3; /* AA, the byte after it, K */
constexpr uint32_t kZigbeeOverhead = 4;   /* a frame is K + 4 bytes: header, K bytes, one more */

/* ---- Operations -------------------------------------------------------------------------------- */

/* The arithmetic sum of `ulLen` bytes, not truncated: the hub's checksum is its low 16 bits. */
uint32_t cli_byte_sum(const uint8_t *pucData, uint32_t ulLen);

/* Builds a frame carrying `ulLen` payload bytes to `usPort` with `ucCommand` into `pucFrame`,
 * which holds `ulCapacity` bytes, and zero-fills the rest of it. Returns the frame's length
 * (ulLen + 9), or 0 when it would not fit the capacity (nothing is written then). */
uint32_t cli_hub_frame_build(uint8_t *pucFrame, uint32_t ulCapacity, uint16_t usPort, uint8_t ucCommand,
                             const uint8_t *pucPayload, uint32_t ulLen);

/* Whether a received length field L can be taken: at least the kind, port and command, and the
 * whole frame (L + 5 bytes) within the receive buffer. */
bool cli_hub_length_fits(uint32_t ulLength);

/* What a received frame turned out to be. */
enum CliHubVerdict {
    CLI_HUB_FRAME_OK,       /* for us: the payload may be taken */
    CLI_HUB_FRAME_NOT_HUB,  /* kind byte is not 0x01 */
    CLI_HUB_FRAME_PORT,     /* addressed from another port than the one expected */
    CLI_HUB_FRAME_CHECKSUM, /* byte sum differs from the checksum field */
    CLI_HUB_FRAME_LENGTH,   /* the length field cannot describe a frame that fits */
};

/* Checks a whole received frame, in the order the link has always checked: kind, port, checksum.
 * `pucFrame` holds `ulHeld` bytes from the head on, of which the frame takes L + 5. The 16-bit
 * checksum field is compared with the untruncated byte sum, so a frame whose bytes add up to more
 * than 65535 never matches; deployed cameras refuse such frames and this one does the same. */
CliHubVerdict cli_hub_frame_check(const uint8_t *pucFrame, uint32_t ulHeld, uint16_t usExpectedPort);

/* The 16-bit fields of a frame. */
static inline uint32_t cli_hub_length(const uint8_t *pucFrame)
{
    return (static_cast<uint32_t>(pucFrame[kHubOffLength]) << 8) | pucFrame[kHubOffLength + 1];
}
static inline uint32_t cli_hub_port(const uint8_t *pucFrame)
{
    return (static_cast<uint32_t>(pucFrame[kHubOffPort]) << 8) | pucFrame[kHubOffPort + 1];
}
static inline uint32_t cli_hub_checksum_field(const uint8_t *pucFrame)
{
    const uint32_t ulAt = kHubOffKind + cli_hub_length(pucFrame);
    return (static_cast<uint32_t>(pucFrame[ulAt]) << 8) | pucFrame[ulAt + 1];
}

/* Whether an RFID reader frame of total length `ulTotal` (its field M) holds at least its own
 * header and fits `ulCapacity` bytes. */
bool cli_rfid_length_fits(uint32_t ulTotal, uint32_t ulCapacity);

/* Whether a ZigBee radio frame with length byte `ulCount` (K) fits `ulCapacity` bytes. */
bool cli_zigbee_length_fits(uint32_t ulCount, uint32_t ulCapacity);

#endif /* CLIDRIVER_SRC_HUB_FRAME_H */
