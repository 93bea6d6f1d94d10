// What a simulated peripheral does wrong on purpose, the same for every peer, and what the
// misbehaviour layer needs to know of a peer's protocol to spoil its messages.
//
// The scenario keys are read once for every peer (misbehaviour_toml.h) and documented once in
// sim/scenarios/README.md ("Misbehaviour"); MessagePeer (message_peer.h) carries them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/time.h"

namespace sim
{

struct Misbehaviour {
    enum class Mode {
        Normal,
        Silent,  // hears everything, sends none of its messages
        Garbage, // sends seeded pseudo-random bytes without pause instead of its messages
        Trickle, // sends its messages one byte at a time, `trickle_gap` apart
    };

    Mode mode = Mode::Normal;
    Nanos trickle_gap = 100 * kMillisecond;
    std::optional<Nanos> garbage_every{}; // between two pieces of noise; none: at the peer's line speed
    size_t garbage_chunk = 16;            // bytes of noise at a time
    uint32_t garbage_seed = 1;            // which noise (sim::SeededRandom)
    size_t hang_up_after = 0;             // hang up once this many bytes were heard (0: never)
    Nanos hang_up_at = kNever;            // hang up at this simulated time
    std::vector<size_t> bad_checksum{};   // numbers (from 1) of the messages whose check is spoiled
    std::vector<size_t> oversize{};       // numbers of the messages whose length claims too much
};

// How a peer's messages are framed, as far as spoiling them on purpose goes. A peer declares one
// constant of these; the scenario loader refuses bad_checksum or oversize for a peer whose
// framing has no hook for it, and the layer calls the hooks on the numbered messages.
struct Framing {
    // Who speaks, for the loader's refusals: "the GPS receiver", "a scripted peer".
    const char *peer = "";
    // Makes the check of a whole message wrong (off by one, say); null when its messages carry
    // no check.
    void (*spoil_check)(std::vector<uint8_t> &message) = nullptr;
    // Makes the length field of a whole message claim more than the camera can hold, keeping any
    // check right so that only the length is wrong; null when its messages have no length field.
    // Called before spoil_check when a message gets both.
    void (*claim_oversize)(std::vector<uint8_t> &message) = nullptr;
};

} // namespace sim
