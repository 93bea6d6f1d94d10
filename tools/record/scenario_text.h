// The recording written down as a scenario of the simulated camera: scenario.toml's text and the
// side files it names (port logs; file contents and command outputs that are not text). Pure
// string work, so that tests can read back exactly what a camera run would leave.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "recording.h"

namespace record
{

// A TOML basic string, quoted, with quotes, backslashes and control characters escaped. Bytes that
// are not UTF-8 cannot stand in a TOML string: each becomes U+FFFD (callers with binary data use
// a side file instead, see render).
std::string toml_string(std::string_view text);

bool valid_utf8(std::string_view text);

// An errno as the scenarios write it: its name quoted ("EIO"), or the number when it has none.
std::string errno_value(int error);

struct SideFile {
    std::string name; // relative to the recording's folder
    Bytes bytes;
};

struct Rendered {
    std::string scenario;
    std::vector<SideFile> side_files;
};

// capture_name: the capture file beside the scenario, named in [wifi] when a capture was opened.
Rendered render(const Recording &recording, const std::string &capture_name);

} // namespace record
