/*
 * One way to reach a character device: open it, issue one or more requests, close it, with the
 * report shapes the commands share.
 *
 *     CliDevice stDev;
 *     if (!CLI_DEVICE_OPEN(&stDev, kCpldDevice, O_RDWR))
 *         return 1;                                           // "Open file %s error" reported
 *     if (cli_device_request(&stDev, kCpldVersionGet, &ulVersion) < 0)
 *         return cli_device_failed(&stDev, kCpldVersionGet); // "ioctl cmd[%x] failed", closed
 *     cli_device_close(&stDev);
 *
 * Reports name the command that opened the device (the function captured by CLI_DEVICE_OPEN).
 * A device is closed exactly once: every path after a successful open ends in cli_device_close or
 * one of the failure calls, which close it.
 */
#ifndef CLIDRIVER_SRC_DEVICE_H
#define CLIDRIVER_SRC_DEVICE_H

#include <stdint.h>

/* A character device a command holds open. */
struct CliDevice {
    const char *pcFunction; /* the command whose lines report what happens to it */
    const char *pcPath;
    int fd;
};

/* How a driver tells a failed request from a completed one. */
enum CliRequestRule {
    CLI_REQUEST_NEGATIVE_FAILS, /* the usual rule: a negative result is a failure */
    CLI_REQUEST_ONLY_ZERO,      /* drivers whose requests succeed only with 0 */
    CLI_REQUEST_MINUS_ONE,      /* drivers that report only -1 as a failure (the MDIO accesses) */
};

/* Whether `lResult` of a request means it failed, under the driver's rule. */
bool cli_request_failed(int lResult, CliRequestRule enRule);

/* Opens `pcPath` with `lFlags` for the command `pcFunction`. A device that will not open is
 * reported as "Open file %s error" (ERROR line and console line); the result is then false. */
bool cli_device_open(CliDevice *pstDevice, const char *pcFunction, const char *pcPath, int lFlags);
#define CLI_DEVICE_OPEN(device, path, flags) cli_device_open(device, __func__, path, flags)

/* Issues one request with a pointer to its record, or with a value; returns the driver's result. */
int cli_device_request(const CliDevice *pstDevice, unsigned long ulRequest, void *pvRecord);
int cli_device_request_value(const CliDevice *pstDevice, unsigned long ulRequest, unsigned long ulValue);

/* Closes the device. */
void cli_device_close(CliDevice *pstDevice);

/* A request that failed: "ioctl cmd[%x] failed" and its console line "ioctl cmd[%#x]", then the
 * device is closed. Gives the status word 1. */
uint32_t cli_device_failed(CliDevice *pstDevice, unsigned long ulRequest);

/* The same, with the device closed before the report, as the lens-motor commands do. */
uint32_t cli_device_close_and_fail(CliDevice *pstDevice, unsigned long ulRequest);

/* The whole exchange for a one-request command: open, issue the request with `pvRecord`, close.
 * An open or request failure is reported as above (the report before the close) and gives 1. */
uint32_t cli_device_query(const char *pcFunction, const char *pcPath, int lFlags, unsigned long ulRequest,
                          void *pvRecord, CliRequestRule enRule);
#define CLI_DEVICE_QUERY(path, flags, request, record, rule)                                                 \
    cli_device_query(__func__, path, flags, request, record, rule)

#endif /* CLIDRIVER_SRC_DEVICE_H */
