#include "platform/machine/simulated/Driver.h"

#include "platform/machine/simulated/Agenda.h"

#include <cmath>

namespace platform::machine::simulated {

Driver::~Driver()
{
    Stop();
}

void Driver::Start(uint32_t clockID)
{
    Stop();
    mRunning = true;
    mRandom.seed(clockID);
    mCycle = {0, 0, mSettings, clockID};
    // Anywhere but 0: nobody may take a timeline's start for granted.
    mNextFrame = mAnchorFrame = int64_t{clockID} * 100'003;
    mAnchorNanos = mAgenda.NowNanos();
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

void Driver::Run()
{
    if (mSettings != mCycle.mSettings) {
        mAnchorNanos = IdealNanos();
        mAnchorFrame = mNextFrame;
        mCycle.mSettings = mSettings;
    }
    mCycle.mHostNanos = mAgenda.NowNanos();
    mCycle.mSampleTime = mNextFrame;
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

uint64_t Driver::IdealNanos() const
{
    const long double rate = mCycle.mSettings.mRateHz * (1 + mCycle.mSettings.mCrystalPPM * 1e-6L);
    return mAnchorNanos + static_cast<uint64_t>(std::llround((mNextFrame - mAnchorFrame) * 1e9L / rate));
}

}  // namespace platform::machine::simulated
