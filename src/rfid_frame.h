/*
 * The RFID reader's frames, without any I/O: what the search makes of a frame the link delivered,
 * and the one command the camera sends the reader. The link (link.cpp) gathers the frames off the
 * line; the search (hubdev.cpp), the unit tests, the benchmarks and the fuzz targets compile this
 * file directly.
 *
 * A frame from the reader, as the link hands it over (multi-byte fields high byte first):
 *
 *   offset 0  0xFF, frame start
 *          1  0x0C, a frame from the reader
 *          2  total length M (2 bytes), counted from offset 0; the link reads the frame by it
 *          4  what the frame is: 0xF1 a tag report; anything else (an acknowledgement...) is not
 *          5  not read (the reader's antenna)
 *          6  tag ID (4 bytes), most significant first
 *         10  anything further (the reader's own check) is not read
 *
 * A tag ID is shown as eight upper-case hexadecimal digits: tag bytes 00 1A 2B FF are "001A2BFF".
 */
#ifndef CLIDRIVER_SRC_RFID_FRAME_H
#define CLIDRIVER_SRC_RFID_FRAME_H

#include <stdint.h>

constexpr uint8_t kRfidFrameStart = 0xFF; /* first byte of every frame, either way */
constexpr uint8_t kRfidFromReader = 0x0C; /* second byte of what the reader sends */
constexpr uint8_t kRfidTagReport = 0xF1;  /* the reader saw a tag */
constexpr uint32_t kRfidOffWhat = 4;      /* what the frame is */
constexpr uint32_t kRfidOffId = 6;        /* the tag ID */
constexpr uint32_t kRfidIdBytes = 4;
/* A tag report is decoded from its first ten bytes; a shorter frame cannot be one. */
constexpr uint32_t kRfidTagReportSize = kRfidOffId + kRfidIdBytes;

/* The ID as text: eight hexadecimal digits, and its terminating zero. */
constexpr uint32_t kRfidIdDigits = 2 * kRfidIdBytes;
constexpr uint32_t kRfidIdTextSize = kRfidIdDigits + 1;

/* Start of inventory: FF, 0A (a command to the reader), total length 7, command 0x10, and the
 * reader's CRC-16 of the five bytes before it (polynomial 0x1021, start 0, no reflection, high
 * byte first). A
 * reader behind the hub reports nothing until it hears this; one wired straight to the line is set
 * up to report on its own. */
constexpr uint8_t kRfidStartInventory[] = {0xFF, 0x0A, 0x00, 0x07, 0x10, 0xB9, 0xA2};
constexpr uint32_t kRfidStartInventorySize = sizeof kRfidStartInventory;

/* What a frame from the reader is, from its first bytes. */
enum CliRfidFrameKind {
    CLI_RFID_OTHER_FRAME,  /* not a tag report (an acknowledgement, noise...) */
    CLI_RFID_TAG_REPORT,   /* a tag report with its whole ID */
    CLI_RFID_SHORT_REPORT, /* says it is a tag report but ends before its ID does */
};

/* The kind of the `ulLen` bytes at `pucFrame`; bytes beyond `ulLen` are never read. */
CliRfidFrameKind cli_rfid_frame_kind(const uint8_t *pucFrame, uint32_t ulLen);

/* If the `ulLen` bytes at `pucFrame` are a tag report, writes its ID as text into `pcId`, which
 * holds `ulIdCapacity` bytes (at least kRfidIdTextSize), and returns true. Returns false, writing
 * nothing, for any other frame, a frame shorter than a tag report, or too small a capacity. */
bool cli_rfid_tag_id(const uint8_t *pucFrame, uint32_t ulLen, char *pcId, uint32_t ulIdCapacity);

#endif /* CLIDRIVER_SRC_RFID_FRAME_H */
