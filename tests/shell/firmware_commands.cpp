// Two commands a camera's firmware defines itself, ahead of the library: the shell must take the
// first for what it is (the model's own command, never its default) and survive the second, which
// ends the process the way a few of the library's commands do on purpose.
#include <cstdio>
#include <cstdlib>

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

} // extern "C"
