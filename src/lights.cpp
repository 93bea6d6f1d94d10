/*
 * Lights, climate and sensors: the IR-cut filter, the IR lamps (through the driver or an external
 * lamp unit on the console UART), the RGB run light, the dome's alarm LED and the inner
 * open-collector output; the heaters and fans; the light sensor (analogue input or a serial
 * accessory), the PIR motion detector, and the orientation sensor's self-test, readings and status.
 *
 * Each command drives one output or reads one sensor for the factory station and says so in its
 * status word; a reading is printed twice, as an INFO line and as a plain line for the station's
 * terminal.
 */
#include "cli_libfun_unit.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "device.h"
#include "devices.h"
#include "lamp_frame.h"

namespace
{

/* ---- IR cut and IR lamps ------------------------------------------------------------------------- */

/* The camera's one IR-cut filter sits on video channel 0; the driver knows modes 0 to 3. */
constexpr uint32_t kIrCutChannel = 0;
constexpr uint32_t kIrCutModeMax = 3;

/* Lamp brightness: the operator gives a level 0..31 (more counts as 31), the driver takes per
 * mille. Only mode 1 sets a brightness; every other mode hands the driver 0. */
constexpr uint32_t kIrLedBrightnessMode = 1;
constexpr uint32_t kIrLedLevelMax = 31;
constexpr uint32_t kIrLedPerMilleFull = 1000;

/* The console UART, which also carries the external accessory: an IR lamp unit or a light
 * sensor, whichever the model fits. Both talk at 9600 baud. */
constexpr char kAccessoryPort[] = "/dev/ttyAMBA1";
constexpr uint32_t kAccessoryRate = 9600;

/* The lamp unit's switch: 1 is on, anything else off. */
constexpr uint32_t kLampSwitchOn = 1;

/* ---- Run light --------------------------------------------------------------------------------- */

/* The run light's three channels are put out in this order before one is lit. */
constexpr uint32_t kaulRunLightQuenchOrder[] = {0, 2, 1};
constexpr uint32_t kRunLightOff = 0;
constexpr uint32_t kRunLightOn = 1;
/* Colour codes 0..4 and the channel each lights; 0 leaves all dark, 3 has no channel. */
constexpr uint32_t kRunLightDark = 0;
constexpr uint32_t kRunLightNone = 0xFFFFFFFFu;
constexpr uint32_t kaulRunLightChannel[] = {kRunLightNone, 0, 2, kRunLightNone, 1};

/* ---- Heaters and fans ------------------------------------------------------------------------- */

/* Units 0 and 1, or both at once, unit 0 first. */
constexpr uint32_t kAllUnits = 0xABABABABu;
/* A request of exactly 1 switches on; simple heaters and fans get the value as it came. */
constexpr uint32_t kUnitOn = 1;
/* A level-controlled heater's driver answers 1; its power level for on and for off. */
constexpr uint32_t kHeaterHasLevels = 1;
constexpr uint32_t kHeaterLevelOn = 40;
constexpr uint32_t kHeaterLevelOff = 0;

/* ---- Sensors ------------------------------------------------------------------------------------ */

/* The analogue input: 10 bits over a 3.3 V reference, 1/1024 V per step. */
constexpr double kAdcReferenceVolts = 3.3;
constexpr double kAdcStep = 0.0009765625;
/* The serial sensor's level 0..255 maps inversely onto the same 3.3 V. */
constexpr double kLightLevelFull = 255.0;

/* Exchanges with the serial light sensor before the command gives up; one second for each
 * wait of its reply. */
constexpr uint32_t kLightAttempts = 5;
constexpr time_t kLightReplySeconds = 1;

/* What the requests find in their word before the driver writes it: a PIR state the driver never
 * reports, and a self-test result that is not a pass. */
constexpr uint32_t kPirUnanswered = 99999;
constexpr int32_t kSelfTestUnanswered = -1;

/* The compass readings: the platform's commands and the words of its record that carry them. */
constexpr uint32_t kCompassReadHorizontal = 3;
constexpr uint32_t kCompassReadVertical = 4;
constexpr uint32_t kCompassHorizontalWord = 14;
constexpr uint32_t kCompassVerticalWord = 15;

/* Switches unit 0, unit 1 or both through `pfSet`, stopping at the first unit that fails, which is
 * reported under `pcFunction` with the unit's text. An index that names no unit does nothing. */
uint32_t cli_switch_units(const char *pcFunction, uint32_t ulIndex, uint32_t bIsOn,
                          int32_t (*pfSet)(uint32_t, uint32_t), const char *const apcFailed[2])
{
    for (uint32_t ulUnit = 0; ulUnit < 2; ++ulUnit) {
        if (ulIndex != ulUnit && ulIndex != kAllUnits)
            continue;
        if (pfSet(ulUnit, bIsOn) != 0) {
            CLI_CALL_FAILED_AS(pcFunction, apcFailed[ulUnit]);
            return 1;
        }
    }
    return 0;
}

/* Opens the accessory's UART raw at its rate. A port that will not open is reported only through
 * perror; a rate that cannot be set closes it again. Gives the descriptor, or -1. */
int cli_open_accessory(const char *pcFunction)
{
    const int fd = open(kAccessoryPort, O_RDWR | O_NOCTTY);
    if (fd < 0) {
        perror(kAccessoryPort);
        return -1;
    }
    if (CLI_SetRsRate(fd, kAccessoryRate) != 0) {
        CLI_FAIL_AS(pcFunction, "Set Rate failed");
        close(fd);
        return -1;
    }
    return fd;
}

/* Puts one frame on the accessory's line: whatever either side still held is thrown away first,
 * and the frame is on the wire when this returns. Gives what write gave. */
ssize_t cli_send_accessory_frame(int fd, const uint8_t *pucFrame)
{
    tcflush(fd, TCIOFLUSH);
    const ssize_t lRet = write(fd, pucFrame, kLampFrameSize);
    tcdrain(fd);
    return lRet;
}

/* A voltage as the station prints it: worked out in double precision, kept in single. */
double cli_station_volts(double dVolts)
{
    return static_cast<double>(static_cast<float>(dVolts));
}

} // namespace

