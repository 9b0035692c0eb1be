// ClockFollower: from the stamps of one driver to its rate, its phase, and the integral of what it said.
// Why: a source's crystal is off by hundreds of ppm and its stamps are late at random; whoever resamples by
// the raw stamps makes noise, and whoever adds up a rounded rate drifts. docs/time.md, "The follower".
// Start at AddStamp and PositionAt. The filter is explained at the top of ClockFollower.cpp.
//
// One thread at a time: whoever calls AddStamp also asks, or holds a lock of its own.
#pragma once

#include <array>
#include <cstdint>

namespace platform::vector {

class ClockFollower {
public:
    /// Starts anew: a clock of `nominalHz`, nothing known of it.
    ///
    /// @param position  frame that the integral starts from
    /// @param hostNanos host time of that frame
    /// @param usedAfterNanos  how long after its stamp a frame is used, where that is always the same; a new rate then
    ///                  holds for the frames that are not used yet. 0: a frame is used when its position is asked for
    void Start(double nominalHz, double position, uint64_t hostNanos, uint64_t usedAfterNanos = 0) noexcept;

    /// Another measurement of the same integral: another driver or nominal rate. What PositionAt hands out
    /// goes on without a step, and is paid back against the new measurement.
    ///
    /// @param position  the new measurement's first stamp, counted in the integral's own numbering: what it
    /// @param hostNanos and PositionAt(hostNanos) differ by is what will be paid back
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
    /// It contains what is being paid back, 500 ppm at the most. A stamp's rate scalar is its reciprocal (host ticks
    /// a frame over the nominal); the reciprocal of that, taken in double precision, rounds to this float again.
    double RateScalar() const noexcept { return mHeldScalar; }

    /// The measured rate over the nominal, without the paying back; 1.0 until it is known.
    double MeasuredScalar() const noexcept { return mKnown ? mLine.mScalar : 1.0; }

    /// The integral of what was handed out: the frame at host time `hostNanos`, which may lie ahead of the
    /// last stamp. Continuous over all calls, save Start: a new rate holds from the latest time asked for on,
    /// where that lies within a second of the last stamp; or else from the last frame on that is used already.
    double PositionAt(uint64_t hostNanos) const noexcept;

    /// The measured line itself, without the paying back: for judging a phase, not for resampling.
    double MeasuredPositionAt(uint64_t hostNanos) const noexcept;

private:
    static constexpr unsigned kPeriods = 64;

    struct Stamp {
        int64_t mPosition = 0;
        uint64_t mHostNanos = 0;
    };

    /// position = mOrigin.mPosition + mBeyond + nominal x scalar x time since mOrigin
    struct Line {
        Stamp mOrigin;
        double mBeyondFrames = 0;
        double mScalar = 1.0;
    };

    void Forget(double nominalHz) noexcept;
    double FramesLate(const Stamp& stamp) const noexcept;
    void TakeIntoPeriod(const Stamp& stamp) noexcept;
    void ClosePeriod() noexcept;
    void MergePeriods() noexcept;
    void Fit() noexcept;
    void HandOut(uint64_t hostNanos) noexcept;
    double PayBack(uint64_t hostNanos) const noexcept;
    void Hold(uint64_t hostNanos) noexcept;

    double mNominalHz = 0;
    uint64_t mUsedAfterNanos = 0;
    Stamp mLast;
    bool mStamped = false;  // whether mLast is one

    // The measurement: the least late stamp of each period, and of the one that is still open.
    std::array<Stamp, kPeriods> mEarliest;
    unsigned mClosed = 0;
    uint64_t mPeriodNanos = 0;
    Stamp mOpen;
    uint64_t mOpenSince = 0;
    bool mIsOpen = false;
    Line mLine;
    double mScalarError = 1;        // how far mLine.mScalar may lie off, or 1 where that cannot be told
    double mPhaseErrorSeconds = 1;  // how far the line's newest end scatters
    bool mLongerHelps = false;      // whether longer periods would bring that down
    bool mKnown = false;

    // What is handed out: a line since mHeldNanos.
    double mHeldScalar = 1.0;
    double mHeldPosition = 0;
    uint64_t mHeldNanos = 0;
    uint64_t mHandedOutNanos = 0;  // stamp at which it was
    double mRoundingError = 0;
    mutable uint64_t mAskedNanos = 0;
};

}  // namespace platform::vector
