// The dispatch table against the command list as written in commands.def (read here as text, not
// through the macros the table is expanded with).
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "interactive.h"

namespace
{

struct ListedRow {
    std::string kind; // CLI_COMMAND or CLI_SUPPORT
    std::string name;
    bool built = false;
};

// The rows of the list, from the file itself.
std::vector<ListedRow> listed_rows()
{
    std::ifstream list(CLIDRIVER_SOURCE_DIR "/include/clidriver/commands.def");
    std::vector<ListedRow> rows;
    std::string text;
    while (std::getline(list, text)) {
        for (const char *kind : {"CLI_COMMAND(", "CLI_SUPPORT("}) {
            if (text.rfind(kind, 0) != 0)
                continue;
            // kind(FAMILY, NAME, "owner", BUILT, ...
            const size_t first = text.find(", ");
            const size_t second = text.find(", ", first + 2);
            const size_t owner_end = text.find("\", ", second + 2);
            ListedRow row;
            row.kind = std::string(kind, std::string(kind).size() - 1);
            row.name = text.substr(first + 2, second - first - 2);
            row.built = text.compare(owner_end + 3, 1, "1") == 0;
            rows.push_back(row);
        }
    }
    return rows;
}

TEST(Table, EveryCommandAndItsDefaultOnce)
{
    const std::vector<ListedRow> rows = listed_rows();
    size_t commands = 0, built_support = 0;
    for (const ListedRow &row : rows) {
        SCOPED_TRACE(row.name);
        if (row.kind == "CLI_COMMAND") {
            ++commands;
            const shell::Entry *command = shell::find_command(row.name);
            const shell::Entry *fallback = shell::find_command("__" + row.name);
            ASSERT_NE(command, nullptr);
            ASSERT_NE(fallback, nullptr);
            EXPECT_EQ(command->origin, shell::Origin::Command);
            EXPECT_EQ(fallback->origin, shell::Origin::Default);
        } else if (row.built) {
            ++built_support;
            ASSERT_NE(shell::find_command(row.name), nullptr);
            EXPECT_EQ(shell::find_command(row.name)->origin, shell::Origin::Support);
        } else {
            EXPECT_EQ(shell::find_command(row.name), nullptr) << "not built: never linked";
            EXPECT_TRUE(shell::listed_but_not_built(row.name));
        }
    }
    EXPECT_EQ(commands, 145u);
    EXPECT_EQ(shell::command_table().size(), 2 * commands + built_support);
    std::set<std::string> names;
    for (const shell::Entry &entry : shell::command_table())
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name << " twice";
    EXPECT_FALSE(shell::listed_but_not_built("CLI_GetRawData"));
    EXPECT_FALSE(shell::listed_but_not_built(""));
}

TEST(Table, ParameterNamesMatchTheFunctionTypes)
{
    for (const shell::Entry &entry : shell::command_table()) {
        SCOPED_TRACE(entry.signature);
        EXPECT_EQ(entry.params.size(), entry.callable->typed().size());
        for (const shell::Param &param : entry.params) {
            EXPECT_FALSE(param.name.empty());
            EXPECT_FALSE(param.type.empty());
        }
    }
}

TEST(Table, SignaturesAsTheListWritesThem)
{
    EXPECT_EQ(shell::find_command("CLI_HeatCtrlBoardToSlot")->signature,
              "uint32_t CLI_HeatCtrlBoardToSlot(uint32_t ulBoard, uint32_t ulSlot, uint32_t *pulOut)");
    EXPECT_EQ(shell::find_command("__CLI_EncodeInit")->signature, "void __CLI_EncodeInit(void)");
    EXPECT_EQ(shell::usage(*shell::find_command("CLI_HeatCtrlBoardToSlot")),
              "CLI_HeatCtrlBoardToSlot ulBoard ulSlot");
    EXPECT_EQ(shell::lent(*shell::find_command("CLI_HeatCtrlBoardToSlot")),
              std::vector<std::string>{"pulOut"});
    EXPECT_EQ(shell::usage(*shell::find_command("CLI_Treadn")), "CLI_Treadn fd lCount stTimeout");
    EXPECT_EQ(shell::lent(*shell::find_command("CLI_Treadn")), std::vector<std::string>{"pvBuf"});
}

TEST(Table, EveryCommandOfTheListIsCallable)
{
    for (const shell::Entry &entry : shell::command_table())
        if (entry.origin != shell::Origin::Support)
            EXPECT_TRUE(entry.callable_here()) << entry.name << ": " << entry.refusal;
}

TEST(Table, DefaultsInForceAreKnown)
{
    const shell::Entry *raw = shell::find_command("CLI_GetRawData");
    EXPECT_TRUE(raw->default_in_force) << "no subsystem owns it: the default answers for good";
    EXPECT_FALSE(raw->status_from_default);
    EXPECT_TRUE(raw->callable->returns_status());
    EXPECT_FALSE(shell::find_command("CLI_PlatformInit")->default_in_force) << "strong in the library";
}

// The encoder start-up's default returns nothing, but the library builds the command, whose result
// is a status word: the shell calls the command and prints its status.
TEST(Table, EncoderStartUpGivesItsStatusWord)
{
    const shell::Entry *encode = shell::find_command("CLI_EncodeInit");
    EXPECT_EQ(encode->signature, "int32_t CLI_EncodeInit(void)");
    EXPECT_FALSE(encode->default_in_force);
    EXPECT_FALSE(encode->status_from_default);
    EXPECT_TRUE(encode->callable->returns_status());
    EXPECT_EQ(encode->callable->status_lowest(), INT32_MIN);
    EXPECT_FALSE(shell::find_command("__CLI_EncodeInit")->callable->returns_status());
}

int g_fallback_calls = 0;
void fallback_without_status(void)
{
    ++g_fallback_calls;
}
int32_t own_implementation(void)
{
    return 5;
}

TEST(Table, DefaultWithoutStatusStandingInForAStatusCommandReportsNone)
{
    // What the weak alias is: the default's code under the public type.
    using Public = int32_t (*)(void);
    const Public alias = reinterpret_cast<Public>(&fallback_without_status);
    auto [entry, fallback] = shell::command_entries("TEST", "CLI_Probe", "int32_t", "(void)", "void", alias,
                                                    &fallback_without_status);
    EXPECT_EQ(entry.signature, "int32_t CLI_Probe(void)");
    EXPECT_TRUE(entry.default_in_force);
    EXPECT_TRUE(entry.status_from_default);
    EXPECT_FALSE(entry.callable->returns_status());
    std::string error;
    auto call = entry.callable->prepare(entry.params, {}, error);
    ASSERT_NE(call, nullptr) << error;
    EXPECT_EQ(call->invoke(), std::nullopt) << "no status word that nobody wrote";
    EXPECT_EQ(g_fallback_calls, 1);
    EXPECT_EQ(fallback.name, "__CLI_Probe");
    EXPECT_EQ(fallback.signature, "void __CLI_Probe(void)");
    EXPECT_EQ(fallback.origin, shell::Origin::Default);

    auto [built, unused] = shell::command_entries("TEST", "CLI_Probe", "int32_t", "(void)", "void",
                                                  &own_implementation, &fallback_without_status);
    EXPECT_FALSE(built.default_in_force);
    EXPECT_FALSE(built.status_from_default);
    call = built.callable->prepare(built.params, {}, error);
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(call->invoke(), 5);
}

TEST(Table, SimilarNamesForTypos)
{
    EXPECT_EQ(shell::similar_names("cli_getversionall"), std::vector<std::string>{"CLI_GetVersionAll"});
    const auto near = shell::similar_names("CLI_GetVersonAll");
    ASSERT_FALSE(near.empty());
    EXPECT_EQ(near[0], "CLI_GetVersionAll");
    const auto fallback = shell::similar_names("__CLI_GetRawDta");
    ASSERT_FALSE(fallback.empty());
    EXPECT_EQ(fallback[0], "__CLI_GetRawData") << "defaults are offered when a default was asked for";
    EXPECT_TRUE(shell::similar_names("reboot the camera").empty());
}

TEST(Completion, CommandNamesAndShellWords)
{
    EXPECT_EQ(shell::complete_name("CLI_GetGps"),
              (std::vector<std::string>{"CLI_GetGpsCoor", "CLI_GetGpsSatellite"}));
    EXPECT_EQ(shell::complete_name("he"), std::vector<std::string>{"help"});
    EXPECT_EQ(shell::complete_name("q"), std::vector<std::string>{"quit"});
    EXPECT_EQ(shell::complete_name("").size(), shell::command_table().size() + 3);
    EXPECT_TRUE(shell::complete_name("nothing like it").empty());
}

TEST(Completion, FirstWordAndTheWordAfterHelp)
{
    EXPECT_EQ(shell::completions("", "CLI_GetGpsS"), std::vector<std::string>{"CLI_GetGpsSatellite"});
    EXPECT_EQ(shell::completions("  ", "CLI_GetGpsS"), std::vector<std::string>{"CLI_GetGpsSatellite"});
    EXPECT_EQ(shell::completions("help ", "__CLI_GetGpsC"), std::vector<std::string>{"__CLI_GetGpsCoor"});
    EXPECT_TRUE(shell::completions("help ", "he").empty()) << "help is about commands";
    EXPECT_TRUE(shell::completions("CLI_GetGpsCoor ", "CLI").empty()) << "arguments are numbers";
    EXPECT_TRUE(shell::completions("help CLI_X ", "CLI").empty());
}

} // namespace
