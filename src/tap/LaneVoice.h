// LaneVoice: a resampler on interleaved frames that adds to what is there and can ring out.
// Why: where frames of one rate end and those of another begin, the old filter still holds the last frames and
// the new one is not full yet. Two voices that overlap there make one continuous sound.
// Start at Prepare.
#pragma once

#include "platform/vector/Resampler.h"

#include <cstddef>
#include <vector>

namespace tap {

class LaneVoice {
public:
    /// Makes ready for a new stretch of sound: silence behind it, phase 0.
    ///
    /// @param nominalRatio  input frames an output frame
    /// @param mostFrames    the most of one Render
    /// @return              false where that ratio cannot be had
    /// @realtime            only where the ratio is the one of last time; allocates otherwise
    bool Prepare(unsigned channels, double nominalRatio, unsigned mostFrames);

    double NominalRatio() const noexcept { return mNominalRatio; }
    /// Frames of input that go in before a frame comes out, in output frames.
    double DelayOutputFrames() const noexcept { return mResampler.DelayFrames() / mNominalRatio; }
    unsigned DelayFrames() const noexcept { return mResampler.DelayFrames(); }
    double Phase() const noexcept { return mResampler.Phase(); }
    unsigned InputFramesFor(unsigned frames, double ratio) const noexcept
    {
        return mResampler.InputFramesFor(frames, ratio);
    }

    /// Room for the InputFramesFor(...) interleaved frames that Render takes next.
    float* Input() noexcept { return mInterleaved.data(); }

    /// Adds `frames` interleaved frames to `output`, from what Input holds.
    void Render(unsigned frames, double ratio, float* output) noexcept;

    /// What is left in the filter is to be heard; no more input comes. Some of it was heard by now where the
    /// last block was filled up with `silentFrames` of output.
    void Release(unsigned silentFrames) noexcept;
    /// Adds the next frames of what rings out, if anything does.
    void RingOut(unsigned frames, float* output) noexcept;

private:
    unsigned mChannels = 0;
    double mNominalRatio = 0;
    unsigned mTailFrames = 0;  // of output, still to ring out
    platform::vector::Resampler mResampler;
    std::vector<float> mInterleaved, mPlanarIn, mPlanarOut;
    size_t mMostInput = 0, mMostOutput = 0;
};

}  // namespace tap
