// How the line is found. A stamp is late by a wake-up or right, hardly ever early: so of each period only the
// least late one counts, which alone takes away most of the jitter and the stalls. Through those of the last
// 32 periods goes a line of least squares, drawn again without the ones that still lie late. What they scatter
// around it says how well its slope is known; nothing is decided by the time that has passed.
//
// Periods grow as the stamps come in: a sixteenth of a second at first, so that good stamps give a rate within
// a second, then twice as long each time that all 32 are full, up to a second. Longer ones (a crystal drifts
// meanwhile) are used only where scatter is what keeps the slope from being known well.
#include "platform/vector/ClockFollower.h"

#include <algorithm>
#include <bitset>
#include <cmath>

namespace platform::vector {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kFirstPeriodNanos = kSecond / 16;
constexpr uint64_t kUsualPeriodNanos = kSecond;
constexpr uint64_t kLongestPeriodNanos = 16 * kSecond;

constexpr double kKnownError = 2e-6;
constexpr double kGoodError = 0.1e-6;
constexpr unsigned kFewestPeriods = 6;

constexpr double kMostPayBack = 500e-6;
constexpr double kFastPayBackSeconds = 2;   // for what is plainly there
constexpr double kSlowPayBackSeconds = 32;  // for what may be the measurement's own noise
constexpr double kPlainErrors = 8;

constexpr unsigned kFitRounds = 4;
constexpr double kLateMedians = 6;
constexpr double kLateSeconds = 1e-6;

double Seconds(uint64_t later, uint64_t earlier) noexcept
{
    return static_cast<double>(static_cast<int64_t>(later - earlier)) * 1e-9;
}

using Used = std::bitset<64>;

/// Lateness over time: y seconds late at x seconds, both relative to the newest point.
struct Points {
    std::array<double, 64> mX;
    std::array<double, 64> mY;
    unsigned mCount;
};

struct Regression {
    double mMeanX = 0;
    double mMeanY = 0;
    double mSlope = 0;
    double mSpreadX = 0;  // sum of squares about the mean
    double mScatter = 0;  // of one point about the line, seconds
    double mTurn = 0;     // how much steeper the later half is than the earlier
    unsigned mUsed = 0;

    double Beyond(double x, double y) const noexcept { return y - mMeanY - mSlope * (x - mMeanX); }
};

Regression LeastSquares(const Points& points, const Used& used) noexcept
{
    Regression line;
    for (unsigned i = 0; i < points.mCount; ++i) {
        if (!used[i]) continue;
        ++line.mUsed;
        line.mMeanX += points.mX[i];
        line.mMeanY += points.mY[i];
    }
    line.mMeanX /= line.mUsed;
    line.mMeanY /= line.mUsed;
    double product = 0;
    for (unsigned i = 0; i < points.mCount; ++i) {
        if (!used[i]) continue;
        line.mSpreadX += (points.mX[i] - line.mMeanX) * (points.mX[i] - line.mMeanX);
        product += (points.mX[i] - line.mMeanX) * (points.mY[i] - line.mMeanY);
    }
    line.mSlope = product / line.mSpreadX;
    double squares = 0;
    for (unsigned i = 0; i < points.mCount; ++i)
        if (used[i]) squares += std::pow(line.Beyond(points.mX[i], points.mY[i]), 2);
    line.mScatter = line.mUsed > 2 ? std::sqrt(squares / (line.mUsed - 2)) : 1;
    return line;
}

double Median(std::array<double, 64>& values, unsigned count) noexcept
{
    const auto middle = values.begin() + count / 2;
    std::nth_element(values.begin(), middle, values.begin() + count);
    return *middle;
}

/// The points that do not lie far above the line, as the middle one of all tells far.
Used NotLate(const Points& points, const Regression& line) noexcept
{
    std::array<double, 64> beyond;
    for (unsigned i = 0; i < points.mCount; ++i) beyond[i] = line.Beyond(points.mX[i], points.mY[i]);
    std::array<double, 64> sorted = beyond;
    const double middle = Median(sorted, points.mCount);
    for (unsigned i = 0; i < points.mCount; ++i) sorted[i] = std::abs(beyond[i] - middle);
    const double limit = middle + kLateMedians * Median(sorted, points.mCount) + kLateSeconds;

    Used used;
    for (unsigned i = 0; i < points.mCount; ++i) used[i] = beyond[i] <= limit;
    return used;
}

Regression RobustLine(const Points& points) noexcept
{
    Used used;
    for (unsigned i = 0; i < points.mCount; ++i) used.set(i);
    Regression line = LeastSquares(points, used);
    for (unsigned round = 1; round < kFitRounds && points.mCount > kFewestPeriods; ++round) {
        const Used next = NotLate(points, line);
        if (next == used) break;
        used = next;
        line = LeastSquares(points, used);
    }
    const Used earlier((uint64_t{1} << points.mCount / 2) - 1);
    line.mTurn = LeastSquares(points, used & ~earlier).mSlope - LeastSquares(points, used & earlier).mSlope;
    return line;
}

/// How much the slope changes while it is going to be held, or between the halves where those are longer. Stamps
/// that a server has smoothed scatter little while its own filter still swings; it shows in this alone.
double TurnInASecond(const Regression& line, const Points& points) noexcept
{
    const double halfSeconds = (points.mX[points.mCount - 1] - points.mX[0]) / 2;
    return std::isnan(line.mTurn) ? 1 : std::abs(line.mTurn) / std::min(halfSeconds, 1.0);
}

}  // namespace

