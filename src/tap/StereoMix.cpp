#include "tap/StereoMix.h"

#include <algorithm>

namespace tap {

using platform::machine::ChannelPosition;

namespace {

constexpr float kHalfPower = 0.70710678f;
constexpr MixGains kBoth{kHalfPower, kHalfPower}, kLeftSide{kHalfPower, 0}, kRightSide{0, kHalfPower},
    kBehind{0.5f, 0.5f};

void Add(const float* samples, unsigned frames, float gain, float* output, unsigned stride) noexcept
{
    if (gain == 0) return;
    for (unsigned i = 0; i < frames; ++i) output[i * stride] += gain * samples[i];
}

}  // namespace

MixGains StereoMix::GainsOf(ChannelPosition position) const noexcept
{
    switch (position) {
        case ChannelPosition::FrontLeft:
            return {1, 0};
        case ChannelPosition::FrontRight:
            return {0, 1};
        case ChannelPosition::Mono:
            return {1, 1};
        case ChannelPosition::Unknown:
        case ChannelPosition::FrontCenter:
            return kBoth;
        case ChannelPosition::LowFrequency:
            return {0, 0};
        case ChannelPosition::SideLeft:
        case ChannelPosition::RearLeft:
        case ChannelPosition::FrontLeftOfCenter:
        case ChannelPosition::TopFrontLeft:
        case ChannelPosition::TopRearLeft:
            return kLeftSide;
        case ChannelPosition::SideRight:
        case ChannelPosition::RearRight:
        case ChannelPosition::FrontRightOfCenter:
        case ChannelPosition::TopFrontRight:
        case ChannelPosition::TopRearRight:
            return kRightSide;
        case ChannelPosition::RearCenter:
        case ChannelPosition::TopCenter:
        case ChannelPosition::TopFrontCenter:
        case ChannelPosition::TopRearCenter:
            return kBehind;
        case ChannelPosition::Auxiliary0:
            break;
    }
    return UnpositionedGains(unsigned(position) - unsigned(ChannelPosition::Auxiliary0));
}

MixGains StereoMix::UnpositionedGains(unsigned number) const noexcept
{
    if (number == mLeft) return {1, 0};
    if (number == mRight) return {0, 1};
    return number % 2 == 0 ? kLeftSide : kRightSide;
}

void StereoMix::Mix(std::span<const Channel> channels, unsigned offset, unsigned frames, float* output) const noexcept
{
    std::fill_n(output, size_t(frames) * mOutputChannels, 0.0f);
    for (const Channel& channel : channels) {
        const MixGains gains = GainsOf(channel.mPosition);
        const float* samples = channel.mSamples + offset;
        if (mOutputChannels == 1) {
            Add(samples, frames, 0.5f * (gains.mLeft + gains.mRight), output, 1);
        } else {
            Add(samples, frames, gains.mLeft, output, 2);
            Add(samples, frames, gains.mRight, output + 1, 2);
        }
    }
}

}  // namespace tap
