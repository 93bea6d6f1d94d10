/*
 * Decoding the RFID reader's frames. No I/O and no reports: the search decides what to say about
 * a frame.
 */
#include "rfid_frame.h"

namespace
{

constexpr char kHexDigits[] = "0123456789ABCDEF";

} // namespace

CliRfidFrameKind cli_rfid_frame_kind(const uint8_t *pucFrame, uint32_t ulLen)
{
    if (pucFrame == nullptr || ulLen <= kRfidOffWhat)
        return CLI_RFID_OTHER_FRAME;
    if (pucFrame[0] != kRfidFrameStart || pucFrame[1] != kRfidFromReader ||
        pucFrame[kRfidOffWhat] != kRfidTagReport)
        return CLI_RFID_OTHER_FRAME;
    return ulLen < kRfidTagReportSize ? CLI_RFID_SHORT_REPORT : CLI_RFID_TAG_REPORT;
}

bool cli_rfid_tag_id(const uint8_t *pucFrame, uint32_t ulLen, char *pcId, uint32_t ulIdCapacity)
{
    if (pucFrame == nullptr || pcId == nullptr || ulLen < kRfidTagReportSize ||
        ulIdCapacity < kRfidIdTextSize)
        return false;
    if (pucFrame[0] != kRfidFrameStart || pucFrame[1] != kRfidFromReader ||
        pucFrame[kRfidOffWhat] != kRfidTagReport)
        return false;
    for (uint32_t i = 0; i < kRfidIdBytes; ++i) {
        const uint8_t ucByte = pucFrame[kRfidOffId + i];
        pcId[2 * i] = kHexDigits[ucByte >> 4];
        pcId[2 * i + 1] = kHexDigits[ucByte & 0x0F];
    }
    pcId[kRfidIdDigits] = '\0';
    return true;
}
