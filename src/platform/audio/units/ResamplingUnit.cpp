#include "platform/audio/units/ResamplingUnit.h"

#include "platform/audio/ConverterLimits.h"
#include "platform/vector/VectorKernels.h"

#include <algorithm>
#include <cmath>

namespace platform::audio::units {

OSStatus ResamplingUnit::PrepareResampler(vector::ResamplerStage stage, double delayFrames)
{
    const double ratio = InputFormat().mSampleRate / OutputFormat().mSampleRate;
    const UInt32 channels = InputFormat().mChannelsPerFrame;
    if (channels > kMostConvertedChannels || ratio > kMostRateRatio || ratio < 1 / kMostRateRatio)
        return kAudioUnitErr_FormatNotSupported;
    if (!mResampler.Configure(channels, ratio, MostFrames(), stage, delayFrames)) return kAudio_MemFullError;

    const UInt32 mostPulled = mResampler.MaxInputFramesFor(MostFrames());
    mPulled = Buffers(InputFormat(), mostPulled);
    if (IsInterleaved(InputFormat())) mChannels = Buffers(OutputFormat(), mostPulled);
    mOutputData.resize(channels);
    return 0;
}

double ResamplingUnit::PullDelaySeconds() const noexcept
{
    return (std::ceil(mResampler.DelayFrames()) - mResampler.Phase()) / InputFormat().mSampleRate;
}

const float* const* ResamplingUnit::PulledChannels(UInt32 frames) noexcept
{
    if (!IsInterleaved(InputFormat())) return mPulled.Samples();
    const UInt32 channels = InputFormat().mChannelsPerFrame;
    for (UInt32 first = 0; first < channels; first += vector::kWeaveChannels) {
        const UInt32 count = std::min(channels - first, vector::kWeaveChannels);
        vector::Deinterleave(mPulled.Samples()[0] + first, channels, mChannels.Samples() + first, count, frames);
    }
    return mChannels.Samples();
}

OSStatus ResamplingUnit::Resample(const Pull& pull, UInt32 frames, double ratio, AudioBufferList* data) CORVANE_REALTIME
{
    const UInt32 needed = mResampler.InputFramesFor(frames, ratio);
    if (needed > 0) {
        if (const OSStatus refusal = PullInput(0, pull, needed, mPulled.List(0, needed))) return refusal;
    }
    PointAt(*data, mOutputData);
    mResampler.Process(PulledChannels(needed), mOutputData.data(), frames, ratio);
    return 0;
}

}  // namespace platform::audio::units
