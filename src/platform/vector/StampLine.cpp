// Two lines are tried.
//
// Least squares, drawn again without the points that lie far above it. What the others scatter says how well its slope
// is known. Off by 1 / sqrt(N) of the scatter after N stamps, whatever they scatter like.
//
// The lower edge. Where stamps are never early, the true line lies below all of them, as near as can be: with so many
// stamps a second of lateness beginning above it, a line is as likely as exp(density x its height over the middle)
// where no stamp lies below it, and not at all where one does. The mean of all slopes, so weighed, is the slope; how
// they spread is how well it is known. Off by 1 / N only. It is used where it is known better, and the scatter shows
// that there is an edge: it leans to the late side. Noise to both sides leans to the early side, once the least late
// stamp of each span is all that is left of it, and would be taken for an edge that is known far too well.
#include "platform/vector/StampLine.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>

namespace platform::vector {

namespace {

constexpr unsigned kFitRounds = 4;
constexpr double kLateMedians = 6;
constexpr double kLateSeconds = 1e-6;

constexpr double kEdgeSigmas = 5;  // its tails are exponential
constexpr unsigned kFewestForAnEdge = 12;
constexpr double kLeastSkew = 0.9;
constexpr unsigned kContacts = 3;       // points that may lie on the edge and say nothing of the density
constexpr double kLeastSeconds = 2e-9;  // stamps are whole nanoseconds
constexpr double kFaintest = 40;        // logarithm of a likelihood that is none
constexpr double kTurnSigmas = 3;       // that halves may differ by

using Points = std::span<const LatePoint>;

using Used = std::bitset<kMostLatePoints>;

struct Regression {
    double mMeanX = 0;
    double mMeanY = 0;
    double mSlope = 0;
    double mSpreadX = 0;  // sum of squares about the mean
    double mScatter = 0;  // of one point about the line, seconds
    double mTurn = 0;     // how much steeper the later half is than the earlier
    double mSkew = 0;     // of the scatter
    unsigned mUsed = 0;

    double Beyond(double x, double y) const noexcept { return y - mMeanY - mSlope * (x - mMeanX); }
};

Regression LeastSquares(Points points, const Used& used) noexcept
{
    Regression line;
    for (size_t i = 0; i < points.size(); ++i) {
        if (!used[i]) continue;
        ++line.mUsed;
        line.mMeanX += points[i].mSeconds;
        line.mMeanY += points[i].mLateSeconds;
    }
    line.mMeanX /= line.mUsed;
    line.mMeanY /= line.mUsed;
    double product = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        if (!used[i]) continue;
        line.mSpreadX += (points[i].mSeconds - line.mMeanX) * (points[i].mSeconds - line.mMeanX);
        product += (points[i].mSeconds - line.mMeanX) * (points[i].mLateSeconds - line.mMeanY);
    }
    line.mSlope = product / line.mSpreadX;
    double squares = 0, cubes = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        if (!used[i]) continue;
        const double beyond = line.Beyond(points[i].mSeconds, points[i].mLateSeconds);
        squares += beyond * beyond;
        cubes += beyond * beyond * beyond;
    }
    line.mScatter = line.mUsed > 2 ? std::sqrt(squares / (line.mUsed - 2)) : 1;
    line.mSkew = cubes / line.mUsed / std::pow(squares / line.mUsed, 1.5);
    return line;
}

double Median(std::array<double, kMostLatePoints>& values, size_t count) noexcept
{
    const auto middle = values.begin() + count / 2;
    std::nth_element(values.begin(), middle, values.begin() + count);
    return *middle;
}

/// The points that do not lie far above the line, as the middle one of all tells far.
Used NotLate(Points points, const Regression& line) noexcept
{
    std::array<double, kMostLatePoints> beyond;
    for (size_t i = 0; i < points.size(); ++i) beyond[i] = line.Beyond(points[i].mSeconds, points[i].mLateSeconds);
    std::array<double, kMostLatePoints> sorted = beyond;
    const double middle = Median(sorted, points.size());
    for (size_t i = 0; i < points.size(); ++i) sorted[i] = std::abs(beyond[i] - middle);
    const double limit = middle + kLateMedians * Median(sorted, points.size()) + kLateSeconds;

    Used used;
    for (size_t i = 0; i < points.size(); ++i) used[i] = beyond[i] <= limit;
    return used;
}

