#include "core/sim.h"

#include <atomic>

#include "core/clock.h"
#include "core/descriptors.h"
#include "core/journal.h"
#include "scenario/scenario.h"

namespace sim
{
namespace
{
std::atomic<bool> g_active{false};
}

bool active()
{
    return g_active.load(std::memory_order_acquire);
}

void start(const Scenario &scenario)
{
    g_active.store(false, std::memory_order_release);
    serial_ports().reset(); // closes the ptys of an earlier start
    clock().reset(scenario.boot_epoch);
    journal().clear();
    devices().reset();
    files().reset();
    platform().reset();
    wireless().reset();
    capture().reset();
    threads().reset();

    for (const auto &[path, device] : scenario.devices)
        devices().script(path) = device;
    for (const auto &[path, file] : scenario.files)
        files().file(path) = file;
    for (const auto &[command, script] : scenario.commands)
        files().command(command) = script;
    for (const auto &[path, port] : scenario.ports)
        serial_ports().script(path) = port;
    for (const auto &[operation, script] : scenario.platform)
        platform().script(operation) = script;
    if (!scenario.platform.count("drv_GetManuparseProductType"))
        platform().script("drv_GetManuparseProductType").result = scenario.product_type;
    if (scenario.alarm_count)
        platform().alarm_count() = *scenario.alarm_count;
    wireless().script() = scenario.wireless;
    capture().script() = scenario.capture;
    threads().script() = scenario.threads;
    g_active.store(true, std::memory_order_release);
}

} // namespace sim
