/*
 * Building and checking the accessory's seven-byte frames. No I/O and no reports: the commands
 * decide what to say about a reply.
 */
#include "lamp_frame.h"

uint8_t cli_lamp_check_byte(const uint8_t *pucFrame, uint32_t ulHeld)
{
    if (pucFrame == nullptr || ulHeld < kLampFrameSize)
        return 0;
    uint32_t ulSum = 0;
    for (uint32_t i = kLampOffAddress; i < kLampOffCheck; ++i)
        ulSum += pucFrame[i];
    return static_cast<uint8_t>(ulSum);
}

uint32_t cli_lamp_frame_build(uint8_t *pucFrame, uint32_t ulCapacity, uint8_t ucAddress, uint8_t ucCommand,
                              uint16_t usData)
{
    if (pucFrame == nullptr || ulCapacity < kLampFrameSize)
        return 0;
    pucFrame[kLampOffSync] = kLampSync;
    pucFrame[kLampOffAddress] = ucAddress;
    pucFrame[kLampOffCommand1] = kLampCommand1;
    pucFrame[kLampOffCommand2] = ucCommand;
    pucFrame[kLampOffData] = static_cast<uint8_t>(usData >> 8);
    pucFrame[kLampOffData + 1] = static_cast<uint8_t>(usData);
    pucFrame[kLampOffCheck] = cli_lamp_check_byte(pucFrame, kLampFrameSize);
    return kLampFrameSize;
}

CliLampVerdict cli_lamp_frame_check(const uint8_t *pucFrame, uint32_t ulHeld)
{
    if (pucFrame == nullptr || ulHeld < kLampFrameSize)
        return CLI_LAMP_FRAME_SHORT;
    if (pucFrame[kLampOffSync] != kLampSync)
        return CLI_LAMP_FRAME_SYNC;
    if (pucFrame[kLampOffCheck] != cli_lamp_check_byte(pucFrame, ulHeld))
        return CLI_LAMP_FRAME_CHECK;
    return CLI_LAMP_FRAME_OK;
}

bool cli_light_reply_valid(const uint8_t *pucReply, uint32_t ulHeld)
{
    if (pucReply == nullptr || ulHeld < kLampFrameSize)
        return false;
    return pucReply[kLampOffSync] == kLampSync && pucReply[kLampOffAddress] == kLampAddress &&
           pucReply[kLampOffCommand1] == kLampCommand1 && pucReply[kLampOffCommand2] == kLampCmdLightReply;
}
