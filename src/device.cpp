/*
 * Opening, requesting and closing the camera's character devices, with the shared reports.
 */
#include "device.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "cli_libfun_unit.h"

bool cli_request_failed(int lResult, CliRequestRule enRule)
{
    switch (enRule) {
    case CLI_REQUEST_ONLY_ZERO:
        return lResult != 0;
    case CLI_REQUEST_MINUS_ONE:
        return lResult == -1;
    case CLI_REQUEST_NEGATIVE_FAILS:
        break;
    }
    return lResult < 0;
}

bool cli_device_open(CliDevice *pstDevice, const char *pcFunction, const char *pcPath, int lFlags)
{
    pstDevice->pcFunction = pcFunction;
    pstDevice->pcPath = pcPath;
    pstDevice->fd = open(pcPath, lFlags);
    if (pstDevice->fd >= 0)
        return true;
    (void)CLI_OPEN_FAILED_AS(pcFunction, pcPath);
    return false;
}

int cli_device_request(const CliDevice *pstDevice, unsigned long ulRequest, void *pvRecord)
{
    return ioctl(pstDevice->fd, ulRequest, pvRecord);
}

int cli_device_request_value(const CliDevice *pstDevice, unsigned long ulRequest, unsigned long ulValue)
{
    return ioctl(pstDevice->fd, ulRequest, ulValue);
}

void cli_device_close(CliDevice *pstDevice)
{
    close(pstDevice->fd);
    /* The number may be handed out again at once; nothing may reach it through this record. */
    pstDevice->fd = -1;
}

uint32_t cli_device_failed(CliDevice *pstDevice, unsigned long ulRequest)
{
    (void)CLI_IOCTL_FAILED_AS(pstDevice->pcFunction, ulRequest);
    cli_device_close(pstDevice);
    return 1;
}

uint32_t cli_device_close_and_fail(CliDevice *pstDevice, unsigned long ulRequest)
{
    cli_device_close(pstDevice);
    return CLI_IOCTL_FAILED_AS(pstDevice->pcFunction, ulRequest);
}

uint32_t cli_device_query(const char *pcFunction, const char *pcPath, int lFlags, unsigned long ulRequest,
                          void *pvRecord, CliRequestRule enRule)
{
    CliDevice stDevice;
    if (!cli_device_open(&stDevice, pcFunction, pcPath, lFlags))
        return 1;
    if (cli_request_failed(cli_device_request(&stDevice, ulRequest, pvRecord), enRule))
        return cli_device_failed(&stDevice, ulRequest);
    cli_device_close(&stDevice);
    return 0;
}
