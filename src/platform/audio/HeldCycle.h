// HeldCycle: a cycle that came after a gap, put by until the next one shows where it belongs.
// Why: a late server may deliver a cycle under the stamp of the next. Then there is no gap before it, and its frames
// must not be taken for later ones than they are.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"

#include <cstdint>
#include <vector>

namespace platform::audio {

class HeldCycle {
public:
    /// Allocates room for cycles of so many channels and frames.
    HeldCycle(size_t channels, size_t frames) : mMostFrames(frames), mSamples(channels * frames), mChannels(channels) {}

    /// Puts a cycle by, with its sound. @return false, with nothing done, where there is no room for it
    ///
    /// @param gap  frames that are missing before it, by its stamp
    bool Hold(const machine::CaptureCycle& cycle, int64_t gap) CORVANE_REALTIME;

    bool IsHolding() const noexcept { return mHolding; }

    /// Gives the cycle back, which stays valid until the next Hold: moved back by what it and `after`, which came next,
    /// have in common, since both cannot be right.
    const machine::CaptureCycle& Release(const machine::CaptureCycle& after) CORVANE_REALTIME;

private:
    const size_t mMostFrames;
    std::vector<float> mSamples;
    std::vector<machine::CaptureCycle::Channel> mChannels;
    machine::CaptureCycle mCycle{};
    int64_t mGap = 0;
    bool mHolding = false;
};

}  // namespace platform::audio
