// A station run from a script file: read and check the whole script, run it, print the summary
// and write the reports asked for.
#pragma once

#include <string>

#include "shell.h"

namespace shell
{

struct StationOptions {
    std::string script; // the script file
    std::string junit;  // JUnit XML report file, or empty
    std::string json;   // JSON report file, or empty
};

// 0 when every line passed, 1 when one failed, 2 when the script cannot be read or checked or a
// report cannot be written (then nothing, or not everything, is known).
int run_station(Shell &shell, const StationOptions &options);

} // namespace shell
