#include "platform/audio/units/InputUnit.h"

#include "platform/vector/VectorKernels.h"

#include <algorithm>
#include <cmath>

namespace platform::audio::units {

std::span<const PropertyRow> InputUnit::Properties() const noexcept
{
    constexpr unsigned kReadWrite = PropertyRow::kRead | PropertyRow::kWrite;
    static constexpr PropertyRow kRows[] = {
        {kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, sizeof(AudioStreamBasicDescription),
         PropertyRow::kRead},
        FormatRow(kAudioUnitScope_Output),
        kSliceRow,
        kLatencyRow,
        {kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, sizeof(AudioDeviceID),
         kReadWrite | PropertyRow::kFixed},
        {kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Input, 0, PropertyRow::kWrite | PropertyRow::kFixed},
        {kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, 0, PropertyRow::kRead},
        {kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, sizeof(UInt32), PropertyRow::kWrite},
        {kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, sizeof(UInt32), PropertyRow::kWrite},
        {kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, sizeof(AURenderCallbackStruct),
         PropertyRow::kWrite},
        {kAudioOutputUnitProperty_StartTimestampsAtZero, kAudioUnitScope_Global, sizeof(UInt32), PropertyRow::kWrite},
    };
    return kRows;
}

UInt32 InputUnit::PropertyBytes(const PropertyAddress& address) const
{
    return mOutputs[address.mElement].mChannelsPerFrame * UInt32(sizeof(SInt32));
}

void InputUnit::Read(const PropertyAddress& address, void* data) const
{
    switch (address.mProperty) {
        case kAudioOutputUnitProperty_CurrentDevice:
            return Give(mDevice, data);
        case kAudioOutputUnitProperty_ChannelMap:
            for (UInt32 channel = 0; channel < mOutputs[kDeviceElement].mChannelsPerFrame; ++channel)
                Give(DeviceChannel(channel), static_cast<SInt32*>(data) + channel);
            return;
        default:
            return Unit::Read(address, data);
    }
}

OSStatus InputUnit::Write(const PropertyAddress& address, const void* data, UInt32 bytes)
{
    switch (address.mProperty) {
        case kAudioOutputUnitProperty_CurrentDevice:
            return SetDevice(Taken<AudioDeviceID>(data));
        case kAudioOutputUnitProperty_ChannelMap:
            return SetMap(data, bytes);
        case kAudioOutputUnitProperty_SetInputCallback:
            return SetCallback(Taken<AURenderCallbackStruct>(data));
        case kAudioOutputUnitProperty_EnableIO: {  // it is an input, and cannot be anything else
            const bool enabled = Taken<UInt32>(data) != 0;
            return enabled == (address.mScope == kAudioUnitScope_Input) ? 0 : kAudio_ParamError;
        }
        case kAudioOutputUnitProperty_StartTimestampsAtZero:  // stamps are the device's own
            return Taken<UInt32>(data) == 0 ? 0 : kAudio_ParamError;
        default:
            return Unit::Write(address, data, bytes);
    }
}

OSStatus InputUnit::SetDevice(AudioDeviceID device)
{
    AudioStreamBasicDescription format{};
    UInt32 bytes = sizeof format;
    if (const OSStatus error =
            AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyStreamFormat, &bytes, &format))
        return error;
    if (!IsFloat(format)) return kAudioUnitErr_FormatNotSupported;
    mDevice = device;
    mInputs[kDeviceElement].mFormat = format;
    return 0;
}

OSStatus InputUnit::SetMap(const void* data, UInt32 bytes)
{
    if (bytes % sizeof(SInt32) != 0) return kAudio_ParamError;
    const auto* const channels = static_cast<const SInt32*>(data);
    mMap.assign(channels, channels + bytes / sizeof(SInt32));
    return 0;
}

OSStatus InputUnit::SetCallback(const AURenderCallbackStruct& callback)
{
    if (mInput) return kAudioUnitErr_Initialized;
    mCallback = callback;
    return 0;
}

bool InputUnit::Takes(const PropertyAddress& address, const AudioStreamBasicDescription& format) const
{
    return address.mElement == kDeviceElement && BufferCount(format) == 1;
}

/// What of the device a client's channel is; -1: nothing.
SInt32 InputUnit::DeviceChannel(UInt32 clientChannel) const noexcept
{
    if (mMap.empty()) return SInt32(clientChannel);
    return clientChannel < mMap.size() ? mMap[clientChannel] : -1;
}

OSStatus InputUnit::Prepare()
{
    const AudioStreamBasicDescription& client = mOutputs[kDeviceElement];
    if (mDevice == 0) return kAudioUnitErr_FailedInitialization;
    if (client.mSampleRate != mInputs[kDeviceElement].mFormat.mSampleRate || BufferCount(client) != 1)
        return kAudioUnitErr_FormatNotSupported;
    mSilence.assign(SliceFrames(), 0);
    mClientData.resize(client.mChannelsPerFrame);
    return 0;
}

OSStatus InputUnit::Start()
{
    if (!IsInitialized()) return kAudioUnitErr_Uninitialized;
    if (mInput) return 0;
    try {
        mInput = std::make_unique<DeviceInput>(mDevice, static_cast<DeviceInputClient&>(*this));
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    return 0;
}

OSStatus InputUnit::Stop()
{
    mInput.reset();
    return 0;
}

/// In pieces of a slice at most: clients have made room for no more.
void InputUnit::TakeBuffer(const AudioTimeStamp& time, UInt32 frames,
                           std::span<const float* const> channels) CORVANE_REALTIME
{
    if (!mCallback.inputProc) return;
    mChannels = channels;
    for (UInt32 first = 0; first < frames; first += SliceFrames())
        Announce(time, first, std::min(frames - first, SliceFrames()));
    mFrames = 0;
}

void InputUnit::Announce(const AudioTimeStamp& time, UInt32 first, UInt32 frames) CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    const double nanosAFrame = 1e9 / mOutputs[kDeviceElement].mSampleRate * time.mRateScalar;
    AudioTimeStamp stamp = time;
    stamp.mSampleTime += first;
    stamp.mHostTime += uint64_t(std::llround(nanosAFrame * first));
    mFirstFrame = first;
    mFrames = frames;
    AudioUnitRenderActionFlags flags = 0;
    // What comes of it is the client's: the device goes on either way.
    mCallback.inputProc(mCallback.inputProcRefCon, &flags, &stamp, kDeviceElement, frames, nullptr);
}

const float* InputUnit::InHand(UInt32 clientChannel) const noexcept
{
    const SInt32 channel = DeviceChannel(clientChannel);
    const bool there = channel >= 0 && size_t(channel) < mChannels.size() && mChannels[channel];
    return there ? mChannels[channel] + mFirstFrame : mSilence.data();
}

OSStatus InputUnit::Produce(const Pull&, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    if (bus != kDeviceElement) return kAudioUnitErr_InvalidElement;
    if (frames > mFrames) return mFrames == 0 ? kAudioUnitErr_NoConnection : kAudioUnitErr_TooManyFramesToProcess;
    const auto channels = UInt32(mClientData.size());
    for (UInt32 channel = 0; channel < channels; ++channel) mClientData[channel] = InHand(channel);
    auto* const samples = static_cast<float*>(data->mBuffers[0].mData);
    for (UInt32 first = 0; first < channels; first += vector::kWeaveChannels) {
        const UInt32 count = std::min(channels - first, vector::kWeaveChannels);
        vector::Interleave(mClientData.data() + first, count, samples + first, channels, frames);
    }
    return 0;
}

}  // namespace platform::audio::units
