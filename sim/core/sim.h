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
// The same in a process where the product has run before (a shell that repeats its station runs):
// threads the product started and that still run (a flash thread) keep taking part in simulated
// time from the new boot, instead of being forgotten.
void restart(const Scenario &scenario);
bool active();

} // namespace sim
