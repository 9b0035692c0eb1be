// NativeProperties: what native devices answer, and the one stream that each has.
// Statuses are those of AudioHardware.h.
#pragma once

#include "platform/audio/NativeDevices.h"

#include <optional>

namespace platform::audio {

/// The device of that number, if it is there now; of a stream's number, the device that has the stream.
std::optional<NativeDevice> FindNativeDevice(AudioDeviceID number);
std::optional<NativeDevice> FindNativeStream(AudioStreamID number);

OSStatus NativeDeviceInfo(const NativeDevice& device, UInt32 channel, bool isInput,
                          AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
OSStatus NativeDeviceData(const NativeDevice& device, UInt32 channel, bool isInput,
                          AudioObjectPropertySelector selector, UInt32* size, void* data);
OSStatus NativeStreamInfo(const NativeDevice& device, UInt32 channel, AudioObjectPropertySelector selector,
                          UInt32* size, Boolean* writable);
OSStatus NativeStreamData(const NativeDevice& device, UInt32 channel, AudioObjectPropertySelector selector,
                          UInt32* size, void* data);

}  // namespace platform::audio
