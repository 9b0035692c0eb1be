#include "platform/audio/HeldCycle.h"

#include <algorithm>

namespace platform::audio {

bool HeldCycle::Hold(const machine::CaptureCycle& cycle, int64_t gap) CORVANE_REALTIME
{
    const size_t channels = cycle.mChannels.size();
    if (cycle.mFrames > mMostFrames || channels > mChannels.size()) return false;
    float* place = mSamples.data();
    for (size_t i = 0; i < channels; ++i, place += cycle.mFrames) {
        std::copy_n(cycle.mChannels[i].mSamples, cycle.mFrames, place);
        mChannels[i] = {cycle.mChannels[i].mPosition, place};
    }
    mCycle = cycle;
    mCycle.mChannels = std::span(mChannels).first(channels);
    mGap = gap;
    mHolding = true;
    return true;
}

const machine::CaptureCycle& HeldCycle::Release(const machine::CaptureCycle& after) CORVANE_REALTIME
{
    mHolding = false;
    const bool sameClock = after.mClockID == mCycle.mClockID && after.mRateHz == mCycle.mRateHz;
    const int64_t shared = sameClock ? mCycle.mSampleTime + mCycle.mFrames - after.mSampleTime : 0;
    const int64_t late = std::clamp<int64_t>(shared, 0, mGap);
    mCycle.mSampleTime -= late;
    if (mCycle.mHostNanos) mCycle.mHostNanos -= uint64_t(late) * 1'000'000'000 / mCycle.mRateHz;
    return mCycle;
}

}  // namespace platform::audio
