/*
 * The seven-byte frames of the accessory on the console UART "/dev/ttyAMBA1", without any I/O:
 * the external IR lamp unit's switch requests and the serial light sensor's query and reply. The
 * commands (lights.cpp) write and read the line; the simulated lamp unit and light sensor, the
 * unit tests, the benchmarks and the fuzz target compile this file directly.
 *
 *   offset 0  sync 0xFF
 *          1  address of the unit (0x01)
 *          2  command 1 (0x20)
 *          3  command 2: what is asked or answered
 *          4  data, two bytes
 *          6  check byte: the sum of bytes 1 to 5, modulo 256
 *
 * There is no length field and no escaping: a frame is always seven bytes, and a receiver finds
 * the next one by its sync byte.
 */
#ifndef CLIDRIVER_SRC_LAMP_FRAME_H
#define CLIDRIVER_SRC_LAMP_FRAME_H

#include <stdint.h>

/* ---- Layout ------------------------------------------------------------------------------------ */

constexpr uint32_t kLampFrameSize = 7;

constexpr uint32_t kLampOffSync = 0;
constexpr uint32_t kLampOffAddress = 1;
constexpr uint32_t kLampOffCommand1 = 2;
constexpr uint32_t kLampOffCommand2 = 3;
constexpr uint32_t kLampOffData = 4; /* two bytes, most significant first */
constexpr uint32_t kLampOffCheck = 6;

constexpr uint8_t kLampSync = 0xFF;     /* first byte of every frame; receivers resynchronise on it */
constexpr uint8_t kLampAddress = 0x01;  /* the one accessory the camera talks to */
constexpr uint8_t kLampCommand1 = 0x20; /* the accessory's command page */

/* Command 2 of each request and answer. */
constexpr uint8_t kLampCmdIrLamp = 0x2D;     /* switch the IR lamps; the data says which way */
constexpr uint8_t kLampCmdLightQuery = 0x59; /* ask the light level */
constexpr uint8_t kLampCmdLightReply = 0x5B; /* the light level: data byte 2, 0..255 */

/* Data of the lamp requests: switch on the lamps of port 0 or port 1, or switch all of them off. */
constexpr uint16_t kIrLampDataOnPort0 = 0x13E8;
constexpr uint16_t kIrLampDataOnPort1 = 0x43E8;
constexpr uint16_t kIrLampDataOff = 0x5000;

/* The offset of the light level in the sensor's reply; a higher level means less light reaches
 * the camera's own sensor, so a lower voltage. */
constexpr uint32_t kLightOffLevel = kLampOffData + 1;

/* ---- The frames the camera sends, as they go on the line ----------------------------------------- */

constexpr uint8_t kIrLampFrameOnPort0[kLampFrameSize] = {0xFF, 0x01, 0x20, 0x2D, 0x13, 0xE8, 0x49};
constexpr uint8_t kIrLampFrameOnPort1[kLampFrameSize] = {0xFF, 0x01, 0x20, 0x2D, 0x43, 0xE8, 0x79};
constexpr uint8_t kIrLampFrameOff[kLampFrameSize] = {0xFF, 0x01, 0x20, 0x2D, 0x50, 0x00, 0x9E};
constexpr uint8_t kLightQueryFrame[kLampFrameSize] = {0xFF, 0x01, 0x20, 0x59, 0x00, 0x00, 0x7A};

/* ---- Operations -------------------------------------------------------------------------------- */

/* The check byte of the frame in `pucFrame`, which holds `ulHeld` bytes: the sum of bytes 1 to 5
 * modulo 256, or 0 when fewer than seven bytes are held. */
uint8_t cli_lamp_check_byte(const uint8_t *pucFrame, uint32_t ulHeld);

/* Builds a frame to `ucAddress` with command 2 `ucCommand` and `usData` into `pucFrame`, which
 * holds `ulCapacity` bytes. Returns 7, or 0 when it would not fit (nothing is written then). */
uint32_t cli_lamp_frame_build(uint8_t *pucFrame, uint32_t ulCapacity, uint8_t ucAddress, uint8_t ucCommand,
                              uint16_t usData);

/* What seven bytes from a sync byte turned out to be, as a receiver on the line judges them. */
enum CliLampVerdict {
    CLI_LAMP_FRAME_OK,    /* sync and check byte right: a frame (for whom and what, the fields say) */
    CLI_LAMP_FRAME_SHORT, /* fewer than seven bytes held */
    CLI_LAMP_FRAME_SYNC,  /* does not start with the sync byte */
    CLI_LAMP_FRAME_CHECK, /* the check byte is not the sum of bytes 1 to 5 */
};

/* Checks the frame at the start of `pucFrame`, which holds `ulHeld` bytes. */
CliLampVerdict cli_lamp_frame_check(const uint8_t *pucFrame, uint32_t ulHeld);

/* Whether the light sensor's reply in `pucReply` (`ulHeld` bytes) answers the light query: seven
 * bytes held, of which the first four are sync, address, command 1 and the reply command. The
 * data and the check byte are not looked at: the sensors in the field send check bytes that the
 * camera has never verified. */
bool cli_light_reply_valid(const uint8_t *pucReply, uint32_t ulHeld);

/* The 16-bit data field of a frame of at least seven bytes. */
static inline uint16_t cli_lamp_data(const uint8_t *pucFrame)
{
    return static_cast<uint16_t>((pucFrame[kLampOffData] << 8) | pucFrame[kLampOffData + 1]);
}

#endif /* CLIDRIVER_SRC_LAMP_FRAME_H */
