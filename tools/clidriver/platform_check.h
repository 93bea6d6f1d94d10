// What the camera's shell checks of the platform before it runs anything of the library's.
//
// On a camera the library's platform operations (the driver and image libraries, and the console
// print sink Cli_Common_Print) are bound when the library first calls each. One the platform does
// not provide ends the process at that call with the loader's "symbol lookup error", and since a
// command's output is being captured at that moment, the message is lost with it: the shell would
// end with exit code 127 and not a word on the console. So the shell looks first.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace shell
{

// The platform operations the library calls that nothing in this process defines, the print
// sink first, then in the order of include/clidriver/platform.def.
std::vector<std::string> missing_platform_operations();

// Says on `err` what is missing and what it means. Returns 2 when nothing of the library can run
// (no print sink: every command prints), 0 when the run may go on (missing operations are named).
int report_missing_platform(const std::vector<std::string> &missing, FILE *err);

} // namespace shell
