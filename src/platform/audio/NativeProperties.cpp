#include "platform/audio/NativeProperties.h"

#include "platform/audio/PropertyRoom.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/process/PlainText.h"

#include <algorithm>
#include <cstring>

namespace platform::audio {

using machine::ChannelPosition;

namespace {

constexpr AudioStreamID kFirstStream = 1u << 20;  // a device's stream has the device's number, counted from here

/// Properties are those of the whole device: its channels have none of their own.
std::optional<UInt32> DevicePropertyBytes(const NativeDevice& device, UInt32 channel, bool isInput,
                                          AudioObjectPropertySelector selector)
{
    const bool hasStream = isInput == device.mIsInput;
    const auto ofStream = [&](size_t bytes) { return hasStream ? std::optional(UInt32(bytes)) : std::nullopt; };
    if (channel != 0) return std::nullopt;
    switch (selector) {
        case kAudioDevicePropertyDeviceUID:
        case kAudioDevicePropertyDeviceNameCFString:
            return UInt32(sizeof(CFStringRef));
        case kAudioDevicePropertyNominalSampleRate:
            return UInt32(sizeof(Float64));
        case kAudioDevicePropertyAvailableNominalSampleRates:
            return UInt32(sizeof(AudioValueRange));
        case kAudioDevicePropertyLatency:
        case kAudioDevicePropertySafetyOffset:
        case kAudioDevicePropertyDeviceIsAlive:
            return UInt32(sizeof(UInt32));
        case kAudioDevicePropertyStreams:
            return UInt32(hasStream ? sizeof(AudioStreamID) : 0);
        case kAudioDevicePropertyStreamFormat:
        case kAudioDevicePropertyStreamFormatMatch:
            return ofStream(sizeof(AudioStreamBasicDescription));
        case kAudioDevicePropertyPreferredChannelsForStereo:
            return ofStream(2 * sizeof(UInt32));
        case kAudioDevicePropertyStreamConfiguration:
            return UInt32(offsetof(AudioBufferList, mBuffers) + (hasStream ? sizeof(AudioBuffer) : 0));
        default:
            return std::nullopt;
    }
}

template <class Value>
OSStatus Give(const Value& value, void* data)
{
    std::memcpy(data, &value, sizeof value);
    return kAudioHardwareNoError;
}

OSStatus GiveString(const std::string& text, void* data)
{
    const CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
    Give(string, data);
    return string ? kAudioHardwareNoError : kAudioHardwareIllegalOperationError;
}

/// The channels, counted from 1, where left and right belong; the first two where the device does not say.
OSStatus GiveStereoChannels(const std::vector<ChannelPosition>& channels, UInt32* pair)
{
    const auto left = std::find(channels.begin(), channels.end(), ChannelPosition::FrontLeft);
    const auto right = std::find(channels.begin(), channels.end(), ChannelPosition::FrontRight);
    const bool both = left != channels.end() && right != channels.end();
    pair[0] = both ? UInt32(left - channels.begin() + 1) : 1;
    pair[1] = both ? UInt32(right - channels.begin() + 1) : channels.size() >= 2 ? 2 : 1;
    return kAudioHardwareNoError;
}

OSStatus GiveStreamConfiguration(const NativeDevice& device, bool isInput, AudioBufferList* list)
{
    list->mNumberBuffers = isInput == device.mIsInput ? 1 : 0;
    if (list->mNumberBuffers != 0) list->mBuffers[0] = {UInt32(device.mDevice.mChannels.size()), 0, nullptr};
    return kAudioHardwareNoError;
}

AudioStreamBasicDescription FormatOf(const machine::Device& device)
{
    const auto channels = UInt32(device.mChannels.size());
    const auto frameBytes = UInt32(channels * sizeof(Float32));
    return {device.mNominalRateHz,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
            frameBytes,
            1,
            frameBytes,
            channels,
            8 * sizeof(Float32),
            0};
}

std::optional<UInt32> StreamPropertyBytes(UInt32 channel, AudioObjectPropertySelector selector)
{
    if (channel != 0) return std::nullopt;
    switch (selector) {
        case kAudioStreamPropertyDirection:
        case kAudioDevicePropertyLatency:
            return UInt32(sizeof(UInt32));
        case kAudioDevicePropertyStreamFormat:
            return UInt32(sizeof(AudioStreamBasicDescription));
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<NativeDevice> FindNativeDevice(AudioDeviceID number)
{
    for (NativeDevice& device : CopyNativeDevices().mDevices) {
        if (device.mID == number) return std::move(device);
    }
    return std::nullopt;
}

std::optional<NativeDevice> FindNativeStream(AudioStreamID number)
{
    return FindNativeDevice(number - kFirstStream);
}

OSStatus NativeDeviceInfo(const NativeDevice& device, UInt32 channel, bool isInput,
                          AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    return AnswerInfo(DevicePropertyBytes(device, channel, isInput, selector), size, writable);
}

OSStatus NativeDeviceData(const NativeDevice& device, UInt32 channel, bool isInput,
                          AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    const std::optional<UInt32> bytes = DevicePropertyBytes(device, channel, isInput, selector);
    if (const OSStatus error = TakeRoom(bytes, size, data)) return error;
    const machine::Device& described = device.mDevice;
    switch (selector) {
        case kAudioDevicePropertyDeviceUID:
            return GiveString(described.mUID, data);
        case kAudioDevicePropertyDeviceNameCFString:
            return GiveString(process::PlainText(described.mName), data);
        case kAudioDevicePropertyNominalSampleRate:
            return Give(described.mNominalRateHz, data);
        case kAudioDevicePropertyAvailableNominalSampleRates:
            return Give(AudioValueRange{described.mNominalRateHz, described.mNominalRateHz}, data);
        case kAudioDevicePropertyLatency:
        case kAudioDevicePropertySafetyOffset:
            return Give(UInt32(0), data);  // the server's stamps are those of the sound
        case kAudioDevicePropertyDeviceIsAlive:
            return Give(UInt32(1), data);  // one that went is not found above
        case kAudioDevicePropertyStreams:
            return *bytes == 0 ? kAudioHardwareNoError : Give(kFirstStream + device.mID, data);
        case kAudioDevicePropertyStreamFormat:
        case kAudioDevicePropertyStreamFormatMatch:  // whatever is wanted: it has one
            return Give(FormatOf(described), data);
        case kAudioDevicePropertyPreferredChannelsForStereo:
            return GiveStereoChannels(described.mChannels, static_cast<UInt32*>(data));
        default:
            return GiveStreamConfiguration(device, isInput, static_cast<AudioBufferList*>(data));
    }
}

OSStatus NativeStreamInfo(const NativeDevice&, UInt32 channel, AudioObjectPropertySelector selector, UInt32* size,
                          Boolean* writable)
{
    return AnswerInfo(StreamPropertyBytes(channel, selector), size, writable);
}

OSStatus NativeStreamData(const NativeDevice& device, UInt32 channel, AudioObjectPropertySelector selector,
                          UInt32* size, void* data)
{
    if (const OSStatus error = TakeRoom(StreamPropertyBytes(channel, selector), size, data)) return error;
    switch (selector) {
        case kAudioStreamPropertyDirection:
            return Give(UInt32(device.mIsInput), data);
        case kAudioDevicePropertyLatency:
            return Give(UInt32(0), data);
        default:
            return Give(FormatOf(device.mDevice), data);
    }
}

}  // namespace platform::audio
