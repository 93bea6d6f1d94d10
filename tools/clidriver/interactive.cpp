#include "interactive.h"

#include <algorithm>
#include <csetjmp>
#include <csignal>
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

// Ctrl-C while the operator types clears the line, as in a login shell; while a command runs it
// ends the shell as before (a command cannot be stopped half way without leaving its device open).
sigjmp_buf g_prompt;
volatile sig_atomic_t g_at_prompt = 0;

void interrupt_at_prompt(int)
{
    if (g_at_prompt)
        siglongjmp(g_prompt, 1);
    signal(SIGINT, SIG_DFL);
    raise(SIGINT);
}

// The worst of the lines so far: a refusal (2) over a failure (1).
int worse(int so_far, int line)
{
    return std::max(so_far, line);
}

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

int read_terminal(Shell &shell, const std::string &banner)
{
    rl_readline_name = "clidriver";
    rl_attempted_completion_function = complete;
    rl_catch_signals = 0; // the shell handles Ctrl-C itself
    fprintf(shell.out(), "clidriver: %stype help for help, quit to leave\n", banner.c_str());
    fflush(shell.out());
    struct sigaction action = {};
    action.sa_handler = interrupt_at_prompt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    for (;;) {
        shell.waiting_for_operator(true);
        if (sigsetjmp(g_prompt, 1) != 0) {
            g_at_prompt = 0;
            fputs("^C\n", shell.out());
            fflush(shell.out());
        }
        g_at_prompt = 1;
        char *line = readline("clidriver> ");
        g_at_prompt = 0;
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

// Lines piped in: the exit code says whether any of them failed (1) or was refused (2), so a
// job that feeds the prompt learns it as a station script's caller does.
int read_pipe(Shell &shell)
{
    std::string text;
    int code = 0;
    for (;;) {
        shell.waiting_for_operator(true);
        const bool got = static_cast<bool>(std::getline(std::cin, text));
        shell.waiting_for_operator(false);
        if (!got)
            break;
        const bool more = shell.run_line(text);
        code = worse(code, shell.line_code());
        if (!more)
            break;
    }
    return code;
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

int run_interactive(Shell &shell, const std::string &banner)
{
    return isatty(STDIN_FILENO) ? read_terminal(shell, banner) : read_pipe(shell);
}

} // namespace shell