/* ---- IR cut, IR lamps, LEDs and switched outputs ----------------------------------------------- */

uint32_t CLI_CtrlInnerIrCutMode(uint32_t ulMode)
{
    if (ulMode > kIrCutModeMax) {
        CLI_FAIL("not support this mode");
        return 1;
    }
    if (DRV_SetIRCut(kIrCutChannel, ulMode) != 0) {
        CLI_CALL_FAILED("DRV_SetIRCut");
        return 1;
    }
    return 0;
}

uint32_t CLI_IrLedCtrl(uint32_t ulArg1, uint32_t ulArg2, uint32_t ulMode, uint32_t ulLevel)
{
    uint32_t ulPerMille = 0;
    if (ulMode == kIrLedBrightnessMode) {
        const uint32_t ulClamped = ulLevel > kIrLedLevelMax ? kIrLedLevelMax : ulLevel;
        ulPerMille = kIrLedPerMilleFull * ulClamped / kIrLedLevelMax;
    }
    if (DRV_CLI_SetIRLed(ulArg1, ulArg2, ulPerMille, 0) != 0) {
        CLI_CALL_FAILED("DRV_CLI_SetIRLed");
        return 1;
    }
    return 0;
}

/* Switching off needs no port: the unit's off frame puts out every lamp it drives. */
uint32_t CLI_IrLed232Ctrl(uint32_t ulPort, uint32_t ulSwitch)
{
    const uint8_t *pucFrame = kIrLampFrameOff;
    if (ulSwitch == kLampSwitchOn) {
        if (ulPort == 0) {
            pucFrame = kIrLampFrameOnPort0;
        } else if (ulPort == 1) {
            pucFrame = kIrLampFrameOnPort1;
        } else {
            CLI_FAIL("portnum error(only support 0|1)");
            return 1;
        }
    }
    const int fd = cli_open_accessory(__func__);
    if (fd < 0)
        return 1;
    const ssize_t lRet = cli_send_accessory_frame(fd, pucFrame);
    close(fd);
    if (lRet != static_cast<ssize_t>(kLampFrameSize)) {
        CLI_ERROR("write num lRet is %d", static_cast<int>(lRet));
        return 1;
    }
    return 0;
}

uint32_t CLI_SetLedColor(uint32_t enLedColor)
{
    for (const uint32_t ulChannel : kaulRunLightQuenchOrder) {
        if (SetRunLight(ulChannel, kRunLightOff) != 0) {
            CLI_FAIL("Set RGB light quench fail!");
            return 1;
        }
    }
    if (enLedColor == kRunLightDark)
        return 0;
    const uint32_t ulCodes = sizeof kaulRunLightChannel / sizeof kaulRunLightChannel[0];
    const uint32_t ulChannel = enLedColor < ulCodes ? kaulRunLightChannel[enLedColor] : kRunLightNone;
    if (ulChannel == kRunLightNone) {
        CLI_FAIL("Color not support!");
        return 1;
    }
    if (SetRunLight(ulChannel, kRunLightOn) != 0) {
        /* The station has always shown this one on its terminal, as a result rather than an
         * error; its scripts match it there. */
        CLI_RESULT("Set RGB light bright fail!");
        return 1;
    }
    return 0;
}

