// Writing the recording out at the end of the process: scenario.toml, the port logs, the capture
// and any side files, into the folder the shell named (clidriver_record_to or
// CLIDRIVER_RECORD_DIR).
#pragma once

#include "recording.h"

namespace record
{

// Takes what the recording's header needs while the process is whole: the output folder from the
// environment (unless the shell named one), the simulated platform's name and start-up, the time.
void start_writer();

// Writes the files; a failure is said on standard error, the process goes on ending as it would.
void write_recording(Recording recording);

} // namespace record
