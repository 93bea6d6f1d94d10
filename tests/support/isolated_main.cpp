// The main of every test executable: each test case runs in a process of its own, forked from
// this one before any case has run.
//
// The library keeps process-wide state by design (the link table, the product record, the RFID
// table, the lamp flag, threads that never end), so every case must start from a library as it
// was loaded. Starting a fresh executable per case gives that, but costs a whole program start
// each time: the dynamic loader, the sanitizer runtime, GoogleTest's registry, and under qemu-arm
// all of it emulated. A fork of a process that has run no case yet gives the same pristine state
// for the cost of copying page tables. So this main registers the cases, selects those the filter
// asks for, and runs each in a child of its own, two at a time, each child running exactly one case;
// a child that crashes, hangs past the time limit or ends the process fails its case alone.
//
// Environment:
//   CLIDRIVER_TEST_JOBS=N        cases at once (default 2)
//   CLIDRIVER_TEST_TIMEOUT=S     seconds a case may take before it is killed (default 120)
//   CLIDRIVER_TEST_IN_PROCESS=1  run the selected cases in this process, as plain GoogleTest does
//                                (for a debugger on one case; several cases then share the library)
// `--gtest_list_tests` and the other GoogleTest flags work as usual.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

// GoogleTest's filter syntax: "POSITIVE[:POSITIVE...][-NEGATIVE[:NEGATIVE...]]", each pattern
// with '*' (any run) and '?' (any one character) over "Suite.Test".
bool glob(const char *pattern, const char *name)
{
    for (;;) {
        if (*pattern == '\0' || *pattern == ':')
            return *name == '\0';
        if (*pattern == '*') {
            for (const char *at = name;; ++at) {
                if (glob(pattern + 1, at))
                    return true;
                if (*at == '\0')
                    return false;
            }
        }
        if (*name == '\0' || (*pattern != '?' && *pattern != *name))
            return false;
        ++pattern;
        ++name;
    }
}

bool any_pattern(const std::string &patterns, const std::string &name)
{
    size_t start = 0;
    for (;;) {
        if (glob(patterns.c_str() + start, name.c_str()))
            return true;
        const size_t colon = patterns.find(':', start);
        if (colon == std::string::npos)
            return false;
        start = colon + 1;
    }
}

bool selected(const std::string &filter, const std::string &name)
{
    const size_t dash = filter.find('-');
    const std::string positive = dash == std::string::npos ? filter : filter.substr(0, dash);
    const std::string negative = dash == std::string::npos ? "" : filter.substr(dash + 1);
    return any_pattern(positive.empty() ? "*" : positive, name) &&
           (negative.empty() || !any_pattern(negative, name));
}

long env_number(const char *name, long fallback)
{
    const char *text = getenv(name);
    if (text == nullptr || *text == '\0')
        return fallback;
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    return *end == '\0' && value > 0 ? value : fallback;
}

struct Child {
    pid_t pid;
    std::string name;
    int output; // the child's standard output and error
    Clock::time_point started;
};

std::string read_all(int fd)
{
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0)
            break;
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

// Runs one case in a child: its output into a file of its own, exactly that case selected.
Child start(const std::string &name)
{
    const int output = memfd_create("test-output", 0);
    if (output < 0) {
        perror("memfd_create");
        exit(2);
    }
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0) {
        perror("fork");
        exit(2);
    }
    if (pid == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        close(output);
        setvbuf(stdout, nullptr, _IOLBF, 0);
        GTEST_FLAG_SET(filter, name);
        // One case, one process: nothing of this process outlives the case, so the child leaves
        // without running the parent's exit handlers twice.
        const int status = RUN_ALL_TESTS();
        fflush(stdout);
        fflush(stderr);
        _exit(status);
    }
    return Child{pid, name, output, Clock::now()};
}

std::string describe(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status) == 0 ? "" : "exit status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status))
        return std::string("killed by signal ") + std::to_string(WTERMSIG(status)) + " (" +
               strsignal(WTERMSIG(status)) + ")";
    return "ended oddly";
}

} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests) || env_number("CLIDRIVER_TEST_IN_PROCESS", 0) == 1)
        return RUN_ALL_TESTS();

    const std::string filter = GTEST_FLAG_GET(filter);
    std::deque<std::string> waiting;
    const ::testing::UnitTest &unit = *::testing::UnitTest::GetInstance();
    for (int s = 0; s < unit.total_test_suite_count(); ++s) {
        const ::testing::TestSuite &suite = *unit.GetTestSuite(s);
        for (int t = 0; t < suite.total_test_count(); ++t) {
            const std::string name = std::string(suite.name()) + "." + suite.GetTestInfo(t)->name();
            if (selected(filter, name))
                waiting.push_back(name);
        }
    }
    const size_t total = waiting.size();
    const size_t jobs = static_cast<size_t>(env_number("CLIDRIVER_TEST_JOBS", 2));
    const auto limit = std::chrono::seconds(env_number("CLIDRIVER_TEST_TIMEOUT", 120));

    std::map<pid_t, Child> running;
    std::vector<std::string> failed;
    const auto began = Clock::now();
    while (!waiting.empty() || !running.empty()) {
        while (!waiting.empty() && running.size() < jobs) {
            Child child = start(waiting.front());
            waiting.pop_front();
            running.emplace(child.pid, child);
        }
        int status = 0;
        const pid_t done = waitpid(-1, &status, WNOHANG);
        if (done == 0) {
            // Nobody finished yet: kill a case that overran its time, then look again shortly.
            for (auto &[pid, child] : running)
                if (Clock::now() - child.started > limit)
                    kill(pid, SIGKILL);
            usleep(1000);
            continue;
        }
        if (done < 0) {
            if (errno == EINTR)
                continue;
            perror("waitpid");
            return 2;
        }
        const auto found = running.find(done);
        if (found == running.end())
            continue;
        Child child = found->second;
        running.erase(found);
        const auto millis =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - child.started).count();
        const std::string verdict = describe(status);
        if (verdict.empty()) {
            printf("[       OK ] %s (%lld ms)\n", child.name.c_str(), static_cast<long long>(millis));
        } else {
            const std::string output = read_all(child.output);
            printf("%s", output.c_str());
            if (!output.empty() && output.back() != '\n')
                printf("\n");
            printf("[  FAILED  ] %s (%lld ms): %s%s\n", child.name.c_str(), static_cast<long long>(millis),
                   verdict.c_str(),
                   WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL ? " (over the time limit?)" : "");
            failed.push_back(child.name);
        }
        close(child.output);
        fflush(stdout);
    }
    const auto seconds = std::chrono::duration<double>(Clock::now() - began).count();
    printf("%zu cases, each in a process of its own: %zu passed, %zu failed (%.1f s)\n", total,
           total - failed.size(), failed.size(), seconds);
    for (const std::string &name : failed)
        printf("  FAILED %s\n", name.c_str());
    if (total == 0) {
        printf("no case matches the filter '%s'\n", filter.c_str());
        return 1;
    }
    return failed.empty() ? 0 : 1;
}
