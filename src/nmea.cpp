/*
 * NMEA sentence parsing: the field splitter and checksum the GPS commands share, and the two
 * exported parsers that turn a located sentence into what the operator sees, a number (satellites
 * in use or in view) or a position.
 *
 * Everything here reads text that a receiver sent: a GPS module outside our control, on a line
 * that may carry noise. No field, table or record is ever written beyond its end, whatever the
 * text holds.
 */
#include "cli_libfun_unit.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "clidriver/clidriver.h"
#include "nmea.h"

namespace
{

/* A coordinate's point must have at least three digits before it (degrees, then two digits of
 * minutes); one nearer the start cannot be a ddmm.mmmm angle. */
constexpr size_t kPointIndexMin = 3;
/* The point moves this many places left: from after the minutes' whole digits to after the
 * degrees. */
constexpr size_t kMinuteDigits = 2;

/* In position mode fields 1 to 9 must all hold something: time, status, latitude with its
 * hemisphere, longitude with its hemisphere and the three fields after them (RMC: speed, course,
 * date; GGA: fix quality, satellites, dilution). A receiver without a fix leaves some empty. */
constexpr uint32_t kFirstRequiredField = 1;
constexpr uint32_t kLastRequiredField = 9;

/* The latitude, its hemisphere, the longitude and its hemisphere follow one another. */
constexpr uint32_t kPositionFields = 4;

/* atoi as the camera's 32-bit C library gives it: a value beyond a 32-bit int is held at the
 * nearest end, on every build (strtol's long is wider on a 64-bit PC). */
uint32_t cli_nmea_number(const char *pcText)
{
    long lValue = strtol(pcText, nullptr, 10);
    if (lValue > INT_MAX)
        lValue = INT_MAX;
    if (lValue < INT_MIN)
        lValue = INT_MIN;
    return static_cast<uint32_t>(static_cast<int>(lValue));
}

} // namespace

void cli_nmea_split(const char *pcSentence, CliNmeaFields *pstFields)
{
    memset(pstFields, 0, sizeof *pstFields);
    uint32_t ulField = 0;
    uint32_t ulColumn = 0;
    for (const char *pc = pcSentence; *pc != '*' && *pc != '\0'; ++pc) {
        if (*pc == ',') {
            /* The 32nd comma would open a 33rd field: there is no room for it, and nothing after
             * it can be stored, so the walk ends here. */
            if (++ulField == kNmeaFieldCount)
                return;
            ulColumn = 0;
            continue;
        }
        /* The last byte of every field stays its terminating zero: characters beyond the 31st
         * are dropped, and the field keeps its first 31. */
        if (ulColumn < kNmeaFieldSize - 1)
            pstFields->aacField[ulField][ulColumn++] = *pc;
    }
}

uint32_t cli_nmea_checksum(const char *pcSentence)
{
    uint32_t ulSum = 0;
    const char *pc = pcSentence[0] == '$' ? pcSentence + 1 : pcSentence;
    for (; *pc != '*' && *pc != '\0'; ++pc)
        ulSum ^= static_cast<unsigned char>(*pc);
    return ulSum;
}

uint32_t cli_nmea_command(char *pcOut, uint32_t ulCapacity, const char *pcBody)
{
    if (ulCapacity == 0)
        return 0;
    /* "%X", not "%02X": receivers of this family take a one-digit checksum, and the commands
     * deployed cameras send are written so; station logs are compared with them byte for byte. */
    const int lLength = snprintf(pcOut, ulCapacity, "%s%X\r\n", pcBody, cli_nmea_checksum(pcBody));
    if (lLength < 0 || static_cast<uint32_t>(lLength) >= ulCapacity) {
        pcOut[0] = '\0';
        return 0;
    }
    return static_cast<uint32_t>(lLength);
}

