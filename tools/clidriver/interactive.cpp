#include "interactive.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <unistd.h>

#include <editline/readline.h>

#include "commands.h"

namespace shell
{
namespace
{

std::vector<std::string> g_matches; // of the completion in progress (libedit asks one at a time)
size_t g_next = 0;

char *next_match(const char *, int state)
{
    if (state == 0)
        g_next = 0;
    if (g_next >= g_matches.size())
        return nullptr;
    return strdup(g_matches[g_next++].c_str());
}

char **complete(const char *text, int start, int)
{
    rl_attempted_completion_over = 1; // never fall back to file names
    const std::string before =
        rl_line_buffer != nullptr ? std::string(rl_line_buffer, static_cast<size_t>(start)) : "";
    g_matches = completions(before, text);
    if (g_matches.empty())
        return nullptr;
    return rl_completion_matches(text, next_match);
}

int read_terminal(Shell &shell)
{
    rl_readline_name = "clidriver";
    rl_attempted_completion_function = complete;
    fprintf(shell.out(), "clidriver: type help for help, quit to leave\n");
    fflush(shell.out());
    for (;;) {
        shell.waiting_for_operator(true);
        char *line = readline("clidriver> ");
        shell.waiting_for_operator(false);
        if (line == nullptr) {
            fputc('\n', shell.out());
            break;
        }
        const std::string text = line;
        free(line);
        if (text.find_first_not_of(" \t") != std::string::npos)
            add_history(text.c_str());
        if (!shell.run_line(text))
            break;
    }
    return 0;
}

int read_pipe(Shell &shell)
{
    std::string text;
    for (;;) {
        shell.waiting_for_operator(true);
        const bool got = static_cast<bool>(std::getline(std::cin, text));
        shell.waiting_for_operator(false);
        if (!got || !shell.run_line(text))
            break;
    }
    return 0;
}

} // namespace

std::vector<std::string> completions(const std::string &before, const std::string &word)
{
    const size_t first = before.find_first_not_of(" \t");
    if (first == std::string::npos)
        return complete_name(word);
    const size_t end = before.find_first_of(" \t", first);
    const std::string head = before.substr(first, end - first);
    const bool second_word =
        end != std::string::npos && before.find_first_not_of(" \t", end) == std::string::npos;
    if (second_word && head == "help") {
        std::vector<std::string> names;
        for (const Entry &entry : command_table())
            if (entry.name.starts_with(word))
                names.push_back(entry.name);
        return names;
    }
    return {};
}

int run_interactive(Shell &shell)
{
    return isatty(STDIN_FILENO) ? read_terminal(shell) : read_pipe(shell);
}

} // namespace shell
