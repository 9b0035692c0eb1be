// ResamplingUnit: one input element, one output element, and a resampler between the two.
// Why: a converter and a varispeed differ only in where their ratio and delay come from.
#pragma once

#include "platform/audio/units/Buffers.h"
#include "platform/audio/units/Unit.h"
#include "platform/vector/Resampler.h"

namespace platform::audio::units {

class ResamplingUnit : public Unit {
public:
    /// How much later than the next frame that it makes the next one that it pulls will come out, in seconds: the
    /// delay, less the part of a frame that is left over. Initialized only. @realtime yes
    double PullDelaySeconds() const noexcept;

protected:
    ResamplingUnit() : Unit(1, 1) {}

    const AudioStreamBasicDescription& InputFormat() const noexcept { return mInputs[0].mFormat; }
    const AudioStreamBasicDescription& OutputFormat() const noexcept { return mOutputs[0]; }

    /// Makes a resampler for the formats, which have the same channels, and room for what it will pull.
    ///
    /// @param delayFrames  as Resampler::Configure has it
    OSStatus PrepareResampler(vector::ResamplerStage stage, double delayFrames);

    /// Makes frames of output at `ratio` input frames each: pulls first, and goes on only with what was given.
    OSStatus Resample(const Pull& pull, UInt32 frames, double ratio, AudioBufferList* data) CORVANE_REALTIME;

    void Forget() CORVANE_REALTIME override { mResampler.Reset(); }

private:
    const float* const* PulledChannels(UInt32 frames) noexcept;

    vector::Resampler mResampler;
    Buffers mPulled;                  // in the input's format
    Buffers mChannels;                // the same with the channels apart, where they are not
    std::vector<float*> mOutputData;  // of the render in hand
};

}  // namespace platform::audio::units
