// A serial port's log: what went each way on the line, one event per line, times in nanoseconds
// since the boot epoch. The simulated camera's replaying peer reads it back.
#pragma once

#include <string>

#include "recording.h"

namespace record
{

// Bytes as two upper-case hexadecimal digits each, separated by spaces: "24 50 4D".
std::string hex_bytes(const Bytes &bytes);

// One line per event: "open T", "> T BYTES" (written by the library), "< T BYTES" (read by it),
// "close T", after a comment line naming the port.
std::string port_log_text(const std::string &path, const Port &port);

// The log's file name inside the recording's ports/ folder: the device path without /dev/.
std::string port_log_name(const std::string &path);

} // namespace record
