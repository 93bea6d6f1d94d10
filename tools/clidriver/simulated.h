// The simulated camera under the shell on a PC: what --scenario and --trace do. Only the PC
// build has this; on the camera the shell talks to the hardware.
#pragma once

#include <cstdio>
#include <string>

#include "shell.h"

namespace sim
{
struct Scenario;
}

namespace shell::simulated
{

// Loads the scenario file and starts the simulated camera on it, with the product's diagnostic
// lines going to `console` (the shell's standard output, so lines keep their order).
// Throws sim::ScenarioError, whose message names the file, line and key.
void start(const std::string &scenario_path, FILE *console);
// The same with a scenario already read: a shell that starts the camera again and again (the
// soak) reads each file once.
void start(const sim::Scenario &scenario, FILE *console);

// The camera's name, as the scenario's [camera] gives it ("" when it gives none).
const std::string &camera_name();

// The scenario a shell runs on when none is named: the installed one beside an installed shell
// (PREFIX/share/clidriver/sim/scenarios/default.toml), else the source tree's.
std::string default_scenario();

// Does what the camera's platform does before its shell starts, as the scenario states it (the
// product record, the serial set-up, the hub and devices declared on the peripheral link), so the
// first command finds the library as on a camera. Nothing of it reaches the console; with
// `trace`, each step and each line it printed show as trace lines:
//     ~ 0.000000 s startup: CLI_RsInit => 0
void run_startup(FILE *trace);

// Simulated time for --timing and the summary; the journal is dropped after each command so a
// long session does not grow.
Hooks hooks();

// --trace: every journal entry (serial bytes, ioctls, platform calls, sleeps...) as it happens,
// with its simulated time, on `out`. Diagnostic lines are left out: they are on the console.
//     ~ 2.000000 s serial-write: serial /dev/ttyAMA1 <- FE 00 04
void trace_to(FILE *out);

} // namespace shell::simulated
