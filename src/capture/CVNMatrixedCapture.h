// CVNMatrixedCapture: several free-running sources as one stream: aligned once, and then counted.
// Why: applications and microphones start when they like and run on clocks of their own. The input that began last says
// at which moment all have sound; every read head is put there, and moves only by what the mixer pulls.
// Start at AddAudioSupportCapture and AddInputDeviceCapture, then Initialize, Resume, and Render once a cycle; Pause
// and Uninitialize end it. CVNMatrixedCaptureBuild.cpp makes and ends the graph, CVNMatrixedCaptureMix.cpp says who is
// heard where, CVNMatrixedCapture.cpp is the cycle.
#pragma once

#include "capture/OSLAudio_ConvertedInputCapture.h"
#include "capture/OSLAudio_MatrixMixer.h"
#include "utility/CAMutex.h"

#include <cstddef>
#include <string>

/// Cycles since Initialize. Counts wrap.
struct CVNRenderCounts {
    uint32_t mWaitingCycles = 0;   // silent: some input has not begun, or begins anew
    uint32_t mSilentCycles = 0;    // silent, though all have begun: some input is late, or far behind
    uint32_t mBehindCycles = 0;    // cycles of inputs that were behind, since the last reset
    uint64_t mClippedSamples = 0;  // samples of the mix, in all its channels, that were beyond full scale and were cut
};

/// How one input does.
struct CVNInputStatus {
    bool mHasData = false;       // it has delivered since it was made or begun anew
    uint32_t mSilentFrames = 0;  // frames of the mix that it has kept silent in a row, up to now; 0: it delivers
    uint64_t mLastHostTime = 0;  // stamp of its latest buffer; 0: none
    uint64_t mMissedFrames = 0;  // that the server did not deliver, or not in time; in frames of the source
    uint64_t mLostFrames = 0;    // that came and had no room
};

/// Operations are for control threads, one at a time, save those that say otherwise. What reads inputs or mixer on
/// another thread must not meet Add..., Initialize or Uninitialize.
class CVNMatrixedCapture final : public OSLAudio_Source {
public:
    /// The most frames of one Render.
    static constexpr UInt32 kMaxRenderFrames = 8192;

    CVNMatrixedCapture();
    CVNMatrixedCapture(const CVNMatrixedCapture&) = delete;
    CVNMatrixedCapture& operator=(const CVNMatrixedCapture&) = delete;
    /// To be stopped first.
    ~CVNMatrixedCapture();

