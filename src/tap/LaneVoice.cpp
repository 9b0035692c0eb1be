#include "tap/LaneVoice.h"

#include "platform/kernel/Realtime.h"
#include "platform/vector/VectorKernels.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tap {

namespace {

constexpr unsigned kMostChannels = 2;

}  // namespace

bool LaneVoice::Prepare(unsigned channels, double nominalRatio, unsigned mostFrames)
{
    mTailFrames = 0;
    if (channels == mChannels && nominalRatio == mNominalRatio && mostFrames == mMostOutput) {
        mResampler.Reset();
        return true;
    }
    const platform::kernel::RealtimeExemption exemption("another nominal rate needs other tables; it comes seldom");
    mChannels = 0;  // not usable until all of it is there
    if (channels > kMostChannels) return false;
    if (!mResampler.Configure(channels, nominalRatio, mostFrames, platform::vector::ResamplerStage::Low)) return false;
    mMostOutput = mostFrames;
    mMostInput = mResampler.MaxInputFramesFor(mostFrames);
    mInterleaved.assign(mMostInput * channels, 0);
    mPlanarIn.assign(mMostInput * channels, 0);
    mPlanarOut.assign(mMostOutput * channels, 0);
    mNominalRatio = nominalRatio;
    mChannels = channels;
    return true;
}

void LaneVoice::Render(unsigned frames, double ratio, float* output) noexcept
{
    const unsigned needed = mResampler.InputFramesFor(frames, ratio);
    std::array<const float*, kMostChannels> in{};
    std::array<float*, kMostChannels> planes{}, out{};
    for (unsigned channel = 0; channel < mChannels; ++channel) {
        in[channel] = planes[channel] = &mPlanarIn[channel * mMostInput];
        out[channel] = &mPlanarOut[channel * mMostOutput];
    }
    platform::vector::Deinterleave(mInterleaved.data(), mChannels, planes.data(), mChannels, needed);
    mResampler.Process(in.data(), out.data(), frames, ratio);
    for (unsigned channel = 0; channel < mChannels; ++channel)
        for (unsigned i = 0; i < frames; ++i) output[i * mChannels + channel] += out[channel][i];
}

void LaneVoice::Release(unsigned silentFrames) noexcept
{
    const unsigned held = 2 * unsigned(std::ceil(DelayOutputFrames()));  // the last frame's whole window
    mTailFrames = held > silentFrames ? held - silentFrames : 0;
}

void LaneVoice::RingOut(unsigned frames, float* output) noexcept
{
    if (mTailFrames == 0) return;
    std::fill(mInterleaved.begin(), mInterleaved.end(), 0.0f);
    Render(frames, mNominalRatio, output);
    mTailFrames -= std::min(mTailFrames, frames);
}

}  // namespace tap
