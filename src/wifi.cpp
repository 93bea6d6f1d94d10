/*
 * The Wi-Fi radio's factory test: the operator tunes the camera's radio to a channel, then asks it
 * to hear a given station (a test phone) among the probe requests on that channel within 56 s.
 *
 * Low layer: a live capture on the interface, already in monitor mode, filtered to 802.11 probe
 * requests; each receive turns up to a few captured frames into probe records (probe_record.h);
 * the channel is set with the wireless-extensions frequency request. Its messages are plain lines
 * on standard output. Upper layer: the four commands, reporting in diagnostic lines.
 */
#include "cli_libfun_unit.h"

#include <errno.h>
#include <linux/wireless.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "probe_record.h"

namespace
{

/* ---- Capture and channel -------------------------------------------------------------------- */

/* Frames the camera hears in monitor mode; the filter keeps probe requests only. */
constexpr int kCapturePromiscuous = 1;
/* A receive waits this long for its packets: a quiet channel gives an empty receive each second. */
constexpr int kCaptureReadTimeoutMs = 1000;
constexpr char kProbeRequestFilter[] = "type mgt subtype probe-req";
constexpr int kFilterOptimise = 1;
constexpr bpf_u_int32 kFilterNetmask = 0; /* no IP on a monitor interface */

/* Wireless extensions: set the frequency; a mantissa below 1000 is a channel number. */
constexpr unsigned long kWirelessSetFrequency = 0x8B04;
static_assert(kWirelessSetFrequency == SIOCSIWFREQ, "the kernel's SIOCSIWFREQ");
static_assert(sizeof(struct iwreq) == 32, "the kernel's wireless request is 32 bytes");
/* A radio busy with a scan or a mode change refuses a tuning for a moment: one retry after this. */
constexpr useconds_t kChannelRetryWaitUs = 10000;

/* ---- Sniff test ----------------------------------------------------------------------------- */

/* The camera's only radio. */
constexpr char kWifiInterface[] = "wlan0";
/* The three commands that put the radio into monitor mode, in this order. */
constexpr const char *kMonitorModeCommands[] = {"ifconfig wlan0 down", "iwconfig wlan0 mode Monitor",
                                                "ifconfig wlan0 up"};

/* Channels the radio takes: the 2.4 GHz band, and every number of the 5 GHz band's range. */
constexpr uint32_t kChannel24First = 1;
constexpr uint32_t kChannel24Last = 14;
constexpr uint32_t kChannel5First = 34;
constexpr uint32_t kChannel5Last = 196;

/* The driver's Wi-Fi configuration for a sniff: word 0 = 1 and word 3 = 2, everything else 0,
 * handed over as DRV_SetWifiCfg(config, 0, 2); the driver answers 1 on failure. */
constexpr uint32_t kWifiCfgWord0 = 1;
constexpr uint32_t kWifiCfgWord3 = 2;
constexpr uint32_t kWifiCfgArg2 = 0;
constexpr uint32_t kWifiCfgArg3 = 2;
constexpr int32_t kWifiCfgFailed = 1;

/* The operator waits at most this long for the station to be heard. */
constexpr unsigned kSniffLimitSeconds = 56;
/* Packets per receive, and the pause between receives. */
constexpr int32_t kSniffBatchPackets = 3;
constexpr useconds_t kSniffPassPauseUs = 1000;
/* A MAC address as text: six two-digit groups joined by colons, compared over these characters. */
constexpr size_t kMacTextLength = 17;
/* Records are walked with a signed byte count, as the caller hands it over. */
constexpr int32_t kRecordStride = static_cast<int32_t>(kProbeRecordSize);

} // namespace

/* The channel last accepted by CLI_WiFiSetChannel, applied again at every sniff; channel 1 until
 * an operator sets one. */
static uint32_t gulCliSniffChannel = 1;

/* ---- Capture -------------------------------------------------------------------------------- */

/* libpcap's callback: one captured frame into the receive's collector. */
static void ulink_packet_handler(u_char *pucUser, const struct pcap_pkthdr *pstHeader, const u_char *pucBytes)
{
    uint32_t ulSubtype = 0;
    /* pucUser is the collector ulink_recv handed to pcap_dispatch, back through libpcap's byte
     * pointer: going through void * says so, where a cast between the two pointer types would
     * claim an alignment the compiler cannot see. */
    void *pvCollector = pucUser;
    if (cli_probe_collect(static_cast<ulink_collector *>(pvCollector), pucBytes, pstHeader->caplen,
                          pstHeader->len, &ulSubtype) == CLI_PROBE_SUBTYPE)
        printf("wifi subtype %d wrong \r\n", static_cast<int>(ulSubtype));
}

