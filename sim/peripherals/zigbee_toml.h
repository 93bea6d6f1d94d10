// Reading a `peer = "zigbee"` table of a scenario file (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_zigbee_peer(const Section &port);

} // namespace sim
