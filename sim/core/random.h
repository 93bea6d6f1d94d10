// The simulator's one source of pseudo-random numbers: xorshift32 from a seed, so that the same
// scenario makes the same noise on every run and on every machine. Peers use it for garbage on
// the line and for what a UART at the wrong speed makes of a byte; nothing else draws numbers.
#pragma once

#include <cstdint>

namespace sim
{

class SeededRandom
{
  public:
    // A seed of 0 would stay 0 for ever; it reads as 1.
    explicit SeededRandom(uint32_t seed = 1) : state_(seed != 0 ? seed : 1) {}

    uint32_t next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    uint8_t byte() { return static_cast<uint8_t>(next()); }

  private:
    uint32_t state_;
};

} // namespace sim
