// OSLAudio_SupportCapture: the sound of chosen applications, or of an output device, as a source.
// Why: a tap has no sample clock. This makes one: a running count of frames, tied to host time at the first buffer.
// Start at Create; sound comes in through AVCaptureRender, on the consumer's thread.
#pragma once

#include "avcapture/AVCapture.h"
#include "capture/OSLAudio_InputCapture.h"
#include "capture/PublishedStamp.h"

#include <memory>
#include <optional>
#include <vector>

/// What GetSourceType says of a tap.
constexpr UInt32 kTapSource = FourCC("Csup");

class OSLAudio_SupportCapture final : public OSLAudio_InputCapture {
public:
    OSLAudio_SupportCapture() = default;
    ~OSLAudio_SupportCapture() override;

    UInt32 GetSourceType() override;
    OSStatus SetRenderCallback(AURenderCallback callback, void* refCon) override;
    /// @return capture::kNotInitialized before Initialize
    OSStatus Start() override;
    OSStatus Pause() override;
    OSStatus Stop() override;
    /// The device whose clock is asked for its rate.
    OSStatus GetDeviceID(AudioDeviceID* device) override;
    /// @return capture::kNotInitialized before Initialize
    OSStatus GetAudioDesc(AudioStreamBasicDescription* desc) override;
    /// Null: what is captured has no device's UID.
    CFArrayRef CopyCapturedSources() override;
    OSStatus Initialize() override;
    /// Stops, and ends the session. @return capture::kNotInitialized where there is nothing to end
    OSStatus Uninitialize() override;
    void FillOutTimeStamp(AudioTimeStamp* time) override;
    /// Chooses the device of the greatest output latency. One of no latency is never chosen.
    OSStatus UpdateLatency() override;
    OSStatus SetMuted(bool muted) override;
    bool IsMuted() override;
    bool IsMutable() override;
    /// @return -1 before the first buffer
    OSStatus TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) CORVANE_REALTIME override;
    /// 1: the tap is paced by the host clock.
    double GetRateScalar() CORVANE_REALTIME override;

    /// Opens a session on the tap, paused.
    ///
    /// @param applications  process identifiers, as the session takes them
    /// @param devices       UIDs of output devices; null: the session's choice
    /// @param desc          set to the tap's format, stereo at the fastest device's rate; null: not wanted
    OSStatus Create(CFArrayRef applications, CFArrayRef devices, AudioStreamBasicDescription* desc);
    /// Notes the devices of these UIDs, leaving out what is not there.
    void SetDevices(CFArrayRef deviceUIDs);
    /// The greatest nominal rate among the devices; the default output's where they tell none; else 44,100.
    static double GetMaximimumSampleRateForDeviceUIDs(CFArrayRef deviceUIDs);
    /// What the session's tap counted. @thread control
    AVCaptureLosses GetLosses() const { return mTapSession ? mTapSession->GetLosses() : AVCaptureLosses{}; }
    OSStatus GetDefaultOutputDevice(AudioDeviceID* device);

    /// Stamps a chunk with the moment of its first frame plus the constant of all stamps, and passes it on. @thread the
    /// tap's consumer @realtime yes
    int AVCaptureRender(const void* data, UInt32 byteCount, UInt32 frames, uint64_t hostTime,
                        const AudioStreamBasicDescription& desc) CORVANE_REALTIME;

private:
    void StampChunk() noexcept;
    void StampMoment() noexcept;

    std::vector<AudioDeviceID> mDevices;
    std::unique_ptr<AVCapture> mTapSession;
    AudioStreamBasicDescription mAudioDesc{};
    AURenderCallback mRenderCallback = nullptr;
    void* mRenderRefCon = nullptr;
    AudioTimeStamp mCurrentTime{0, 0, 1.0};  // the consumer's
    capture::PublishedStamp mBaseTime;       // of the first buffer; from the consumer to the I/O thread
    uint64_t mMomentOfFrame0 = 0;            // the session's; 0: it does not say
    uint64_t mStampLatencyNanos = 0;
    std::optional<uint64_t> mFirstFrame;  // the consumer's: the session's number of the first frame that came
    AudioBufferList mTapBufferList{};     // around the tap's data, during a callback
    bool mSoftwareMuted = false;
};

/// What the session calls; `capture` is an OSLAudio_SupportCapture. @thread the tap's consumer @realtime yes
int OSLAudio_SupportCapture_Callback(void* capture, const void* samples, uint32_t byteCount, uint32_t frames,
                                     uint64_t timeUS, AudioStreamBasicDescription desc);
