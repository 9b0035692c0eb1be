// StampLine: the line that late stamps lie on, and how well they tell it.
// Why: a stamp is late by a wake-up or right. Who fits a line through the midst of such stamps needs a minute to know a
// crystal; the lower edge of them tells it sooner, where they have one.
// Start at FindStampLine. How the line is found is explained at the top of StampLine.cpp.
#pragma once

#include <optional>
#include <span>

namespace platform::vector {

/// A stamp: by how much it is late against the nominal rate, both relative to the newest.
struct LatePoint {
    double mSeconds = 0;
    double mLateSeconds = 0;

    /// Over the line with this slope through the newest stamp.
    double Above(double slope) const noexcept { return mLateSeconds - slope * mSeconds; }
};

struct StampLine {
    double mSlope = 0;              // lateness a second
    double mSlopeError = 1;         // how far the slope may lie off: less than once in a thousand it lies further
    double mTurn = 0;               // how much it changes in a second, beyond what lateness explains
    double mLateSeconds = 0;        // of the line, at the newest stamp
    double mPhaseErrorSeconds = 1;  // how far that scatters
};

constexpr unsigned kMostLatePoints = 64;
constexpr unsigned kFewestLatePoints = 6;

/// @param points  in order of time, kFewestLatePoints .. kMostLatePoints, each the least late of a span of time
/// @return        nothing where too few of them lie together
/// @realtime      yes: no allocation; O(n log n)
std::optional<StampLine> FindStampLine(std::span<const LatePoint> points) noexcept;

}  // namespace platform::vector
