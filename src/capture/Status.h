// Status: the room's own results, and the border that keeps exceptions inside.
#pragma once

#include "platform/audio/AudioUnit.h"

#include <new>

namespace capture {

constexpr OSStatus kNoMixer = OSStatus(FourCC("!Mix"));
constexpr OSStatus kNoMixBuffer = OSStatus(FourCC("!Buf"));
constexpr OSStatus kNoMixBufferData = OSStatus(FourCC("!Dat"));
constexpr OSStatus kSourceNotFound = OSStatus(FourCC("!fnd"));
constexpr OSStatus kNotInitialized = OSStatus(FourCC("Init"));

/// Runs `operation`, which returns a status; one that runs out of memory becomes kAudio_MemFullError.
template <class Operation>
OSStatus StatusOf(Operation&& operation) noexcept
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
}

}  // namespace capture
