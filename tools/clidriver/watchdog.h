// A station step's time limit, held while its command runs, so that a command that never comes
// back (a driver that does not answer, a peer that keeps the port busy) cannot hang the station.
//
// On the camera the limit is wall time: a thread of the shell's own waits beside the command and,
// once the limit has passed, cuts the step off. On the simulated camera the limit is simulated
// time: the camera's clock stops at the limit and the step is cut off there, at the same instant
// on every run; the wall clock still watches, the limit plus a grace of kSimulatedGraceNs later,
// for a command stuck outside the simulated camera.
//
// Cutting off cannot return into the command: it reports the step and ends the process (the
// station writes its summary and reports first). A command that comes back in time disarms the
// watchdog and the run goes on.
#pragma once

#include <cstdint>
#include <string>

#include "shell.h"

namespace shell::watchdog
{

// What a cut-off step leaves to be done: report `reason` for the step, after `wall_ns` of wall
// time, and end the process. Never returns.
using CutOff = void (*)(const std::string &reason, int64_t wall_ns);

// Wall time a step may take beyond its limit on the simulated camera before it counts as stuck:
// generous, so that a slow emulator never cuts a step the camera's clock would let through.
constexpr int64_t kSimulatedGraceNs = 3'000'000'000;

// Before the call: the step may take `limit_ns`.
void arm(const Shell &shell, int64_t limit_ns, CutOff cut_off);
// After the call came back. If the step was being cut off meanwhile, waits for the process to end.
void disarm(const Shell &shell);

} // namespace shell::watchdog
