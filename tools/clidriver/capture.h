// Keeps what one command writes on standard output and standard error, for the reports of a
// station run, and then shows it on the console as it would have appeared: the operator misses
// nothing, but sees a command's output once the command has returned.
#pragma once

#include <string>

namespace shell
{

class OutputCapture
{
  public:
    OutputCapture() = default;
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;
    ~OutputCapture();

    // Points descriptors 1 and 2 at fresh temporary files. False (and nothing redirected) when
    // that is not possible; the command then runs uncaptured.
    bool begin();
    // Restores both descriptors, hands back what was written and writes it to them.
    void end(std::string &out, std::string &err);

  private:
    struct Stream {
        int target = -1;
        int saved = -1;
        int file = -1;
    };
    static bool redirect(Stream &stream, int target);
    static std::string restore(Stream &stream);
    Stream out_, err_;
    bool active_ = false;
};

} // namespace shell
