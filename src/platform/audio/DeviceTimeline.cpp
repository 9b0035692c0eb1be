#include "platform/audio/DeviceTimeline.h"

#include "platform/audio/StampLatency.h"
#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace platform::audio {

namespace {

// How a stamp after a gap may lie beside the measured line, for the measurement to go on over the gap.
constexpr double kMostEarlySeconds = 0.2e-3;
constexpr double kMostLateSeconds = 5e-3;
// Of a step between sample times and moments.
constexpr double kMostPaidBackSeconds = 0.1;

pthread_mutex_t sOpenMutex = PTHREAD_MUTEX_INITIALIZER;  // guards opening and closing
// Timelines are never taken out: their number is that of the devices, and readers hold no lock.
std::atomic<DeviceTimeline*> sFirst{nullptr};  // stored under the mutex (release), loaded by readers (acquire)

}  // namespace

DeviceTimeline& DeviceTimeline::Open(AudioDeviceID device)
{
    const uint64_t latencyNanos = StampLatencyNanos();
    const kernel::MutexGuard guard(sOpenMutex);
    DeviceTimeline* timeline = Find(device);
    if (!timeline) {
        timeline = new DeviceTimeline(device);
        timeline->mNext = sFirst.load(std::memory_order_relaxed);
        sFirst.store(timeline, std::memory_order_release);
    }
    if (timeline->mUsers.fetch_add(1, std::memory_order_relaxed) == 0) {
        timeline->mLatencyNanos = latencyNanos;
        timeline->mRunning = timeline->mTimed = false;
        timeline->mTakenCount = 0;
    }
    return *timeline;
}

void DeviceTimeline::Close()
{
    const kernel::MutexGuard guard(sOpenMutex);
    if (mUsers.fetch_sub(1, std::memory_order_relaxed) == 1) mPublished.Withdraw();
}

DeviceTimeline* DeviceTimeline::Find(AudioDeviceID device) noexcept
{
    DeviceTimeline* timeline = sFirst.load(std::memory_order_acquire);
    while (timeline && timeline->mDevice != device) timeline = timeline->mNext;
    return timeline;
}

bool DeviceTimeline::IsOfSameClock(const machine::CaptureCycle& cycle) const noexcept
{
    return mRunning && cycle.mClockID == mClockID && cycle.mRateHz == mRateHz;
}

/// The sample time of a cycle that another of our clients has brought already. Another host time makes it another
/// cycle: then the driver's count has gone back.
std::optional<int64_t> DeviceTimeline::TimeOfKnown(const machine::CaptureCycle& cycle) const noexcept
{
    if (!IsOfSameClock(cycle)) return std::nullopt;
    for (const Taken& taken : std::span(mTaken).first(std::min(mTakenCount, kTaken)))
        if (taken.mDriverTime == cycle.mSampleTime && taken.mHostNanos == cycle.mHostNanos) return taken.mSampleTime;
    return std::nullopt;
}

int64_t DeviceTimeline::Take(const machine::CaptureCycle& cycle) CORVANE_REALTIME
{
    if (const std::optional<int64_t> known = TimeOfKnown(cycle)) return *known;
    const int64_t missed = mRunning ? FramesMissedBefore(cycle) : 0;
    const int64_t sampleTime = mRunning ? mNextSampleTime + missed : cycle.mSampleTime;
    Follow(cycle, sampleTime, IsOfSameClock(cycle) && missed == 0);
    if (!IsOfSameClock(cycle)) mTakenCount = 0;
    mTaken[mTakenCount++ % kTaken] = {cycle.mSampleTime, cycle.mHostNanos, sampleTime};
    mRunning = true;
    mClockID = cycle.mClockID;
    mRateHz = cycle.mRateHz;
    mNextDriverTime = cycle.mSampleTime + cycle.mFrames;
    mNextSampleTime = sampleTime + cycle.mFrames;
    Publish();
    return sampleTime;
}

/// The driver says what is missing. Another one, or one that counts anew or was at rest, cannot: then the time tells.
int64_t DeviceTimeline::FramesMissedBefore(const machine::CaptureCycle& cycle) const noexcept
{
    const int64_t counted = IsOfSameClock(cycle) ? cycle.mSampleTime - mNextDriverTime : -1;
    if (counted >= 0 && !cycle.mResumed) return counted;
    return std::max<int64_t>({counted, FramesPassedBefore(cycle), 0});
}

