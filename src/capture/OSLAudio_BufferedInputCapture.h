// OSLAudio_BufferedInputCapture: turns a source that pushes into one that can be pulled.
// Why: a source has a thread, a pace and a timeline of its own. A ring that is addressed by sample time takes what
// it pushes, and a read head on the same timeline says where the reader stands.
// Start at Create; sound comes in through RenderCallback and leaves through Fetch.
#pragma once

#include "capture/GapQueue.h"
#include "capture/OSLAudio_InputCapture.h"
#include "capture/OSLAudio_Source.h"
#include "capture/PublishedStamp.h"
#include "capture/RateChanges.h"
#include "capture/buffers/CARingBuffer.h"

#include <memory>

/// Three kinds of operation, by thread: what makes and ends an input is for control threads; RenderCallback is the
/// source's thread; all that reads and moves the head is the I/O thread's.
class OSLAudio_BufferedInputCapture : public OSLAudio_Source {
public:
    OSLAudio_BufferedInputCapture() = default;
    OSLAudio_BufferedInputCapture(const OSLAudio_BufferedInputCapture&) = delete;
    OSLAudio_BufferedInputCapture& operator=(const OSLAudio_BufferedInputCapture&) = delete;

    /// The source's format.
    OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) override;
    /// There is no limit: does nothing, and says 0xFFFFFFFF.
    OSStatus SetMaxRenderSlice(UInt32 frames) override;
    OSStatus GetMaxRenderSlice(UInt32* frames) override;
    /// Fetches at the head, which moves on by what was given.
    OSStatus Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                    AudioBufferList* data) CORVANE_REALTIME override;

    /// Deletes the source, whose thread ends with it, and then the ring.
    virtual ~OSLAudio_BufferedInputCapture();

    /// Takes over the source and initializes both. @return 0; whether it went well says IsInitialized
    virtual OSStatus Create(OSLAudio_InputCapture* source);

    /// Moves the head, in frames of what Render gives. @realtime yes, as all of the I/O thread's
    virtual OSStatus SkipFrames(double frames);
    /// Puts the head where the source was at the host time of `time`.
    virtual OSStatus Synchronize(const AudioTimeStamp* time);
    /// Frames from the first that was stored to the host time of `time`, rounded up.
    virtual double SynchronizeSkipSamples(const AudioTimeStamp* time);
    /// Copies from the ring. @return a RingStatus; unless it is RingOK the head stands where it stood
    virtual OSStatus Fetch(const AudioTimeStamp* time, UInt32 frames, AudioBufferList* list) CORVANE_REALTIME;
    /// How the span from the head on lies to what the ring holds. @return a RingStatus
    ///
    /// @param frames  taken as the source's frames: of a source at another rate the answer is a near one
    virtual OSStatus CheckFetch(UInt32 frames) CORVANE_REALTIME;
    /// Puts the head at the sample time of `time`.
    virtual OSStatus ResetFetchTime(AudioTimeStamp* time);
    /// Gives the source the time to get ready. @return 0
    virtual OSStatus PreRender(const AudioTimeStamp* time, UInt32 frames) CORVANE_REALTIME;

    /// Stores what the source pushes; before the gate is open all of it is dropped.
    /// @return 0 or what the ring said @thread the source's @realtime yes
    virtual OSStatus RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                    AudioBufferList* data) CORVANE_REALTIME;

    virtual OSStatus Initialize();
    virtual bool IsInitialized();
    virtual OSStatus Uninitialize();
    virtual void Dump_Diagnostics();

    /// Says who is told of each buffer that was stored, on the source's thread. Before Start.
    OSStatus SetRenderCallback(AURenderCallback callback, void* refCon);

    /// Opens the gate for what the source pushes from now on. @thread the I/O thread
    void AllowRendering() noexcept { mRenderingAllowed.store(true, std::memory_order_release); }
    /// Forgets what is held, and the first stamp; the gate stays open. A store in flight may undo it.
    OSStatus ResetBuffering() noexcept;
    /// Whether a buffer was stored since the last reset.
    bool HasData() const noexcept { return mHasData.load(std::memory_order_acquire); }
    /// Stamp of the first buffer since; its host time is 0 until there is one that has a host time.
    AudioTimeStamp GetFirstInputTime() const noexcept { return mFirstInputTime.Get(); }
    /// Host time of the latest buffer, 0 where there is none. @thread any
    uint64_t GetLastInputHostTime() const noexcept { return mLastInputHostTime.load(std::memory_order_relaxed); }

    /// How far the head lies behind the newest frame, in frames of the source; below 0: ahead of it. 0 until it is
    /// placed.
    /// @thread the I/O thread
    double GetHeldFrames() const noexcept;

    /// Frames of the source's that its sample times passed over. @thread any
    uint64_t GetMissedFrames() const noexcept { return mMissedFrames.load(std::memory_order_relaxed); }

    /// Takes out the oldest gap in what the source pushed that was not taken yet.
    ///
    /// @param ahead   set to the frames of the source from the head to the gap; below 0: the head has passed it
    /// @param frames  set to the gap's length, in frames of the source
    /// @return        whether there was one; none of those before the head was placed
    /// @thread        the I/O thread @realtime yes
    bool TakeGap(double* ahead, double* frames) noexcept;

    /// Stamps of the start and end of what the ring holds, as the source knows its times.
    AudioTimeStamp BufferStartTimeStamp();
    AudioTimeStamp BufferEndTimeStamp();

    /// Stays with this object.
    OSLAudio_InputCapture* GetSource() const { return mSource.get(); }

protected:
    std::unique_ptr<OSLAudio_InputCapture> mSource;
    AudioTimeStamp mFetchTime{};  // the read head: only its sample time counts
    /// The source's rate scalar when its sound had come no further than `frames` before the newest. @thread the I/O
    /// thread
    double RateScalarBefore(double frames) const noexcept;
    int FetchFromRing(double sampleTime, UInt32 frames, AudioBufferList* list) noexcept;

private:
    void ClearTimes() noexcept;
    AudioTimeStamp StampOf(int64_t sampleTime);

    bool mInitialized = false;
    double mBufferSeconds = 2.0;
    std::unique_ptr<CARingBuffer> mRingBuffer;
    AudioStreamBasicDescription mSourceDesc{};
    AURenderCallback mInputCallback = nullptr;
    void* mInputCallbackRefCon = nullptr;

    void CountMissed(const AudioTimeStamp& time, UInt32 frames) noexcept;

    double mNextSampleTime = 0;              // the source's thread's: where its buffers go on; 0: none came yet
    std::atomic<uint64_t> mMissedFrames{0};  // stored by the source's thread (relaxed: only people read it)
    capture::GapQueue mGaps;
    capture::RateChanges mRateChanges;        // from the source's thread to the I/O thread
    capture::PublishedStamp mFirstInputTime;  // from the source's thread to the I/O thread
    // Stored by the source's thread, and by the I/O thread at a reset; loaded by any (relaxed: only people read it).
    std::atomic<uint64_t> mLastInputHostTime{0};
    std::atomic<bool> mRenderingAllowed{false};  // stored by the I/O thread (release), loaded by the source's (acquire)
    // Stored true by the source's thread after the first stamp (release) and false by the I/O thread at a reset;
    // loaded by any (acquire).
    std::atomic<bool> mHasData{false};
};

/// What a source calls; `input` is an OSLAudio_BufferedInputCapture. @thread the source's @realtime yes
OSStatus OSLAudio_BufferedInputCapture_HALCallback(void* input, UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                                   UInt32 frames, AudioBufferList* data);
