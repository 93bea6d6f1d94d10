// The prompt: one command per line until quit or end of input. On a terminal the line is edited
// with libedit, with history and completion of command names (Tab); from a pipe the lines are
// read plainly, so `printf 'CLI_GetVersionAll\n' | clidriver` works in a station's own scripts.
#pragma once

#include <string>
#include <vector>

#include "shell.h"

namespace shell
{

// 0 at the end (quit or end of input).
int run_interactive(Shell &shell);

// What Tab offers for `word` when the line so far is `before`: command names for the first word
// and for the word after help; nothing elsewhere (arguments are numbers and strings).
std::vector<std::string> completions(const std::string &before, const std::string &word);

} // namespace shell
