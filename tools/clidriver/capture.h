// Keeps what one command writes on standard output and standard error, byte for byte. The shell
// keeps it for the reports of a station run and then shows it on the console as it would have
// appeared (the operator misses nothing, but sees a command's output once the command has
// returned); the tests keep it to compare and show nothing.
#pragma once

#include <functional>
#include <string>

namespace shell
{

class OutputCapture
{
  public:
    // With `show_afterwards`, what was kept is written to the console once the capture ends.
    explicit OutputCapture(bool show_afterwards = true) : show_afterwards_(show_afterwards) {}
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;
    ~OutputCapture();

    // Points descriptors 1 and 2 at fresh temporary files. False (and nothing redirected) when
    // that is not possible; the command then runs uncaptured.
    bool begin();
    // Restores both descriptors and hands back what was written.
    void end(std::string &out, std::string &err);

  private:
    struct Stream {
        int target = -1;
        int saved = -1;
        int file = -1;
    };
    static bool redirect(Stream &stream, int target);
    std::string restore(Stream &stream) const;
    Stream out_, err_;
    bool active_ = false;
    bool show_afterwards_;
};

// What one call wrote.
struct Captured {
    std::string out;       // standard output, byte for byte
    std::string err;       // standard error, byte for byte
    bool captured = false; // false: the descriptors could not be redirected; the call ran uncaptured
};

// Runs `call` with both descriptors captured and hands back what it wrote, showing nothing.
Captured capture_output(const std::function<void()> &call);

} // namespace shell
