/*
 * What libclidriver needs from the camera platform.
 *
 * These operations belong to the camera's closed driver library (DRV_*, Drv_*, drv_*, COMDRV_*,
 * Cli_Common_Print, SetRunLight, DomePtz_CliSetAlarmLedNo) and image library (ISP_*). The
 * library never defines them: they stay undefined in libclidriver.so and are resolved when the
 * shell's process loads, by the camera's libraries on the target and by the simulated platform on
 * a PC. Results are 0 for success unless a comment says otherwise.
 */
#ifndef CLIDRIVER_PLATFORM_H
#define CLIDRIVER_PLATFORM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records handed to the platform --------------------------------------------------------- */

/* Number of alarm inputs and outputs of the unit. */
typedef struct CliAlarmCount {
    uint32_t ulInputs;
    uint32_t ulOutputs;
} CliAlarmCount;

/* Video norm: picture size and frame rate. */
typedef struct CliVideoNorm {
    uint32_t ulWidth;
    uint32_t ulHeight;
    uint32_t ulFrameRate;
} CliVideoNorm;

/* Encoder parameters of one stream, sixteen words. */
typedef struct CliVideoEncodeParam {
    uint32_t aulWord[16];
} CliVideoEncodeParam;

/* Image-processor exposure, white-balance and enhancement parameters. */
typedef struct CliIspExposure {
    uint32_t aulWord[29];
} CliIspExposure;
typedef struct CliIspWhiteBalance {
    uint32_t aulWord[3];
} CliIspWhiteBalance;
typedef struct CliIspEnhance {
    uint32_t aulWord[10];
} CliIspEnhance;

/* Orientation sensor reading: word 14 horizontal, word 15 vertical. */
typedef struct CliEcompassRecord {
    int32_t alWord[16];
} CliEcompassRecord;

/* One parking LED request. */
typedef struct CliParkLedCtrl {
    uint32_t ulGroup; /* always 2 */
    uint32_t ulColor; /* platform colour code 1, 3 or 4 */
    uint32_t ulOn;    /* 1 on, 0 off */
    uint32_t ulWord4; /* not used by the library, kept 0 */
    uint32_t ulLevel; /* always 255 */
} CliParkLedCtrl;

/* Control-board power lamp request: {1, 3, state}. */
typedef struct CliSibPowerLamp {
    uint32_t aulWord[3];
} CliSibPowerLamp;

/* Wi-Fi configuration record applied before a sniff: 1116 bytes. */
typedef struct CliWifiCfg {
    uint32_t aulWord[279];
} CliWifiCfg;

/* Control-board version text, e.g. "1.3A": major "." minor, then the PCB revision letter. */
typedef struct CliSibVersion {
    char acText[8];
} CliSibVersion;

/* ---- Operations -------------------------------------------------------------------------------- */

/* Print sink of the command console: writes the formatted text unchanged to the console or log. */
int Cli_Common_Print(const char *pcFormat, ...) __attribute__((format(printf, 1, 2)));

/* Every other operation, from the one list. Notable results: drv_GetAlarmCnt returns a record
 * owned by the platform (never null); drv_GetFlashType 1 = eMMC; drv_IsProductCapSupt and
 * drv_GetHeaterSuptLvlCtrl 1 = yes; DRV_SetWifiCfg 1 = failure; DRV_SIBCliWaterLampTest returns a
 * status that the lamp command hands back unchanged. */
#define CLI_PLATFORM(library, ret, name, params, args) ret name params;
#include <clidriver/platform.def>

#ifdef __cplusplus
}
#endif

#endif /* CLIDRIVER_PLATFORM_H */
