/*
 * libclidriver: the factory-test and diagnostic commands of the camera's command shell.
 *
 * Every command of the shell's fixed list is declared here with its default `__name`, together
 * with the support operations and the process-wide tables the library exports. The list itself
 * lives in <clidriver/commands.def>; this header expands it.
 *
 * Records are laid out for the camera (ILP32, ARMv7): on a 32-bit build their sizes are checked
 * below. On a 64-bit PC the same declarations compile and work; only pointer-holding records grow.
 */
#ifndef CLIDRIVER_CLIDRIVER_H
#define CLIDRIVER_CLIDRIVER_H

#include <stdint.h>
#include <sys/time.h>

#include <pcap/pcap.h>

#define CLI_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define CLI_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
extern "C" {
#else
#define CLI_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* Link types: the first argument of the peripheral link operations. */
enum {
    COM_TYPE_HUB = 0,    /* the hub itself and its peripheral box, hub port 0x0005 */
    COM_TYPE_ZIGBEE = 1, /* ZigBee coordinator, hub port 0x005D */
    COM_TYPE_GPS = 2,    /* GPS receiver, hub port 0x005B */
    COM_TYPE_RFID = 3,   /* RFID reader, hub port 0x005C */
    COM_TYPE_COUNT = 4
};

/* One entry of the shell's serial port list: nine 32-bit words on the camera. The library writes
 * the path (word 1) and the flag (word 3); for entry 0 it also zeroes the other seven words. */
typedef struct CliSerialPort {
    const char *pcDevPath;
    uint32_t ulWord2;
    uint32_t ulFlag;
    uint32_t aulWord4To9[6];
} CliSerialPort;

/* Presence and speed of one device on the peripheral link. */
typedef struct CliComDevCap {
    uint32_t ulSupport; /* 1 = present, anything else = absent */
    uint32_t ulRate;    /* bits per second */
} CliComDevCap;

/* The peripheral link's capability table: the serial line and, per link type, presence and
 * speed. Hub mode is on exactly when astDev[COM_TYPE_HUB].ulSupport is 1. */
typedef struct CliComCap {
    const char *pcDevPath;
    CliComDevCap astDev[COM_TYPE_COUNT];
} CliComCap;

/* A camera type code and the code paired with it. */
typedef struct CliCamType {
    uint32_t ulCamType;
    uint32_t ulPairedCode;
} CliCamType;

#define CLI_RFID_MAX_IDS 100
#define CLI_RFID_ID_SIZE 10

/* Distinct tag IDs seen by the RFID search: 8 upper-case hex characters and two zero bytes each. */
typedef struct CliRfidTable {
    uint32_t ulCount;
    char aacId[CLI_RFID_MAX_IDS][CLI_RFID_ID_SIZE];
} CliRfidTable;

/* What the ZigBee sensors reported during the last join. Readings are in hundredths. */
typedef struct CliZigbeeSensorRecord {
    int32_t lState; /* -1 before a join has heard anything */
    uint32_t ulTemperature;
    uint32_t ulHumidity;
    uint32_t ulParticulate;
    char acVersion[32];
} CliZigbeeSensorRecord;

/* One captured probe request as the sniffer keeps it: 15 bytes, records laid end to end. */
typedef struct __attribute__((packed)) probe_record {
    uint8_t aucSourceMac[6]; /* 802.11 address 2, in frame order */
    int8_t cSignalDbm;       /* radio-tap antenna signal */
    uint8_t aucTsft[8];      /* radio-tap MAC timestamp, little-endian as captured */
} probe_record;

/* An open probe-request capture on the Wi-Fi interface. */
typedef struct ulink_capture {
    pcap_t *pstHandle;
    struct bpf_program stFilter;
} ulink_capture;

#if UINTPTR_MAX == 0xFFFFFFFFu
CLI_STATIC_ASSERT(sizeof(CliSerialPort) == 36, "serial port record is nine words on the camera");
CLI_STATIC_ASSERT(sizeof(CliComCap) == 36, "capability table: path and four flag/rate pairs");
CLI_STATIC_ASSERT(sizeof(CliCamType) * 3 == 24, "camera type table is 24 bytes");
CLI_STATIC_ASSERT(sizeof(CliRfidTable) == 1004, "RFID table: count and 100 slots of 10 bytes");
CLI_STATIC_ASSERT(sizeof(CliZigbeeSensorRecord) == 48, "ZigBee record: four words and 32 bytes");
CLI_STATIC_ASSERT(sizeof(ulink_capture) == 12, "capture: handle and compiled filter");
#endif
CLI_STATIC_ASSERT(sizeof(probe_record) == 15, "probe record is 15 packed bytes");

/* Every command `name` of the fixed list, its default `__name`, every support operation and the
 * exported data, expanded from the one list. */
#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    CLI_EXPORT ret name params;                                                                              \
    CLI_EXPORT default_ret __##name params;
#define CLI_SUPPORT(family, name, owner, built, ret, params) CLI_EXPORT ret name params;
#define CLI_DATA(name, type, dims, owner, built)             CLI_EXPORT extern type name dims;
#include <clidriver/commands.def>

#ifdef __cplusplus
}
#endif

#endif /* CLIDRIVER_CLIDRIVER_H */
