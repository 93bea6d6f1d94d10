/*
 * What the encoder start-up hands to the video driver and the image processor, without any I/O:
 * the picture of the image sensor named in the sensor driver's text, and the encoder, exposure,
 * white-balance and enhancement records filled for it. The command (CLI_EncodeInit, lens.cpp),
 * the unit tests, the benchmark and the fuzz target use this one file.
 *
 * The sensor driver names the fitted sensor in /proc/driver/sensortype, one line such as
 * "IMX290\n". Only the first kSensorTextSize bytes of it are read.
 */
#ifndef CLIDRIVER_SRC_SENSOR_TABLE_H
#define CLIDRIVER_SRC_SENSOR_TABLE_H

#include <stddef.h>
#include <stdint.h>

#include "clidriver/platform.h"

/* The records travel to the closed driver and image libraries as arrays of 32-bit words; their
 * sizes are the libraries' contract on every build. */
static_assert(sizeof(CliVideoNorm) == 3 * 4, "video norm: width, height, frame rate");
static_assert(sizeof(CliVideoEncodeParam) == 16 * 4, "encoder parameters: sixteen words");
static_assert(sizeof(CliIspExposure) == 29 * 4, "exposure record: 29 words");
static_assert(sizeof(CliIspWhiteBalance) == 3 * 4, "white-balance record: three words");
static_assert(sizeof(CliIspEnhance) == 10 * 4, "image-enhancement record: ten words");

/* Bytes of the sensor driver's text that the start-up reads and searches. */
constexpr uint32_t kSensorTextSize = 50;

/* Every sensor of the family runs at 25 frames a second for the factory stream. */
constexpr uint32_t kSensorFrameRate = 25;

/* Fills `pstNorm` with the picture of the sensor named in `pcText`, of which `ulLength` bytes are
 * looked at, up to the first zero byte among them. Sensor names are searched anywhere in that
 * text, in the table's order (IMX123; IMX290, IMX185, MN34227; IMX224, IMX225), and the first
 * name found decides, wherever it stands. Returns true for a known sensor; false when none is
 * named, with 1920 x 1080 at 25 frames a second filled in. */
bool cli_sensor_norm(const char *pcText, size_t ulLength, CliVideoNorm *pstNorm);

/* Zeroes the encoder record of stream 0 and fills it for the picture of `pstNorm`: the driver's
 * fixed settings in words 0, 1, 4 and 6 to 10, width, height and frame rate in words 2, 3 and 5. */
void cli_encode_param_fill(CliVideoEncodeParam *pstParam, const CliVideoNorm *pstNorm);

/* Zero each image-processor record and fill in the factory settings loaded at the first start-up. */
void cli_isp_exposure_fill(CliIspExposure *pstExposure);
void cli_isp_white_balance_fill(CliIspWhiteBalance *pstBalance);
void cli_isp_enhance_fill(CliIspEnhance *pstEnhance);

#endif /* CLIDRIVER_SRC_SENSOR_TABLE_H */
