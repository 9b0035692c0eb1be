// OSLAudio_InputCapture: a live source: it calls back with every buffer that arrives. This class is a hardware input
// device, through an input unit; what is fed in another way derives from it.
// Why: sources push, each on its own thread and clock. What all of them have to answer stands here.
// Start at Create, SetRenderCallback and Start; sound comes in through RenderCallback. Devices, formats and latencies
// are in OSLAudio_InputCaptureDevice.cpp.
#pragma once

#include "platform/audio/AudioUnit.h"
#include "platform/foundation/CFBase.h"
#include "platform/kernel/Realtime.h"

#include <atomic>
#include <cstdint>

/// All operations are for control threads, one at a time, save those that say otherwise.
class OSLAudio_InputCapture {
public:
    OSLAudio_InputCapture() = default;
    OSLAudio_InputCapture(const OSLAudio_InputCapture&) = delete;
    OSLAudio_InputCapture& operator=(const OSLAudio_InputCapture&) = delete;
    /// Ends the source where that has not been done.
    virtual ~OSLAudio_InputCapture();

    /// "Ccap", or "Csup" for a tap.
    virtual UInt32 GetSourceType();

    /// Says who gets the buffers. Before Start.
    virtual OSStatus SetRenderCallback(AURenderCallback callback, void* refCon);
    virtual OSStatus Start();
    /// After these no callback runs and none will, until Start.
    virtual OSStatus Pause();
    virtual OSStatus Stop();

    /// The device that is captured, also where it was asked for as the default one.
    virtual OSStatus GetDeviceID(AudioDeviceID* device);
    /// @param uid  the caller releases it
    virtual OSStatus GetDeviceUID(CFStringRef* uid);
    /// What the callback is given. @thread also the I/O thread
    virtual OSStatus GetAudioDesc(AudioStreamBasicDescription* desc);

    /// For each channel of the description the device's channel, or -1.
    ///
    /// @param map  the caller frees it
    virtual OSStatus GetChannelMap(SInt32** map, UInt32* count);
    virtual OSStatus SetChannelMap(SInt32* map, UInt32 count);

    /// What is captured, by UID; the caller releases it. Null: nothing that has one.
    virtual CFArrayRef CopyCapturedSources();
    virtual OSStatus GetAudioUnit(AudioUnit* unit);

