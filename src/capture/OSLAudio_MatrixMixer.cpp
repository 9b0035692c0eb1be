#include "capture/OSLAudio_MatrixMixer.h"

#include "capture/Status.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "capture/buffers/UnitCalls.h"

using capture::GetUnitProperty;
using capture::SetUnitProperty;

namespace {

constexpr UInt32 kVolume = 0;  // the unit's one parameter
constexpr UInt32 kAll = 0xFFFF;

constexpr UInt32 Crosspoint(UInt32 input, UInt32 output)
{
    return input << 16 | output;
}

}  // namespace

OSStatus OSLAudio_MatrixMixerCallback(void* mixer, UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                      AudioBufferList* data)
{
    return static_cast<OSLAudio_MatrixMixer*>(mixer)->RenderCallback(flags, time, bus, frames, data);
}

OSLAudio_MatrixMixer::~OSLAudio_MatrixMixer()
{
    if (mMixerUnit) Uninitialize();
}

OSStatus OSLAudio_MatrixMixer::Create(UInt32 inputBuses, UInt32 outputBuses)
{
    if (const OSStatus error = capture::StatusOf([&] {
            mSourcesByBus.assign(inputBuses, nullptr);
            return 0;
        }))
        return error;
    if (const OSStatus error = capture::OpenUnit(FourCC("aumx"), FourCC("mxmx"), &mMixerUnit)) return error;
    if (const OSStatus error =
            SetUnitProperty(mMixerUnit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, inputBuses))
        return error;
    if (const OSStatus error =
            SetUnitProperty(mMixerUnit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, 0, outputBuses))
        return error;
    mInputBusCount = inputBuses;
    mOutputBusCount = outputBuses;
    for (UInt32 bus = 0; bus < inputBuses; ++bus) {
        if (const OSStatus error = SetRenderCallback(bus, OSLAudio_MatrixMixerCallback, this)) return error;
    }
    return 0;
}

OSStatus OSLAudio_MatrixMixer::SetRenderCallback(UInt32 bus, AURenderCallback callback, void* refCon)
{
    const AURenderCallbackStruct value = {callback, refCon};
    return SetUnitProperty(mMixerUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, bus, value);
}

OSStatus OSLAudio_MatrixMixer::SetInputAudioSource(UInt32 bus, OSLAudio_Source* source)
{
    mSourcesByBus[bus] = source;
    return 0;
}

OSStatus OSLAudio_MatrixMixer::GetInputAudioSource(UInt32 bus, OSLAudio_Source** source)
{
    *source = mSourcesByBus[bus];
    return 0;
}

OSStatus OSLAudio_MatrixMixer::SetStreamDesc(UInt32 scope, UInt32 element, AudioStreamBasicDescription* desc)
{
    return SetUnitProperty(mMixerUnit, kAudioUnitProperty_StreamFormat, scope, element, *desc);
}

OSStatus OSLAudio_MatrixMixer::GetStreamDesc(UInt32 scope, UInt32 element, AudioStreamBasicDescription* desc)
{
    return GetUnitProperty(mMixerUnit, kAudioUnitProperty_StreamFormat, scope, element, desc);
}

OSStatus OSLAudio_MatrixMixer::GetRenderDesc(AudioStreamBasicDescription* desc)
{
    return GetStreamDesc(kAudioUnitScope_Output, 0, desc);
}

OSStatus OSLAudio_MatrixMixer::SetMaxRenderSlice(UInt32 frames)
{
    return SetUnitProperty(mMixerUnit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, frames);
}

OSStatus OSLAudio_MatrixMixer::GetMaxRenderSlice(UInt32* frames)
{
    return GetUnitProperty(mMixerUnit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, frames);
}

OSStatus OSLAudio_MatrixMixer::Initialize()
{
    UInt32 element = 0;
    for (OSLAudio_Source* const source : mSourcesByBus) {
        if (!source) continue;  // takes no element, though it has a bus: those after it are described one bus lower
        AudioStreamBasicDescription desc{};
        if (const OSStatus error = source->GetRenderDesc(&desc)) return error;
        if (desc.mChannelsPerFrame == 1) desc.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
        if (const OSStatus error = SetStreamDesc(kAudioUnitScope_Input, element, &desc)) return error;
        ++element;
    }
    if (const OSStatus error = AudioUnitInitialize(mMixerUnit)) return error;
    return ResetVolumes();
}

OSStatus OSLAudio_MatrixMixer::Uninitialize()
{
    if (!mMixerUnit) return 0;
    AudioUnitUninitialize(mMixerUnit);  // neither result helps anybody: the unit is not used again
    CloseComponent(mMixerUnit);
    mMixerUnit = nullptr;
    return 0;
}

OSStatus OSLAudio_MatrixMixer::Reset() noexcept
{
    return AudioUnitReset(mMixerUnit, kAudioUnitScope_Global, 0);
}

OSStatus OSLAudio_MatrixMixer::Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                      AudioBufferList* data) CORVANE_REALTIME
{
    return AudioUnitRender(mMixerUnit, flags, time, bus, frames, data);
}

