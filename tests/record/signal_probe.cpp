// A program with signal handling of its own, as the camera's shell has, run with or without the
// recording layer in front: what it sees of the signals' actions must be what it set, and a
// signal it leaves at the default must still end it by that signal. Prints each check it fails
// and exits 1; with every check held it runs one library command and then ends as its argument
// says: TERM (the default) raises SIGTERM, QUIT raises SIGQUIT, SEGV writes through a null
// pointer, PIPE writes into a pipe nobody reads, ABRT aborts.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <unistd.h>

#include "clidriver/clidriver.h"

namespace
{

volatile sig_atomic_t g_heard = 0;

void hear(int)
{
    g_heard = g_heard + 1;
}

int g_failed = 0;

void check(bool held, const char *what)
{
    if (!held) {
        printf("signal probe: %s\n", what);
        ++g_failed;
    }
}

sighandler_t action_of(int signal_number)
{
    struct sigaction now = {};
    if (sigaction(signal_number, nullptr, &now) != 0)
        return SIG_ERR;
    return now.sa_handler;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string end = argc > 1 ? argv[1] : "TERM";
    setvbuf(stdout, nullptr, _IONBF, 0);
    for (const int signal_number : {SIGINT, SIGTERM, SIGQUIT, SIGPIPE, SIGSEGV, SIGABRT})
        check(action_of(signal_number) == SIG_DFL, "an ending signal does not read as its default action");

    // A handler of its own: installed as asked, the previous action read as the default, and it
    // is the one that runs.
    struct sigaction own = {};
    own.sa_handler = hear;
    sigemptyset(&own.sa_mask);
    struct sigaction previous = {};
    previous.sa_handler = hear;
    check(sigaction(SIGTERM, &own, &previous) == 0, "sigaction refused a handler");
    check(previous.sa_handler == SIG_DFL, "the action replaced does not read as the default");
    check(action_of(SIGTERM) == hear, "the handler installed does not read back");
    raise(SIGTERM);
    check(g_heard == 1, "the program's own handler did not run");

    // The same record passed as the action and the previous one.
    struct sigaction both = own;
    check(sigaction(SIGTERM, &both, &both) == 0 && both.sa_handler == hear,
          "one record as action and previous action: the previous not read back");

    // signal() back to the default hands back the handler it replaces; the default reads back.
    check(signal(SIGTERM, SIG_DFL) == hear, "signal() did not hand back the handler it replaced");
    check(action_of(SIGTERM) == SIG_DFL, "the default set again does not read back");
    check(signal(SIGTERM, SIG_DFL) == SIG_DFL,
          "signal() replacing the default did not hand back the default");

    // An ignored signal stays ignored.
    check(signal(SIGHUP, SIG_IGN) != SIG_ERR, "signal() refused to ignore SIGHUP");
    raise(SIGHUP);
    check(action_of(SIGHUP) == SIG_IGN, "an ignored signal does not read as ignored");

    // Not an ending signal: passed on as it is.
    check(signal(SIGUSR1, hear) == SIG_DFL && action_of(SIGUSR1) == hear, "SIGUSR1's handler not installed");
    raise(SIGUSR1);
    check(g_heard == 2, "SIGUSR1's handler did not run");

    if (g_failed != 0)
        return 1;
    // One command of the library's, then the signal left at its default ends the program.
    printf("command returned %u\n", static_cast<unsigned>(CLI_GetCpuInfo()));
    printf("ending by SIG%s\n", end.c_str());
    if (end == "TERM") {
        raise(SIGTERM);
    } else if (end == "QUIT") {
        raise(SIGQUIT);
    } else if (end == "SEGV") {
        int *volatile nowhere = nullptr;
        *nowhere = 1;
    } else if (end == "PIPE") {
        int ends[2] = {-1, -1};
        if (pipe(ends) == 0) {
            close(ends[0]);
            (void)!write(ends[1], "x", 1);
        }
    } else if (end == "ABRT") {
        abort();
    }
    printf("signal probe: SIG%s did not end the program\n", end.c_str());
    return 1;
}