    /// The format of the mix.
    OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) override;
    /// The slice is what it is: does nothing, and says 0xFFFFFFFF.
    OSStatus SetMaxRenderSlice(UInt32 frames) override;
    OSStatus GetMaxRenderSlice(UInt32* frames) override;

    /// Gives the next frames of the mix, limited to [-1, 1], or silence where not every input has sound for it.
    ///
    /// @param time    the client's; handed through. What is given follows on what was given before
    /// @param frames  1 .. kMaxRenderFrames
    /// @param data    non-interleaved floats, sized for `frames`
    /// @return        0, with sound or silence; else the mixer's error, with `data` as it was
    /// @thread        the I/O thread, one at a time
    /// @realtime      yes, but for the mutex, which control holds for the flip of one flag
    OSStatus Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                    AudioBufferList* data) CORVANE_REALTIME override;

    // ---- Building

    OSStatus GetCaptureDesc(AudioStreamBasicDescription* desc);
    /// Before the sources are added.
    OSStatus SetCaptureDesc(AudioStreamBasicDescription* desc);
    /// Channels that hardware inputs shall have; other numbers than 1 and 2 mean the device's own. Before they are
    /// added.
    void SetOutputChannelCount(UInt32 channels) { mOutputChannelCount = channels; }

    /// Adds a tap. @param applications, devices  as OSLAudio_SupportCapture::Create has them
    /// @return 0, or a status with nothing added
    OSStatus AddAudioSupportCapture(CFArrayRef applications, CFArrayRef devices);
    /// Adds a hardware input.
    ///
    /// @param deviceUID   kDefaultInputDeviceUID: what is the default input now
    /// @param dataSource  one of the device's; 0: as it is
    OSStatus AddInputDeviceCapture(CFStringRef deviceUID, UInt32 dataSource);
    static constexpr char kDefaultInputDeviceUID[] = "com.ostrel.audio.default_input_device";
    /// Adds any source that has been created. @param channels  what it delivers
    OSStatus AddInput(std::unique_ptr<OSLAudio_InputCapture> source, UInt32 channels);

    /// Makes the mixer for the inputs that were added. After a failure Uninitialize takes back what was made.
    OSStatus Initialize();
    /// Ends the graph; no Render touches it from here on.
    OSStatus Uninitialize();
    /// Stops the sources. What follows is aligned anew: their timelines may count otherwise when they start again.
    OSStatus Pause();
    /// Starts them. One that fails leaves those before it running.
    /// @return 0, or the first failing step's status; ExplainRefusal says more of kAudioUnitErr_FormatNotSupported
    OSStatus Resume();
    /// Why an input cannot be mixed, as a sentence for a person that says what to do; empty where it can, or is none.
    std::string ExplainRefusal(size_t index) const;

    // ---- The cycle, and what goes with it. @thread the I/O thread @realtime yes

    /// Moves all read heads on by frames that the client will not read. @return 0
    OSStatus SkipFrames(double frames) noexcept;
    /// Moves all read heads by as many frames of their own, a fraction left out, whatever their rates.
    void AdjustReadTime(double frames) noexcept;
    /// Opens the gate of every input.
    void AllowRendering() noexcept;
    /// The input whose first stamp is the latest, and that stamp; null until all have one.
    ///
    /// @param requireAll  always true
    OSLAudio_ConvertedInputCapture* GetLatestTimeStamp(AudioTimeStamp* latest, bool requireAll) noexcept;
    /// Puts every read head at the moment of `time`, and notes for every input whether it can be read there.
    ///
    /// @return 0, or a RingStatus: the first negative one, or else the first positive one
    OSStatus SynchronizeInputs(AudioTimeStamp* time, OSLAudio_ConvertedInputCapture* reference, UInt32 frames) noexcept;
    /// Counts a buffer of the first input. @thread that source's
    void InputRendered() noexcept { mRenderCount.fetch_add(1, std::memory_order_relaxed); }

    /// Changes the rate of the mix, blunt as it is: while running every input takes a fresh graph, which gives nothing
    /// until the next start. Mixer, rings and read heads stay.
    void UpdateOutputSampleRate(double rateHz);

    // ---- Which sources go to which channels. Before Initialize there is no mixer, and volumes and counts are
    // kAudioUnitErr_Uninitialized.

    /// Connects a source's channel to one of the mix, at volume 1. @return 0 whatever came of it, as below
    OSStatus ConnectSourceChannel(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel);
    OSStatus DisconnectSourceChannel(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel);
    OSStatus DisconnectSourceChannel(CFStringRef source, UInt32 sourceChannel);
    bool IsSourceConnected(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel);
    /// Clears the crosspoints of as many inputs, from the first on, as the last bus has channels.
    OSStatus DisconnectAllSources();
    /// The mixer's channels of a source; left alone where no bus has it.
    /// @return 0, or capture::kSourceNotFound
    OSStatus GetChannelsForMixerSource(CFStringRef source, UInt32* firstChannel, UInt32* channelCount);
    /// The source that captures the device of this UID, or null.
    OSLAudio_InputCapture* GetCaptureWithSource(CFStringRef source);
    OSStatus SetMixerSourceVolume(CFStringRef source, UInt32 sourceChannel, float volume);
    OSStatus GetMixerSourceVolume(CFStringRef source, UInt32 sourceChannel, float* volume);
    OSStatus SetMixerInputVolume(UInt32 channel, float volume);
    OSStatus GetMixerInputVolume(UInt32 channel, float* volume);
    OSStatus SetMixerOutputVolume(UInt32 channel, float volume);
    OSStatus GetMixerOutputVolume(UInt32 channel, float* volume);
    OSStatus GetMixerInputChannelCount(UInt32* count);
    OSStatus GetMixerOutputChannelCount(UInt32* count);
    /// Whether taps keep what they take from being heard; remembered for those still to come.
    OSStatus SetSoftwareSourcesMuted(bool muted);
    /// Also true where there is nothing to mute.
    bool IsSoftwareSourcesMuted();

    // ---- How it does

    /// From a sound's moment to the time of its frame in the mix, where the first frame after an alignment has the time
    /// GetAlignedHostTime: the stamps' constant, the converter's delay and the varispeed's, the same for every input.
    ///
    /// @param nanos  of the stamps alone where there is no input
    OSStatus GetLatencyNanos(uint64_t* nanos);
    /// Host time of the first frame of the mix since the latest alignment, on the stamps' clock; 0: none.
    /// @thread any
    uint64_t GetAlignedHostTime() const { return mAlignedHostTime.load(std::memory_order_relaxed); }
    /// @thread any
    CVNRenderCounts GetRenderCounts() const noexcept;
    size_t GetInputCount() const { return mInputs.size(); }
    /// @param index  below GetInputCount, in the order of adding
    CVNInputStatus GetInputStatus(size_t index) const noexcept;
    /// What an input's ring holds for its read head, in frames of the source. @thread the I/O thread
    double GetHeldFrames(size_t index) const noexcept { return mInputs[index]->GetHeldFrames(); }
    /// Takes out the oldest gap in what an input's source delivered that was not taken yet.
    ///
    /// @param ahead    set to the seconds from the first frame of the next Render to the gap in the mix
    /// @param seconds  set to the gap's length
    /// @return         whether there was one @thread the I/O thread
    bool TakeInputGap(size_t index, double* ahead, double* seconds) noexcept;
    /// Prints the state for a person.
    void Dump_Diagnostics();

