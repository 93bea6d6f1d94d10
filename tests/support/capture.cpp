#include "capture.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace clitest
{
namespace
{

// Points descriptor `target` at a fresh unlinked file until restored.
class Redirect
{
  public:
    explicit Redirect(int target) : target_(target)
    {
        char name[] = "/tmp/clitest-capture-XXXXXX";
        file_ = mkstemp(name);
        if (file_ < 0)
            throw std::runtime_error("mkstemp failed");
        unlink(name);
        saved_ = dup(target_);
        dup2(file_, target_);
    }
    std::string finish()
    {
        dup2(saved_, target_);
        close(saved_);
        std::string text;
        char buffer[4096];
        lseek(file_, 0, SEEK_SET);
        for (ssize_t n; (n = read(file_, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(n));
        close(file_);
        return text;
    }

  private:
    int target_;
    int file_ = -1;
    int saved_ = -1;
};

} // namespace

Captured capture_output(const std::function<void()> &call)
{
    fflush(stdout);
    fflush(stderr);
    Redirect out(STDOUT_FILENO);
    Redirect err(STDERR_FILENO);
    call();
    fflush(stdout);
    fflush(stderr);
    Captured result;
    result.err = err.finish();
    result.out = out.finish();
    return result;
}

} // namespace clitest
