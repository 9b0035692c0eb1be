// Schedule: which frame of a tap belongs to which host time.
// Why: frames handed out by host time t must equal t x rate for ever, so every time is computed from the
// count of frames, in whole numbers, and never by adding up a rounded period.
// Start at TimeOf; docs/time.md, "Conversions".
#pragma once

#include <cstdint>

namespace tap {

/// A rate in frames a second, in units of 2^-32 Hz.
using FixedRate = uint64_t;
constexpr unsigned kRateFractionBits = 32;

class Schedule {
public:
    /// @param rate        1 Hz .. 2^22 Hz
    /// @param startNanos  host time of frame 0
    Schedule(FixedRate rate, uint64_t startNanos) : mRate(rate), mStartNanos(startNanos) {}

    /// The schedule whose frame 0 is the first one from `nanos` on of those that the host clock counts from its zero:
    /// schedules of one rate that start at different times have all their frames at the same times, to a nanosecond.
    static Schedule OnGrid(FixedRate rate, uint64_t nanos) noexcept;

    /// T(n): the start plus n frames, rounded down to a nanosecond; exact for ever.
    /// @realtime yes
    uint64_t TimeOf(uint64_t frame) const noexcept;

    /// The greatest n with T(n) <= nanos; 0 before the start.
    /// @realtime yes
    uint64_t FramesBy(uint64_t nanos) const noexcept;

    FixedRate Rate() const noexcept { return mRate; }

    /// Nanoseconds that so many frames take, rounded to the nearest.
    static uint64_t NanosOf(uint64_t frames, FixedRate rate) noexcept;

private:
    FixedRate mRate;
    uint64_t mStartNanos;
};

}  // namespace tap
