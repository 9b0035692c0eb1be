// StampLatency: the constant between the moment of a frame and the host time of its stamp, one for taps and inputs.
// Why: what happened together has to lie together, whichever way it came; docs/time.md, "Stamps, and the one constant".
#pragma once

#include <cstdint>

namespace platform::audio {

/// A server hands over a whole cycle at a time, stamped with its beginning; 16 ms cover what a tap's consumer gathers
/// and a wake-up that comes late.
///
/// @param longestCycleNanos  the longest cycle that the server's settings allow
constexpr uint64_t StampLatencyNanos(uint64_t longestCycleNanos)
{
    return longestCycleNanos + 16'000'000;
}

/// The same, of the current server. @thread any that may block
uint64_t StampLatencyNanos();

}  // namespace platform::audio
