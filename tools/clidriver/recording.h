// clidriver-camera --record DIR: the run's calls of the library written down as a scenario.
#pragma once

#include <string>

namespace shell
{

// Makes DIR and has the recording layer write into it: directly when the layer is loaded, else by
// running this shell again with the layer in front of libc. Returns 0 to go on with the run, or
// the exit code (2) after saying on standard error what stood in the way.
int start_recording(const std::string &folder, char **argv);

} // namespace shell
