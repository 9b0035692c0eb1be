// What AI asks of and sets on a device beside its format: gain, data sources, and which streams are used.
#include "capture/buffers/AI.h"
#include "capture/buffers/DeviceProperties.h"
#include "platform/foundation/CFDictionary.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

using capture::GetDeviceList;
using capture::GetDeviceProperty;
using capture::GetStreamProperty;

namespace {

constexpr AudioObjectPropertySelector kGainDecibels = FourCC("vold");       // Float32
constexpr AudioObjectPropertySelector kGainRangeDecibels = FourCC("vdb#");  // AudioValueRange
constexpr AudioObjectPropertySelector kDataSources = FourCC("ssc#");        // UInt32 each
constexpr AudioObjectPropertySelector kDataSourceName = FourCC("lscn");     // AudioValueTranslation, UInt32 to name
constexpr AudioObjectPropertySelector kIOProcStreamUsage = FourCC("suse");  // StreamUsage
constexpr UInt32 kMaster = 0;

/// What "suse" takes, with as many words as there are streams.
struct StreamUsage {
    void* mIOProc;
    UInt32 mNumberStreams;
    UInt32 mStreamIsOn[1];
};

UInt32 CountInputChannels(AudioDeviceID device)
{
    AudioStreamBasicDescription desc{};
    const OSStatus error = GetDeviceProperty(device, true, kAudioDevicePropertyStreamFormat, &desc);
    return error ? 0 : desc.mChannelsPerFrame;
}

bool HasWritableGain(AudioDeviceID device, UInt32 channel)
{
    Boolean writable = 0;
    return AudioDeviceGetPropertyInfo(device, channel, true, kGainDecibels, nullptr, &writable) == 0 && writable;
}

/// Reads a property of the master channel, or else of the first channel that has it.
template <class Value>
OSStatus GetGainProperty(AudioDeviceID device, AudioObjectPropertySelector selector, Value* value)
{
    UInt32 size = sizeof *value;
    OSStatus error = AudioDeviceGetProperty(device, kMaster, true, selector, &size, value);
    const UInt32 channels = error ? CountInputChannels(device) : 0;
    for (UInt32 channel = 1; error && channel <= channels; ++channel) {
        size = sizeof *value;
        error = AudioDeviceGetProperty(device, channel, true, selector, &size, value);
    }
    return error;
}

OSStatus SetGainOf(AudioDeviceID device, UInt32 channel, Float32 decibels)
{
    return AudioDeviceSetProperty(device, nullptr, channel, true, kGainDecibels, sizeof decibels, &decibels);
}

OSStatus AppendSourceName(AudioDeviceID device, bool isInput, UInt32 source, CFMutableArrayRef names)
{
    CFStringRef name = nullptr;
    AudioValueTranslation translation = {&source, sizeof source, &name, sizeof name};
    if (const OSStatus error = GetDeviceProperty(device, isInput, kDataSourceName, &translation)) return error;
    const auto owned = cf::Ref<cf::String>::Adopt(name);
    CFArrayAppendValue(names, name);
    return 0;
}

/// For each stream of a side, whether one of the two channels, counted from 1 across the streams, is in it.
OSStatus FindStreamsOf(AudioDeviceID device, bool isInput, const UInt32 pair[2], std::vector<UInt32>* isOn)
{
    std::vector<AudioStreamID> streams;
    if (const OSStatus error = GetDeviceList(device, isInput, kAudioDevicePropertyStreams, &streams)) return error;
    UInt32 first = 1;
    for (const AudioStreamID stream : streams) {
        AudioStreamBasicDescription desc{};
        if (const OSStatus error = GetStreamProperty(stream, kAudioDevicePropertyStreamFormat, &desc)) return error;
        const auto holds = [&](UInt32 channel) { return channel >= first && channel - first < desc.mChannelsPerFrame; };
        isOn->push_back(holds(pair[0]) || holds(pair[1]) ? 1 : 0);
        first += desc.mChannelsPerFrame;
    }
    return 0;
}

OSStatus SetStreamUsage(AudioDeviceID device, bool isInput, void* ioProc, const std::vector<UInt32>& isOn)
{
    const size_t bytes = offsetof(StreamUsage, mStreamIsOn) + isOn.size() * sizeof(UInt32);
    std::vector<std::byte> usage(bytes);
    const StreamUsage head = {ioProc, UInt32(isOn.size()), {}};
    std::memcpy(usage.data(), &head, offsetof(StreamUsage, mStreamIsOn));
    if (!isOn.empty())
        std::memcpy(usage.data() + offsetof(StreamUsage, mStreamIsOn), isOn.data(), isOn.size() * sizeof(UInt32));
    return AudioDeviceSetProperty(device, nullptr, kMaster, isInput, kIOProcStreamUsage, UInt32(bytes), usage.data());
}

}  // namespace

bool AI_SupportsGain(AudioDeviceID device)
{
    const UInt32 channels = CountInputChannels(device);
    for (UInt32 channel = kMaster; channel <= channels; ++channel)
        if (HasWritableGain(device, channel)) return true;
    return false;
}

OSStatus AI_GetGain(AudioDeviceID device, Float32* decibels)
{
    return GetGainProperty(device, kGainDecibels, decibels);
}

OSStatus AI_SetGain(AudioDeviceID device, Float32 decibels)
{
    OSStatus error = SetGainOf(device, kMaster, decibels);
    const UInt32 channels = error ? CountInputChannels(device) : 0;
    for (UInt32 channel = 1; channel <= channels; ++channel) {
        error = SetGainOf(device, channel, decibels);
        if (error) return error;
    }
    return error;
}

OSStatus AI_GetGainRangeDecibels(AudioDeviceID device, AudioValueRange* range)
{
    return GetGainProperty(device, kGainRangeDecibels, range);
}

OSStatus AI_GetListOfSources(AudioDeviceID device, bool isInput, UInt32** sources, CFArrayRef* names, UInt32* count)
try {
    std::vector<UInt32> found;
    if (const OSStatus error = GetDeviceList(device, isInput, kDataSources, &found)) return error;
    const CFMutableArrayRef allNames = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    auto owned = cf::Ref<cf::Array>::Adopt(allNames);
    for (const UInt32 source : found)
        if (const OSStatus error = AppendSourceName(device, isInput, source, allNames)) return error;
    const size_t bytes = found.size() * sizeof(UInt32);
    auto* const list = static_cast<UInt32*>(std::malloc(bytes + 1));
    if (!list) return kAudio_MemFullError;
    if (bytes != 0) std::memcpy(list, found.data(), bytes);
    *sources = list;
    *names = owned.Detach();
    *count = UInt32(found.size());
    return 0;
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}

OSStatus AI_StreamsEnable(AudioDeviceID device, bool isInput, void* ioProc)
try {
    UInt32 pair[2] = {};
    UInt32 size = sizeof pair;
    if (const OSStatus error = AudioDeviceGetProperty(device, kMaster, isInput,
                                                      kAudioDevicePropertyPreferredChannelsForStereo, &size, pair))
        return error;
    std::vector<UInt32> isOn;
    if (const OSStatus error = FindStreamsOf(device, isInput, pair, &isOn)) return error;
    return SetStreamUsage(device, isInput, ioProc, isOn);
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}
