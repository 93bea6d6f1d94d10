// Reading a `peer = "box"` table of a scenario file (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_box_peer(const Section &box);

} // namespace sim
