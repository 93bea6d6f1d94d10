// The camera's plain files and shell commands as the library reads them: each file's content (or
// why it could not be opened) and each command's output and exit code. The library's own streams
// are left as the camera gave them, except a command's: its output is read whole here, so the
// library gets the same bytes from memory and its pclose the command's real status.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

#include "recorder.h"

using namespace record;

namespace
{

bool reads_only(const char *mode)
{
    return mode != nullptr && mode[0] == 'r' && strchr(mode, '+') == nullptr;
}

// The content of a file the library just opened, without moving its stream: pread on the stream's
// descriptor (stdio has read nothing yet), or, where that cannot work (a pipe, a /proc file that
// will not seek), a second opening through the next open and read.
Bytes file_content(FILE *stream, const char *path)
{
    Bytes content;
    uint8_t piece[4096];
    const int fd = fileno(stream);
    off_t at = 0;
    bool positioned = fd >= 0;
    while (positioned) {
        const ssize_t got = pread(fd, piece, sizeof piece, at);
        if (got < 0) {
            positioned = false;
            content.clear();
            break;
        }
        if (got == 0)
            return content;
        content.insert(content.end(), piece, piece + got);
        at += got;
    }
    using Open = int (*)(const char *, int, ...);
    static const auto next_open = next<Open>("open");
    static const auto next_read = next<ssize_t (*)(int, void *, size_t)>("read");
    static const auto next_close = next<int (*)(int)>("close");
    const int other = next_open(path, O_RDONLY | O_CLOEXEC);
    if (other < 0)
        return content;
    for (;;) {
        const ssize_t got = next_read(other, piece, sizeof piece);
        if (got <= 0)
            break;
        content.insert(content.end(), piece, piece + got);
    }
    next_close(other);
    return content;
}

FILE *recorded_fopen(FILE *(*next_fopen)(const char *, const char *), const void *caller, const char *path,
                     const char *mode)
{
    if (!recorded(caller) || path == nullptr || !reads_only(mode))
        return next_fopen(path, mode);
    FILE *stream = next_fopen(path, mode);
    KeepErrno keep;
    const int error = stream == nullptr ? errno : 0;
    Bytes content;
    if (stream != nullptr)
        content = file_content(stream, path);
    std::lock_guard<std::mutex> hold(state().mutex);
    const bool first = state().recording.files.count(path) == 0;
    FileSeen &seen = state().recording.files[path];
    seen.opens.push_back(error);
    // The content is the first opening's that worked; the first failure stands for a file never opened.
    if (stream != nullptr && (first || seen.open_errno != 0)) {
        seen.content = std::move(content);
        seen.open_errno = 0;
    } else if (stream == nullptr && first) {
        seen.open_errno = error;
    }
    return stream;
}

// A command's output handed to the library from memory, with what its pclose must answer.
struct Played {
    char *output;
    int status;
};

std::map<FILE *, Played> &played()
{
    static auto *instance = new std::map<FILE *, Played>;
    return *instance;
}

int exit_code(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status); // as the shell reports a command a signal ended
    return status;
}

} // namespace

extern "C" {

FILE *fopen(const char *path, const char *mode)
{
    static const auto next_fopen = next<FILE *(*)(const char *, const char *)>("fopen");
    return recorded_fopen(next_fopen, __builtin_return_address(0), path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    static const auto next_fopen = next<FILE *(*)(const char *, const char *)>("fopen64");
    return recorded_fopen(next_fopen, __builtin_return_address(0), path, mode);
}

FILE *popen(const char *command, const char *mode)
{
    static const auto next_popen = next<FILE *(*)(const char *, const char *)>("popen");
    static const auto next_pclose = next<int (*)(FILE *)>("pclose");
    if (!recorded(__builtin_return_address(0)) || command == nullptr || !reads_only(mode))
        return next_popen(command, mode);
    FILE *pipe = next_popen(command, mode);
    if (pipe == nullptr) {
        KeepErrno keep;
        CommandSeen seen;
        seen.fail_errno = errno;
        std::lock_guard<std::mutex> hold(state().mutex);
        state().recording.commands.emplace(command, std::move(seen));
        return nullptr;
    }
    CommandSeen seen;
    uint8_t piece[4096];
    size_t got = 0;
    while ((got = fread(piece, 1, sizeof piece, pipe)) > 0)
        seen.output.insert(seen.output.end(), piece, piece + got);
    const int status = next_pclose(pipe);
    seen.exit_code = exit_code(status);

    // The same bytes, from memory. fmemopen reads from a buffer that must outlive the stream.
    char *output = static_cast<char *>(malloc(seen.output.size() + 1));
    FILE *stream = nullptr;
    if (output != nullptr) {
        if (!seen.output.empty())
            memcpy(output, seen.output.data(), seen.output.size());
        stream = fmemopen(output, seen.output.size(), "r");
    }
    if (stream == nullptr) {
        const int error = errno;
        free(output);
        fprintf(stderr, "clidriver-record: cannot hand the library the output of %s: %s\n", command,
                strerror(error));
        errno = error;
        return nullptr; // as a popen that failed: the library reports it
    }
    std::lock_guard<std::mutex> hold(state().mutex);
    played()[stream] = {output, status};
    state().recording.commands.emplace(command, std::move(seen));
    return stream;
}

int pclose(FILE *stream)
{
    static const auto next_pclose = next<int (*)(FILE *)>("pclose");
    static const auto next_fclose = next<int (*)(FILE *)>("fclose");
    Played was = {nullptr, 0};
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const auto found = played().find(stream);
        if (found == played().end())
            return next_pclose(stream);
        was = found->second;
        played().erase(found);
    }
    next_fclose(stream);
    free(was.output);
    return was.status;
}

// A stream of ours closed with fclose rather than pclose: its buffer goes with it.
int fclose(FILE *stream)
{
    static const auto next_fclose = next<int (*)(FILE *)>("fclose");
    char *output = nullptr;
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const auto found = played().find(stream);
        if (found != played().end()) {
            output = found->second.output;
            played().erase(found);
        }
    }
    const int result = next_fclose(stream);
    free(output);
    return result;
}

} // extern "C"