char *cli_nmea_find(char *pcBlock, uint32_t ulLength, const char *pcKey)
{
    char *pcMatch = strstr(pcBlock, pcKey);
    if (pcMatch == nullptr)
        return nullptr;
    /* Unsigned on purpose: a short block (under 128 bytes, as a hub frame may carry) makes the
     * limit wrap to a huge number, and then any match counts. */
    const uint32_t ulOffset = static_cast<uint32_t>(pcMatch - pcBlock);
    return ulOffset <= ulLength - kNmeaTailBytes ? pcMatch : nullptr;
}

uint32_t CLI_StringConvert(char *pcDst, const char *pcSrc)
{
    if (pcDst == nullptr || pcSrc == nullptr) {
        CLI_ERROR("null text");
        return 1;
    }
    /* Where the point goes in the destination; none when the source has no point, and then the
     * digits come through unchanged. */
    size_t ulPointAt = SIZE_MAX;
    if (const char *pcPoint = strchr(pcSrc, '.')) {
        const size_t ulIndex = static_cast<size_t>(pcPoint - pcSrc);
        if (ulIndex < kPointIndexMin) {
            CLI_INFO("error date %s", pcSrc); /* operators' scripts match this text as it stands */
            return 1;
        }
        ulPointAt = ulIndex - kMinuteDigits;
        pcDst[ulPointAt] = '.';
    }
    /* Every character of the source but its points, in order, stepping over the point placed
     * above: "3150.7816" becomes "31.507816", degrees then the minutes' digits run together, as
     * operators have always read it. The destination gets exactly as many characters as the
     * source has (one point dropped, one placed), so a destination of strlen(src) + 1 zeroed bytes
     * always holds the result and its terminating zero; nothing is written beyond that. */
    size_t ulAt = 0;
    for (const char *pc = pcSrc; *pc != '\0'; ++pc) {
        if (*pc == '.')
            continue;
        if (ulAt == ulPointAt)
            ++ulAt;
        pcDst[ulAt++] = *pc;
    }
    return 0;
}

uint32_t CLI_InfoAnalyse(char *pcSentence, uint32_t ulField, uint32_t *pulNumber)
{
    if (pcSentence == nullptr) {
        CLI_ERROR("null sentence");
        return 1;
    }
    CliNmeaFields stFields;
    cli_nmea_split(pcSentence, &stFields);

    if (pulNumber != nullptr) {
        /* A field beyond the table cannot have been received: it reads as an empty one, 0. */
        *pulNumber = ulField < kNmeaFieldCount ? cli_nmea_number(stFields.aacField[ulField]) : 0;
        return 0;
    }

    /* A field is empty when its first character is the terminating zero (the splitter never
     * stores a comma). The longitude's hemisphere must also lie within the table. */
    bool bLegal = ulField <= kNmeaFieldCount - kPositionFields;
    for (uint32_t ulAt = kFirstRequiredField; ulAt <= kLastRequiredField; ++ulAt)
        if (stFields.aacField[ulAt][0] == '\0')
            bLegal = false;
    if (!bLegal) {
        CLI_RESULT("Coordinate Info illegal");
        return 1;
    }

    /* Each text holds a whole field, so no conversion is ever cut short. A coordinate that cannot
     * be converted has reported why and stays empty; the position is shown all the same. */
    char acLatitude[kNmeaFieldSize] = {};
    char acLongitude[kNmeaFieldSize] = {};
    (void)CLI_StringConvert(acLatitude, stFields.aacField[ulField]);
    (void)CLI_StringConvert(acLongitude, stFields.aacField[ulField + 2]);
    const char cLatitudeSide = stFields.aacField[ulField + 1][0];
    const char cLongitudeSide = stFields.aacField[ulField + 3][0];
    /* Longitude first, then latitude, on two lines: the form the station's operators read. */
    CLI_RESULT("Longitude:%c %s\nLatitude:%c %s", cLongitudeSide, acLongitude, cLatitudeSide, acLatitude);
    return 0;
}