void ClockFollower::Start(double nominalHz, double position, uint64_t hostNanos, uint64_t usedAfterNanos) noexcept
{
    Forget(nominalHz);
    mUsedAfterNanos = usedAfterNanos;
    mLine = {{static_cast<int64_t>(std::floor(position)), hostNanos}, position - std::floor(position), 1.0};
    mHeldPosition = position;
    mHeldNanos = hostNanos;
    mAskedNanos = hostNanos;
    mRoundingError = 0;
}

void ClockFollower::Restart(double nominalHz, int64_t position, uint64_t hostNanos) noexcept
{
    Hold(hostNanos);
    Forget(nominalHz);
    AddStamp(position, hostNanos);
}

void ClockFollower::Forget(double nominalHz) noexcept
{
    mNominalHz = nominalHz;
    mStamped = false;
    mClosed = 0;
    mPeriodNanos = kFirstPeriodNanos;
    mIsOpen = false;
    mScalarError = 1;
    mLongerHelps = false;
    mPhaseErrorSeconds = 1;
    mKnown = false;
    mHeldScalar = 1.0;
}

void ClockFollower::AddStamp(int64_t position, uint64_t hostNanos) noexcept
{
    if (mStamped && (position <= mLast.mPosition || hostNanos <= mLast.mHostNanos)) return;
    const bool first = !mStamped;
    mLast = {position, hostNanos};
    mStamped = true;
    if (first) mLine = {mLast, 0, 1.0};

    if (mIsOpen && hostNanos - mOpenSince >= mPeriodNanos) ClosePeriod();
    TakeIntoPeriod(mLast);
    const bool known = mScalarError < kKnownError;
    if (known && (!mKnown || hostNanos - mHandedOutNanos >= kSecond)) {
        mKnown = true;
        HandOut(hostNanos);
    }
}

double ClockFollower::PositionAt(uint64_t hostNanos) const noexcept
{
    mAskedNanos = std::max(mAskedNanos, hostNanos);
    return mHeldPosition + Seconds(hostNanos, mHeldNanos) * mNominalHz * mHeldScalar;
}

double ClockFollower::MeasuredPositionAt(uint64_t hostNanos) const noexcept
{
    const double since = Seconds(hostNanos, mLine.mOrigin.mHostNanos) * mNominalHz * mLine.mScalar;
    return static_cast<double>(mLine.mOrigin.mPosition) + (mLine.mBeyondFrames + since);
}

/// How many frames the stamp is late against the line, from small differences only: positions are large.
double ClockFollower::FramesLate(const Stamp& stamp) const noexcept
{
    const Stamp& origin = mLine.mOrigin;
    return Seconds(stamp.mHostNanos, origin.mHostNanos) * mNominalHz * mLine.mScalar + mLine.mBeyondFrames -
           static_cast<double>(stamp.mPosition - origin.mPosition);
}

