// A serial port's log as the recording layer writes it: what the library wrote and read on the
// port, and when. Text, one event per line, times in nanoseconds since the recording's boot:
//
//     open 1200000
//     > 1300000 24 50 4D 54 4B 30 30 30 2A 33 32 0D 0A
//     < 1812500 24 47 50 47 47 41 2C
//     close 90000000
//
// Reading and writing it touch memory only: the recording layer, the replaying peer, the tests
// and the fuzz target share this file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

struct PortEvent {
    enum class Kind { Open, Close, Wrote, Read };
    Kind kind = Kind::Open;
    int64_t time = 0;           // nanoseconds since boot
    std::vector<uint8_t> bytes; // Wrote: what the library wrote; Read: what it read
};

struct PortLog {
    std::vector<PortEvent> events;
    std::string error; // empty when the text was read whole; else "line N: what is wrong"
};

// Reads a log. Times must not go backwards; a write or read carries at least one byte.
PortLog read_port_log(std::string_view text);
// One event as a line of the log, without its newline.
std::string port_log_line(const PortEvent &event);

} // namespace sim
