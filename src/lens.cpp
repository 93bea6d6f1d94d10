/*
 * Lens motors and video start-up: the lens-motor driver's flags, the zoom and focus reset, the
 * image processor's lens calibration, the iris and zoom end positions, and the encoder start-up
 * for the fitted image sensor. The motors and the iris are driven by the closed driver and image
 * libraries; only the flags are read straight from the lens-motor driver (/dev/motor).
 */
#include "cli_libfun_unit.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "clidriver/clidriver.h"
#include "device.h"
#include "devices.h"
#include "sensor_table.h"

/* Every lens, encoder and image-processor operation addresses the camera's one video channel. */
static constexpr uint32_t kVideoChannel = 0;

/* The stream the factory tests encode: the main stream. */
static constexpr uint32_t kMainStream = 0;

/* The driver's motor selector for the zoom and focus motors together, and the wait argument that
 * makes DRV_WaitMotor return once they have stopped. */
static constexpr uint32_t kMotorZoomAndFocus = 2;
static constexpr uint32_t kMotorWaitUntilStopped = 0;

/* Focus mode 0 holds the focus where it is while the zoom or iris moves; exposure mode 7 hands the
 * iris to the command (manual iris). */
static constexpr uint32_t kFocusModeHold = 0;
static constexpr uint32_t kExposureModeManualIris = 7;

/* Iris positions, in the image library's units: mode 0 drives it to 100, mode 1 to 99999. */
static constexpr uint32_t kIrisPositionMode0 = 100;
static constexpr uint32_t kIrisPositionMode1 = 99999;

/* The zoom drive's speed argument: the fastest travel to the end stop. */
static constexpr uint32_t kZoomDriveSpeed = 65535;

/* Lens modes 2 to 6 are reserved for positions the factory does not use yet. */
static constexpr uint32_t kLensModeReservedLast = 6;

/* ---- Lens-motor flags ------------------------------------------------------------------------ */

/* The motor status record the driver fills: a mask of the valid flags, then one flag per motor. */
struct CliMotorStatus {
    uint32_t ulValidMask; /* bit i set: aulFlag[i] holds a flag */
    uint32_t aulFlag[5];  /* zoom, focus, zoom1, zoom2, ir */
};
static_assert(sizeof(CliMotorStatus) == 6 * 4, "motor status record: six words");

/* Labels of the five motor flags, in the order of the record and of the report. */
static const char *const kapcMotorFlagLabels[] = {"zoom", "focus", "zoom1", "zoom2", "ir"};

uint32_t CLI_GetMotorStatus(void)
{
    CliDevice stDevice;
    if (!CLI_DEVICE_OPEN(&stDevice, kMotorDevice, O_RDWR))
        return 1;

    /* The driver answers this request with six words although its number says four: it knows
     * the request by its number. */
    CliMotorStatus stStatus = {};
    if (cli_device_request(&stDevice, kMotorStatusGet, &stStatus) < 0)
        return cli_device_close_and_fail(&stDevice, kMotorStatusGet);
    for (uint32_t i = 0; i < 5; ++i)
        if ((stStatus.ulValidMask & (1u << i)) != 0)
            CLI_RESULT("%s flag: %u", kapcMotorFlagLabels[i], stStatus.aulFlag[i]);

    uint32_t ulFlag = 0;
    if (cli_device_request(&stDevice, kIrCutStateGet, &ulFlag) < 0)
        return cli_device_close_and_fail(&stDevice, kIrCutStateGet);
    CLI_RESULT("ircut flag: %u", ulFlag);

    if (cli_device_request(&stDevice, kIrisStateGet, &ulFlag) < 0)
        return cli_device_close_and_fail(&stDevice, kIrisStateGet);
    /* The driver's iris word reads the other way round from the flag operators check. */
    ulFlag = ulFlag == 0 ? 1 : 0;
    CLI_RESULT("iris flag: %u", ulFlag);
    cli_device_close(&stDevice);
    return 0;
}

/* ---- Motor reset and lens calibration -------------------------------------------------------- */

uint32_t CLI_MotorResetZF(void)
{
    if (DRV_ResetMotor(kVideoChannel, kMotorZoomAndFocus) != 0) {
        CLI_CALL_FAILED("Reset Motor Fail");
        return 1;
    }
    if (DRV_WaitMotor(kVideoChannel, kMotorZoomAndFocus, kMotorWaitUntilStopped) != 0) {
        CLI_CALL_FAILED("DRV_WaitMotor");
        return 1;
    }
    CLI_RESULT("Reset ZF Motor OK");
    return 0;
}

/* The calibration decides: an image processor that reports a failed start is often already
 * running, and the calibration then still works. */
uint32_t CLI_ZoomTracking(void)
{
    if (ISP_Init(kVideoChannel) != 0)
        CLI_CALL_FAILED("ISP_Init Failed!");
    else
        CLI_RESULT("ISP_Init success");

    if (ISP_CalibrateLens(kVideoChannel) != 0) {
        CLI_CALL_FAILED("ISP_CalibrateLens()");
        return 1;
    }
    CLI_RESULT("ISP_CalibrateLens success");
    return 0;
}

/* ---- Iris and zoom end positions ------------------------------------------------------------- */

/* The image processor started and the focus held, as the iris and zoom drives need it. A failed
 * start is reported and ignored (the processor is usually running already); a focus mode that
 * will not take stops the command. Returns false after reporting that. */
