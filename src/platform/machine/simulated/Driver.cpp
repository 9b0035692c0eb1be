#include "platform/machine/simulated/Driver.h"

#include "platform/machine/simulated/Agenda.h"
#include "platform/machine/simulated/Gate.h"

#include <cmath>

namespace platform::machine::simulated {

Driver::~Driver()
{
    Stop();
}

Stretch Driver::Cycle::FramesFrom(uint64_t first) const
{
    return {first, mSeconds, 1 / mSettings.FramesASecond()};
}

CaptureCycle Driver::Cycle::WithChannels(std::span<const CaptureCycle::Channel> channels) const
{
    return {mHostNanos, mSampleTime, mSettings.mSaidRateScalar, mSettings.mRateHz, mSettings.mQuantumFrames,
            mClockID,   channels};
}

void Driver::Start(uint32_t clockID, uint64_t delayNanos)
{
    Stop();
    mRunning = true;
    mRandom.seed(clockID + mSettings.mSeed);
    mCycle = {0, 0, mSettings, clockID};
    // Anywhere but 0: nobody may take a timeline's start for granted.
    mNextFrame = mAnchorFrame = int64_t{clockID} * 100'003;
    mAnchorNanos = mAgenda.NowNanos() + delayNanos;
    ScheduleNext();
}

void Driver::Stop()
{
    mRunning = false;
    mAgenda.Cancel(this);
}

void Driver::Shift(uint64_t nanos)
{
    if (!mRunning) return;
    mAnchorNanos += nanos;
    mAgenda.Cancel(this);
    ScheduleNext();
}

void Driver::Jump(int64_t frames)
{
    mNextFrame += frames;
    mAnchorFrame += frames;
}

void Driver::Run()
{
    if (mSettings != mCycle.mSettings) {
        mAnchorNanos = IdealNanos();
        mAnchorFrame = mNextFrame;
        mCycle.mSettings = mSettings;
    }
    mCycle.mHostNanos = mAgenda.NowNanos();
    mCycle.mSampleTime = mNextFrame;
    mCycle.mSeconds = (static_cast<double>(mAnchorNanos - kStartNanos) + NanosSinceAnchor()) * 1e-9;
    mNextFrame += mCycle.mSettings.mQuantumFrames;
    ScheduleNext();
    mOnCycle(*this);
}

void Driver::ScheduleNext()
{
    const uint64_t jitter = mCycle.mSettings.mJitterNanos;
    const uint64_t late = jitter == 0 ? 0 : mRandom() % (jitter + 1);
    mAgenda.At(IdealNanos() + late, this, [this] { Run(); });
}

double Driver::NanosSinceAnchor() const
{
    return static_cast<double>(mNextFrame - mAnchorFrame) * 1e9 / mCycle.mSettings.FramesASecond();
}

uint64_t Driver::IdealNanos() const
{
    return mAnchorNanos + static_cast<uint64_t>(std::llround(NanosSinceAnchor()));
}

}  // namespace platform::machine::simulated
