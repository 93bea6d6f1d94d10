// The shell's dispatch table, expanded from the command list (include/clidriver/commands.def):
// every command X, its default __X, and every support operation built into this library.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "callable.h"
#include "signature.h"

namespace shell
{

enum class Origin {
    Command, // a name of the shell's fixed list
    Default, // its default, __X
    Support, // a support operation of the library
};

struct Entry {
    std::string name;
    std::string family;
    Origin origin = Origin::Command;
    std::string signature; // "uint32_t CLI_GetGpsCoor(uint32_t ulMode)"
    std::vector<Param> params;
    std::unique_ptr<Callable> callable;
    // A command whose public name runs its default (the library does not build it, and nothing
    // loaded ahead of the library replaces it).
    bool default_in_force = false;
    // When the default in force returns nothing although the command's type promises a status,
    // the shell calls it as what it is and reports no status, never a word nobody wrote.
    bool status_from_default = false;
    // The code that answers under this name is a default's standard body ("unsupport this
    // function"): the model lacks the function, and a station counts the step as skipped. A
    // default with a body of its own (CLI_GetFlashType's) still answers with values.
    bool standard_default = false;
    std::string refusal; // why the shell cannot call it; empty when it can

    bool callable_here() const { return refusal.empty(); }
};

const std::vector<Entry> &command_table();

// An entry for `callable`, with its signature and refusal worked out (the table is made of these;
// tests make their own from functions of their own).
Entry make_entry(std::string_view family, std::string name, Origin origin, std::string_view returns,
                 std::string_view params, std::unique_ptr<Callable> callable);
const Entry *find_command(std::string_view name);

// The entries of one command of the list and of its default. The public name is a weak alias of
// the default until something defines it strongly: then both pointers are the same code.
template <typename P, typename D>
std::pair<Entry, Entry> command_entries(std::string_view family, const std::string &name,
                                        std::string_view returns, std::string_view params,
                                        std::string_view default_returns, P command, D fallback,
                                        bool standard_body = true)
{
    const bool in_force = reinterpret_cast<const void *>(command) == reinterpret_cast<const void *>(fallback);
    Entry entry = make_entry(family, name, Origin::Command, returns, params, bind(command));
    entry.default_in_force = in_force;
    entry.standard_default = in_force && standard_body;
    if constexpr (!std::is_same_v<P, D>) {
        if (in_force) {
            entry.callable = bind(fallback);
            entry.status_from_default = true;
        }
    }
    Entry default_entry =
        make_entry(family, "__" + name, Origin::Default, default_returns, params, bind(fallback));
    default_entry.standard_default = standard_body;
    return {std::move(entry), std::move(default_entry)};
}

// A support operation of the list that this library does not build yet.
bool listed_but_not_built(std::string_view name);

// Names an operator probably meant: the same name in other letter case, or one a couple of
// keystrokes away. Best first, at most three.
std::vector<std::string> similar_names(std::string_view name);

// Table names (and the shell's own words) beginning with `prefix`, in list order.
std::vector<std::string> complete_name(std::string_view prefix);

// What a call of the entry measures: the readings of its result lines, then what the shell lends.
std::vector<Quantity> measurements_of(const Entry &entry);

// "CLI_HeatCtrlBoardToSlot ulBoard ulSlot": what the operator types.
std::string usage(const Entry &entry);
// "*pulOut": what the shell lends and prints; empty when nothing.
std::vector<std::string> lent(const Entry &entry);

} // namespace shell
