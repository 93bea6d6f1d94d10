// The tests' own reading of what the sniffer's packet handler must do with one captured frame,
// written from the rules and not from the library's code: the low byte of the radio-tap length,
// the bounds on the length on the air, the subtype named when it is not a probe request, and the
// 15-byte record taken at rt + 10, 22 and 8, never from beyond the captured bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace clitest
{

struct ProbeOutcome {
    bool recorded = false;       // a record is kept
    bool named = false;          // "wifi subtype %d wrong" is printed
    int subtype = 0;             // when named
    std::vector<uint8_t> record; // when recorded
};

inline ProbeOutcome probe_model(const uint8_t *frame, size_t captured, uint32_t on_air)
{
    ProbeOutcome outcome;
    if (captured < 3)
        return outcome; // not even the radio-tap length was captured
    const size_t rt = frame[2];
    if (on_air < rt + 22 || on_air > rt + 300)
        return outcome; // dropped without a word
    if (rt >= captured)
        return outcome; // the frame control was not captured
    const int subtype = frame[rt] >> 4;
    if (subtype != 4) {
        outcome.named = true;
        outcome.subtype = subtype;
        return outcome;
    }
    // Address 2 ends at rt + 16; the signal is byte 22; the TSFT bytes 8 to 15.
    size_t last = rt + 15;
    if (last < 22)
        last = 22;
    if (last >= captured)
        return outcome;
    outcome.recorded = true;
    for (size_t i = 0; i < 6; ++i)
        outcome.record.push_back(frame[rt + 10 + i]);
    outcome.record.push_back(frame[22]);
    for (size_t i = 8; i < 16; ++i)
        outcome.record.push_back(frame[i]);
    return outcome;
}

} // namespace clitest