    /// One buffer has arrived: fetches it, and hands it on. @thread the device's @realtime yes
    virtual OSStatus RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                    AudioBufferList* data) CORVANE_REALTIME;

    virtual OSStatus Initialize();
    /// Stops, and gives the unit and the buffers up.
    virtual OSStatus Uninitialize();
    virtual AudioBufferList* GetBufferList();

    /// Latency of the device's input side, in frames; a device of 0 leaves `*frames` alone.
    virtual OSStatus GetLatency(UInt32* frames);
    /// Latency of a device's side and of its slowest stream. The safety offset is read and left out: it is not delay.
    virtual OSStatus GetDeviceLatency(AudioDeviceID device, bool isInput, UInt32* frames);
    /// What is taken off each stamp's sample time.
    virtual SInt32 GetLatencyFrames();
    /// The same in host ticks; 0 where the rate is not known.
    virtual uint64_t HostTimeInputLatency();

    /// Puts a stamp's times right from its sample or host time.
    virtual void FillOutTimeStamp(AudioTimeStamp* time);
    virtual OSStatus UpdateLatency();

    /// Whether what is captured is kept from being heard. @return -1 where the source cannot do that
    virtual OSStatus SetMuted(bool muted);
    virtual bool IsMuted();
    virtual bool IsMutable();

    /// Translates a host time into the source's sample time.
    /// @param out  its flags say what is wanted
    /// @thread     the I/O thread too
    /// @realtime   yes
    virtual OSStatus TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) CORVANE_REALTIME;

    virtual OSStatus OpenInputAU();
    virtual OSStatus CloseInputAU();

    /// @thread the I/O thread, for all that follows @realtime yes
    virtual bool IsRenderReady(const AudioTimeStamp* time, UInt32 frames) CORVANE_REALTIME;
    virtual OSStatus PrepareRender(UInt32 frames) CORVANE_REALTIME;
    /// Host ticks a frame over the nominal, as of the last buffer.
    virtual double GetRateScalar() CORVANE_REALTIME;

    /// Opens a device, and settles on a format.
    ///
    /// @param deviceUID   null: what is the default input now
    /// @param dataSource  one of the device's; 0: as it is
    /// @param desc        what is wanted, and set to what it became: the device's own rate always wins. Null: the
    ///                    device's rate and channels, interleaved floats
    /// @return            0, or the first failing step's status
    OSStatus Create(CFStringRef deviceUID, UInt32 dataSource, AudioStreamBasicDescription* desc);
    /// @param device  0: what is the default input now
    OSStatus Create(AudioDeviceID device, UInt32 dataSource, AudioStreamBasicDescription* desc);

    OSStatus SetAudioDevice(AudioDeviceID device, UInt32 dataSource);
    /// Sets what the callback shall be given, and the channel map that goes with it.
    ///
    /// @param desc  a rate or channels of 0 are the device's; set to what it became
    OSStatus SetAudioDesc(AudioStreamBasicDescription* desc);
    OSStatus GetDefaultDesc(AudioStreamBasicDescription* desc);
    OSStatus GetDeviceDesc(AudioStreamBasicDescription* desc);
    /// A device as one stream that is as wide as all its input streams together.
    static OSStatus GetDeviceDesc(AudioDeviceID device, AudioStreamBasicDescription* desc);
    /// @param uid     null: what is the default input now
    /// @param device  0 where there is none
    static OSStatus GetAudioDeviceWithUID(CFStringRef uid, AudioDeviceID* device);
    OSStatus GetDefaultInputDevice(AudioDeviceID* device);

    /// A list with `bytes` of silence in each buffer. @return null when out of memory
    static AudioBufferList* CreateBufferList(UInt32 buffers, UInt32 bytes);
    static void DestroyBufferList(AudioBufferList* list);

    bool IsInitialized() const { return mInitialized; }
    /// Whether a buffer has come since Start. @thread any
    bool HasRendered() const { return mRendered.load(std::memory_order_relaxed); }

protected:
    AudioDeviceID mDeviceID = 0;  // as it was asked for: 0 stands for mBoundDevice, the default input of that moment
    SInt32 mLatencyFrames = 0;
    bool mInitialized = false;
    std::atomic<bool> mRendered{
        false};  // stored by the source's thread, and by Start before it; loaded by any (relaxed)

private:
    static constexpr UInt32 kInputElement = 1;  // of an input unit: what comes from the device
    static bool IsNonInterleaved(const AudioStreamBasicDescription& desc);
    OSStatus MakeBufferList();
    OSStatus MapChannels(const AudioStreamBasicDescription& desc, UInt32 deviceChannels);
    bool GetPreferredPair(UInt32 pair[2]);

    AudioUnit mOutputUnit = nullptr;
    AudioDeviceID mBoundDevice = 0;
    AudioBufferList* mBufferList = nullptr;
    AudioStreamBasicDescription mAudioDesc{};
    AURenderCallback mRenderCallback = nullptr;
    void* mRenderRefCon = nullptr;
    uint64_t mHostLatency = 0;        // host ticks
    AudioTimeStamp mLastTimeStamp{};  // the device's thread's
    // mLastTimeStamp's, for others: stored by the device's thread, loaded by the I/O thread (relaxed: a number by
    // itself)
    std::atomic<double> mRateScalar{1.0};
};

/// What the input unit calls; `capture` is an OSLAudio_InputCapture. @thread the device's @realtime yes
OSStatus OSLAudio_InputCapture_HALCallback(void* capture, UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                           UInt32 frames, AudioBufferList* data);
