/*
 * The GPS receiver on the peripheral link: which satellite systems it searches (a MediaTek
 * $PMTK353 sentence), the rate the link talks to it at, and the operator's two queries, the
 * position and the number of satellites.
 *
 * Both queries put the receiver into the wanted mode on a freshly opened link, then read blocks of
 * NMEA text until a wanted sentence turns up. A receiver that was just powered or reconfigured may
 * send nothing useful for a while, so a miss costs a reconfiguration and a reopen of the link
 * before the next block is read, up to six times.
 */
#include "cli_libfun_unit.h"

#include <stdio.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "hub_frame.h"
#include "link.h"
#include "nmea.h"

namespace
{

/* MediaTek's test packet. A receiver that is listening acknowledges it; sending it first wakes
 * the receiver's command parser before the mode command follows. */
constexpr char kPmtkTest[] = "$PMTK000*32\r\n";
constexpr uint32_t kPmtkTestLength = sizeof kPmtkTest - 1; /* 13 bytes, no terminating zero */
/* Search mode: GPS, GLONASS, Galileo, Galileo full, BeiDou, each 1 to search it. GLONASS and
 * Galileo are never searched on these cameras. */
constexpr char kPmtkSearchMode[] = "$PMTK353,%u,%u,0,0,%u*";
/* Room for the search-mode sentence with its checksum and CR LF. */
constexpr uint32_t kPmtkCommandSize = 40;
/* The receiver needs about a second to act on each sentence before the next one. */
constexpr unsigned kPmtkSettleSeconds = 1;

/* What each mode asks of the receiver, and the talker of the sentences it then sends. */
struct CliGpsMode {
    uint32_t ulGps;       /* 1: search GPS satellites */
    uint32_t ulBeidou;    /* 1: search BeiDou satellites */
    const char *pcTalker; /* prefix of the sentences to look for; empty: any talker */
};
constexpr CliGpsMode kGpsModes[] = {
    {1, 0, "GP"}, /* 0: GPS only */
    {0, 1, "BD"}, /* 1: BeiDou only */
    {1, 1, ""},   /* 2: both; a combined fix comes under a talker of either system or GN */
};
constexpr uint32_t kGpsModeCount = sizeof kGpsModes / sizeof kGpsModes[0];

/* What one CLI_ComRecv fills (kLinkGpsBlockSize); the block gets a terminating zero after it for
 * the search. */
constexpr uint32_t kGpsBlockSize = kLinkGpsBlockSize;
/* Blocks read before the query gives up; the retries give a cold receiver time to start. */
constexpr int kGpsTries = 6;
/* Time the receiver gets between closing the link and opening it again. */
constexpr unsigned kGpsReopenSeconds = 2;
/* A search key is a talker prefix and a sentence type: "GPRMC" and the like. */
constexpr uint32_t kGpsKeySize = 8;

/* A sentence type a query looks for, and the field handed to CLI_InfoAnalyse. */
struct CliGpsSentence {
    const char *pcType;
    uint32_t ulField;
};
/* Position: RMC first (it carries the fix status and the date), then GGA, then GLL; the field is
 * where the latitude starts. */
constexpr CliGpsSentence kCoorSentences[] = {{"RMC", 3}, {"GGA", 2}, {"GLL", 1}};
/* Satellites: in use from GGA, else in view from GSV. */
constexpr CliGpsSentence kSatSentences[] = {{"GGA", 7}, {"GSV", 3}};

/* One query: the command it runs for (every line it reports names that command), whether each
 * block must be fresh, and the sentences it looks for in order. */
struct CliGpsQuery {
    const char *pcFunction;
    bool bFlushEachTry; /* discard what the receiver sent before the block is asked for */
    const CliGpsSentence *pstSentences;
    uint32_t ulSentences;
};
constexpr CliGpsQuery kCoorQuery = {"CLI_GetGpsCoor", true, kCoorSentences,
                                    sizeof kCoorSentences / sizeof kCoorSentences[0]};
constexpr CliGpsQuery kSatQuery = {"CLI_GetGpsSatellite", false, kSatSentences,
                                   sizeof kSatSentences / sizeof kSatSentences[0]};

/* Closes the link, gives the receiver its time, and opens it again. */
uint32_t cli_gps_reopen(const char *pcFunction, int *pFd)
{
    (void)CLI_ComClose(COM_TYPE_GPS, pFd);
    (void)sleep(kGpsReopenSeconds);
    /* This flush names the descriptor just closed, which the close has set to -1: it does
     * nothing, as on deployed cameras. The reopened line starts empty all the same, since a port
     * that nobody holds open keeps nothing of what arrives. */
    (void)tcflush(*pFd, TCIOFLUSH);
    if (CLI_ComOpen(COM_TYPE_GPS, pFd) != 0) {
        CLI_FAIL_AS(pcFunction, "open com fail");
        return 1; /* the descriptor stays as CLI_ComOpen left it */
    }
    return 0;
}

/* Opens the GPS link, puts the receiver into `ulMode` and reads blocks into `pcBlock` (which
 * holds kGpsBlockSize + 1 bytes) until one of the query's sentences turns up. On success the link
 * is closed and `*ppstFound` and `*ppcFound` name the sentence type and where its address starts;
 * otherwise every failure has been reported and 1 comes back. */
uint32_t cli_gps_listen(const CliGpsQuery *pstQuery, uint32_t ulMode, char *pcBlock,
                        const CliGpsSentence **ppstFound, char **ppcFound)
{
    const char *const pcFunction = pstQuery->pcFunction;
    if (ulMode >= kGpsModeCount) {
        CLI_FAIL_AS(pcFunction, "portnum only support (0|1|2)"); /* the words operators know */
        return 1;
    }
    int fd = -1;
    if (CLI_ComOpen(COM_TYPE_GPS, &fd) != 0) {
        CLI_FAIL_AS(pcFunction, "open com fail");
        return 1;
    }
    /* Behind the hub the RFID reader and the ZigBee radio share the line: their channels are
     * closed so that only the receiver's sentences come back. */
    if (cli_link_hub_mode()) {
        (void)CLI_ComSend(fd, COM_TYPE_RFID, nullptr, 0, kHubCmdClose);
        (void)CLI_ComSend(fd, COM_TYPE_ZIGBEE, nullptr, 0, kHubCmdClose);
    }
    if (cli_gps_reopen(pcFunction, &fd) != 0)
        return 1;

    memset(pcBlock, 0, kGpsBlockSize + 1); /* once: a short block leaves the previous one's tail */
    uint32_t ulLength = 0;
    const char *const pcTalker = kGpsModes[ulMode].pcTalker;
    int lTriesLeft = kGpsTries;
    (void)CLI_SetGpsMode(fd, ulMode);
    while (lTriesLeft > 0) {
        /* The position must be one the receiver sent after the request, not one from the
         * backlog; a satellite count may be a moment old. */
        if (pstQuery->bFlushEachTry)
            (void)tcflush(fd, TCIOFLUSH);
        if (CLI_ComRecv(fd, COM_TYPE_GPS, pcBlock, &ulLength) != 0) {
            (void)CLI_ComClose(COM_TYPE_GPS, &fd);
            CLI_FAIL_AS(pcFunction, "read date fail"); /* operators' scripts match this text as it stands */
            return 1;
        }
        if (pstQuery->bFlushEachTry)
            CLI_INFO_AS(pcFunction, "%s", pcBlock);
        else
            CLI_INFO_AS(pcFunction, "%d,%s", static_cast<int>(strlen(pcBlock)), pcBlock);

        for (uint32_t ulAt = 0; ulAt < pstQuery->ulSentences; ++ulAt) {
            char acKey[kGpsKeySize];
            snprintf(acKey, sizeof acKey, "%s%s", pcTalker, pstQuery->pstSentences[ulAt].pcType);
            char *pcMatch = cli_nmea_find(pcBlock, ulLength, acKey);
            if (pcMatch != nullptr) {
                (void)CLI_ComClose(COM_TYPE_GPS, &fd);
                *ppstFound = &pstQuery->pstSentences[ulAt];
                *ppcFound = pcMatch;
                return 0;
            }
        }

        --lTriesLeft;
        CLI_INFO_AS(pcFunction, "Left %d chance to try", lTriesLeft);
        (void)CLI_SetGpsMode(fd, ulMode);
        if (cli_gps_reopen(pcFunction, &fd) != 0)
            return 1;
    }
    (void)CLI_ComClose(COM_TYPE_GPS, &fd);
    /* The same words for both queries: the usual cause is a receiver set to another rate. */
    CLI_FAIL_AS(pcFunction, "Get Coordinate failed,please check rate");
    return 1;
}

} // namespace

