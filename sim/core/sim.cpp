#include "core/sim.h"

#include <atomic>
#include <cstring>
#include <vector>

#include "core/clock.h"
#include "core/descriptors.h"
#include "core/fault.h"
#include "core/journal.h"
#include "core/replay.h"
#include "platform/board_model.h"
#include "platform/platform.h"
#include "scenario/scenario.h"

namespace sim
{
namespace
{
std::atomic<bool> g_active{false};

// The control board's answers: its type and version text through the platform's scripts, so they
// answer as any scripted operation does, and the board model that watches them.
void apply_control_board(const ControlBoardScript &board)
{
    board_model().reset(board);
    if (board.board_type) {
        const uint32_t type = *board.board_type;
        std::vector<uint8_t> &out = platform().script("DRV_SIBBoardTypeGet").out;
        out.resize(sizeof type);
        memcpy(out.data(), &type, sizeof type);
    }
    if (board.version) {
        // A text as long as the area fills it without a terminator, as such a board does.
        std::vector<uint8_t> out(board.version->begin(), board.version->end());
        if (out.size() < BoardModel::kVersionAreaSize)
            out.push_back(0);
        platform().script("DRV_SIBVersionGet").out = out;
    }
}
} // namespace

bool active()
{
    return g_active.load(std::memory_order_acquire);
}

namespace
{
void boot(const Scenario &scenario, bool keep_threads)
{
    g_active.store(false, std::memory_order_release);
    serial_ports().reset(); // closes the ptys of an earlier start
    if (keep_threads)
        clock().restart(scenario.boot_epoch);
    else
        clock().reset(scenario.boot_epoch);
    journal().clear();
    devices().reset();
    files().reset();
    platform().reset();
    wireless().reset();
    capture().reset();
    threads().reset();
    fault_point().reset();
    replay().reset(scenario.replay);

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
    apply_control_board(scenario.control_board);
    wireless().script() = scenario.wireless;
    capture().script() = scenario.capture;
    threads().script() = scenario.threads;
    g_active.store(true, std::memory_order_release);
}
} // namespace

void start(const Scenario &scenario)
{
    boot(scenario, false);
}

void restart(const Scenario &scenario)
{
    boot(scenario, true);
}

} // namespace sim
