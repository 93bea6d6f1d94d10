// A station run from a script file: read and check the whole script, find out which unit is on
// the station, run the script, print the summary and write the reports asked for.
#pragma once

#include <string>

#include "shell.h"

namespace shell
{

struct StationOptions {
    std::string script;           // the script file
    std::string junit;            // JUnit XML report file, or empty
    std::string json;             // JSON report file, or empty
    std::string dut;              // the unit's serial number (--dut)
    std::string station;          // the station's name (--station)
    std::string operator_name;    // who runs it (--operator)
    bool stop_on_failure = false; // the first FAIL or ERROR ends the run
    std::string scenario;         // the simulated camera's file, on a PC
    std::string camera;           // its name
};

// 0 when no line failed or erred, 1 when one did (also when a command ended the process: the
// shell then prints the summary and writes the reports before it ends), 2 when the script cannot
// be read or checked or a report cannot be written.
int run_station(Shell &shell, const StationOptions &options);

} // namespace shell