OSStatus OSLAudio_MatrixMixer::RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                              AudioBufferList* data) CORVANE_REALTIME
{
    OSLAudio_Source* const source = mSourcesByBus[bus];
    if (source) return source->Render(flags, time, bus, frames, data);
    CAAudioBufferList::Clear(*data);
    return 0;
}

OSStatus OSLAudio_MatrixMixer::SetVolume(UInt32 element, float volume)
{
    return AudioUnitSetParameter(mMixerUnit, kVolume, kAudioUnitScope_Global, element, volume, 0);
}

OSStatus OSLAudio_MatrixMixer::GetVolume(UInt32 element, float* volume)
{
    return AudioUnitGetParameter(mMixerUnit, kVolume, kAudioUnitScope_Global, element, volume);
}

OSStatus OSLAudio_MatrixMixer::SetInputVolume(UInt32 channel, float volume)
{
    return SetVolume(Crosspoint(channel, kAll), volume);
}

OSStatus OSLAudio_MatrixMixer::GetInputVolume(UInt32 channel, float* volume)
{
    return GetVolume(Crosspoint(channel, kAll), volume);
}

OSStatus OSLAudio_MatrixMixer::SetOutputVolume(UInt32 channel, float volume)
{
    return SetVolume(Crosspoint(kAll, channel), volume);
}

OSStatus OSLAudio_MatrixMixer::GetOutputVolume(UInt32 channel, float* volume)
{
    return GetVolume(Crosspoint(kAll, channel), volume);
}

OSStatus OSLAudio_MatrixMixer::SetCrossVolume(UInt32 input, UInt32 output, float volume)
{
    return SetVolume(Crosspoint(input, output), volume);
}

OSStatus OSLAudio_MatrixMixer::GetCrossVolume(UInt32 input, UInt32 output, float* volume)
{
    return GetVolume(Crosspoint(input, output), volume);
}

OSStatus OSLAudio_MatrixMixer::GetChannelRange(UInt32 scope, UInt32 bus, UInt32* firstChannel, UInt32* channelCount)
{
    *firstChannel = 0;
    *channelCount = 0;
    UInt32 before = 0;
    AudioStreamBasicDescription desc{};
    for (UInt32 element = 0; element < bus; ++element) {
        if (const OSStatus error = GetStreamDesc(scope, element, &desc)) return error;
        before += desc.mChannelsPerFrame;
    }
    if (const OSStatus error = GetStreamDesc(scope, bus, &desc)) return error;
    *firstChannel = before;
    *channelCount = desc.mChannelsPerFrame;
    return 0;
}

OSStatus OSLAudio_MatrixMixer::GetNumberChannels(UInt32 scope, UInt32* count)
{
    *count = 0;
    if (scope == kAudioUnitScope_Global || scope == kAudioUnitScope_Input) {
        if (const OSStatus error = AddLastRange(kAudioUnitScope_Input, mInputBusCount, count)) return error;
    }
    if (scope == kAudioUnitScope_Global || scope == kAudioUnitScope_Output) {
        if (const OSStatus error = AddLastRange(kAudioUnitScope_Output, mOutputBusCount, count)) return error;
    }
    return 0;
}

/// Adds the channels up to and with the last bus: all of the scope.
OSStatus OSLAudio_MatrixMixer::AddLastRange(UInt32 scope, UInt32 buses, UInt32* count)
{
    if (buses == 0) return 0;
    UInt32 first = 0, channels = 0;
    if (const OSStatus error = GetChannelRange(scope, buses - 1, &first, &channels)) return error;
    *count += first + channels;
    return 0;
}

OSStatus OSLAudio_MatrixMixer::ResetVolumes()
{
    UInt32 inputChannels = 0, outputChannels = 0;
    if (const OSStatus error = GetNumberChannels(kAudioUnitScope_Input, &inputChannels)) return error;
    if (const OSStatus error = GetNumberChannels(kAudioUnitScope_Output, &outputChannels)) return error;
    if (const OSStatus error = SetAllVolumes(inputChannels, outputChannels)) return error;
    for (UInt32 bus = 0; bus < mInputBusCount; ++bus) {
        if (const OSStatus error = ConnectBus(bus, outputChannels)) return error;
    }
    return 0;
}

OSStatus OSLAudio_MatrixMixer::SetAllVolumes(UInt32 inputChannels, UInt32 outputChannels)
{
    if (const OSStatus error = SetVolume(Crosspoint(kAll, kAll), 1.0F)) return error;
    for (UInt32 channel = 0; channel < inputChannels; ++channel) {
        if (const OSStatus error = SetInputVolume(channel, 1.0F)) return error;
    }
    for (UInt32 channel = 0; channel < outputChannels; ++channel) {
        if (const OSStatus error = SetOutputVolume(channel, 1.0F)) return error;
    }
    return 0;
}

OSStatus OSLAudio_MatrixMixer::ConnectBus(UInt32 bus, UInt32 outputChannels)
{
    UInt32 first = 0, count = 0;
    if (const OSStatus error = GetChannelRange(kAudioUnitScope_Input, bus, &first, &count)) return error;
    for (UInt32 channel = first; channel < first + count; ++channel) {
        if (const OSStatus error = SetCrossVolume(channel, channel % outputChannels, 1.0F)) return error;
    }
    return 0;
}