int32_t CLI_SetGpsMode(int fd, uint32_t ulMode)
{
    if (ulMode >= kGpsModeCount) {
        CLI_ERROR("ulPortNum Invalid"); /* the words operators know, though it names a port */
        return CLI_CONSOLE("ulPortNum Invalid");
    }
    char acBody[kPmtkCommandSize];
    snprintf(acBody, sizeof acBody, kPmtkSearchMode, kGpsModes[ulMode].ulGps, 0u, kGpsModes[ulMode].ulBeidou);
    char acCommand[kPmtkCommandSize];
    const uint32_t ulLength = cli_nmea_command(acCommand, sizeof acCommand, acBody);
    CLI_INFO("Cmd:%s", acCommand);

    /* The receiver's acknowledgements are not read here: the queries' search passes over them. */
    (void)CLI_ComSend(fd, COM_TYPE_GPS, kPmtkTest, kPmtkTestLength, kHubCmdPass);
    (void)sleep(kPmtkSettleSeconds);
    (void)CLI_ComSend(fd, COM_TYPE_GPS, acCommand, ulLength, kHubCmdPass);
    return static_cast<int32_t>(sleep(kPmtkSettleSeconds));
}

/* Taken by the next CLI_ComOpen of the GPS link; a receiver keeps its own rate, so a wrong value
 * shows as queries that never find a sentence. */
