// Reading a `peer = "rfid"` table of a scenario file (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_rfid_peer(const Section &port);

} // namespace sim
