/*
 * What the Wi-Fi sniffer keeps of each frame it captures, without any I/O: the 15-byte probe
 * record taken from an 802.11 probe request behind its radio-tap header, and the collector that
 * one receive fills. The capture code (wifi.cpp) hands every frame libpcap delivers to
 * cli_probe_collect; unit tests, the fuzz target and the benchmark compile this file directly.
 *
 * A captured frame, as the camera's Wi-Fi driver writes it (radio-tap fields TSFT, flags, rate,
 * channel, antenna signal):
 *
 *   offset  0  radio-tap version and pad
 *           2  radio-tap length, 16 bits little-endian; only its low byte (rt) is taken
 *           8  TSFT: the MAC's 64-bit timestamp, little-endian            (fixed offset)
 *          22  antenna signal in dBm, signed                              (fixed offset)
 *          rt  802.11 frame control: the subtype in its high nibble (4 = probe request)
 *     rt + 10  address 2, the transmitter: the station that is probing
 *
 * The two fixed offsets belong to that driver's radio-tap layout and are not moved by the
 * radio-tap length. Under another layout those bytes of the record mean nothing, but they are
 * still taken from the same offsets, so records stay comparable from one camera to the next.
 *
 * The length rule uses the frame's length on the air; every byte read lies inside the captured
 * part, which the 128-byte snap length may have cut short: a frame whose captured part ends before
 * a byte the record needs is dropped, never read past.
 */
#ifndef CLIDRIVER_SRC_PROBE_RECORD_H
#define CLIDRIVER_SRC_PROBE_RECORD_H

#include <stdint.h>

#include "clidriver/clidriver.h"

/* ---- Capture -------------------------------------------------------------------------------- */

/* Bytes kept of each frame: room for the driver's radio-tap header and the 802.11 addresses. */
constexpr int kProbeSnapLength = 128;

/* ---- Frame layout --------------------------------------------------------------------------- */

constexpr uint32_t kRadiotapLengthOffset = 2; /* low byte of the radio-tap length */
constexpr uint32_t kTsftOffset = 8;           /* the driver's TSFT field, 8 bytes */
constexpr uint32_t kTsftSize = 8;
constexpr uint32_t kSignalOffset = 22;       /* the driver's antenna signal, 1 byte */
constexpr uint32_t kAddress2Offset = 10;     /* from the frame control: duration and address 1 first */
constexpr uint32_t kAddressSize = 6;         /* an 802.11 MAC address */
constexpr uint32_t kSubtypeShift = 4;        /* the subtype is the frame control's high nibble */
constexpr uint32_t kProbeRequestSubtype = 4; /* management subtype of a probe request */

/* A frame shorter on the air than its radio-tap header plus this is too short to be a probe
 * request worth keeping; one longer than its header plus kProbeMaxOverRadiotap is not one. */
constexpr uint32_t kProbeMinOverRadiotap = 22;
constexpr uint32_t kProbeMaxOverRadiotap = 300;

/* ---- Records -------------------------------------------------------------------------------- */

constexpr uint32_t kProbeRecordSize = sizeof(probe_record); /* 15 bytes, laid end to end */
/* One receive collects into this many bytes: 17 whole records (255 bytes). */
constexpr uint32_t kProbeAreaSize = 256;
constexpr uint32_t kProbeAreaRecords = kProbeAreaSize / kProbeRecordSize;

/* What one receive builds on its stack and hands to the packet handler as libpcap's user
 * argument; zero-filled whole before use. */
struct ulink_collector {
    void *pvHandle;                  /* the capture's handle, as the receive was given it */
    int32_t lCount;                  /* packets the receive asked for */
    uint8_t aucArea[kProbeAreaSize]; /* consecutive probe records */
    uint8_t *pucCursor;              /* where the next record goes */
    uint32_t ulByteCount;            /* bytes of records in the area */
};

/* What became of one captured frame. */
enum CliProbeVerdict {
    CLI_PROBE_RECORDED, /* a probe record was taken */
    CLI_PROBE_LENGTH,   /* length on the air outside rt + 22 .. rt + 300: dropped without a word */
    CLI_PROBE_SUBTYPE,  /* another subtype (a beacon, say): dropped, and the caller says so */
    CLI_PROBE_SHORT,    /* the captured part ends before a byte the record needs: dropped */
    CLI_PROBE_FULL,     /* the collector holds no room for another whole record: dropped */
};

/* Judges the frame `pucPacket`, of which `ulCaptured` bytes were captured out of `ulOnAir`, and
 * fills `pstRecord` when it is a probe request to keep. `*pulSubtype` gets the subtype whenever
 * the frame control could be read (0 otherwise). Reads only pucPacket[0 .. ulCaptured - 1]. */
CliProbeVerdict cli_probe_take(const uint8_t *pucPacket, uint32_t ulCaptured, uint32_t ulOnAir,
                               probe_record *pstRecord, uint32_t *pulSubtype);

/* Starts a collector for one receive of up to `lCount` packets on `pvHandle`. */
void cli_probe_collector_start(ulink_collector *pstCollector, void *pvHandle, int32_t lCount);

/* Judges a frame as cli_probe_take does and appends its record at the collector's cursor. The
 * area never overflows: a record that would not fit whole is dropped (CLI_PROBE_FULL). */
CliProbeVerdict cli_probe_collect(ulink_collector *pstCollector, const uint8_t *pucPacket,
                                  uint32_t ulCaptured, uint32_t ulOnAir, uint32_t *pulSubtype);

#endif /* CLIDRIVER_SRC_PROBE_RECORD_H */
