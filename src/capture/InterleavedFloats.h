// InterleavedFloats: the format in which every source delivers.
#pragma once

#include "utility/CAStreamBasicDescription.h"

namespace capture {

/// Packed interleaved floats; a rate or channels of 0 are left open.
inline AudioStreamBasicDescription InterleavedFloats(Float64 rateHz, UInt32 channels) noexcept
{
    AudioStreamBasicDescription desc{};
    desc.mSampleRate = rateHz;
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mChannelsPerFrame = channels;
    CAStreamBasicDescription::NormalizeLinearPCMFormat(desc);
    return desc;
}

}  // namespace capture
