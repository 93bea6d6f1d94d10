// Reading a peer's table of a scenario file: the keys every line and every peer share (the
// misbehaviour keys, documented once in sim/scenarios/README.md), beside the peer's own.
#pragma once

#include <initializer_list>
#include <string_view>

#include "peripherals/misbehaviour.h"
#include "scenario/section.h"

namespace sim
{

// Refuses keys other than the line's (peer, absent, open_errno), `own_keys` and the misbehaviour
// keys, and returns the misbehaviour the table asks for. bad_checksum and oversize are refused
// for a peer whose `framing` has no hook for them.
Misbehaviour read_misbehaviour(const Section &port, const Framing &framing,
                               std::initializer_list<std::string_view> own_keys);

} // namespace sim
