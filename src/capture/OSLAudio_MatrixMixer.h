// OSLAudio_MatrixMixer: the platform's matrix mixer as a source, with a source behind each of its input buses.
// Why: all arithmetic of mixing is the unit's. This says how many buses there are, what is on them, and which volumes
// they start with.
// Start at Create, SetInputAudioSource and Initialize.
#pragma once

#include "capture/OSLAudio_Source.h"

#include <vector>

/// Operations are for control threads, one at a time. Render is the I/O thread's; volumes may change beside it.
/// Channels are counted across all buses of a scope.
class OSLAudio_MatrixMixer final : public OSLAudio_Source {
public:
    OSLAudio_MatrixMixer() = default;
    OSLAudio_MatrixMixer(const OSLAudio_MatrixMixer&) = delete;
    OSLAudio_MatrixMixer& operator=(const OSLAudio_MatrixMixer&) = delete;
    /// Gives the unit up where Uninitialize has not.
    ~OSLAudio_MatrixMixer();

    /// What output bus 0 gives.
    OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) override;
    OSStatus SetMaxRenderSlice(UInt32 frames) override;
    OSStatus GetMaxRenderSlice(UInt32* frames) override;
    /// @return 0 with silence, too, where a source is merely not ready; what other buses gave is kept for the next time
    OSStatus Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                    AudioBufferList* data) CORVANE_REALTIME override;

    /// Opens the unit. @return 0, 1 where there is no such component, or the platform's status
    OSStatus Create(UInt32 inputBuses, UInt32 outputBuses);
    /// Says what is on a bus; the caller's, and null for silence. Before Initialize. @return 0
    OSStatus SetInputAudioSource(UInt32 bus, OSLAudio_Source* source);
    OSStatus GetInputAudioSource(UInt32 bus, OSLAudio_Source** source);
    OSStatus SetStreamDesc(UInt32 scope, UInt32 element, AudioStreamBasicDescription* desc);
    OSStatus GetStreamDesc(UInt32 scope, UInt32 element, AudioStreamBasicDescription* desc);

    /// Gives the buses the formats of their sources, and all volumes their start. A bus without a source takes no
    /// format: those after it take one place less.
    OSStatus Initialize();
    OSStatus Uninitialize();
    /// Everything at 1, and input channel c on output channel c mod outputs. Other crosspoints stay.
    OSStatus ResetVolumes();
    /// Forgets blocks that were kept. @thread the I/O thread @realtime yes
    OSStatus Reset() noexcept;

    /// @param element  (input << 16) | output, either of them 0xFFFF for all
    OSStatus SetVolume(UInt32 element, float volume);
    OSStatus GetVolume(UInt32 element, float* volume);
    OSStatus SetInputVolume(UInt32 channel, float volume);
    OSStatus GetInputVolume(UInt32 channel, float* volume);
    OSStatus SetOutputVolume(UInt32 channel, float volume);
    OSStatus GetOutputVolume(UInt32 channel, float* volume);
    OSStatus SetCrossVolume(UInt32 input, UInt32 output, float volume);
    OSStatus GetCrossVolume(UInt32 input, UInt32 output, float* volume);

    /// The channels of a bus; zeros after a failure.
    OSStatus GetChannelRange(UInt32 scope, UInt32 bus, UInt32* firstChannel, UInt32* channelCount);
    /// @param scope  1: input channels, 2: output channels, 0: both together
    OSStatus GetNumberChannels(UInt32 scope, UInt32* count);

    /// Says who fills an input bus.
    OSStatus SetRenderCallback(UInt32 bus, AURenderCallback callback, void* refCon);
    /// Fills a bus from its source. @thread the I/O thread @realtime yes
    OSStatus RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                            AudioBufferList* data) CORVANE_REALTIME;

private:
    OSStatus AddLastRange(UInt32 scope, UInt32 buses, UInt32* count);
    OSStatus SetAllVolumes(UInt32 inputChannels, UInt32 outputChannels);
    OSStatus ConnectBus(UInt32 bus, UInt32 outputChannels);

    AudioUnit mMixerUnit = nullptr;
    UInt32 mInputBusCount = 0;
    UInt32 mOutputBusCount = 0;
    std::vector<OSLAudio_Source*> mSourcesByBus;
};

/// What the unit pulls a bus from; `mixer` is an OSLAudio_MatrixMixer. @thread the I/O thread @realtime yes
OSStatus OSLAudio_MatrixMixerCallback(void* mixer, UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                      AudioBufferList* data);
