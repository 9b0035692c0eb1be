// CAAudioChannelLayout: making, counting and showing layouts, which end in as many descriptions as they say.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <cstdio>

class CAAudioChannelLayout {
public:
    /// A layout of `channels` unknown channels, which the caller destroys. @throws std::bad_alloc
    static AudioChannelLayout* Create(UInt32 channels);
    static void Destroy(AudioChannelLayout* layout);

    /// Describes `channels` channels as unknown. @param layout  with room for that many descriptions
    static void SetAllToUnknown(AudioChannelLayout& layout, UInt32 channels) noexcept;

    /// Channels of the layout, however it describes them.
    static UInt32 NumberChannels(const AudioChannelLayout& layout) noexcept;
};

/// Whether both say the same, byte for byte.
bool operator==(const AudioChannelLayout& a, const AudioChannelLayout& b) noexcept;

/// Prints a layout, which may be null, for diagnosis.
void CAShowAudioChannelLayout(FILE* file, const AudioChannelLayout* layout);
