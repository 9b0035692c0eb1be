// StereoMix: the stated coefficients by which any channel layout becomes left and right.
// Why: a film's dialogue sits in its centre channel, and a listener on headphones must still hear it. The
// values are those of the usual broadcast downmix; a stereo source passes bit for bit.
//
//   position                                   left     right
//   front left / front right                   1 / 0    0 / 1
//   mono                                       1        1
//   front centre, unknown                      0.7071   0.7071
//   low frequency                              0        0
//   side, rear, off centre, top: left / right  0.7071 on its own side
//   rear centre, top centre (all three)        0.5      0.5
//   unpositioned: the preferred pair           1 on its own side
//   unpositioned: the others                   0.7071, even numbers left, odd ones right
//
// Start at StereoMix::Mix.
#pragma once

#include "platform/machine/AudioServer.h"

#include <span>

namespace tap {

struct MixGains {
    float mLeft, mRight;
};

class StereoMix {
public:
    using Channel = platform::machine::CaptureCycle::Channel;

    /// @param outputChannels  2, or 1 for the mean of left and right
    /// @param left, right     numbers of the unpositioned channels that are the device's front pair
    explicit StereoMix(unsigned outputChannels, unsigned left = 0, unsigned right = 1)
        : mOutputChannels(outputChannels), mLeft(left), mRight(right)
    {
    }

    MixGains GainsOf(platform::machine::ChannelPosition position) const noexcept;

    /// Mixes `frames` frames from frame `offset` of each channel on, into interleaved frames.
    /// @realtime yes
    void Mix(std::span<const Channel> channels, unsigned offset, unsigned frames, float* output) const noexcept;

private:
    MixGains UnpositionedGains(unsigned number) const noexcept;

    unsigned mOutputChannels;
    unsigned mLeft, mRight;
};

}  // namespace tap
