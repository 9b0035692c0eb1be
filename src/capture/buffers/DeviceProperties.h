// DeviceProperties: properties of the audio system as values and as lists of values.
// Why: the published calls speak of bytes; whoever reads one number should not have to.
#pragma once

#include "platform/audio/AudioUnit.h"

#include <new>
#include <vector>

namespace capture {

/// Reads a property that is one Value. @return the platform's status; `*value` may have changed whatever it is
template <class Value>
OSStatus GetSystemProperty(AudioObjectPropertySelector selector, Value* value)
{
    UInt32 size = sizeof *value;
    return AudioHardwareGetProperty(selector, &size, value);
}

/// The same of a device. @param isInput  which side of it
template <class Value>
OSStatus GetDeviceProperty(AudioDeviceID device, bool isInput, AudioObjectPropertySelector selector, Value* value)
{
    UInt32 size = sizeof *value;
    return AudioDeviceGetProperty(device, 0, isInput, selector, &size, value);
}

/// The same of a stream.
template <class Value>
OSStatus GetStreamProperty(AudioStreamID stream, AudioObjectPropertySelector selector, Value* value)
{
    UInt32 size = sizeof *value;
    return AudioStreamGetProperty(stream, 0, selector, &size, value);
}

/// Reads a property of a device that is any number of Values. @return the platform's status, or kAudio_MemFullError
template <class Value>
OSStatus GetDeviceList(AudioDeviceID device, bool isInput, AudioObjectPropertySelector selector,
                       std::vector<Value>* values)
try {
    UInt32 size = 0;
    if (const OSStatus error = AudioDeviceGetPropertyInfo(device, 0, isInput, selector, &size, nullptr)) return error;
    values->resize(size / sizeof(Value));
    size = UInt32(values->size() * sizeof(Value));
    const OSStatus error = AudioDeviceGetProperty(device, 0, isInput, selector, &size, values->data());
    values->resize(error ? 0 : size / sizeof(Value));  // one may have gone since
    return error;
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}

}  // namespace capture
