// Reading a `peer = "light_sensor"` table of a scenario file (keys in sim/scenarios/README.md).
#pragma once

#include "scenario/section.h"

namespace sim
{

MakePeer load_light_sensor_peer(const Section &port);

} // namespace sim
