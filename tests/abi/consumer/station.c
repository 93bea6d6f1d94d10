/* A station program in plain C against the installed headers: the public header must be C. */
#include <clidriver/clidriver.h>
#include <clidriver/platform.h>

int main(void)
{
    uint32_t type = 0;
    CliSerialPort ports[3] = {{0}};
    (void)ports;
    return (int)(CLI_PlatformInit() + __CLI_GetFlashType(&type) + gastCamTypeList[0].ulCamType * 0u);
}
