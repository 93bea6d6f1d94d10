// Fault injection for any test on the simulated camera's serial lines: the next calls of the OS
// and of the link's own exported operations fail on demand, counted down, so each failure point
// of a command can be reached on a real pty. The failing functions are defined in the test
// executable (link the clitest_faults objects), which the dynamic linker searches before libc and
// libclidriver; anything not armed passes straight through.
#pragma once

#include <cerrno>
#include <cstddef>

namespace clitest
{

struct Countdown {
    int skip = 0;  // calls that pass before the failures start
    int fail = 0;  // calls that fail after them
    int calls = 0; // calls seen, failed or not

    void arm(int pass_first, int fail_next)
    {
        skip = pass_first;
        fail = fail_next;
    }
    bool fires()
    {
        ++calls;
        if (skip > 0) {
            --skip;
            return false;
        }
        if (fail > 0) {
            --fail;
            return true;
        }
        return false;
    }
};

struct Faults {
    Countdown tcgetattr;  // on the product's serial ports: -1 with EIO
    Countdown tcsetattr;  // on the product's serial ports: -1 with EIO
    Countdown empty_read; // read on a product's serial port returns 0, consuming nothing
    Countdown com_send;   // CLI_ComSend returns 1 and sends nothing
    // A write to a product's serial port takes only the first `short_write_keeps` bytes (all of
    // them when fewer were asked for) and returns that count: a UART whose buffer is full.
    Countdown short_write;
    size_t short_write_keeps = 3;
};

// The armed faults of this process (each test runs in a process of its own).
Faults &faults();

} // namespace clitest
