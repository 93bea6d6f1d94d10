/*
 * Building and checking the frames of the peripheral link. No I/O and no reports: the link
 * operations decide what to say about a frame.
 */
#include "hub_frame.h"

#include <string.h>

uint32_t cli_byte_sum(const uint8_t *pucData, uint32_t ulLen)
{
    uint32_t ulSum = 0;
    if (pucData == nullptr)
        return 0;
    for (uint32_t i = 0; i < ulLen; ++i)
        ulSum += pucData[i];
    return ulSum;
}

uint32_t cli_hub_frame_build(uint8_t *pucFrame, uint32_t ulCapacity, uint16_t usPort, uint8_t ucCommand,
                             const uint8_t *pucPayload, uint32_t ulLen)
{
    if (pucFrame == nullptr || ulLen > kHubMaxPayload || ulCapacity < ulLen + kHubFrameOverhead)
        return 0;
    if (pucPayload == nullptr && ulLen != 0)
        return 0;
    const uint32_t ulLength = ulLen + kHubLengthOverhead;
    memset(pucFrame, 0, ulCapacity);
    pucFrame[0] = kHubHead;
    pucFrame[kHubOffLength] = static_cast<uint8_t>(ulLength >> 8);
    pucFrame[kHubOffLength + 1] = static_cast<uint8_t>(ulLength);
    pucFrame[kHubOffKind] = kHubKind;
    pucFrame[kHubOffPort] = static_cast<uint8_t>(usPort >> 8);
    pucFrame[kHubOffPort + 1] = static_cast<uint8_t>(usPort);
    pucFrame[kHubOffCommand] = ucCommand;
    if (ulLen != 0)
        memcpy(pucFrame + kHubOffPayload, pucPayload, ulLen);
    const uint32_t ulSum = cli_byte_sum(pucFrame + kHubOffKind, ulLength);
    pucFrame[kHubOffPayload + ulLen] = static_cast<uint8_t>(ulSum >> 8);
    pucFrame[kHubOffPayload + ulLen + 1] = static_cast<uint8_t>(ulSum);
    return ulLen + kHubFrameOverhead;
}

bool cli_hub_length_fits(uint32_t ulLength)
{
    return ulLength >= kHubLengthOverhead && ulLength <= kHubMaxLength;
}

CliHubVerdict cli_hub_frame_check(const uint8_t *pucFrame, uint32_t ulHeld, uint16_t usExpectedPort)
{
    if (pucFrame == nullptr || ulHeld < kHubFrameOverhead)
        return CLI_HUB_FRAME_LENGTH;
    const uint32_t ulLength = cli_hub_length(pucFrame);
    if (!cli_hub_length_fits(ulLength) || ulHeld < ulLength + 5)
        return CLI_HUB_FRAME_LENGTH;
    if (pucFrame[kHubOffKind] != kHubKind)
        return CLI_HUB_FRAME_NOT_HUB;
    if (cli_hub_port(pucFrame) != usExpectedPort)
        return CLI_HUB_FRAME_PORT;
    if (cli_byte_sum(pucFrame + kHubOffKind, ulLength) != cli_hub_checksum_field(pucFrame))
        return CLI_HUB_FRAME_CHECKSUM;
    return CLI_HUB_FRAME_OK;
}

bool cli_rfid_length_fits(uint32_t ulTotal, uint32_t ulCapacity)
{
    return ulTotal >= kRfidHeaderSize && ulTotal <= ulCapacity;
}

bool cli_zigbee_length_fits(uint32_t ulCount, uint32_t ulCapacity)
{
    return ulCapacity >= kZigbeeOverhead && ulCount <= ulCapacity - kZigbeeOverhead;
}
