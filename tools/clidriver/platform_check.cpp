#include "platform_check.h"

#include <cstdio>
#include <dlfcn.h>

namespace shell
{

namespace
{

constexpr const char *kPrintSink = "Cli_Common_Print";

const char *const kOperations[] = {
#define CLI_PLATFORM(library, ret, name, params, args) #name,
#include "clidriver/platform.def"
#undef CLI_PLATFORM
};

} // namespace

std::vector<std::string> missing_platform_operations()
{
    std::vector<std::string> missing;
    if (dlsym(RTLD_DEFAULT, kPrintSink) == nullptr)
        missing.emplace_back(kPrintSink);
    for (const char *name : kOperations)
        if (dlsym(RTLD_DEFAULT, name) == nullptr)
            missing.emplace_back(name);
    return missing;
}

int report_missing_platform(const std::vector<std::string> &missing, FILE *err)
{
    if (missing.empty())
        return 0;
    if (missing.front() == kPrintSink) {
        fprintf(err,
                "clidriver: the camera's platform libraries do not provide %s, the console the library "
                "prints its diagnostic lines to: a command would end the shell at its first line. On a PC, "
                "clidriver --scenario FILE runs the commands on the simulated camera.\n",
                kPrintSink);
        return 2;
    }
    std::string names;
    for (const std::string &name : missing)
        names += (names.empty() ? "" : ", ") + name;
    fprintf(err,
            "clidriver: the camera's platform libraries do not provide %zu of the library's %zu platform "
            "operations (%s): a command that calls one ends the shell there (\"symbol lookup error\", "
            "exit code 127).\n",
            missing.size(), sizeof kOperations / sizeof kOperations[0], names.c_str());
    return 0;
}

} // namespace shell