int32_t ulink_recv_open(const char *pcDevice, int32_t lIgnored, ulink_capture *pstCapture)
{
    (void)lIgnored;
    if (pcDevice == nullptr || pstCapture == nullptr)
        return -1;
    memset(pstCapture, 0, sizeof *pstCapture);

    /* libpcap's reason for a failed open is not shown: the caller reports the open as failed. */
    char acError[PCAP_ERRBUF_SIZE] = {};
    pcap_t *pstHandle =
        pcap_open_live(pcDevice, kProbeSnapLength, kCapturePromiscuous, kCaptureReadTimeoutMs, acError);
    pstCapture->pstHandle = pstHandle;
    if (pstHandle == nullptr)
        return -1;

    if (pcap_compile(pstHandle, &pstCapture->stFilter, kProbeRequestFilter, kFilterOptimise,
                     kFilterNetmask) == -1) {
        printf("pcap_compile failed: %s", pcap_geterr(pstHandle));
        pcap_close(pstHandle);
        pstCapture->pstHandle = nullptr;
        return -1;
    }
    const int lFiltered = pcap_setfilter(pstHandle, &pstCapture->stFilter);
    if (lFiltered == -1) {
        printf("pcap_setfilter failed: %s", pcap_statustostr(lFiltered));
        pcap_freecode(&pstCapture->stFilter);
        pcap_close(pstHandle);
        pstCapture->pstHandle = nullptr;
        return -1;
    }
    return 0;
}

int32_t ulink_recv(int32_t lCount, uint8_t *pucOut, uint32_t *pulOutLen, ulink_capture *pstCapture)
{
    /* Nothing to receive on, or nowhere to put it: answered as a failed dispatch would be. */
    if (pstCapture == nullptr || pstCapture->pstHandle == nullptr || pucOut == nullptr ||
        pulOutLen == nullptr)
        return PCAP_ERROR;

    ulink_collector stCollector;
    cli_probe_collector_start(&stCollector, pstCapture->pstHandle, lCount);
    const int lResult = pcap_dispatch(pstCapture->pstHandle, lCount, ulink_packet_handler,
                                      reinterpret_cast<u_char *>(&stCollector));
    if (lResult < 0)
        return lResult;
    *pulOutLen = stCollector.ulByteCount;
    memcpy(pucOut, stCollector.aucArea, stCollector.ulByteCount);
    return 0;
}

void ulink_recv_close(ulink_capture *pstCapture)
{
    if (pstCapture == nullptr)
        return;
    pcap_freecode(&pstCapture->stFilter);
    if (pstCapture->pstHandle != nullptr)
        pcap_close(pstCapture->pstHandle);
    /* Closed for good: a second close finds nothing to free. */
    pstCapture->pstHandle = nullptr;
}

/* ---- Channel -------------------------------------------------------------------------------- */

int32_t switch_channel(const char *pcIfName, int32_t lChannel)
{
    if (pcIfName == nullptr)
        return -1;
    const int lSocket = socket(AF_INET, SOCK_DGRAM, 0);
    if (lSocket < 0) {
        const int lErrno = errno;
        return printf("socket failed. %d, %s", lErrno, strerror(lErrno));
    }

    struct iwreq stRequest;
    memset(&stRequest, 0, sizeof stRequest);
    /* The name as the kernel takes it: at most 16 bytes, zero-filled after a shorter one. */
    memcpy(stRequest.ifr_name, pcIfName, strnlen(pcIfName, IFNAMSIZ));
    stRequest.u.freq.m = lChannel;
    stRequest.u.freq.e = 0;
    stRequest.u.freq.i = 0;
    stRequest.u.freq.flags = 0;

    if (ioctl(lSocket, kWirelessSetFrequency, &stRequest) >= 0) {
        printf("change channel to %d ok\n", lChannel);
    } else {
        usleep(kChannelRetryWaitUs);
        if (ioctl(lSocket, kWirelessSetFrequency, &stRequest) >= 0) {
            printf("retry to change channel to %d ok\n", lChannel);
        } else {
            const int lErrno = errno;
            printf("change channel to %d failed. %d, %s\n", lChannel, lErrno, strerror(lErrno));
        }
    }
    return close(lSocket);
}

/* ---- Sniff test ----------------------------------------------------------------------------- */

/* Whether the radio takes `ulChannel`. A refusal is logged at INFO: operators' scripts look for
 * the ERROR line that the command adds. */
