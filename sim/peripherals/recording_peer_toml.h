// Reading a `peer = "recording"` port table of a recorded camera (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_recording_peer(const Section &port);

} // namespace sim
