// A hardware input's device: which one, its formats, channels and latencies.
#include "capture/OSLAudio_InputCapture.h"

#include "capture/InterleavedFloats.h"
#include "capture/Status.h"
#include "capture/buffers/AI.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "capture/buffers/DeviceProperties.h"
#include "capture/buffers/UnitCalls.h"
#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

using capture::GetDeviceList;
using capture::GetDeviceProperty;
using capture::GetStreamProperty;
using capture::GetUnitProperty;
using capture::SetUnitProperty;

namespace {

UInt32 SampleBytes(const AudioStreamBasicDescription& desc, bool split)
{
    const UInt32 channels = split ? 1 : std::max<UInt32>(1, desc.mChannelsPerFrame);
    const UInt32 bytes = desc.mBytesPerFrame / channels;
    return bytes != 0 ? bytes : (desc.mBitsPerChannel + 7) / 8;
}

/// Makes one stream's description that of a stream of `channels`.
void Widen(AudioStreamBasicDescription& desc, bool split, UInt32 channels)
{
    const UInt32 sampleBytes = SampleBytes(desc, split);
    desc.mFramesPerPacket = 1;
    desc.mChannelsPerFrame = channels;
    desc.mBytesPerFrame = desc.mBytesPerPacket = split ? sampleBytes : sampleBytes * channels;
    if (!split) desc.mFormatFlags &= ~kAudioFormatFlagIsNonInterleaved;
}

}  // namespace

bool OSLAudio_InputCapture::IsNonInterleaved(const AudioStreamBasicDescription& desc)
{
    return desc.mFormatID == kAudioFormatLinearPCM && (desc.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
}

AudioBufferList* OSLAudio_InputCapture::CreateBufferList(UInt32 buffers, UInt32 bytes)
{
    return CAAudioBufferList::Create(buffers, bytes);
}

void OSLAudio_InputCapture::DestroyBufferList(AudioBufferList* list)
{
    CAAudioBufferList::Deallocate(list);
}

OSStatus OSLAudio_InputCapture::GetAudioDeviceWithUID(CFStringRef uid, AudioDeviceID* device)
{
    if (uid) return AI_GetDeviceWithUID(uid, device);
    const OSStatus error = AI_GetDefaultInputDevice(device);
    if (error) *device = 0;
    return error;
}

OSStatus OSLAudio_InputCapture::GetDefaultInputDevice(AudioDeviceID* device)
{
    return AI_GetDefaultInputDevice(device);
}

OSStatus OSLAudio_InputCapture::SetAudioDevice(AudioDeviceID device, UInt32 dataSource)
{
    AudioDeviceID chosen = device;
    if (device == 0) {
        if (const OSStatus error = GetDefaultInputDevice(&chosen)) return error;
    }
    if (const OSStatus error =
            SetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, chosen))
        return error;
    Boolean writable = 0;
    if (dataSource != 0 &&
        AudioDeviceGetPropertyInfo(chosen, 0, true, kAudioDevicePropertyDataSource, nullptr, &writable) == 0 &&
        writable) {
        if (const OSStatus error = AudioDeviceSetProperty(chosen, nullptr, 0, true, kAudioDevicePropertyDataSource,
                                                          sizeof dataSource, &dataSource))
            return error;
    }
    mDeviceID = device;
    mBoundDevice = chosen;  // the unit stays with it, wherever the default moves to, and so do the times
    return 0;
}

OSStatus OSLAudio_InputCapture::GetDeviceID(AudioDeviceID* device)
{
    return GetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, device);
}

OSStatus OSLAudio_InputCapture::GetDeviceUID(CFStringRef* uid)
{
    AudioDeviceID device = 0;
    if (const OSStatus error = GetDeviceID(&device)) return error;
    return GetDeviceProperty(device, true, kAudioDevicePropertyDeviceUID, uid);
}

CFArrayRef OSLAudio_InputCapture::CopyCapturedSources()
try {
    CFStringRef uid = nullptr;
    if (GetDeviceUID(&uid) != 0) uid = nullptr;  // a device that has gone: nothing that has a UID
    const auto owned = cf::Ref<cf::String>::Adopt(uid);
    const CFTypeRef values[] = {uid};
    return CFArrayCreate(kCFAllocatorDefault, values, uid ? 1 : 0);
} catch (const std::bad_alloc&) {
    return nullptr;
}

OSStatus OSLAudio_InputCapture::GetAudioDesc(AudioStreamBasicDescription* desc)
{
    return GetUnitProperty(mOutputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, kInputElement, desc);
}

OSStatus OSLAudio_InputCapture::GetDeviceDesc(AudioDeviceID device, AudioStreamBasicDescription* desc)
{
    if (const OSStatus error = GetDeviceProperty(device, true, kAudioDevicePropertyStreamFormat, desc)) return error;
    std::vector<AudioStreamID> streams;
    if (const OSStatus error = GetDeviceList(device, true, kAudioDevicePropertyStreams, &streams)) return error;
    UInt32 channels = 0;
    for (const AudioStreamID stream : streams) {
        AudioStreamBasicDescription format{};
        if (const OSStatus error = GetStreamProperty(stream, kAudioDevicePropertyStreamFormat, &format)) return error;
        channels += format.mChannelsPerFrame;
    }
    Widen(*desc, IsNonInterleaved(*desc), channels);
    return 0;
}

OSStatus OSLAudio_InputCapture::GetDeviceDesc(AudioStreamBasicDescription* desc)
{
    AudioDeviceID device = 0;
    if (const OSStatus error = GetDeviceID(&device)) return error;
    return GetDeviceDesc(device, desc);
}

