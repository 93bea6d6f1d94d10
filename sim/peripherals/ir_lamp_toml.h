// Reading a `peer = "ir_lamp"` table of a scenario file (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_ir_lamp_peer(const Section &port);

} // namespace sim
