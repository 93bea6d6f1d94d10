// Commands a camera's firmware defines itself, ahead of the library: the shell must take the
// first for what it is (the model's own command, never its default), survive the second, which
// ends the process the way a few of the library's commands do on purpose, and cut the third off
// at its step's time limit: it waits for a sensor lock that never comes, outside any clock.
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "clidriver/clidriver.h"

extern "C" {

int32_t CLI_GetRawData(void)
{
    printf("raw frame from the firmware\r\n");
    return 0;
}

int32_t CLI_GetAfeVersion(void)
{
    printf("AFE about to end the process\r\n");
    exit(3);
}

int32_t CLI_LvdsTrain(void)
{
    printf("LVDS training: waiting for the sensor to lock\r\n");
    fflush(stdout);
    for (;;)
        pause();
}

} // extern "C"
