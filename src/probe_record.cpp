/*
 * Probe records from captured frames: the length rule, the subtype check and the fixed-offset
 * copy, bounded by what was captured. No I/O and no reports: the capture code says what it must.
 */
#include "probe_record.h"

#include <string.h>

CLI_STATIC_ASSERT(sizeof(probe_record) == 15, "a probe record is 15 packed bytes");
CLI_STATIC_ASSERT(kProbeAreaRecords == 17, "the record area holds 17 whole records");

/* The captured bytes a record needs: address 2 behind the frame control, the signal byte and the
 * TSFT field. */
static uint32_t cli_probe_bytes_needed(uint32_t ulRadiotap)
{
    uint32_t ulNeeded = ulRadiotap + kAddress2Offset + kAddressSize;
    if (ulNeeded < kSignalOffset + 1)
        ulNeeded = kSignalOffset + 1;
    if (ulNeeded < kTsftOffset + kTsftSize)
        ulNeeded = kTsftOffset + kTsftSize;
    return ulNeeded;
}

CliProbeVerdict cli_probe_take(const uint8_t *pucPacket, uint32_t ulCaptured, uint32_t ulOnAir,
                               probe_record *pstRecord, uint32_t *pulSubtype)
{
    *pulSubtype = 0;
    if (pucPacket == nullptr || ulCaptured <= kRadiotapLengthOffset)
        return CLI_PROBE_SHORT;

    /* Only the low byte of the radio-tap length counts: the driver's headers are short, and a
     * header of 256 bytes or more is taken as its length modulo 256. */
    const uint32_t ulRadiotap = pucPacket[kRadiotapLengthOffset];
    if (ulOnAir < ulRadiotap + kProbeMinOverRadiotap || ulOnAir > ulRadiotap + kProbeMaxOverRadiotap)
        return CLI_PROBE_LENGTH;

    if (ulCaptured <= ulRadiotap)
        return CLI_PROBE_SHORT;
    *pulSubtype = static_cast<uint32_t>(pucPacket[ulRadiotap] >> kSubtypeShift);
    if (*pulSubtype != kProbeRequestSubtype)
        return CLI_PROBE_SUBTYPE;

    if (ulCaptured < cli_probe_bytes_needed(ulRadiotap))
        return CLI_PROBE_SHORT;
    memcpy(pstRecord->aucSourceMac, pucPacket + ulRadiotap + kAddress2Offset, kAddressSize);
    pstRecord->cSignalDbm = static_cast<int8_t>(pucPacket[kSignalOffset]);
    memcpy(pstRecord->aucTsft, pucPacket + kTsftOffset, kTsftSize);
    return CLI_PROBE_RECORDED;
}

void cli_probe_collector_start(ulink_collector *pstCollector, void *pvHandle, int32_t lCount)
{
    memset(pstCollector, 0, sizeof *pstCollector);
    pstCollector->pvHandle = pvHandle;
    pstCollector->lCount = lCount;
    pstCollector->pucCursor = pstCollector->aucArea;
    pstCollector->ulByteCount = 0;
}

CliProbeVerdict cli_probe_collect(ulink_collector *pstCollector, const uint8_t *pucPacket,
                                  uint32_t ulCaptured, uint32_t ulOnAir, uint32_t *pulSubtype)
{
    probe_record stRecord;
    const CliProbeVerdict enVerdict = cli_probe_take(pucPacket, ulCaptured, ulOnAir, &stRecord, pulSubtype);
    if (enVerdict != CLI_PROBE_RECORDED)
        return enVerdict;
    /* A caller asking for more packets than the area holds records gets the first 17: the rest
     * are dropped rather than written past the area. */
    if (pstCollector->ulByteCount + kProbeRecordSize > kProbeAreaSize)
        return CLI_PROBE_FULL;
    memcpy(pstCollector->pucCursor, &stRecord, kProbeRecordSize);
    pstCollector->pucCursor += kProbeRecordSize;
    pstCollector->ulByteCount += kProbeRecordSize;
    return CLI_PROBE_RECORDED;
}