private:
    enum class Readiness { Waiting, Silent, Ready };

    OSStatus MakeMixer();
    OSStatus MakeMixBuffer();
    AudioStreamBasicDescription DescribeInput(UInt32 channels) const;
    void SetRenderEnabled(bool enabled);
    static OSStatus MuteSource(const OSLAudio_ConvertedInputCapture& input, bool muted);

    void CountClipped(uint64_t samples) noexcept;
    Readiness LookAtInputs(UInt32 frames) noexcept;
    Readiness Align(UInt32 frames) noexcept;
    Readiness CheckInputs(UInt32 frames) noexcept;
    void StartAnew() noexcept;
    void SizeMixBuffer(UInt32 frames) noexcept;
    OSStatus RenderMix(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames) noexcept;
    void CountRefusals(UInt32 frames) noexcept;
    void NoteSilence(UInt32 frames) noexcept;

    /// The crosspoint or input that a source's channel is, where it has one.
    OSStatus FindMixerChannel(CFStringRef source, UInt32 sourceChannel, UInt32* channel, bool* found);
    OSStatus SetSourceCrossVolume(CFStringRef source, UInt32 sourceChannel, UInt32 outputChannel, float volume);

    CAMutex mMutex{"CVNMatrixedCapture"};
    AudioBufferList* mMixBuffer = nullptr;
    UInt32 mMixBufferByteSize = 0;
    AudioStreamBasicDescription mCaptureDesc;
    std::vector<std::unique_ptr<OSLAudio_ConvertedInputCapture>> mInputs;
    std::unique_ptr<OSLAudio_MatrixMixer> mMixer;
    // Stored by Initialize and by the I/O thread, loaded by the I/O thread and by Resume (relaxed: the mutex orders
    // what goes with it).
    std::atomic<bool> mNeedsSynchronize{false};
    std::atomic<bool> mAlignAnewPending{
        false};                          // stored by Pause (release) and Initialize, taken by the I/O thread (acquire)
    bool mAllowRenderingPending = true;  // Initialize's before the first cycle, the I/O thread's after it
    bool mInputCallbackInstalled = false;
    UInt32 mOutputChannelCount = 2;
    bool mRestarting = false;  // never cleared, as the two below: only people read them
    bool mIsPaused = false;
    bool mIsRunning = false;
    bool mRenderEnabled = false;  // under mMutex
    bool mSoftwareSourcesMuted = false;

    // Counts are stored by one thread, the last one by that of the first source, and loaded by any (relaxed).
    std::atomic<uint32_t> mRenderBehindCount{0};
    std::atomic<uint32_t> mWaitingCycles{0};
    std::atomic<uint32_t> mSilentCycles{0};
    std::atomic<uint64_t> mClippedSamples{0};
    std::atomic<uint64_t> mAlignedHostTime{0};
    std::atomic<uint32_t> mRenderCount{0};
};

/// What the first input calls with every buffer; `capture` is a CVNMatrixedCapture. @return 0
/// @thread that source's @realtime yes
OSStatus CVNMatrixedCapture_InputCallback(void* capture, UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                          UInt32 frames, AudioBufferList* data);