int32_t Cli_AlarmLedCtrl(uint32_t ulArg1, uint32_t ulArg2, uint32_t ulArg3, uint32_t ulArg4)
{
    return DomePtz_CliSetAlarmLedNo(ulArg1, ulArg2, ulArg3, ulArg4);
}

uint32_t CLI_CtrlInnerOcStatus(uint32_t ulOcStatus)
{
    if (ulOcStatus > 1) {
        CLI_FAIL("ulOcStatus unsupport[%u]", ulOcStatus);
        return 1;
    }
    CliDevice stMotor;
    if (!CLI_DEVICE_OPEN(&stMotor, kMotorDevice, O_RDWR))
        return 1;
    if (cli_device_request(&stMotor, kOcOutputSet, &ulOcStatus) < 0)
        return cli_device_failed(&stMotor, kOcOutputSet);
    cli_device_close(&stMotor);
    return 0;
}

uint32_t CLI_GetInnerOcStatus(void)
{
    CliDevice stMotor;
    if (!CLI_DEVICE_OPEN(&stMotor, kMotorDevice, O_RDWR))
        return 1;
    uint32_t ulStatus = 0;
    if (cli_device_request(&stMotor, kOcOutputGet, &ulStatus) < 0)
        return cli_device_failed(&stMotor, kOcOutputGet);
    cli_device_close(&stMotor);
    CLI_RESULT("status: %d", static_cast<int32_t>(ulStatus));
    return 0;
}

/* ---- Heaters and fans -------------------------------------------------------------------------- */

/* A heater with power levels is driven by level, any other by the on/off request as it came. The
 * driver's result is the heater's. */
static int32_t cli_SetHeater(uint32_t ulIndex, uint32_t bIsOn)
{
    if (drv_GetHeaterSuptLvlCtrl(ulIndex) == kHeaterHasLevels) {
        const uint32_t ulLevel = bIsOn == kUnitOn ? kHeaterLevelOn : kHeaterLevelOff;
        CLI_INFO("Heater support level ctrl, set level[%u]", ulLevel);
        return DRV_SetHeaterLevel(ulIndex, ulLevel);
    }
    CLI_INFO("Heater normal ctrl, status[%u]", bIsOn);
    return Drv_SetHeater(ulIndex, bIsOn);
}

/* The failure texts name Drv_SetHeater whichever way the heater was driven: the station's scripts
 * match them as they stand. */
uint32_t CLI_HeatCtrl(uint32_t ulIndex, uint32_t bIsOn)
{
    static const char *const apcFailed[2] = {"Drv_SetHeater(0, bIsOn)", "Drv_SetHeater(1, bIsOn)"};
    return cli_switch_units(__func__, ulIndex, bIsOn, cli_SetHeater, apcFailed);
}

/* Fans are simple switches: the driver gets the request as it came. The driver's operation is
 * called, never taken by address: an address would have to be bound when the library is loaded,
 * and the camera's driver library is only there to bind it on the camera itself. */
static int32_t cli_set_fan(uint32_t ulIndex, uint32_t bIsOn)
{
    return Drv_SetFan(ulIndex, bIsOn);
}

uint32_t CLI_FanCtrl(uint32_t ulIndex, uint32_t bIsOn)
{
    static const char *const apcFailed[2] = {"Drv_SetFan(0, bIsOn)", "Drv_SetFan(1, bIsOn)"};
    return cli_switch_units(__func__, ulIndex, bIsOn, cli_set_fan, apcFailed);
}

/* ---- Light, motion and orientation sensors ------------------------------------------------------ */

/* The light sensor's open failure keeps its own wording, unlike the other devices' reports. */
uint32_t CLI_PhotoSensorVoltage(void)
{
    CliDevice stGpio = {__func__, kGpioDevice, open(kGpioDevice, O_RDONLY)};
    if (stGpio.fd < 0) {
        CLI_FAIL("open file %s error!!", kGpioDevice);
        return 1;
    }
    uint32_t ulRaw = 0;
    if (cli_request_failed(cli_device_request(&stGpio, kAdc0Get, &ulRaw), CLI_REQUEST_ONLY_ZERO)) {
        CLI_FAIL("ioctl DEV_ADC0_GET fail!");
        cli_device_close(&stGpio);
        return 1;
    }
    const double dVolts = cli_station_volts(ulRaw * kAdcReferenceVolts * kAdcStep);
    CLI_RESULT("photosensor voltage: %.2fV", dVolts);
    cli_device_close(&stGpio);
    return 0;
}

/* Asks the serial light sensor up to five times. A reply that is not the sensor's spends an
 * attempt, and so does a query that did not go out whole; a reply that does not come at all ends
 * the command at once, and the port is then left open as deployed stations have always found it. */