/// A driver's cycle may begin anywhere in another one's: what is less than a cycle is a phase and not a gap.
int64_t DeviceTimeline::FramesPassedBefore(const machine::CaptureCycle& cycle) const noexcept
{
    if (!mTimed || cycle.mHostNanos == 0) return 0;
    const int64_t passed = std::llround(mFollower.MeasuredPositionAt(cycle.mHostNanos)) - mNextSampleTime;
    return passed > int64_t(cycle.mFrames) ? passed : 0;
}

/// Whether the time of a cycle after a gap is what the gap and the measured rate make it.
bool DeviceTimeline::Agrees(const machine::CaptureCycle& cycle, int64_t sampleTime) const noexcept
{
    const double lateFrames = mFollower.MeasuredPositionAt(cycle.mHostNanos) - double(sampleTime);
    return lateFrames >= -kMostEarlySeconds * mRateHz && lateFrames <= kMostLateSeconds * mRateHz;
}

/// Whether a count has nothing to do any more with the moments of the one before: paying that back would take minutes.
bool DeviceTimeline::IsAnother(const machine::CaptureCycle& cycle, int64_t sampleTime) const noexcept
{
    return std::abs(mFollower.MeasuredPositionAt(cycle.mHostNanos) - double(sampleTime)) >
           kMostPaidBackSeconds * mRateHz;
}

void DeviceTimeline::Follow(const machine::CaptureCycle& cycle, int64_t sampleTime, bool continues) noexcept
{
    if (cycle.mHostNanos == 0) {
        mTimed &= continues;
        return;
    }
    mHostNanos = cycle.mHostNanos;
    const bool starts = !mTimed || IsAnother(cycle, sampleTime);
    if (starts) mFollower.Start(cycle.mRateHz, double(sampleTime), cycle.mHostNanos, mLatencyNanos);
    mTimed = true;
    if (starts || continues || (IsOfSameClock(cycle) && Agrees(cycle, sampleTime)))
        mFollower.AddStamp(sampleTime, cycle.mHostNanos);
    else
        mFollower.Restart(cycle.mRateHz, sampleTime, cycle.mHostNanos);
}

void DeviceTimeline::FollowOn(const machine::CaptureCycle& cycle, int64_t sampleTime) CORVANE_REALTIME
{
    if (mUsers.load(std::memory_order_relaxed) > 1) return;
    mNextDriverTime = cycle.mSampleTime + cycle.mFrames;
    mNextSampleTime = sampleTime + cycle.mFrames;
    Follow(cycle, sampleTime, false);
    Publish();
}

AudioTimeStamp DeviceTimeline::StampOf(int64_t sampleTime) const CORVANE_REALTIME
{
    if (!mTimed) return {.mSampleTime = double(sampleTime), .mRateScalar = 1, .mFlags = kAudioTimeStampSampleTimeValid};
    return {.mSampleTime = double(sampleTime),
            .mHostTime = HostNanosOf(sampleTime) + mLatencyNanos,
            .mRateScalar = 1 / mFollower.RateScalar(),
            .mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid | kAudioTimeStampRateScalarValid};
}

uint64_t DeviceTimeline::HostNanosOf(int64_t sampleTime) const noexcept
{
    const double framesLater = double(sampleTime) - mFollower.PositionAt(mHostNanos);
    return mHostNanos + uint64_t(std::llround(framesLater / mFollower.RateScalar() / mRateHz * 1e9));
}

/// The place that was handed out and not the measured one: whoever places its read head by it is right once the clock
/// has been paid back, since what the integral is still off is paid back to all.
void DeviceTimeline::Publish() noexcept
{
    if (!mTimed) return mPublished.Withdraw();
    mPublished.Publish({mFollower.PositionAt(mHostNanos), mHostNanos + mLatencyNanos,
                        mFollower.RateScalar() * mRateHz * 1e-9, 1 / mFollower.RateScalar()});
}

}  // namespace platform::audio
