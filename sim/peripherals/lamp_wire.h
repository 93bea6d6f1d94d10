// The seven-byte frames of the accessory on the camera's console UART, as the simulated IR lamp
// unit and light sensor hear them: sync 0xFF, address, command 1 (0x20), command 2, two data bytes
// and a check byte, the sum of bytes 1 to 5 modulo 256. The layout and the checks are the camera's
// own protocol file (src/lamp_frame.h); this adds what a receiver on the line needs: finding
// frames in a byte stream that may carry junk, a frame cut short or a frame with a wrong check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/time.h"
#include "peripherals/misbehaviour.h"

namespace sim
{

// One frame a unit on the line heard.
struct HeardLampFrame {
    Nanos time = 0;
    std::vector<uint8_t> bytes; // seven bytes from a sync byte
    bool check_ok = true;       // false: the check byte was wrong, and the frame was not obeyed

    uint8_t address() const { return bytes[1]; }
    uint8_t command() const { return bytes[3]; } // command 2: what is asked
    uint16_t data() const { return static_cast<uint16_t>((bytes[4] << 8) | bytes[5]); }
};

// Reads frames out of what arrives, whole or in pieces. Bytes before a sync byte are skipped; a
// frame not yet complete waits for the rest. Seven bytes from a sync byte whose check byte is
// wrong are reported as such, and the search goes on from the byte after that sync byte, so that a
// frame cut short by a half-written one before it is still found.
class LampFrameReader
{
  public:
    // Adds `bytes` (arrived at `now`) and returns the frames now complete, in order.
    std::vector<HeardLampFrame> read(const std::vector<uint8_t> &bytes, Nanos now);
    // Bytes that started no frame: junk before a sync byte and the sync bytes of refused frames.
    size_t skipped() const { return skipped_; }

  private:
    std::vector<uint8_t> pending_;
    size_t skipped_ = 0;
};

// Builds a frame to `address` with command 2 `command` and `data`.
std::vector<uint8_t> lamp_frame(uint8_t address, uint8_t command, uint16_t data);

// The check byte of a whole frame off by one: the misbehaviour layer's hook for a peer whose
// messages are these frames.
void spoil_lamp_check(std::vector<uint8_t> &frame);

} // namespace sim
