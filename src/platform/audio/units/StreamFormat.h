// StreamFormat: the formats that units take: packed 32-bit floats of this machine, interleaved or one buffer a channel.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

namespace platform::audio::units {

/// What an element has before anybody says otherwise: 44,100 Hz, two channels, a buffer each.
constexpr AudioStreamBasicDescription kDefaultFormat{
    44100,
    kAudioFormatLinearPCM,
    kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved,
    4,
    1,
    4,
    2,
    32,
    0};

/// Whether samples are floats of this machine and all counts agree; says nothing of how channels lie.
bool IsFloat(const AudioStreamBasicDescription& format) noexcept;

/// Whether channels share a buffer. One channel alone does not, whatever its flags say.
bool IsInterleaved(const AudioStreamBasicDescription& format) noexcept;

/// Buffers of a list in this format.
UInt32 BufferCount(const AudioStreamBasicDescription& format) noexcept;

/// Whether rate, channels and how they lie are the same.
bool IsSameSound(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept;

/// Whether `list` can hold `frames` frames, by its byte sizes.
bool HasRoom(const AudioBufferList& list, const AudioStreamBasicDescription& format, UInt32 frames) noexcept;

}  // namespace platform::audio::units
