/*
 * The sensor table and the records of the encoder start-up: memory only, no I/O, no reports.
 */
#include "sensor_table.h"

#include <string.h>

namespace
{

/* One sensor the family fits, by the name its driver prints, and the picture it gives. */
struct CliSensorRow {
    const char *pcName;
    uint32_t ulWidth;
    uint32_t ulHeight;
};

/* Searched in this order; the first name found decides, so a text naming two sensors takes the
 * earlier row wherever each name stands in it. */
constexpr CliSensorRow kastSensorTable[] = {
    {"IMX123", 2048, 1536},                                                  /* 3 megapixels, 4:3 */
    {"IMX290", 1920, 1080}, {"IMX185", 1920, 1080}, {"MN34227", 1920, 1080}, /* 1080p */
    {"IMX224", 1280, 960},  {"IMX225", 1280, 960},                           /* 1.3 megapixels */
};

/* What a sensor missing from the table gets: 1080p. */
constexpr uint32_t kDefaultWidth = 1920;
constexpr uint32_t kDefaultHeight = 1080;

/* One word of a record and the value the platform library expects in it. */
struct CliRecordWord {
    uint8_t ucIndex;
    uint32_t ulValue;
};

/* The encoder's fixed settings for the factory stream (width, height and rate follow the sensor). */
constexpr CliRecordWord kastEncodeWords[] = {{0, 1},  {1, 6}, {4, 6144}, {6, 0},
                                             {7, 50}, {8, 0}, {9, 5},    {10, 5}};
constexpr uint8_t kEncodeWidthWord = 2;
constexpr uint8_t kEncodeHeightWord = 3;
constexpr uint8_t kEncodeRateWord = 5;

/* The exposure settings of the factory start-up; every word not listed stays 0. */
constexpr CliRecordWord kastExposureWords[] = {
    {4, 50}, {9, 30}, {10, 8000}, {12, 36}, {14, 30}, {16, 5}, {17, 5}, {18, 5}, {28, 5},
};

/* The enhancement settings: the mid-scale 128 in words 1 to 4, 6 and 7; the others 0. */
constexpr CliRecordWord kastEnhanceWords[] = {{1, 128}, {2, 128}, {3, 128}, {4, 128}, {6, 128}, {7, 128}};

template <size_t N, size_t M> void cli_record_fill(uint32_t (&aulWords)[N], const CliRecordWord (&astSet)[M])
{
    memset(aulWords, 0, sizeof aulWords);
    for (const CliRecordWord &stWord : astSet) {
        static_assert(N <= 256, "word indices are bytes");
        if (stWord.ucIndex < N)
            aulWords[stWord.ucIndex] = stWord.ulValue;
    }
}

} // namespace

bool cli_sensor_norm(const char *pcText, size_t ulLength, CliVideoNorm *pstNorm)
{
    /* The driver's text ends at its first zero byte, or where the read stopped. */
    const size_t ulText = pcText != nullptr ? strnlen(pcText, ulLength) : 0;
    for (const CliSensorRow &stRow : kastSensorTable) {
        if (ulText != 0 && memmem(pcText, ulText, stRow.pcName, strlen(stRow.pcName)) != nullptr) {
            *pstNorm = CliVideoNorm{stRow.ulWidth, stRow.ulHeight, kSensorFrameRate};
            return true;
        }
    }
    *pstNorm = CliVideoNorm{kDefaultWidth, kDefaultHeight, kSensorFrameRate};
    return false;
}

void cli_encode_param_fill(CliVideoEncodeParam *pstParam, const CliVideoNorm *pstNorm)
{
    cli_record_fill(pstParam->aulWord, kastEncodeWords);
    pstParam->aulWord[kEncodeWidthWord] = pstNorm->ulWidth;
    pstParam->aulWord[kEncodeHeightWord] = pstNorm->ulHeight;
    pstParam->aulWord[kEncodeRateWord] = pstNorm->ulFrameRate;
}

void cli_isp_exposure_fill(CliIspExposure *pstExposure)
{
    cli_record_fill(pstExposure->aulWord, kastExposureWords);
}

void cli_isp_white_balance_fill(CliIspWhiteBalance *pstBalance)
{
    memset(pstBalance, 0, sizeof *pstBalance); /* the balance the image processor works out itself */
}

void cli_isp_enhance_fill(CliIspEnhance *pstEnhance)
{
    cli_record_fill(pstEnhance->aulWord, kastEnhanceWords);
}