Regression RobustLine(Points points) noexcept
{
    Used used;
    for (size_t i = 0; i < points.size(); ++i) used.set(i);
    Regression line = LeastSquares(points, used);
    for (unsigned round = 1; round < kFitRounds && points.size() > kFewestLatePoints; ++round) {
        const Used next = NotLate(points, line);
        if (next == used) break;
        used = next;
        line = LeastSquares(points, used);
    }
    const Used earlier((uint64_t{1} << points.size() / 2) - 1);
    line.mTurn = LeastSquares(points, used & ~earlier).mSlope - LeastSquares(points, used & earlier).mSlope;
    return line;
}

/// The points that lines may touch which have all points above them, in order: slopes between them only grow.
class LowerHull {
public:
    explicit LowerHull(Points points) noexcept
    {
        for (const LatePoint& point : points) {
            while (mCount > 1 && Slope(mPoints[mCount - 1], point) <= SlopeTo(mCount - 1)) --mCount;
            mPoints[mCount++] = point;
        }
    }
    unsigned Count() const noexcept { return mCount; }
    const LatePoint& operator[](unsigned i) const noexcept { return mPoints[i]; }
    /// Of the side that ends in a corner.
    double SlopeTo(unsigned i) const noexcept { return Slope(mPoints[i - 1], mPoints[i]); }
    /// Of the side over `x`, between the first corner and the last.
    double SlopeOver(double x) const noexcept
    {
        unsigned i = 1;
        while (i + 1 < mCount && mPoints[i].mSeconds < x) ++i;
        return SlopeTo(i);
    }

private:
    static double Slope(const LatePoint& from, const LatePoint& to) noexcept
    {
        return (to.mLateSeconds - from.mLateSeconds) / (to.mSeconds - from.mSeconds);
    }

    std::array<LatePoint, kMostLatePoints> mPoints;
    unsigned mCount = 0;
};

/// How likely slopes are, gathered from stretches on which the logarithm of the likelihood is a line.
class Likelihood {
public:
    void Add(double from, double to, double logFrom, double logTo) noexcept
    {
        const double width = to - from, z = logTo - logFrom, e0 = std::exp(logFrom), e1 = std::exp(logTo);
        double whole = e0 * (1 + z / 2), first = e0 * (1. / 2 + z / 3), second = e0 * (1. / 3 + z / 4);
        if (std::abs(z) > 1e-2) {
            whole = (e1 - e0) / z;
            first = (e1 - whole) / z;
            second = (e1 - 2 * first) / z;
        }
        mWhole += width * whole;
        mFirst += width * (from * whole + width * first);
        mSecond += width * (from * from * whole + 2 * from * width * first + width * width * second);
    }
    double Mean() const noexcept { return mFirst / mWhole; }
    double Deviation() const noexcept { return std::sqrt(std::max(0.0, mSecond / mWhole - Mean() * Mean())); }

private:
    double mWhole = 0, mFirst = 0, mSecond = 0;
};

/// Points a second of lateness just above the edge with `slope`, rather too few than too many.
double DensityAbove(Points points, double slope) noexcept
{
    std::array<double, kMostLatePoints> above;
    const size_t count = points.size();
    std::ranges::transform(points, above.begin(), [&](const LatePoint& point) { return point.Above(slope); });
    std::sort(above.begin(), above.begin() + count);
    const size_t used = std::min(count / 2 + kContacts, count);
    return (static_cast<double>(used) - 2) / (above[used - 1] - above[0] + kLeastSeconds);
}

struct Edge {
    double mSlope;
    double mSlopeDeviation;
    double mPhaseDeviation;
};

