// Which sources go to which channels: sources by their device's UID, channels of the mixer, muting.
#include "capture/CVNMatrixedCapture.h"
#include "capture/Status.h"
#include "platform/foundation/CFDictionary.h"

#include <algorithm>

OSLAudio_InputCapture* CVNMatrixedCapture::GetCaptureWithSource(CFStringRef source)
{
    for (const auto& input : mInputs) {
        OSLAudio_InputCapture* const capture = input->GetSource();
        if (!capture) continue;
        const auto sources = cf::Ref<cf::Array>::Adopt(capture->CopyCapturedSources());
        if (sources && CFArrayContainsValue(sources.Get(), source)) return capture;
    }
    return nullptr;
}

OSStatus CVNMatrixedCapture::GetChannelsForMixerSource(CFStringRef source, UInt32* firstChannel, UInt32* channelCount)
{
    const OSLAudio_InputCapture* const capture = GetCaptureWithSource(source);
    if (!capture) return capture::kSourceNotFound;
    if (!mMixer) return kAudioUnitErr_Uninitialized;
    for (UInt32 bus = 0; bus < mInputs.size(); ++bus) {
        OSLAudio_Source* onBus = nullptr;
        if (const OSStatus error = mMixer->GetInputAudioSource(bus, &onBus)) return error;
        // On the bus is an input, found was that input's source: the two are never the same, so that every caller sees
        // an empty range and no channel of a source can be moved. That stays.
        if (static_cast<const void*>(onBus) == static_cast<const void*>(capture))
            return mMixer->GetChannelRange(kAudioUnitScope_Input, bus, firstChannel, channelCount);
    }
    return 0;
}

OSStatus CVNMatrixedCapture::FindMixerChannel(CFStringRef source, UInt32 sourceChannel, UInt32* channel, bool* found)
{
    UInt32 first = 0, count = 0;
    *found = false;
    if (const OSStatus error = GetChannelsForMixerSource(source, &first, &count)) return error;
    *found = sourceChannel < count;
    *channel = first + sourceChannel;
    return 0;
}

OSStatus CVNMatrixedCapture::SetSourceCrossVolume(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel,
                                                  float volume)
{
    UInt32 channel = 0;
    bool found = false;
    FindMixerChannel(source, sourceChannel, &channel, &found);  // a source that is not there is connected to nothing
    if (found) mMixer->SetCrossVolume(channel, outputChannel, volume);
    return 0;
}

OSStatus CVNMatrixedCapture::ConnectSourceChannel(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel)
{
    return SetSourceCrossVolume(source, sourceChannel, outputChannel, 1.0F);
}

OSStatus CVNMatrixedCapture::DisconnectSourceChannel(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel)
{
    return SetSourceCrossVolume(source, sourceChannel, outputChannel, 0.0F);
}

OSStatus CVNMatrixedCapture::DisconnectSourceChannel(CFStringRef source, UInt32 sourceChannel)
{
    UInt32 outputs = 0;
    if (const OSStatus error = GetMixerOutputChannelCount(&outputs)) return error;
    for (UInt32 output = 0; output < outputs; ++output) DisconnectSourceChannel(source, sourceChannel, output);
    return 0;
}

bool CVNMatrixedCapture::IsSourceConnected(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel)
{
    UInt32 channel = 0;
    bool found = false;
    float volume = 0;
    return FindMixerChannel(source, sourceChannel, &channel, &found) == 0 && found &&
           mMixer->GetCrossVolume(channel, outputChannel, &volume) == 0 && volume == 1.0F;
}

OSStatus CVNMatrixedCapture::DisconnectAllSources()
{
    if (mInputs.empty()) return 0;
    if (!mMixer) return kAudioUnitErr_Uninitialized;
    UInt32 first = 0, rows = 0, outputs = 0;
    if (const OSStatus error =
            mMixer->GetChannelRange(kAudioUnitScope_Input, UInt32(mInputs.size() - 1), &first, &rows))
        return error;
    if (const OSStatus error = GetMixerOutputChannelCount(&outputs)) return error;
    // Rows from the first on, as many as the last bus has: sources before it stay connected beyond those. That stays.
    for (UInt32 row = 0; row < rows; ++row) {
        for (UInt32 output = 0; output < outputs; ++output) {
            if (const OSStatus error = mMixer->SetCrossVolume(row, output, 0.0F)) return error;
        }
    }
    return 0;
}

OSStatus CVNMatrixedCapture::SetMixerSourceVolume(CFStringRef source, UInt32 sourceChannel, float volume)
{
    UInt32 channel = 0;
    bool found = false;
    if (const OSStatus error = FindMixerChannel(source, sourceChannel, &channel, &found)) return error;
    return found ? mMixer->SetInputVolume(channel, volume) : 0;
}

OSStatus CVNMatrixedCapture::GetMixerSourceVolume(CFStringRef source, UInt32 sourceChannel, float* volume)
{
    UInt32 channel = 0;
    bool found = false;
    if (const OSStatus error = FindMixerChannel(source, sourceChannel, &channel, &found)) return error;
    return found ? mMixer->GetInputVolume(channel, volume) : 0;
}

OSStatus CVNMatrixedCapture::SetMixerInputVolume(UInt32 channel, float volume)
{
    return mMixer ? mMixer->SetInputVolume(channel, volume) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::GetMixerInputVolume(UInt32 channel, float* volume)
{
    return mMixer ? mMixer->GetInputVolume(channel, volume) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::SetMixerOutputVolume(UInt32 channel, float volume)
{
    return mMixer ? mMixer->SetOutputVolume(channel, volume) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::GetMixerOutputVolume(UInt32 channel, float* volume)
{
    return mMixer ? mMixer->GetOutputVolume(channel, volume) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::GetMixerInputChannelCount(UInt32* count)
{
    return mMixer ? mMixer->GetNumberChannels(kAudioUnitScope_Input, count) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::GetMixerOutputChannelCount(UInt32* count)
{
    return mMixer ? mMixer->GetNumberChannels(kAudioUnitScope_Output, count) : kAudioUnitErr_Uninitialized;
}

OSStatus CVNMatrixedCapture::SetSoftwareSourcesMuted(bool muted)
{
    OSStatus first = 0;
    for (const auto& input : mInputs) {
        const OSStatus error = mIsRunning ? MuteSource(*input, muted) : 0;
        if (!first) first = error;
    }
    mSoftwareSourcesMuted = muted;
    return first;
}

/// @return 0 for one that cannot be muted, too; else kAudio_MemFullError
OSStatus CVNMatrixedCapture::MuteSource(const OSLAudio_ConvertedInputCapture& input, bool muted)
{
    OSLAudio_InputCapture& source = *input.GetSource();
    return source.IsMutable() ? capture::StatusOf([&] { return source.SetMuted(muted); }) : 0;
}

bool CVNMatrixedCapture::IsSoftwareSourcesMuted()
{
    return std::all_of(mInputs.begin(), mInputs.end(), [](const auto& input) {
        return !input->GetSource()->IsMutable() || input->GetSource()->IsMuted();
    });
}
