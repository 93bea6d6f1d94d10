// The reports of a station run, for the line's test management: JUnit XML (one test case per
// script line: a failure, an error or a skipped element as the step ended, its measurements and
// output in system-out and system-err, the unit and the run as properties) and a JSON test record
// with the same facts, laid out as docs/station-report.md describes (a run of phases, each with
// its measurements, outcome and times, as established station frameworks record a test). Output
// that is not valid UTF-8 (a command printing raw bytes) is carried with U+FFFD in place of the
// bad bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "script.h"

namespace shell
{

// Who and what was tested, where, with what.
struct RunInfo {
    std::string dut;           // --dut: the unit's serial number
    std::string station;       // --station
    std::string operator_name; // --operator
    std::string hostname;
    std::string scenario;                 // the simulated camera's file (empty on a camera)
    std::string camera;                   // the simulated camera's name
    std::optional<uint32_t> product_type; // as the platform reports it
    std::string software_version;         // as the camera reports it
    std::string shell_version;
    std::string library_version; // of the libclidriver the shell loaded
};

std::string junit_xml(const ScriptRun &run, const RunInfo &info);
std::string json_report(const ScriptRun &run, const RunInfo &info);

// `text` with each invalid UTF-8 sequence replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

} // namespace shell