static bool WifiChannelIsValid(uint32_t ulChannel)
{
    if (ulChannel >= kChannel24First && ulChannel <= kChannel24Last) {
        CLI_INFO("channel[%u] valid -> 2.4G Hz", ulChannel);
        return true;
    }
    if (ulChannel >= kChannel5First && ulChannel <= kChannel5Last) {
        CLI_INFO("channel[%u] valid -> 5G Hz", ulChannel);
        return true;
    }
    CLI_INFO("unknown channel [%u]", ulChannel);
    return false;
}

uint32_t CLI_WiFiSetChannel(uint32_t ulChannel)
{
    if (!WifiChannelIsValid(ulChannel)) {
        CLI_FAIL("channel %u invalid", ulChannel);
        return 1;
    }
    for (const char *pcCommand : kMonitorModeCommands)
        COMDRV_System(pcCommand);
    gulCliSniffChannel = ulChannel;
    switch_channel(kWifiInterface, static_cast<int32_t>(ulChannel));
    return 0;
}

uint32_t CLI_WifiDataProc(int32_t lLen, const uint8_t *pucData, const char *pcMac)
{
    if (pucData == nullptr) {
        CLI_FAIL("Wifi pucUlinkData NULL");
        return 1;
    }
    if (lLen % kRecordStride != 0) {
        CLI_FAIL("Wifi Data Invalid");
        return 1;
    }
    /* No address to look for: no record can match. */
    if (pcMac == nullptr)
        return 1;

    char acMac[kMacTextLength + 1];
    for (const uint8_t *pucRecord = pucData; lLen > 0; lLen -= kRecordStride, pucRecord += kRecordStride) {
        snprintf(acMac, sizeof acMac, "%02x:%02x:%02x:%02x:%02x:%02x", pucRecord[0], pucRecord[1],
                 pucRecord[2], pucRecord[3], pucRecord[4], pucRecord[5]);
        if (strncasecmp(acMac, pcMac, kMacTextLength) == 0) {
            CLI_RESULT("sniff macaddress is: %s", acMac);
            return 0;
        }
    }
    return 1;
}

uint32_t CLI_MonitorTest(const char *pcMac)
{
    CliWifiCfg stConfig;
    memset(&stConfig, 0, sizeof stConfig);
    stConfig.aulWord[0] = kWifiCfgWord0;
    stConfig.aulWord[3] = kWifiCfgWord3;
    if (DRV_SetWifiCfg(&stConfig, kWifiCfgArg2, kWifiCfgArg3) == kWifiCfgFailed) {
        CLI_CALL_FAILED("DRV_SetWifiCfg");
        return 1;
    }

    switch_channel(kWifiInterface, static_cast<int32_t>(gulCliSniffChannel));
    CLI_INFO("Sniff mac in channel %u", gulCliSniffChannel);

    ulink_capture stCapture;
    if (ulink_recv_open(kWifiInterface, kCaptureReadTimeoutMs, &stCapture) == -1) {
        CLI_CALL_FAILED("ulink_recv_open");
        return 1;
    }

    /* Until the station is heard or the alarm sets the flag; the flag is read once per pass, so
     * the loop ends at most one receive (a second) after the alarm. */
    uint8_t aucRecords[kProbeAreaSize];
    memset(aucRecords, 0, sizeof aucRecords);
    while (__atomic_load_n(&gulCliTimeOut, __ATOMIC_RELAXED) == 0) {
        uint32_t ulLen = 0;
        const int32_t lResult = ulink_recv(kSniffBatchPackets, aucRecords, &ulLen, &stCapture);
        if (lResult < 0)
            CLI_ERROR("recv data fail");
        else if (ulLen == 0)
            CLI_ERROR("catch timeout");
        else if (CLI_WifiDataProc(static_cast<int32_t>(ulLen), aucRecords, pcMac) == 0)
            break;
        else
            CLI_ERROR("not match");
        usleep(kSniffPassPauseUs);
    }
    ulink_recv_close(&stCapture);
    return 0;
}

uint32_t CLI_SniffMac(const char *pcMac)
{
    /* The alarm stays armed after a success and the handler installed: a later expiry only sets
     * the flag, which the next sniff clears before it arms the alarm again. */
    __atomic_store_n(&gulCliTimeOut, 0u, __ATOMIC_RELAXED);
    alarm(kSniffLimitSeconds);
    signal(SIGALRM, CLI_SignalDeal);

    if (CLI_MonitorTest(pcMac) == 1) {
        CLI_CALL_FAILED("CLI_MonitorTest");
        return 1;
    }
    if (__atomic_load_n(&gulCliTimeOut, __ATOMIC_RELAXED) == 1) {
        CLI_RESULT("sniff %s timeout", pcMac != nullptr ? pcMac : "(null)");
        return 1;
    }
    return 0;
}
