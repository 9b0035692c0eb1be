// TapLatency: the one constant between a sound's moment and its place on a tap's timeline.
// Why: status, tests and whoever lines sources up must all mean the same; docs/time.md, "Stamps, and the one
// constant".
#pragma once

#include <cstdint>

namespace tap {

/// Frame n of a tap stands for the sound at T(n) - latency. A server hands over a whole cycle at a time, and
/// 10 ms cover a wake-up that comes late.
///
/// @param longestCycleNanos  the longest cycle that the server's settings allow
constexpr uint64_t TapLatencyNanos(uint64_t longestCycleNanos)
{
    return longestCycleNanos + 10'000'000;
}

}  // namespace tap
