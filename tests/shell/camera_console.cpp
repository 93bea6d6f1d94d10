// The one platform operation the camera's shell needs to run a script on a PC: the console the
// library's diagnostic lines go to, which on a camera the platform's own libraries provide.
#include <cstdarg>
#include <cstdio>

#include "clidriver/platform.h"

extern "C" int Cli_Common_Print(const char *pcFormat, ...)
{
    va_list arguments;
    va_start(arguments, pcFormat);
    const int written = vprintf(pcFormat, arguments);
    va_end(arguments);
    return written;
}