OSStatus OSLAudio_InputCapture::GetDefaultDesc(AudioStreamBasicDescription* desc)
{
    AudioStreamBasicDescription device{};
    if (const OSStatus error = GetDeviceDesc(&device)) return error;
    *desc = capture::InterleavedFloats(device.mSampleRate, device.mChannelsPerFrame);
    return 0;
}

OSStatus OSLAudio_InputCapture::SetAudioDesc(AudioStreamBasicDescription* desc)
{
    AudioStreamBasicDescription device{};
    if (const OSStatus error = GetDeviceDesc(&device)) return error;
    if (desc->mSampleRate == 0.0) desc->mSampleRate = device.mSampleRate;
    if (desc->mChannelsPerFrame == 0) desc->mChannelsPerFrame = device.mChannelsPerFrame;
    if (const OSStatus error =
            SetUnitProperty(mOutputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, kInputElement, *desc))
        return error;
    if (const OSStatus error = GetAudioDesc(desc)) return error;
    return capture::StatusOf([&] { return MapChannels(*desc, device.mChannelsPerFrame); });
}

/// Stereo takes the pair that the device prefers. Else channels go round: a mono device fills both sides with the same
/// sound, a wider one gives its first channels.
OSStatus OSLAudio_InputCapture::MapChannels(const AudioStreamBasicDescription& desc, UInt32 deviceChannels)
{
    std::vector<SInt32> map(desc.mChannelsPerFrame, -1);
    UInt32 pair[2] = {};
    if (map.size() == 2 && GetPreferredPair(pair)) {
        for (size_t side = 0; side < 2; ++side) map[side] = SInt32(pair[side]) - 1;
    } else if (deviceChannels != 0) {
        for (size_t channel = 0; channel < map.size(); ++channel) map[channel] = SInt32(channel % deviceChannels);
    }
    return SetChannelMap(map.data(), UInt32(map.size()));
}

bool OSLAudio_InputCapture::GetPreferredPair(UInt32 pair[2])
{
    AudioDeviceID device = 0;
    UInt32 size = 2 * sizeof(UInt32);
    return GetDeviceID(&device) == 0 &&
           AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyPreferredChannelsForStereo, &size, pair) == 0;
}

OSStatus OSLAudio_InputCapture::SetChannelMap(SInt32* map, UInt32 count)
{
    return AudioUnitSetProperty(mOutputUnit, kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Input, kInputElement,
                                map, UInt32(count * sizeof(SInt32)));
}

// Read on another scope than it is set on, and that stays so: callers know both by now.
OSStatus OSLAudio_InputCapture::GetChannelMap(SInt32** map, UInt32* count)
{
    UInt32 bytes = 0;
    if (const OSStatus error = AudioUnitGetPropertyInfo(mOutputUnit, kAudioOutputUnitProperty_ChannelMap,
                                                        kAudioUnitScope_Output, kInputElement, &bytes, nullptr))
        return error;
    auto* const read = static_cast<SInt32*>(std::malloc(std::max<UInt32>(1, bytes)));
    if (!read) return kAudio_MemFullError;
    const OSStatus error = AudioUnitGetProperty(mOutputUnit, kAudioOutputUnitProperty_ChannelMap,
                                                kAudioUnitScope_Output, kInputElement, read, &bytes);
    if (error) {
        std::free(read);
        return error;
    }
    *map = read;
    *count = UInt32(bytes / sizeof(SInt32));
    return 0;
}

OSStatus OSLAudio_InputCapture::GetLatency(UInt32* frames)
{
    AudioDeviceID device = 0;
    if (const OSStatus error = GetDeviceID(&device)) return error;
    return device == 0 ? 0 : GetDeviceLatency(device, true, frames);
}

OSStatus OSLAudio_InputCapture::GetDeviceLatency(AudioDeviceID device, bool isInput, UInt32* frames)
{
    *frames = 0;
    if (device == 0) return 0;
    UInt32 latency = 0;
    if (const OSStatus error = GetDeviceProperty(device, isInput, kAudioDevicePropertyLatency, &latency)) return error;
    *frames += latency;
    UInt32 safetyOffset = 0;  // not added, and a device that does not have it has no latency to tell either
    if (const OSStatus error = GetDeviceProperty(device, isInput, kAudioDevicePropertySafetyOffset, &safetyOffset))
        return error;
    std::vector<AudioStreamID> streams;
    if (const OSStatus error = GetDeviceList(device, isInput, kAudioDevicePropertyStreams, &streams)) return error;
    UInt32 slowest = 0;
    for (const AudioStreamID stream : streams) {
        if (const OSStatus error = GetStreamProperty(stream, kAudioDevicePropertyLatency, &latency)) return error;
        slowest = std::max(slowest, latency);
    }
    *frames += slowest;
    return 0;
}

// Asks for all that a latency is made of and uses none of it: stamps are the device's own, and stand for the moment of
// their frames already. What cannot be asked fails here, before the start.
OSStatus OSLAudio_InputCapture::UpdateLatency()
{
    mLatencyFrames = 0;
    AudioDeviceID device = 0;
    UInt32 deviceFrames = 0;
    AudioStreamBasicDescription deviceDesc{}, desc{};
    Float64 unitSeconds = 0;
    if (const OSStatus error = GetDeviceID(&device)) return error;
    if (const OSStatus error = GetLatency(&deviceFrames)) return error;
    if (const OSStatus error = GetDeviceDesc(device, &deviceDesc)) return error;
    if (const OSStatus error = GetAudioDesc(&desc)) return error;
    return GetUnitProperty(mOutputUnit, kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0, &unitSeconds);
}
