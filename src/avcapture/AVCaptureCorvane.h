// AVCaptureCorvane: the client of the tap. It finds the tap service, tells it what to capture, shares two
// regions of memory with it, and hands on what the service writes there.
// Why: the service writes a ring at its own pace and never waits. A consumer thread follows it in whole
// blocks, and finds out by itself what it came too late for.
// Start at CreateWithCallback, then Resume; the consumer is in AVCaptureCorvaneConsumer.cpp.
#pragma once

#include "avcapture/AVCaptureDetails.h"
#include "avcapture/Region.h"
#include "avcapture/RingShape.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/IOKit.h"
#include "platform/kernel/Threads.h"

#include <cstdint>
#include <span>

class AVCaptureCorvane {
public:
    /// Makes a tap and sets it up. It has no consumer before Resume.
    ///
    /// @param result      the tap, owned by the caller; null after a failure
    /// @param userData    given to each call of the callback, as it stands then; outlives the tap
    /// @param details     what to capture; its totals are counted up. Outlives the tap
    /// @param devices     UIDs of output devices; null: the two default output devices
    /// @param processes   numbers; null or empty: no choice by process
    /// @param flags       AVCaptureFlags; outlives the tap
    /// @param translated  whether the service's byte order is the other one
    /// @return            0; kAVCaptureNoDevice; kAVCaptureNoExtension; kAVCaptureNoMemory; kIOReturnError where
    ///                    the service's sizes or status make no sense; else what the platform said
    static int32_t CreateWithCallback(AVCaptureCorvane** result, AVCaptureAudioCallback callback, void*& userData,
                                      AVCaptureDetails& details, const __CFArray* devices, const __CFArray* processes,
                                      unsigned int& flags, bool translated);

    AVCaptureCorvane(const AVCaptureCorvane&) = delete;
    AVCaptureCorvane& operator=(const AVCaptureCorvane&) = delete;
    virtual ~AVCaptureCorvane();

    /// Starts the consumer at the writer's position: what lies in the ring is skipped. Nothing while there
    /// is one, also one that a callback's result has ended.
    /// @return 0, or the error of the thread's creation
    /// @thread the session's owner, as for all up to here
    int32_t Resume();
    /// Ends the consumer; waits for the chunk in hand to be delivered. Stream time is kept.
    void Pause();
    /// Whether what is captured stays audible. Nothing on a service of the first version.
    /// @return 0, or the service's error
    int32_t SetPlayThru(bool playThru);

    /// What the service counted since the tap was made. @thread any @realtime yes
    AVCaptureLosses GetLosses() const { return mStatus.LoadLosses(); }

    /// Other devices and processes. @return 0, or the service's error @thread the session's owner
    int32_t SetTargets(const __CFArray* devices, const __CFArray* processes);
    /// As the session's operations of the same names.
    uint64_t MomentOfFrame0() const { return mStatus.HasTimeline() ? mStatus.MomentOfFrame0() : 0; }
    uint64_t ChunkFrame() const { return mChunkFrame; }
    size_t ReadLog(uint64_t& next, std::span<tap::wire::LogEntry> entries) const;

    /// Whether samples of this format can be delivered.
    /// @param type  set to the output type once the layout fits, before depth and sign have been looked at;
    ///              left alone otherwise
    static bool ASBDFormatValid(const AudioStreamBasicDescription& format, unsigned int& type);
    /// Bytes of one sample as delivered; 0 where none are.
    unsigned int GetOutputSampleSize() const;

    // The consumer's steps. The consumer's thread calls them with the mutex held; while there is no
    // consumer, any one thread may.

    /// Moves the reader to where the writer stands.
    void MoveToWriter();
    /// Hands on the whole blocks that are there, as one chunk of at most the output buffer.
    /// @realtime yes, but for the callback, sleeps of 1 us while tail and head are equal, and the one message
    void Consume();
    /// Nanoseconds between two positions of the ring, whichever comes first.
    uint64_t ComputeDeltaNS(unsigned int loopA, unsigned int frameA, unsigned int loopB, unsigned int frameB) const;
    /// Where the writer stands.
    void GetWriteInfo(unsigned int* loop, unsigned int* frame) const;
    /// Head and tail of one moment. Sleeps by 1 us while they are equal.
    void GrabStateSnapshot(unsigned int* loop, unsigned int* head, unsigned int* tailLoop, unsigned int* tail) const;

private:
    struct Chunk {
        uint32_t mBytes = 0;
        uint64_t mTimeNS = 0;  // stream time of the first block
        uint64_t mFrame = 0;   // of the ring, counted over all passes: of the first block
    };
    struct Snapshot;

    AVCaptureCorvane(AVCaptureAudioCallback callback, void*& userData, AVCaptureDetails& details, unsigned int& flags,
                     bool translated);

    int32_t Setup(const __CFArray* devices, const __CFArray* processes);
    static cf::Ref<cf::Array> CopyDefaultDevices();
    cf::Ref<cf::Array> AttributeDevices(cf::Ref<cf::Array> devices) const;
    int32_t Connect(io_service_t service, const cf::Ref<cf::Array>& devices, const __CFArray* processes);
    int32_t OpenUserClient(io_service_t service);
    int32_t ServeSymbolRequest();
    int32_t SetSymbolAddrs(uint32_t systemVersion, std::span<const char> names);
    int32_t Configure(const cf::Ref<cf::Array>& devices, const __CFArray* processes);
    cf::Ref<cf::Object> CopySampleRate() const;
    int32_t ShareRegions();
    int32_t MakeOutputBuffer();
    void CloseConnection();

    static void* ConsumerThread(AVCaptureCorvane* tap);
    uint64_t WaitThresholdNS() const;
    void ConsumeOrWait(uint64_t thresholdNS);
    uint64_t NewNS() const;
    bool ConsumeBlock(Chunk& chunk);
    void DemoteWhenComputeBound();
    Snapshot TakeSnapshot() const;
    bool CatchUp(const Snapshot& snapshot);
    bool IsOverwritten(const Snapshot& snapshot) const;
    void ConvertBlock(const Chunk& chunk);
    void AcceptBlock(Chunk& chunk);
    void HandOn(const Chunk& chunk);
    void Process(const void* buffer, uint32_t bytes, uint64_t timeUS);

    unsigned int& mFlags;
    const bool mTranslated;
    AVCaptureDetails& mDetails;
    unsigned int mOutputType = 0;
    const AVCaptureAudioCallback mCallback;
    void*& mUserData;
    io_connect_t mConnect = IO_OBJECT_NULL;
    unsigned int mExtensionVersion = 1;
    avcapture::Region mAudioRegion;
    avcapture::Region mStatusRegion;
    pthread_mutex_t mMutex;
    pthread_cond_t mCondition;
    pthread_t mThread = 0;         // 0: no consumer to join
    bool mBoosted = false;         // the consumer's own
    bool mStopRequested = false;   // under mMutex
    uint64_t mOutputCapacity = 0;  // bytes
    avcapture::Region mOutputBuffer;
    uint32_t mReadLoop = 0;
    uint32_t mReadFrame = 0;     // always the start of a block
    uint64_t mStreamTimeNS = 0;  // captured, pauses left out
    uint64_t mChunkFrame = 0;    // of the chunk in hand
    int mCallbackError = 0;
    mach_timebase_info_data_t mTimeBase{};
    uint64_t mLastWake = 0;  // host ticks

    avcapture::StatusRegion mStatus;
    avcapture::RingShape mRing{};
};
