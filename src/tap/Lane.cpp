#include "tap/Lane.h"

#include <algorithm>
#include <cmath>

namespace tap {

namespace {

constexpr uint64_t kSecondNanos = 1'000'000'000;
constexpr double kMostPayBack = 500e-6;   // of the ratio: under a hundredth of a semitone
constexpr double kUnityTolerance = 2e-6;  // rates that differ by less count as equal
constexpr double kUnityFrames = 1;        // phase that may be left while they do
constexpr double kApproach = 1.0 / 8;     // of what is left of an error, a block: no overshoot

constexpr double kQueueSeconds = 0.5;  // a pacer that gets no processor for that long loses nothing
constexpr double kQueueRateHz = 192'000;
constexpr double kUsualRateHz = 48'000;

size_t QueueFrames(double rateHz, uint64_t latencyNanos)
{
    return size_t(rateHz * (kQueueSeconds + 2e-9 * double(latencyNanos)));
}

double Hertz(FixedRate rate)
{
    return std::ldexp(double(rate), -int(kRateFractionBits));
}

}  // namespace

Lane::Lane(const Schedule& schedule, uint64_t latencyNanos, const StereoMix& mix, unsigned channels, LaneLog log)
    : mSchedule(schedule),
      mLatencyNanos(latencyNanos),
      mTapRateHz(Hertz(schedule.Rate())),
      mMix(mix),
      mInput(channels, QueueFrames(kQueueRateHz, latencyNanos), QueueFrames(kUsualRateHz, latencyNanos)),
      mLog(log)
{
}

void Lane::RenderBlock(uint64_t firstFrame, float* block)
{
    mEarliest = std::max(mEarliest, firstFrame);
    if (mRunning)
        Run(firstFrame, kBlockFrames, block);
    else
        Current().RingOut(kBlockFrames, block);
    if (!mRunning) StartWithin(firstFrame, block);
    mRendered = firstFrame + kBlockFrames;
}

void Lane::SkipBlocks() noexcept
{
    DiscardFrames(mFramesLeft);
    mSilenceLeft = 0;
    mRunning = mSpliced = false;
    mSkipped = true;
    FallSilent(mRendered);
}

// ---- Cycles

Lane::Next Lane::Classify() const noexcept
{
    const CycleStamp* next = mInput.Next();
    if (!next) return Next::Nothing;
    if (next->mRateHz != mExpected.mRateHz) return Next::OtherRate;
    if (next->mClockID != mExpected.mClockID) return Next::Continues;
    const int64_t gap = next->mSampleTime - mExpected.mSampleTime;
    if (next->mResumed && IsUncounted(*next, gap)) return Next::StartsAnew;
    return gap >= -int64_t(next->mFrames) && gap <= int64_t(next->mRateHz) ? Next::Continues : Next::StartsAnew;
}

/// Whether the gap before a cycle took another time than its frames: a driver that rests together with the capture does
/// not count on, so that only the host clock tells how long the rest was.
bool Lane::IsUncounted(const CycleStamp& stamp, int64_t gap) const noexcept
{
    constexpr double kMostFrames = 2;
    return std::abs(mFollower.PositionAt(stamp.mHostNanos) - double(mEnd + gap)) > kMostFrames;
}

bool Lane::IsLateContinuation(const CycleStamp& stamp) const noexcept
{
    return !stamp.mResumed && stamp.mClockID == mExpected.mClockID && stamp.mRateHz == mExpected.mRateHz &&
           stamp.mSampleTime == mExpected.mSampleTime;
}

void Lane::Expect(const CycleStamp& stamp) noexcept
{
    mEnd += stamp.mFrames;
    mExpected = {stamp.mClockID, stamp.mRateHz, stamp.EndTime()};
}

/// The next cycle's stamp, put right: where the cycle after it comes under the same stamp, a late server delivered
/// this one after its time, and there is no gap before it.
CycleStamp Lane::NextStamp() const noexcept
{
    CycleStamp stamp = *mInput.Next();
    const CycleStamp* after = mInput.AfterNext();
    if (!after || after->mClockID != stamp.mClockID || stamp.mClockID != mExpected.mClockID) return stamp;
    const int64_t overlap = stamp.EndTime() - after->mSampleTime;
    const int64_t gap = stamp.mSampleTime - mExpected.mSampleTime;
    if (overlap <= 0 || gap <= 0) return stamp;
    const int64_t late = std::min(overlap, gap);
    stamp.mSampleTime -= late;
    stamp.mHostNanos -= uint64_t(late) * kSecondNanos / stamp.mRateHz;
    return stamp;
}

/// Goes on with the next cycle, which Classify said continues. Another driver's position says nothing about
/// ours: its frames follow on ours, and its clock is measured from here. So do those of a cycle that came too late
/// for its stamp to be put right: they are frames all the same.
void Lane::BeginCycle() noexcept
{
    const CycleStamp stamp = NextStamp();
    mInput.Begin();
    const bool sameClock = stamp.mClockID == mExpected.mClockID;
    const int64_t gap = sameClock ? stamp.mSampleTime - mExpected.mSampleTime : 0;
    mSilenceLeft = std::max<int64_t>(gap, 0);
    mGapKind = stamp.mResumed ? wire::LogKind::SoundsAfterRest : wire::LogKind::SoundsAfterMissing;
    if (!stamp.mResumed) mMissed += uint32_t(mSilenceLeft);
    mEnd += mSilenceLeft;
    if (sameClock && gap == 0)
        mFollower.AddStamp(mEnd, stamp.mHostNanos);
    else
        mFollower.Restart(stamp.mRateHz, mEnd, stamp.mHostNanos);
    mFramesLeft = stamp.mFrames;
    Expect(stamp);
}

void Lane::DiscardCycle() noexcept
{
    const CycleStamp stamp = *mInput.Next();
    mInput.Begin();
    Expect(stamp);
    mFramesLeft = stamp.mFrames;
    DiscardFrames(mFramesLeft);
}

void Lane::DiscardFrames(int64_t frames) noexcept
{
    mInput.Skip(size_t(frames));
    mFramesLeft -= frames;
    mDiscarded += uint32_t(frames);
}

/// Takes frames of the stretch in hand. @return fewer than asked where it ends
unsigned Lane::Take(float* samples, unsigned frames) noexcept
{
    unsigned taken = 0;
    while (taken < frames) {
        float* place = samples + size_t(taken) * mInput.Channels();
        if (mSilenceLeft > 0) {
            const auto some = unsigned(std::min<int64_t>(mSilenceLeft, frames - taken));
            std::fill_n(place, size_t(some) * mInput.Channels(), 0.0f);
            FallSilent(HeardAt(taken));
            mSilenceLeft -= some;
            taken += some;
            if (mSilenceLeft == 0) Sound(HeardAt(taken), mGapKind);
        } else if (mFramesLeft > 0) {
            const auto some = unsigned(std::min<int64_t>(mFramesLeft, frames - taken));
            mInput.Read(place, some);
            mFramesLeft -= some;
            taken += some;
        } else if (Classify() == Next::Continues) {
            BeginCycle();
        } else {
            break;
        }
    }
    return taken;
}

// ---- The log

uint64_t Lane::HeardAt(unsigned taken) const noexcept
{
    return uint64_t(std::llround(std::max(0.0, mHeardFrom + taken / mHeardRatio)));
}

void Lane::FallSilent(uint64_t frame) noexcept
{
    if (!mSounding) return;
    mSounding = false;
    if (mLog.mRing) mLog.mRing->Log({frame, 0, wire::LogKind::FallsSilent, mLog.mLane});
}

void Lane::Sound(uint64_t frame, wire::LogKind kind) noexcept
{
    if (mSounding) return;
    mSounding = true;
    mSoundsFrom = frame;
    if (mLog.mRing) mLog.mRing->Log({frame, 0, kind, mLog.mLane});
}

// ---- Stretches

void Lane::StartWithin(uint64_t firstFrame, float* block)
{
    const uint64_t blockEnd = firstFrame + kBlockFrames;
    while (const CycleStamp* next = mInput.Next()) {
        const double ratio = next->mRateHz / mTapRateHz;
        if (!Waiting().Prepare(mInput.Channels(), ratio, kBlockFrames)) {
            DiscardCycle();
            continue;
        }
        const uint64_t place = PlaceOf(*next);
        const uint64_t at = std::max(place, mEarliest);
        if (at >= blockEnd) return;

        const double late = double(at - place);
        const bool discards = mSkipped || late > mTapRateHz;
        if (discards && late * ratio >= next->mFrames) {
            DiscardCycle();
            continue;
        }
        BeginStretch(at);
        if (discards) DiscardFrames(std::llround(late * ratio));
        mSkipped = false;
        Run(at, unsigned(blockEnd - at), block + (at - firstFrame) * mInput.Channels());
        return;
    }
    mSkipped = false;
}

/// The tap's frame at which the cycle's first frame goes into its voice, to come out in its right place.
uint64_t Lane::PlaceOf(const CycleStamp& stamp) noexcept
{
    if (mSpliced) return uint64_t(std::max(0.0, std::ceil(mHeardUntil - Waiting().DelayOutputFrames())));
    const double secondsEarlier = double(Waiting().DelayFrames()) / stamp.mRateHz;
    const double halfFrameNanos = 0.5e9 / mTapRateHz;
    return mSchedule.FramesBy(stamp.mHostNanos + mLatencyNanos + uint64_t(halfFrameNanos) -
                              uint64_t(secondsEarlier * kSecondNanos));
}

void Lane::BeginStretch(uint64_t at) noexcept
{
    const CycleStamp stamp = *mInput.Next();
    const double heardFrom = double(at) + Waiting().DelayOutputFrames();
    const bool late = !mSpliced && IsLateContinuation(stamp);
    if (late) mStarved += uint32_t(std::lround(std::max(0.0, heardFrom - mHeardUntil)));
    const bool rested = stamp.mResumed || mExpected.mRateHz == 0;
    Sound(uint64_t(std::llround(heardFrom)), late     ? wire::LogKind::SoundsAfterLateness
                                             : rested ? wire::LogKind::SoundsAfterRest
                                                      : wire::LogKind::SoundsAfterMissing);

    mInput.Begin();
    // What a splice's clock is ahead of its frames stays, as a time: frames of another rate are another unit.
    double ahead = 0;
    if (mSpliced) ahead = (mFollower.PositionAt(stamp.mHostNanos) - double(mEnd)) / mExpected.mRateHz * stamp.mRateHz;
    mFollower.Start(stamp.mRateHz, double(mEnd) + ahead, stamp.mHostNanos);
    mFollower.AddStamp(mEnd, stamp.mHostNanos);
    mFramesLeft = stamp.mFrames;
    Expect(stamp);
    mCurrent = 1 - mCurrent;
    mRunning = true;
    if (mSpliced) Advance(Current().DelayFrames() - (mHeardUntil - double(at)) * Current().NominalRatio());
    mSpliced = false;
}

/// Moves the new voice so many frames into its stretch before it is heard, to the fraction of a frame: sound that
/// goes on at another rate must not be a frame early or late, which would click.
///
/// Whole frames of silence go in before, as many as bring the ratio near its nominal; two pieces, so that it is
/// back at the nominal afterwards.
void Lane::Advance(double inputFrames) noexcept
{
    constexpr unsigned kPieceFrames = kBlockFrames / 2;
    const double nominal = Current().NominalRatio();
    const double usual = 2 * kPieceFrames * nominal;
    if (inputFrames >= usual) return;  // too late to be a splice; the ratio pays it back
    const double silence = std::round(usual - inputFrames);
    const double ratio = (inputFrames + silence) / kPieceFrames - nominal;

    auto silenceLeft = unsigned(silence);
    float unheard[kPieceFrames * 2] = {};
    for (const double pieceRatio : {ratio, nominal}) {
        const unsigned needed = Current().InputFramesFor(kPieceFrames, pieceRatio);
        const unsigned silent = std::min(silenceLeft, needed);
        float* input = Current().Input();
        std::fill_n(input, size_t(needed) * mInput.Channels(), 0.0f);
        Take(input + size_t(silent) * mInput.Channels(), needed - silent);
        Current().Render(kPieceFrames, pieceRatio, unheard);
        silenceLeft -= silent;
    }
}

void Lane::EndStretch(uint64_t frame, unsigned frames, double playedFrames) noexcept
{
    mRunning = false;
    mSpliced = Classify() == Next::OtherRate;
    mHeardUntil = double(frame) + playedFrames + Current().DelayOutputFrames();
    if (!mSpliced) FallSilent(uint64_t(std::llround(mHeardUntil)));
    mEarliest = frame + std::min(frames, unsigned(std::ceil(playedFrames)));
    Current().Release(frames - std::min(frames, unsigned(playedFrames)));
}

// ---- Sound

void Lane::Run(uint64_t frame, unsigned frames, float* output) noexcept
{
    const double ratio = RatioFor(frame, frames);
    const double phase = Current().Phase();
    const unsigned needed = Current().InputFramesFor(frames, ratio);
    float* input = Current().Input();
    mHeardRatio = ratio;
    mHeardFrom = double(frame) - phase / ratio + Current().DelayOutputFrames();
    const unsigned taken = Take(input, needed);
    std::fill(input + size_t(taken) * mInput.Channels(), input + size_t(needed) * mInput.Channels(), 0.0f);
    Current().Render(frames, ratio, output);
    if (taken < needed) EndStretch(frame, frames, std::max(0.0, (taken - phase) / ratio));
}

/// Input frames an output frame, such that the lane moves to where the clocks say it should be.
///
/// Where they agree the aim is the nearest whole frame, and there the ratio is exactly 1: the resampler then
/// passes samples as they are.
double Lane::RatioFor(uint64_t frame, unsigned frames) noexcept
{
    const double nominal = Current().NominalRatio();
    const double scalar = MeasuredScalar(mSchedule.TimeOf(frame) - mLatencyNanos);
    const double position = double(Consumed()) + Current().Phase();
    const double wantedEnd = WantedPosition(frame + frames);

    double advance;
    if (nominal == 1 && std::abs(scalar - 1) <= kUnityTolerance) {
        const double atUnity = position + frames;
        if (Current().Phase() == 0 && std::abs(wantedEnd - atUnity) <= kUnityFrames) return 1;
        advance = frames + kApproach * (std::round(wantedEnd) - atUnity);
    } else {
        const double wanted = WantedPosition(frame);
        advance = wantedEnd - wanted + kApproach * (wanted - position);
    }
    const double measured = nominal * scalar * frames;
    const double most = nominal * kMostPayBack * frames;
    return std::clamp(advance, measured - most, measured + most) / frames;
}

/// The device's own rate over its nominal one, without anything that is being paid back; 1 until it is known.
double Lane::MeasuredScalar(uint64_t nanos) const noexcept
{
    if (!mFollower.IsKnown()) return 1;
    const double second = mFollower.MeasuredPositionAt(nanos + kSecondNanos) - mFollower.MeasuredPositionAt(nanos);
    return second / mExpected.mRateHz;
}

/// The position of the next frame to go in, at the moment when `frame` comes out.
double Lane::WantedPosition(uint64_t frame) noexcept
{
    return mFollower.PositionAt(mSchedule.TimeOf(frame) - mLatencyNanos) + Current().DelayFrames();
}

}  // namespace tap
