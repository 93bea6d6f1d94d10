// A minimal stand-in for the platform's print sink and wall clock: enough to see the exact text
// of each diagnostic line and to fix the time it carries.
#pragma once

#include <string>
#include <sys/time.h>
#include <vector>

namespace clitest
{

// Every text Cli_Common_Print has formatted since the last clear, one entry per call.
std::vector<std::string> &printed();

// The time gettimeofday reports from now on.
void set_wall_clock(const struct timeval &now);

} // namespace clitest
