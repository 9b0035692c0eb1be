// How the line is found. A stamp is late by a wake-up or right, hardly ever early: so of each period only the
// least late one counts, which alone takes away most of the jitter and the stalls. What those of the last 64 periods
// tell of the line is FindStampLine's; nothing is decided by the time that has passed.
//
// Periods grow as the stamps come in: a sixteenth of a second at first, so that good stamps give a rate within
// a second, then twice as long each time that all 64 are full, up to half a second. Longer ones (a crystal drifts
// meanwhile) are used only where lateness is what keeps the slope from being known well.
#include "platform/vector/ClockFollower.h"

#include "platform/vector/StampLine.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace platform::vector {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kFirstPeriodNanos = kSecond / 16;
constexpr uint64_t kUsualPeriodNanos = kSecond / 2;
constexpr uint64_t kLongestPeriodNanos = 8 * kSecond;

constexpr double kKnownError = 2e-6;
constexpr double kGoodError = 0.1e-6;

constexpr double kMostPayBack = 500e-6;
constexpr double kFastPayBackSeconds = 2;   // for what is plainly there
constexpr double kSlowPayBackSeconds = 32;  // for what may be the measurement's own noise
constexpr double kPlainErrors = 8;

double Seconds(uint64_t later, uint64_t earlier) noexcept
{
    return static_cast<double>(static_cast<int64_t>(later - earlier)) * 1e-9;
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
    if (mClosed < kFewestLatePoints && FramesLate(stamp) < 0) mLine = {stamp, 0, mLine.mScalar};
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
    if (mClosed >= kFewestLatePoints) Fit();
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
    static_assert(kPeriods <= kMostLatePoints);
    const Stamp& newest = mEarliest[mClosed - 1];
    std::array<LatePoint, kPeriods> points;
    for (unsigned i = 0; i < mClosed; ++i) {
        const double seconds = Seconds(mEarliest[i].mHostNanos, newest.mHostNanos);
        points[i] = {seconds, seconds - static_cast<double>(mEarliest[i].mPosition - newest.mPosition) / mNominalHz};
    }
    const std::optional<StampLine> line = FindStampLine(std::span(points).first(mClosed));
    if (!line) return;
    const double error = std::max(line->mSlopeError, line->mTurn);
    const bool badMinute = mKnown && error > kKnownError;  // what is known stays, and is not sought for longer
    mLongerHelps = !badMinute && line->mSlopeError > std::max(line->mTurn, kGoodError);
    if (badMinute) return;

    mScalarError = error;
    mPhaseErrorSeconds = line->mPhaseErrorSeconds;
    mLine = {newest, -line->mLateSeconds * mNominalHz, 1 - line->mSlope};
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
