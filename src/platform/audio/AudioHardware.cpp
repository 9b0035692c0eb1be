#include "platform/audio/AudioHardware.h"

#include "platform/audio/NativeDevices.h"
#include "platform/audio/PropertyRoom.h"
#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <optional>

using namespace platform::audio;

namespace {

std::optional<UInt32> SystemPropertyBytes(const NativeDevices& native, AudioObjectPropertySelector selector)
{
    switch (selector) {
        case kAudioHardwarePropertyDevices:
            return UInt32(native.mDevices.size() * sizeof(AudioDeviceID));
        case kAudioHardwarePropertyDefaultInputDevice:
        case kAudioHardwarePropertyDefaultOutputDevice:
        case kAudioHardwarePropertyDefaultSystemOutputDevice:
            return UInt32(sizeof(AudioDeviceID));
        case kAudioHardwarePropertyDeviceForUID:
            return UInt32(sizeof(AudioValueTranslation));
        default:
            return std::nullopt;
    }
}

OSStatus TranslateUID(const NativeDevices& native, const AudioValueTranslation& translation)
{
    if (translation.mInputDataSize != sizeof(CFStringRef) || translation.mOutputDataSize != sizeof(AudioDeviceID))
        return kAudioHardwareBadPropertySizeError;
    if (!translation.mInputData || !translation.mOutputData) return kAudioHardwareIllegalOperationError;
    const std::string uid = cf::ToStdString(*static_cast<const CFStringRef*>(translation.mInputData));
    const auto found = std::find_if(native.mDevices.begin(), native.mDevices.end(),
                                    [&](const NativeDevice& device) { return device.mDevice.mUID == uid; });
    *static_cast<AudioDeviceID*>(translation.mOutputData) = found == native.mDevices.end() ? 0 : found->mID;
    return kAudioHardwareNoError;
}

}  // namespace

OSStatus AudioHardwareGetPropertyInfo(AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    return AnswerInfo(SystemPropertyBytes(CopyNativeDevices(), selector), size, writable);
}

OSStatus AudioHardwareGetProperty(AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    const NativeDevices native = CopyNativeDevices();
    if (const OSStatus error = TakeRoom(SystemPropertyBytes(native, selector), size, data)) return error;
    switch (selector) {
        case kAudioHardwarePropertyDeviceForUID:
            return TranslateUID(native, *static_cast<const AudioValueTranslation*>(data));
        case kAudioHardwarePropertyDevices:
            std::transform(native.mDevices.begin(), native.mDevices.end(), static_cast<AudioDeviceID*>(data),
                           [](const NativeDevice& device) { return device.mID; });
            return kAudioHardwareNoError;
        case kAudioHardwarePropertyDefaultInputDevice:
            *static_cast<AudioDeviceID*>(data) = native.mDefaultInput;
            return kAudioHardwareNoError;
        default:
            *static_cast<AudioDeviceID*>(data) = native.mDefaultOutput;
            return kAudioHardwareNoError;
    }
}
