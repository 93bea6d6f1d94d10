#include "capture.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace shell
{

bool OutputCapture::redirect(Stream &stream, int target)
{
    char name[] = "/tmp/clidriver-output-XXXXXX";
    stream.file = mkstemp(name);
    if (stream.file < 0)
        return false;
    unlink(name);
    stream.saved = dup(target);
    if (stream.saved < 0 || dup2(stream.file, target) < 0) {
        if (stream.saved >= 0)
            close(stream.saved);
        close(stream.file);
        stream = Stream{};
        return false;
    }
    stream.target = target;
    return true;
}

std::string OutputCapture::restore(Stream &stream) const
{
    std::string text;
    if (stream.target < 0)
        return text;
    dup2(stream.saved, stream.target);
    close(stream.saved);
    char buffer[4096];
    lseek(stream.file, 0, SEEK_SET);
    for (ssize_t n; (n = read(stream.file, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    close(stream.file);
    // Shown now on the console the command would have written to.
    for (size_t done = 0; show_afterwards_ && done < text.size();) {
        const ssize_t n = write(stream.target, text.data() + done, text.size() - done);
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    stream = Stream{};
    return text;
}

bool OutputCapture::begin()
{
    fflush(stdout);
    fflush(stderr);
    if (!redirect(out_, STDOUT_FILENO))
        return false;
    if (!redirect(err_, STDERR_FILENO)) {
        restore(out_);
        return false;
    }
    active_ = true;
    return true;
}

void OutputCapture::end(std::string &out, std::string &err)
{
    if (!active_)
        return;
    fflush(stdout);
    fflush(stderr);
    out = restore(out_);
    err = restore(err_);
    active_ = false;
}

OutputCapture::~OutputCapture()
{
    std::string out, err;
    end(out, err);
}

Captured capture_output(const std::function<void()> &call)
{
    Captured result;
    OutputCapture capture(false);
    result.captured = capture.begin();
    call();
    capture.end(result.out, result.err);
    return result;
}

} // namespace shell
