// Writes the command reference (docs/commands.md) from the command list, or checks that a file
// holds exactly what it would write:  commands_doc > docs/commands.md
//                                      commands_doc --check docs/commands.md
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "clidriver/clidriver.h"

namespace
{

struct Row {
    std::string_view family;
    std::string_view name;
    std::string_view owner;
    bool built;
    std::string_view ret;
    std::string_view params;
    std::string_view default_ret;
    std::string_view default_body;
};

#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    {#family, #name, owner, built != 0, #ret, #params, #default_ret, #default_body},
const std::vector<Row> kCommands = {
#include "clidriver/commands.def"
};

#define CLI_SUPPORT(family, name, owner, built, ret, params)                                                 \
    {#family, #name, owner, built != 0, #ret, #params, "", ""},
const std::vector<Row> kSupport = {
#include "clidriver/commands.def"
};

const char *family_title(std::string_view family)
{
    static const std::pair<std::string_view, const char *> titles[] = {
        {"PRODUCT", "Product and versions"},
        {"CALIBRATION", "Image-sensor calibration"},
        {"REGISTERS", "Registers and FPGA"},
        {"CHIPCHECK", "Chip checks"},
        {"LIGHTS", "LEDs, IR cut and switched outputs"},
        {"PLUMBING", "Shell and video plumbing"},
        {"SERIAL", "Serial"},
        {"LENS", "Lens and motors"},
        {"CLIMATE", "Climate"},
        {"PERIPHERAL", "Peripheral box"},
        {"ITS485", "Traffic-camera RS-485 box"},
        {"AUDIO", "Audio and system test"},
        {"SENSORS", "Sensors"},
        {"WIFI", "Wi-Fi"},
        {"LINKED_DEVICES", "GPS, RFID, ZigBee"},
        {"TRAFFIC", "Parking LEDs and control board"},
        {"STORAGE", "Storage and alarm ports"},
        {"FRAME", "Command frame"},
    };
    for (const auto &[key, title] : titles)
        if (key == family)
            return title;
    return "Other";
}

std::string answer(const Row &row)
{
    if (row.built)
        return std::string(row.owner);
    if (!row.owner.empty())
        return "default (" + std::string(row.owner) + ", not built yet)";
    return "default";
}

std::string render()
{
    std::ostringstream md;
    md << "# Command reference\n\n"
          "Generated from `include/clidriver/commands.def` by `tools/commands_doc`; do not edit by hand\n"
          "(`dev/update-docs` rewrites it, and a test fails when it is out of date).\n\n"
          "Every command `X` below is exported twice: `X`, which the shell calls, and its default `__X`.\n"
          "Where the *Answered by* column says *default*, `X` is a weak alias of `__X`: one INFO line\n"
          "\"unsupport this function\" under the name `__X`, result 0, nothing on standard output or\n"
          "standard error. Where it names a subsystem, this library implements `X` strongly and `__X`\n"
          "stays callable. Defaults with their own answer are listed after the table.\n\n";
    std::string_view family;
    size_t count = 0;
    for (const Row &row : kCommands) {
        if (row.family != family) {
            family = row.family;
            md << "\n## " << family_title(family) << "\n\n"
               << "| Command | Signature | Answered by |\n|---|---|---|\n";
        }
        md << "| `" << row.name << "` | `" << row.ret << " " << row.name << row.params << "` | "
           << answer(row) << " |\n";
        ++count;
    }
    md << "\n" << count << " commands.\n\n";
    md << "## Defaults with their own answer\n\n"
          "| Default | Behaviour | Result |\n|---|---|---|\n"
          "| `__CLI_GetFlashType` | INFO \"defautl set flash type: nand\"; stores 0 (NAND) in `*pulType` | 0 "
          "|\n"
          "| `__CLI_GetAlarmPortNum` | both pointers set: `*pulIn` = 2, `*pulOut` = 1, silent; otherwise "
          "INFO "
          "\"NULL alm in/out num pointer\" and nothing written | 0, or 1 on a null pointer |\n"
          "| `__CLI_HeatCtrlBoardToSlot` | stores the slot argument in `*pulOut` (nothing when it is null); "
          "silent "
          "| 0 |\n"
          "| `__CLI_GetSysEmmcDiskNum` | silent | none |\n"
          "| `__CLI_EncodeInit`, `__CLI_SetCtrlBoard485BaudRata` | standard message | none |\n"
          "| `CLI_PlatformInit` | strong in the default set: silent | 0 |\n\n";
    md << "## Support operations\n\n"
          "Exported without a default, once built.\n\n"
          "| Operation | Signature | Subsystem |\n|---|---|---|\n";
    for (const Row &row : kSupport)
        md << "| `" << row.name << "` | `" << row.ret << " " << row.name << row.params << "` | " << row.owner
           << (row.built ? "" : " (not built yet)") << " |\n";
    return md.str();
}

} // namespace

int main(int argc, char **argv)
{
    const std::string text = render();
    if (argc == 3 && std::string_view(argv[1]) == "--check") {
        std::ifstream file(argv[2]);
        std::stringstream current;
        current << file.rdbuf();
        if (current.str() != text) {
            std::cerr << argv[2] << " is out of date: run dev/update-docs\n";
            return 1;
        }
        return 0;
    }
    if (argc != 1) {
        std::cerr << "usage: commands_doc [--check FILE]\n";
        return 2;
    }
    std::cout << text;
    return 0;
}
