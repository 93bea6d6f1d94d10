// The prompt: one command per line until quit or end of input. On a terminal the line is edited
// with libedit, with history and completion of command names (Tab); from a pipe the lines are
// read plainly, so `printf 'CLI_GetVersionAll\n' | clidriver` works in a station's own scripts.
#pragma once

#include <string>
#include <vector>

#include "shell.h"

namespace shell
{

// On a terminal 0 at the end (quit or end of input; Ctrl-C clears the line being typed). From a
// pipe: 0 when every line went well, 1 when one failed (a non-zero status or a limit not met), 2
// when one was refused. `banner` goes at the start of the greeting ("on CAMERA: ").
int run_interactive(Shell &shell, const std::string &banner = "");

// What Tab offers for `word` when the line so far is `before`: command names for the first word
// and for the word after help; nothing elsewhere (arguments are numbers and strings).
std::vector<std::string> completions(const std::string &before, const std::string &word);

} // namespace shell
