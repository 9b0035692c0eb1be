#include "platform/audio/AudioHardware.h"

#include "platform/audio/NativeDevices.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/process/PlainText.h"

#include <algorithm>
#include <cstring>
#include <optional>

using platform::audio::CopyNativeDevices;
using platform::audio::NativeDevice;
using platform::audio::NativeDevices;
using platform::machine::ChannelPosition;
using platform::machine::Device;

namespace {

OSStatus AnswerInfo(std::optional<UInt32> bytes, UInt32* size, Boolean* writable)
{
    if (!bytes) return kAudioHardwareUnknownPropertyError;
    if (size) *size = *bytes;
    if (writable) *writable = 0;
    return kAudioHardwareNoError;
}

/// Whether there is room for a property of `bytes`; says what is used where there is.
OSStatus TakeRoom(std::optional<UInt32> bytes, UInt32* size, const void* data)
{
    if (!bytes) return kAudioHardwareUnknownPropertyError;
    if (!size || (!data && *bytes != 0)) return kAudioHardwareIllegalOperationError;
    if (*size < *bytes) return kAudioHardwareBadPropertySizeError;
    *size = *bytes;
    return kAudioHardwareNoError;
}

std::optional<UInt32> SystemPropertyBytes(const NativeDevices& native, AudioObjectPropertySelector selector)
{
    switch (selector) {
        case kAudioHardwarePropertyDevices:
            return UInt32(native.mDevices.size() * sizeof(AudioDeviceID));
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

std::optional<NativeDevice> FindDevice(AudioDeviceID number)
{
    for (NativeDevice& device : CopyNativeDevices().mDevices) {
        if (device.mID == number) return std::move(device);
    }
    return std::nullopt;
}

/// Properties are those of the whole device: its channels have none of their own.
std::optional<UInt32> DevicePropertyBytes(UInt32 channel, bool isInput, AudioObjectPropertySelector selector)
{
    if (channel != 0) return std::nullopt;
    switch (selector) {
        case kAudioDevicePropertyDeviceUID:
        case kAudioDevicePropertyDeviceNameCFString:
            return UInt32(sizeof(CFStringRef));
        case kAudioDevicePropertyNominalSampleRate:
            return UInt32(sizeof(Float64));
        case kAudioDevicePropertyPreferredChannelsForStereo:
            return isInput ? std::nullopt : std::optional<UInt32>(2 * sizeof(UInt32));
        case kAudioDevicePropertyStreamConfiguration:
            return UInt32(offsetof(AudioBufferList, mBuffers) + (isInput ? 0 : sizeof(AudioBuffer)));
        default:
            return std::nullopt;
    }
}

OSStatus GiveString(const std::string& text, void* data)
{
    const CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
    std::memcpy(data, &string, sizeof string);
    return string ? kAudioHardwareNoError : kAudioHardwareIllegalOperationError;
}

/// The channels, counted from 1, where left and right belong; the first two where the device does not say.
void GiveStereoChannels(const std::vector<ChannelPosition>& channels, UInt32* pair)
{
    const auto left = std::find(channels.begin(), channels.end(), ChannelPosition::FrontLeft);
    const auto right = std::find(channels.begin(), channels.end(), ChannelPosition::FrontRight);
    const bool both = left != channels.end() && right != channels.end();
    pair[0] = both ? UInt32(left - channels.begin() + 1) : 1;
    pair[1] = both ? UInt32(right - channels.begin() + 1) : channels.size() >= 2 ? 2 : 1;
}

void GiveStreamConfiguration(const Device& device, bool isInput, AudioBufferList* list)
{
    list->mNumberBuffers = isInput ? 0 : 1;
    if (!isInput) list->mBuffers[0] = {UInt32(device.mChannels.size()), 0, nullptr};
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
        default:
            *static_cast<AudioDeviceID*>(data) = native.mDefaultOutput;
            return kAudioHardwareNoError;
    }
}

OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                    AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    if (!FindDevice(device)) return kAudioHardwareBadDeviceError;
    return AnswerInfo(DevicePropertyBytes(channel, isInput, selector), size, writable);
}

OSStatus AudioDeviceGetProperty(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    const std::optional<NativeDevice> native = FindDevice(device);
    if (!native) return kAudioHardwareBadDeviceError;
    if (const OSStatus error = TakeRoom(DevicePropertyBytes(channel, isInput, selector), size, data)) return error;
    const Device& output = native->mDevice;
    switch (selector) {
        case kAudioDevicePropertyDeviceUID:
            return GiveString(output.mUID, data);
        case kAudioDevicePropertyDeviceNameCFString:
            return GiveString(platform::process::PlainText(output.mName), data);
        case kAudioDevicePropertyNominalSampleRate:
            *static_cast<Float64*>(data) = output.mNominalRateHz;
            break;
        case kAudioDevicePropertyPreferredChannelsForStereo:
            GiveStereoChannels(output.mChannels, static_cast<UInt32*>(data));
            break;
        default:
            GiveStreamConfiguration(output, isInput, static_cast<AudioBufferList*>(data));
            break;
    }
    return kAudioHardwareNoError;
}