Edge EdgeUnder(Points points) noexcept
{
    const LowerHull hull(points);
    const double middle = (points.front().mSeconds + points.back().mSeconds) / 2;
    // Slopes are counted from the likeliest, heights from the line with that slope through the first corner.
    const double likeliest = hull.SlopeOver(middle);
    const double density = DensityAbove(points, likeliest);
    const unsigned last = hull.Count() - 1;
    const auto turnTo = [&](unsigned i) { return hull.SlopeTo(i) - likeliest; };
    const auto logOf = [&](const LatePoint& corner, double turn) {
        return density * (corner.Above(likeliest) - hull[0].Above(likeliest) - turn * (corner.mSeconds - middle));
    };
    double most = -INFINITY;
    for (unsigned i = 1; i <= last; ++i) most = std::max(most, logOf(hull[i], turnTo(i)));

    // A line that turns touches one corner after the other.
    Likelihood likelihood;
    for (unsigned i = 0; i <= last; ++i) {
        const double fade = kFaintest / (density * std::abs(hull[i].mSeconds - middle));
        const double from = i > 0 ? turnTo(i) : turnTo(1) - fade;
        const double to = i < last ? turnTo(i + 1) : from + fade;
        likelihood.Add(from, to, logOf(hull[i], from) - most, logOf(hull[i], to) - most);
    }
    const double deviation = likelihood.Deviation();
    return {likeliest + likelihood.Mean(), deviation, 1 / density - deviation * middle};
}

/// How much the slope changes while it is going to be held, or between the halves where those are longer. Stamps
/// that a server has smoothed scatter little while its own filter still swings; it shows in this alone.
double InASecond(double turn, Points points) noexcept
{
    const double halfSeconds = (points.back().mSeconds - points.front().mSeconds) / 2;
    return std::isnan(turn) ? 1 : std::abs(turn) / std::min(halfSeconds, 1.0);
}

/// Between the edges of the halves, beyond what lateness explains: those are known far worse than the edge of all.
double TurnOfEdge(Points points) noexcept
{
    const Edge earlier = EdgeUnder(points.first(points.size() / 2));
    const Edge later = EdgeUnder(points.subspan(points.size() / 2));
    const double noise = kTurnSigmas * std::hypot(earlier.mSlopeDeviation, later.mSlopeDeviation);
    return std::max(0.0, std::abs(later.mSlope - earlier.mSlope) - noise);
}

StampLine Through(Points points, const Regression& line) noexcept
{
    // Few points may scatter little by chance, and they are looked at again and again until they do.
    const double sigmas = 5 + 25.0 / (line.mUsed - 2);
    return {.mSlope = line.mSlope,
            .mSlopeError = sigmas * line.mScatter / std::sqrt(line.mSpreadX),
            .mTurn = InASecond(line.mTurn, points),
            .mLateSeconds = -line.Beyond(0, 0),
            .mPhaseErrorSeconds = 2 * line.mScatter / std::sqrt(line.mUsed)};
}

StampLine Under(Points points, const Edge& edge) noexcept
{
    double least = INFINITY;
    for (const LatePoint& point : points) least = std::min(least, point.Above(edge.mSlope));
    return {.mSlope = edge.mSlope,
            .mSlopeError = kEdgeSigmas * edge.mSlopeDeviation,
            .mTurn = InASecond(TurnOfEdge(points), points),
            .mLateSeconds = least,
            .mPhaseErrorSeconds = edge.mPhaseDeviation};
}

}  // namespace

std::optional<StampLine> FindStampLine(std::span<const LatePoint> points) noexcept
{
    const Regression regression = RobustLine(points);
    if (regression.mUsed < kFewestLatePoints) return std::nullopt;
    const StampLine line = Through(points, regression);
    if (points.size() < kFewestForAnEdge || regression.mSkew < kLeastSkew) return line;
    const Edge edge = EdgeUnder(points);
    return kEdgeSigmas * edge.mSlopeDeviation < line.mSlopeError ? Under(points, edge) : line;
}

}  // namespace platform::vector
