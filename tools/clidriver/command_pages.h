// The pages under docs/commands/ (what a command's arguments mean, what it prints, its failures),
// built into the shell so that "help NAME" shows them on a camera or an installed PC alike.
#pragma once

#include <string_view>

namespace shell
{

// The page of the command named exactly `name`; empty when it has none.
std::string_view command_page(std::string_view name);

} // namespace shell
