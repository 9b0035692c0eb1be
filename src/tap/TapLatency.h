// TapLatency: how far a tap's frames lie behind the sound that they stand for.
// Why: status, tests and whoever lines sources up must all mean the same; docs/time.md, "Stamps, and the one
// constant".
#pragma once

#include "platform/audio/StampLatency.h"
#include "tap/RingWriter.h"

#include <algorithm>

namespace tap {

/// Frame n of a tap stands for the sound at T(n) - latency.
///
/// A consumer stamps arrival. It gathers two blocks before it hands them on, and it began at any moment of a block,
/// half of one on the average: the tap is ahead of the stamps by as much, so that its stamps are those of every other
/// source to within half a block. At rates where that is longer than the constant has room for, the server's burst
/// comes first.
///
/// @param longestCycleNanos  the longest cycle that the server's settings allow
inline uint64_t TapLatencyNanos(uint64_t longestCycleNanos, FixedRate rate)
{
    constexpr uint64_t kLateWakeNanos = 5'000'000;
    const uint64_t gathered = Schedule::NanosOf(5 * kBlockFrames / 2, rate);
    const uint64_t stamp = platform::audio::StampLatencyNanos(longestCycleNanos);
    return std::max(stamp - std::min(stamp, gathered), longestCycleNanos + kLateWakeNanos);
}

}  // namespace tap
