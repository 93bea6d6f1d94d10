// The camera platform's own start-up, before its command shell's first command: the product
// record, the serial set-up, and the devices the platform declares on the peripheral link. Both
// the operator shell on the simulated camera and the preloadable simulated camera (under the
// camera's own shell on a PC) start the camera this way, in the same order, so that a run
// recorded on one replays on the other.
#pragma once

#include <cstdint>
#include <functional>

#include "scenario/scenario.h"

namespace sim
{

struct StartupReport {
    std::function<void()> before_step;                            // a library call follows
    std::function<void(const char *what, long long status)> step; // it returned `status`
    std::function<void(const char *device, uint32_t rate)> declared;
};

void run_startup(const Startup &startup, const StartupReport &report);

} // namespace sim
