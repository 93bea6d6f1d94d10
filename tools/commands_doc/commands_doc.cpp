// Writes the command reference (docs/commands.md) from the command list and the per-command notes
// in docs/commands/NAME.md (what the arguments mean, what the command prints where, its results),
// or checks that a file holds exactly what it would write:
//     commands_doc docs/commands > docs/commands.md
//     commands_doc docs/commands --check docs/commands.md
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

// The hand-written note of one command, or empty.
std::string note(const std::string &notes_dir, std::string_view name)
{
    std::ifstream file(notes_dir + "/" + std::string(name) + ".md");
    if (!file)
        return {};
    std::stringstream text;
    text << file.rdbuf();
    std::string body = text.str();
    while (!body.empty() && body.back() == '\n')
        body.pop_back();
    return body;
}

// The notes of the rows of one family, after its table.
void notes_of(std::ostringstream &md, const std::string &notes_dir, const std::vector<Row> &rows,
              std::string_view family)
{
    for (const Row &row : rows) {
        if (row.family != family)
            continue;
        const std::string body = note(notes_dir, row.name);
        if (!body.empty())
            md << "\n### `" << row.name << "`\n\n" << body << "\n";
    }
}

std::string answer(const Row &row)
{
    if (row.built)
        return std::string(row.owner);
    if (!row.owner.empty())
        return "default (" + std::string(row.owner) + ", not built yet)";
    return "default";
}

std::string render(const std::string &notes_dir)
{
    std::ostringstream md;
    md << "# Command reference\n\n"
          "Generated from `include/clidriver/commands.def` and the notes in `docs/commands/` by\n"
          "`tools/commands_doc`; edit those, not this file (`dev/update-docs` rewrites it, and a test\n"
          "fails when it is out of date).\n\n"
          "Every command `X` below is exported twice: `X`, which the shell calls, and its default `__X`.\n"
          "Where the *Answered by* column says *default*, `X` is a weak alias of `__X`: one INFO line\n"
          "\"unsupport this function\" under the name `__X`, result 0, nothing on standard output or\n"
          "standard error. Where it names a subsystem, this library implements `X` strongly and `__X`\n"
          "stays callable. Defaults with their own answer are listed after the table.\n\n";
    std::string_view family;
    size_t count = 0;
    for (const Row &row : kCommands) {
        if (row.family != family) {
            if (!family.empty())
                notes_of(md, notes_dir, kCommands, family);
            family = row.family;
            md << "\n## " << family_title(family) << "\n\n"
               << "| Command | Signature | Answered by |\n|---|---|---|\n";
        }
        md << "| `" << row.name << "` | `" << row.ret << " " << row.name << row.params << "` | "
           << answer(row) << " |\n";
        ++count;
    }
    notes_of(md, notes_dir, kCommands, family);
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
    for (const Row &row : kSupport) {
        const std::string body = note(notes_dir, row.name);
        if (!body.empty())
            md << "\n### `" << row.name << "`\n\n" << body << "\n";
    }
    return md.str();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2 && !(argc == 4 && std::string_view(argv[2]) == "--check")) {
        std::cerr << "usage: commands_doc NOTES_DIR [--check FILE]\n";
        return 2;
    }
    const std::string text = render(argv[1]);
    if (argc == 4) {
        std::ifstream file(argv[3]);
        std::stringstream current;
        current << file.rdbuf();
        if (current.str() != text) {
            std::cerr << argv[3] << " is out of date: run dev/update-docs\n";
            return 1;
        }
        return 0;
    }
    std::cout << text;
    return 0;
}
