// Simulated time: nanoseconds since the simulated camera booted.
#pragma once

#include <cstdint>

namespace sim
{

using Nanos = int64_t;

constexpr Nanos kMicrosecond = 1'000;
constexpr Nanos kMillisecond = 1'000'000;
constexpr Nanos kSecond = 1'000'000'000;
constexpr Nanos kNever = INT64_MAX;

// 2026-11-20 08:00:00 UTC: the wall clock the simulated camera boots with unless a scenario
// says otherwise. A fixed start makes diagnostic lines reproducible.
constexpr int64_t kDefaultBootEpochSeconds = 1795161600;

} // namespace sim
