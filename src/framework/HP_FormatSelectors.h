// HP_FormatSelectors: the format properties that a stream serves, and its device for it, in the order of their entry.
#pragma once

#include "platform/audio/AudioObjectProperties.h"

#include <array>

constexpr std::array<AudioObjectPropertySelector, 13> kHP_FormatSelectors = {
    kAudioDevicePropertyNominalSampleRate,
    kAudioDevicePropertyAvailableNominalSampleRates,
    kAudioDevicePropertyStreamFormat,
    kAudioStreamPropertyAvailableVirtualFormats,
    kAudioStreamPropertyPhysicalFormat,
    kAudioStreamPropertyAvailablePhysicalFormats,
    kAudioDevicePropertyStreamFormats,
    kAudioDevicePropertyStreamFormatSupported,
    kAudioDevicePropertyStreamFormatMatch,
    kAudioStreamPropertyPhysicalFormats,
    kAudioStreamPropertyPhysicalFormatSupported,
    kAudioStreamPropertyPhysicalFormatMatch,
    kAudioDevicePropertySupportsMixing,
};

/// Of every scope and element.
constexpr AudioObjectPropertyAddress HP_FormatAddress(UInt32 index)
{
    return {kHP_FormatSelectors[index], kAudioObjectPropertyScopeWildcard, kAudioObjectPropertyElementWildcard};
}
