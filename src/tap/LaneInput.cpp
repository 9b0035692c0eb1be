#include "tap/LaneInput.h"

#include <algorithm>

namespace tap {

void LaneInput::Write(const platform::machine::CaptureCycle& cycle, const StereoMix& mix) CORVANE_REALTIME
{
    const platform::kernel::RealtimeScope scope;
    if (cycle.mFrames > mFrames.Capacity() - mFrames.Available() || !mStamps.HasRoom()) {
        mDropped.fetch_add(cycle.mFrames, std::memory_order_relaxed);
        return;
    }
    constexpr unsigned kPieceFrames = 256;  // a cycle may be longer than any buffer one would set aside
    float piece[kPieceFrames * 2];
    for (unsigned done = 0; done < cycle.mFrames;) {
        const unsigned frames = std::min(kPieceFrames, cycle.mFrames - done);
        mix.Mix(cycle.mChannels, done, frames, piece);
        mFrames.Write(piece, frames);  // fits: there was room for all, and only the reader changes that
        done += frames;
    }
    mStamps.Push({cycle.mHostNanos, cycle.mSampleTime, cycle.mRateHz, cycle.mFrames, cycle.mClockID, cycle.mResumed});
}

}  // namespace tap
