// The reports of a station run, for the line's test management: JUnit XML (one test case per
// script line, a failure element when the status differs from the expected one, the line's
// output in system-out and system-err) and JSON with the same facts. Output that is not valid
// UTF-8 (a command printing raw bytes) is carried with U+FFFD in place of the bad bytes.
#pragma once

#include <string>
#include <string_view>

#include "script.h"

namespace shell
{

std::string junit_xml(const ScriptRun &run);
std::string json_report(const ScriptRun &run);

// `text` with each invalid UTF-8 sequence replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

} // namespace shell
