// A command's parameter list as the command list writes it, "(uint32_t ulBoard, uint32_t *pulOut)",
// split into the declared type and name of each parameter: the shell's messages and printed
// outputs use the names an engineer reads in clidriver.h.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace shell
{

struct Param {
    std::string type; // as declared: "uint32_t", "const char *", "struct timeval"
    std::string name; // "ulBoard"
};

std::vector<Param> split_params(std::string_view params);

} // namespace shell
