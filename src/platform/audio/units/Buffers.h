// Buffers: a buffer list with samples of its own, for what a unit pulls.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <cstdint>
#include <vector>

namespace platform::audio::units {

class Buffers {
public:
    Buffers() = default;
    /// Moved, and never copied: the lists point into the samples.
    Buffers(Buffers&&) = default;
    Buffers& operator=(Buffers&&) = default;

    /// Silence in a format that IsFloat. Throws std::bad_alloc.
    Buffers(const AudioStreamBasicDescription& format, UInt32 frames);

    /// The list over `frames` frames from `first` on; the same list each time.
    ///
    /// @realtime yes
    AudioBufferList* List(UInt32 first, UInt32 frames) noexcept;

    /// One pointer a buffer, to its first sample.
    float* const* Samples() const noexcept { return mPointers.data(); }

private:
    UInt32 mFloatsAFrame = 0;
    std::vector<float> mSamples;
    std::vector<float*> mPointers;
    std::vector<uint64_t> mList;  // an AudioBufferList, which is longer than its type
};

/// Points `channels`, one a buffer, at the samples of a list.
///
/// @realtime yes
void PointAt(const AudioBufferList& list, std::vector<float*>& channels) noexcept;

}  // namespace platform::audio::units
