// Runs one call with standard output and standard error redirected, and hands back what it
// wrote, byte for byte.
#pragma once

#include <functional>
#include <string>

namespace clitest
{

struct Captured {
    std::string out; // standard output
    std::string err; // standard error
};

Captured capture_output(const std::function<void()> &call);

} // namespace clitest
