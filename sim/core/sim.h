// The simulated camera as a whole: starting it on a scenario, and whether it is running.
//
// The interposed libc and libpcap entry points live in the executable that links the simulator
// (a test or the operator shell), so they take precedence over libc for libclidriver's calls
// without LD_PRELOAD, natively and under qemu-arm. Until start() they pass everything through.
#pragma once

namespace sim
{

struct Scenario;

// Resets every part of the simulated camera and applies `scenario`.
void start(const Scenario &scenario);
bool active();

} // namespace sim