uint32_t CLI_SetGpsRate(uint32_t ulRate)
{
    cli_link_set_rate(COM_TYPE_GPS, ulRate);
    return 0;
}

uint32_t CLI_GetGpsCoor(uint32_t ulMode)
{
    char acBlock[kGpsBlockSize + 1];
    const CliGpsSentence *pstFound = nullptr;
    char *pcSentence = nullptr;
    if (cli_gps_listen(&kCoorQuery, ulMode, acBlock, &pstFound, &pcSentence) != 0)
        return 1;
    /* The analysis prints the position itself, or why there is none. */
    if (CLI_InfoAnalyse(pcSentence, pstFound->ulField, nullptr) == 0)
        return 0;
    CLI_FAIL("Data info Analyse failed");
    return 1;
}

uint32_t CLI_GetGpsSatellite(uint32_t ulMode)
{
    char acBlock[kGpsBlockSize + 1];
    const CliGpsSentence *pstFound = nullptr;
    char *pcSentence = nullptr;
    if (cli_gps_listen(&kSatQuery, ulMode, acBlock, &pstFound, &pcSentence) != 0)
        return 1;
    uint32_t ulCount = 0;
    if (CLI_InfoAnalyse(pcSentence, pstFound->ulField, &ulCount) != 0) {
        CLI_FAIL("Data info Analyse failed");
        return 1;
    }
    if (pstFound == &kSatSentences[0])
        CLI_RESULT("Location Satellite Num:%u", ulCount); /* GGA: satellites used in the fix */
    else
        CLI_RESULT("Satellite Num:%u", ulCount); /* GSV: satellites in view */
    return 0;
}
