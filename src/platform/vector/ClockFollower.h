// ClockFollower: from the stamps of one driver to its rate, its phase, and the integral of what it said.
// Why: a source's crystal is off by hundreds of ppm and its stamps are late at random; whoever resamples by
// the raw stamps makes noise, and whoever adds up a rounded rate drifts. docs/time.md, "The follower".
// Start at AddStamp and PositionAt.
#pragma once

#include <cstdint>

namespace platform::vector {

class ClockFollower {
public:
    /// Starts anew: a clock of `nominalHz`, nothing known of it.
    ///
    /// @param position  frame that the integral starts from
    /// @param hostNanos host time of that frame
    void Start(double nominalHz, double position, uint64_t hostNanos) noexcept;

    /// Another measurement of the same integral: another driver or nominal rate. What PositionAt hands out
    /// goes on without a step, and is paid back against the new measurement.
    void Restart(double nominalHz, int64_t position, uint64_t hostNanos) noexcept;

    /// One stamp: the frame at `position` happened at `hostNanos`. Positions and times only ever grow;
    /// one that does not is ignored.
    ///
    /// @realtime yes: O(1)
    void AddStamp(int64_t position, uint64_t hostNanos) noexcept;

    /// Whether the rate is known to 2 ppm.
    bool IsKnown() const noexcept { return mKnown; }

    /// Frames a second over the nominal; exactly 1.0 until it is known, then held for about a second at a
    /// time. A value that a 32-bit float holds; the rounding error is carried into the next.
    double RateScalar() const noexcept { return mHeldScalar; }

    /// The integral of what was handed out: the frame at host time `hostNanos`, which may lie ahead of the
    /// last stamp. Continuous over all calls, save Start.
    double PositionAt(uint64_t hostNanos) const noexcept;

    /// The measured line itself, without the paying back: for judging a phase, not for resampling.
    double MeasuredPositionAt(uint64_t hostNanos) const noexcept;

private:
    double mNominalHz = 0;
    bool mKnown = false;
    double mHeldScalar = 1.0;
};

}  // namespace platform::vector
