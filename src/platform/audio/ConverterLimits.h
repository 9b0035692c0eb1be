// ConverterLimits: what the units that convert rates can do.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

namespace platform::audio {

constexpr UInt32 kMostConvertedChannels = 64;
/// Of the higher rate over the lower one.
constexpr Float64 kMostRateRatio = 16;
/// Of either rate, where they differ: below it the filter is longer than the converter's delay of ten milliseconds.
constexpr Float64 kLeastConvertedHz = 4800;

}  // namespace platform::audio