static bool cli_lens_prepare(const char *pcFunction)
{
    if (ISP_Init(kVideoChannel) != 0)
        CLI_CALL_FAILED_AS(pcFunction, "ISP init failed");
    if (ISP_SetFocusMode(kVideoChannel, kFocusModeHold) != 0) {
        CLI_CALL_FAILED_AS(pcFunction, "ISP_SetFocusMode");
        return false;
    }
    return true;
}

uint32_t CLI_SetIrisPos(uint32_t ulIgnored, uint32_t ulMode)
{
    (void)ulIgnored;
    if (!cli_lens_prepare(__func__))
        return 1;
    if (ISP_SetAEMode(kVideoChannel, kExposureModeManualIris) != 0) {
        CLI_CALL_FAILED("ISP_SetAEMode");
        return 1;
    }

    int32_t lResult = 0;
    if (ulMode == 0) {
        lResult = ISP_SetAEIris(kVideoChannel, kIrisPositionMode0);
    } else if (ulMode == 1) {
        lResult = ISP_SetAEIris(kVideoChannel, kIrisPositionMode1);
    } else if (ulMode <= kLensModeReservedLast) {
        CLI_RESULT("This mode not support now");
        return 0;
    } else {
        CLI_FAIL("Input Error mode");
        return 1;
    }
    if (lResult != 0) {
        CLI_CALL_FAILED("ISP_SetAEIris");
        return 1;
    }
    return 0;
}

uint32_t CLI_SetZoomPos(uint32_t ulIgnored, uint32_t ulMode)
{
    (void)ulIgnored;
    if (!cli_lens_prepare(__func__))
        return 1;

    if (ulMode == 0) {
        if (ISP_CLI_SetZoomMax(kVideoChannel, kZoomDriveSpeed) != 0) {
            CLI_CALL_FAILED("ISP_ZoomIn()");
            return 1;
        }
    } else if (ulMode == 1) {
        if (ISP_CLI_SetZoomMin(kVideoChannel, kZoomDriveSpeed) != 0) {
            CLI_CALL_FAILED("ISP_ZoomOut()");
            return 1;
        }
    } else if (ulMode <= kLensModeReservedLast) {
        CLI_RESULT("This mode not support now");
        return 0;
    } else {
        /* A zoom mode beyond the table means the station script is wrong for this camera: the
         * shell stops here with the assertion line, and the station sees the run end. */
        fprintf(stderr, "ASSERT[%s | %s | %d]\r\n", kCliSourceFile, __func__, __LINE__);
        exit(0);
    }
    return 0;
}

/* ---- Encoder and image-processor start-up ---------------------------------------------------- */

/* The sensor driver's report of the fitted sensor, read through the shell. */
static constexpr char kSensorTypeCommand[] = "cat /proc/driver/sensortype";

/* Set until the first start-up has loaded the image processor's factory settings; they are loaded
 * once per process, and a failed load is not tried again. Only the shell's thread runs commands. */
static uint32_t gulCliEncodeFirstCall = 1;

int32_t CLI_EncodeInit(void)
{
    FILE *pstPipe = popen(kSensorTypeCommand, "r");
    if (pstPipe == nullptr)
        return CLI_FAIL("cat /proc/driver/sensortype error");

    /* One byte more than is read, so that the text stays terminated whatever the driver wrote. */
    char acSensor[kSensorTextSize + 1] = {};
    const size_t ulRead = fread(acSensor, 1, kSensorTextSize, pstPipe);
    if (ulRead == 0) {
        pclose(pstPipe);
        return CLI_FAIL("Read fail exit");
    }
    if (acSensor[0] == '\0') {
        pclose(pstPipe);
        return CLI_FAIL("data is null");
    }
    /* From here on the pipe stays open: the sensor driver's reader is left to the shell's
     * process, as the camera's video start-up has always done. */

    CliVideoNorm stNorm;
    if (!cli_sensor_norm(acSensor, ulRead, &stNorm))
        CLI_INFO("sensor board type not support,now use default 1080P"); /* as station logs read it */
    (void)DRV_SetVideoNorm(kVideoChannel, &stNorm);

    CliVideoEncodeParam stParam;
    cli_encode_param_fill(&stParam, &stNorm);
    int32_t lResult = DRV_SetVideoEncodeParam(kVideoChannel, kMainStream, &stParam);
    if (gulCliEncodeFirstCall == 0)
        return lResult;
    gulCliEncodeFirstCall = 0;

    /* Each load is tried even when the one before failed; only the last one's result is told. */
    CliIspExposure stExposure;
    cli_isp_exposure_fill(&stExposure);
    if (ISP_SetExposure(kVideoChannel, 0, 0, &stExposure) != 0)
        CLI_INFO("ISP_SetExposure call failed");
    CliIspWhiteBalance stBalance;
    cli_isp_white_balance_fill(&stBalance);
    if (ISP_SetWhiteBalance(kVideoChannel, 0, &stBalance) != 0)
        CLI_INFO("ISP_SetWhiteBalance call failed");
    CliIspEnhance stEnhance;
    cli_isp_enhance_fill(&stEnhance);
    lResult = ISP_SetImageEnhance(kVideoChannel, 0, 0, &stEnhance);
    if (lResult != 0)
        lResult = CLI_INFO("ISP_SetImageEnhance call failed");
    return lResult;
}
