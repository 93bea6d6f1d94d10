#include "commands.h"

#include <algorithm>
#include <cctype>

#include "clidriver/clidriver.h"
#include "edit_distance.h"
#include "readings.h"

namespace shell
{
namespace
{

// The words the interactive shell answers itself.
const char *const kShellWords[] = {"help", "list", "quit"};

std::string refusal_of(const std::string &name, const std::vector<Param> &params, const Callable &callable,
                       std::string_view returns)
{
    if (callable.thread_body())
        return name + " is a thread body (void *(void *)) that the library starts on a thread of its own; "
                      "the shell cannot call it";
    if (!callable.return_supported())
        return name + " returns " + std::string(returns) + ", which the shell cannot report";
    const int index = callable.unsupported_param();
    if (index >= 0) {
        const Param &param = params.at(static_cast<size_t>(index));
        const std::string declared = param.type + (param.type.ends_with('*') ? "" : " ") + param.name;
        return name + " takes " + declared +
               ", which the shell cannot supply; call it from a program instead";
    }
    return {};
}

template <typename P, typename D>
void add_command(std::vector<Entry> &table, const char *family, const char *name, const char *returns,
                 const char *params, const char *default_returns, const char *default_body, P command,
                 D fallback)
{
    auto [entry, fallback_entry] = command_entries(family, name, returns, params, default_returns, command,
                                                   fallback, std::string_view(default_body) == "STANDARD");
    table.push_back(std::move(entry));
    table.push_back(std::move(fallback_entry));
}

template <typename F>
void add_support(std::vector<Entry> &table, const char *family, const char *name, const char *returns,
                 const char *params, F operation)
{
    table.push_back(make_entry(family, name, Origin::Support, returns, params, bind(operation)));
}

std::vector<Entry> build_table()
{
    std::vector<Entry> table;
#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    add_command(table, #family, #name, #ret, #params, #default_ret, #default_body, &name, &__##name);
// Support operations join the table once the library builds them; until then their names are
// known (see kNotBuilt) but never linked.
#define SHELL_SUPPORT_1(family, name, ret, params) add_support(table, #family, #name, #ret, #params, &name);
#define SHELL_SUPPORT_0(family, name, ret, params)
#define CLI_SUPPORT(family, name, owner, built, ret, params) SHELL_SUPPORT_##built(family, name, ret, params)
#include "clidriver/commands.def"
#undef SHELL_SUPPORT_1
#undef SHELL_SUPPORT_0
    return table;
}

const std::string_view kNotBuilt[] = {
#define SHELL_SUPPORT_0(name) #name,
#define SHELL_SUPPORT_1(name)
#define CLI_SUPPORT(family, name, owner, built, ret, params) SHELL_SUPPORT_##built(name)
#include "clidriver/commands.def"
#undef SHELL_SUPPORT_1
#undef SHELL_SUPPORT_0
    "", // keeps the array non-empty once every operation is built
};

using text::edit_distance;

} // namespace

Entry make_entry(std::string_view family, std::string name, Origin origin, std::string_view returns,
                 std::string_view params, std::unique_ptr<Callable> callable)
{
    Entry entry;
    entry.family = family;
    entry.origin = origin;
    entry.signature = std::string(returns) + " " + name + std::string(params);
    entry.params = split_params(params);
    entry.refusal = refusal_of(name, entry.params, *callable, returns);
    entry.name = std::move(name);
    entry.callable = std::move(callable);
    return entry;
}

const std::vector<Entry> &command_table()
{
    static const std::vector<Entry> table = build_table();
    return table;
}

const Entry *find_command(std::string_view name)
{
    for (const Entry &entry : command_table())
        if (entry.name == name)
            return &entry;
    return nullptr;
}

bool listed_but_not_built(std::string_view name)
{
    return !name.empty() &&
           std::find(std::begin(kNotBuilt), std::end(kNotBuilt), name) != std::end(kNotBuilt);
}

std::vector<std::string> similar_names(std::string_view name)
{
    constexpr size_t kMostEdits = 3;
    std::vector<std::pair<size_t, std::string>> ranked;
    const bool wants_default = name.starts_with("__");
    for (const Entry &entry : command_table()) {
        if (entry.origin == Origin::Default && !wants_default)
            continue; // offer the command, not its default, unless a default was asked for
        const size_t edits = edit_distance(name, entry.name);
        if (edits <= kMostEdits)
            ranked.emplace_back(edits, entry.name);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> names;
    for (size_t i = 0; i < ranked.size() && i < 3; ++i)
        names.push_back(ranked[i].second);
    return names;
}

std::vector<std::string> complete_name(std::string_view prefix)
{
    std::vector<std::string> names;
    for (const char *word : kShellWords)
        if (std::string_view(word).starts_with(prefix))
            names.emplace_back(word);
    for (const Entry &entry : command_table())
        if (entry.name.starts_with(prefix))
            names.push_back(entry.name);
    return names;
}

std::string usage(const Entry &entry)
{
    std::string text = entry.name;
    const std::vector<bool> typed = entry.callable->typed();
    for (size_t i = 0; i < entry.params.size() && i < typed.size(); ++i)
        if (typed[i])
            text += " " + entry.params[i].name;
    return text;
}

std::vector<Quantity> measurements_of(const Entry &entry)
{
    std::vector<Quantity> quantities = readings_of(entry.name);
    if (entry.callable_here())
        for (Quantity &quantity : entry.callable->lent_measurements(entry.params))
            quantities.push_back(std::move(quantity));
    return quantities;
}

std::vector<std::string> lent(const Entry &entry)
{
    std::vector<std::string> names;
    const std::vector<bool> typed = entry.callable->typed();
    for (size_t i = 0; i < entry.params.size() && i < typed.size(); ++i)
        if (!typed[i])
            names.push_back(entry.params[i].name);
    return names;
}

} // namespace shell
