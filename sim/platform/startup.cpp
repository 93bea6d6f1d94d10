#include "platform/startup.h"

#include "clidriver/clidriver.h"

namespace sim
{

namespace
{

// The shell's serial port list: it lives as long as the process, as on the camera.
CliSerialPort g_astPorts[3];

} // namespace

void run_startup(const Startup &startup, const StartupReport &report)
{
    const auto step = [&](const char *what, long long (*call)()) {
        if (report.before_step)
            report.before_step();
        const long long status = call();
        if (report.step)
            report.step(what, status);
    };
    // A camera boots with nothing on its link's table: no line, no hub, no device. A shell that
    // starts the simulated camera again in the same process (the soak) must not hand the previous
    // camera's line and declarations to the next one.
    gastComCap = CliComCap{};
    if (startup.product_record)
        step("CLI_GetProductAllVersion", [] { return static_cast<long long>(CLI_GetProductAllVersion()); });
    if (startup.serial_ports)
        step("CLI_RsInit", [] { return static_cast<long long>(CLI_RsInit(g_astPorts)); });
    // The platform declares what it fits on the link by writing the link's table, as a camera's
    // start-up does.
    const auto declare = [&](uint32_t type, uint32_t rate, const char *name) {
        gastComCap.astDev[type].ulSupport = 1;
        gastComCap.astDev[type].ulRate = rate;
        if (report.declared)
            report.declared(name, rate);
    };
    if (startup.hub)
        declare(COM_TYPE_HUB, *startup.hub, "hub");
    for (const auto &[type, rate] : startup.link_devices)
        declare(type, rate, type == COM_TYPE_ZIGBEE ? "ZigBee" : type == COM_TYPE_GPS ? "GPS" : "RFID");
}

} // namespace sim