void ClockFollower::TakeIntoPeriod(const Stamp& stamp) noexcept
{
    if (!mIsOpen) mOpenSince = stamp.mHostNanos;
    if (!mIsOpen || FramesLate(stamp) < FramesLate(mOpen)) mOpen = stamp;
    mIsOpen = true;
    // Until there is a line, the least late stamp of all is the best that can be said of the phase.
    if (mClosed < kFewestPeriods && FramesLate(stamp) < 0) mLine = {stamp, 0, mLine.mScalar};
}

void ClockFollower::ClosePeriod() noexcept
{
    if (mClosed == kPeriods) {
        const bool longer = mPeriodNanos < kUsualPeriodNanos || (mPeriodNanos < kLongestPeriodNanos && mLongerHelps);
        if (longer)
            MergePeriods();
        else
            std::shift_left(mEarliest.begin(), mEarliest.begin() + mClosed--, 1);
    }
    mEarliest[mClosed++] = mOpen;
    mIsOpen = false;
    if (mClosed >= kFewestPeriods) Fit();
}

void ClockFollower::MergePeriods() noexcept
{
    for (unsigned i = 0; i < kPeriods / 2; ++i) {
        const Stamp& earlier = mEarliest[2 * i];
        const Stamp& later = mEarliest[2 * i + 1];
        mEarliest[i] = FramesLate(later) < FramesLate(earlier) ? later : earlier;
    }
    mClosed = kPeriods / 2;
    mPeriodNanos *= 2;
}

void ClockFollower::Fit() noexcept
{
    const Stamp& newest = mEarliest[mClosed - 1];
    Points points;
    points.mCount = mClosed;
    for (unsigned i = 0; i < mClosed; ++i) {
        const double frames = static_cast<double>(mEarliest[i].mPosition - newest.mPosition);
        points.mX[i] = Seconds(mEarliest[i].mHostNanos, newest.mHostNanos);
        points.mY[i] = points.mX[i] - frames / mNominalHz;
    }
    const Regression line = RobustLine(points);
    if (line.mUsed < kFewestPeriods) return;

    // Few points may scatter little by chance, and they are looked at again and again until they do.
    const double sigmas = 5 + 25.0 / (line.mUsed - 2);
    const double scattered = sigmas * line.mScatter / std::sqrt(line.mSpreadX);
    const double turned = TurnInASecond(line, points);
    const double error = std::max(scattered, turned);
    const bool badMinute = mKnown && error > kKnownError;  // what is known stays, and is not sought for longer
    mLongerHelps = !badMinute && scattered > std::max(turned, kGoodError);
    if (badMinute) return;

    mScalarError = error;
    mPhaseErrorSeconds = 2 * line.mScatter / std::sqrt(line.mUsed);
    mLine = {newest, line.Beyond(0, 0) * mNominalHz, 1 - line.mSlope};
}

/// Goes on from the first place that a new rate can change.
void ClockFollower::Hold(uint64_t hostNanos) noexcept
{
    const uint64_t from = mUsedAfterNanos ? std::max(hostNanos - mUsedAfterNanos, mHeldNanos)
                                          : std::max(hostNanos, std::min(mAskedNanos, hostNanos + kSecond));
    mHeldPosition = PositionAt(from);
    mHeldNanos = from;
}

/// A new rate: the measured one, and what brings the integral onto the measured line.
void ClockFollower::HandOut(uint64_t hostNanos) noexcept
{
    Hold(hostNanos);
    mHandedOutNanos = hostNanos;

    const double wanted = mLine.mScalar + PayBack(mHeldNanos) + mRoundingError;
    mHeldScalar = static_cast<float>(wanted);
    mRoundingError = wanted - mHeldScalar;
}

/// What the carried rounding error will mend by itself is not paid a second time.
double ClockFollower::PayBack(uint64_t hostNanos) const noexcept
{
    const double owed = (MeasuredPositionAt(hostNanos) - mHeldPosition) / mNominalHz - mRoundingError;
    const double noise = kPlainErrors * mPhaseErrorSeconds;
    const double unsure = std::clamp(owed, -noise, noise);
    return std::clamp((owed - unsure) / kFastPayBackSeconds + unsure / kSlowPayBackSeconds, -kMostPayBack,
                      kMostPayBack);
}

}  // namespace platform::vector