uint32_t CLI_232PhotoSensorVoltage(void)
{
    const int fd = cli_open_accessory(__func__);
    if (fd < 0)
        return 1;
    uint8_t aucReply[kLampFrameSize] = {};
    bool bAnswered = false;
    for (uint32_t ulAttempt = 0; ulAttempt < kLightAttempts && !bAnswered; ++ulAttempt) {
        const ssize_t lRet = cli_send_accessory_frame(fd, kLightQueryFrame);
        if (lRet != static_cast<ssize_t>(kLampFrameSize)) {
            CLI_ERROR("write num lRet is %d", static_cast<int>(lRet));
            continue;
        }
        const struct timeval stWait = {kLightReplySeconds, 0};
        const uint32_t ulRead = CLI_Treadn(fd, static_cast<int32_t>(kLampFrameSize), stWait, aucReply);
        if (ulRead != 0) {
            CLI_ERROR("read num lRet is %d", static_cast<int>(ulRead));
            return 1;
        }
        CLI_INFO("%x %x %x %x %x %x %x", aucReply[0], aucReply[1], aucReply[2], aucReply[3], aucReply[4],
                 aucReply[5], aucReply[6]);
        bAnswered = cli_light_reply_valid(aucReply, sizeof aucReply);
        if (!bAnswered)
            CLI_ERROR("read date invalid"); /* spelt so: station scripts match it */
    }
    close(fd);
    if (!bAnswered) {
        CLI_FAIL("read date invalid,please check operation");
        return 1;
    }
    const double dLevel = aucReply[kLightOffLevel];
    const double dVolts =
        cli_station_volts((kLightLevelFull - dLevel) * kAdcReferenceVolts / kLightLevelFull);
    CLI_RESULT("photosensor voltage: %.2fV", dVolts);
    return 0;
}

uint32_t CLI_GetPirStatus(void)
{
    CliDevice stGpio;
    if (!CLI_DEVICE_OPEN(&stGpio, kGpioDevice, O_RDONLY))
        return 1;
    uint32_t ulState = kPirUnanswered;
    if (cli_request_failed(cli_device_request(&stGpio, kPirStatusGet, &ulState), CLI_REQUEST_ONLY_ZERO))
        return cli_device_failed(&stGpio, kPirStatusGet);
    CLI_RESULT("pir status: %u", ulState);
    cli_device_close(&stGpio);
    return 0;
}

/* The sensor is let go before its verdict is looked at. */
uint32_t CLI_GyroscopeCheck(void)
{
    CliDevice stCompass;
    if (!CLI_DEVICE_OPEN(&stCompass, kEcompassDevice, O_RDONLY))
        return 1;
    int32_t lResult = kSelfTestUnanswered;
    const int lRet = cli_device_request(&stCompass, kEcompassSelfTest, &lResult);
    if (cli_request_failed(lRet, CLI_REQUEST_NEGATIVE_FAILS))
        return cli_device_close_and_fail(&stCompass, kEcompassSelfTest);
    cli_device_close(&stCompass);
    CLI_RESULT("The test result is %d", lResult);
    return lResult == 0 ? 0 : 1;
}

/* "Horizon" is followed by two blanks so that both readings line up on the station's terminal. */
uint32_t CLI_GyroscopeGetInfo(void)
{
    CliEcompassRecord stReading;
    memset(&stReading, 0, sizeof stReading);
    if (DRV_EcompassCtrl(kCompassReadHorizontal, &stReading) != 0) {
        CLI_CALL_FAILED("DRV_EcompassCtrl");
        return 1;
    }
    CLI_RESULT("Horizon  Info:%d", stReading.alWord[kCompassHorizontalWord]);
    memset(&stReading, 0, sizeof stReading);
    if (DRV_EcompassCtrl(kCompassReadVertical, &stReading) != 0) {
        CLI_CALL_FAILED("DRV_EcompassCtrl");
        return 1;
    }
    CLI_RESULT("Vertical Info:%d", stReading.alWord[kCompassVerticalWord]);
    return 0;
}

/* The status request's own result is not looked at: a driver that refuses it leaves the zeroed
 * word, which reads as good. */
uint32_t CLI_GyroscopeCheckStatus(void)
{
    CliDevice stGyro;
    if (!CLI_DEVICE_OPEN(&stGyro, kGyroDevice, O_RDONLY))
        return 1;
    uint32_t ulStatus = 0;
    (void)cli_device_request(&stGyro, kGyroStatusGet, &ulStatus);
    cli_device_close(&stGyro);
    CLI_RESULT("The test result is %u", ulStatus);
    return ulStatus == 0 ? 0 : 1;
}
