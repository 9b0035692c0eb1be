// PropertyRoom: how every property call answers for the bytes of a property, and for those of its caller.
#pragma once

#include "platform/audio/AudioHardware.h"

#include <optional>

namespace platform::audio {

/// @param bytes  of the property; nothing where there is none of that selector
inline OSStatus AnswerInfo(std::optional<UInt32> bytes, UInt32* size, Boolean* writable)
{
    if (!bytes) return kAudioHardwareUnknownPropertyError;
    if (size) *size = *bytes;
    if (writable) *writable = 0;
    return kAudioHardwareNoError;
}

/// Whether there is room for a property of `bytes`; says what is used where there is.
inline OSStatus TakeRoom(std::optional<UInt32> bytes, UInt32* size, const void* data)
{
    if (!bytes) return kAudioHardwareUnknownPropertyError;
    if (!size || (!data && *bytes != 0)) return kAudioHardwareIllegalOperationError;
    if (*size < *bytes) return kAudioHardwareBadPropertySizeError;
    *size = *bytes;
    return kAudioHardwareNoError;
}

}  // namespace platform::audio
