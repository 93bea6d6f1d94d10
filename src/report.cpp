/*
 * The diagnostic line's clock, the sniff time-out flag and its alarm handler.
 */
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include "cli_libfun_unit.h"
#include "clidriver/clidriver.h"

/* Set to 1 by CLI_SignalDeal when the alarm fires; polled by the sniff loop. Accessed with
 * atomic builtins so a handler on any thread and the polling loop never tear or cache it. */
volatile uint32_t gulCliTimeOut = 0;

CliStamp cli_stamp_now(void)
{
    struct timeval stNow = {};
    struct tm stLocal = {};
    gettimeofday(&stNow, nullptr);
    const time_t tSeconds = stNow.tv_sec;
    localtime_r(&tSeconds, &stLocal);
    return CliStamp{stLocal.tm_year + 1900,
                    stLocal.tm_mon + 1,
                    stLocal.tm_mday,
                    stLocal.tm_hour,
                    stLocal.tm_min,
                    stLocal.tm_sec,
                    static_cast<unsigned long>(stNow.tv_usec)};
}

void CLI_SignalDeal(int lSigNo)
{
    (void)lSigNo;
    __atomic_store_n(&gulCliTimeOut, 1u, __ATOMIC_RELAXED);
}

void CLI_PclintNoWarn(void) {}
