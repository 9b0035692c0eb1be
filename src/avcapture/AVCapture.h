// AVCapture: a capture session. It owns the tap and says when sound flows.
// Why: its owners deal in sessions that run and pause; how the sound is fetched is the tap's matter.
// Start at CreateAudio, then Resume.
#pragma once

#include "avcapture/AVCaptureDetails.h"
#include "platform/foundation/CFBase.h"
#include "tap/wire/TapStatus.h"

#include <memory>
#include <span>

class AVCaptureCorvane;

/// All operations, save the statics, are for the owner's threads, one at a time.
class AVCapture {
public:
    /// Makes an audio session, paused: nothing is captured before Resume.
    ///
    /// @param result     the session, owned by the caller; null after a failure
    /// @param callback   required; see AVCaptureAudioCallback
    /// @param format     what the samples shall be: packed, interleaved, 1 or 2 channels, 32-bit float or
    ///                   16-bit integer; with any other no samples arrive
    /// @param devices    UIDs of the output devices to tap; null: the two default output devices
    /// @param processes  identifiers of the processes to capture, a single negative one for all but that one;
    ///                   null or empty: no choice by process
    /// @param flags      AVCaptureFlags
    /// @return           0, kAVCaptureBadState without a callback, kAVCaptureNoMemory, or what the tap's set-up said
    static int32_t CreateAudio(AVCapture** result, AVCaptureAudioCallback callback, void* userData,
                               const AudioStreamBasicDescription& format, const __CFArray* devices,
                               const __CFArray* processes, unsigned int flags);

    /// Whether the tap can work at all, without opening it.
    ///
    /// @return 0 without a service, also where memory is short; 1 with one of the first version, 3 with a later one
    static int AudioAvailable();

    AVCapture(const AVCapture&) = delete;
    AVCapture& operator=(const AVCapture&) = delete;
    /// Stops the session where it runs.
    virtual ~AVCapture();

    /// Lets sound flow, from what is played from now on. Nothing where the session is stopped or not paused.
    /// @return 0, or the error of the consumer's thread, which leaves the session paused
    int32_t Resume();
    /// Stops the flow; returns when the last callback has. Nothing where the session is stopped or paused.
    void Pause();
    /// Ends the session for good and gives up the tap. @return 0, or kAVCaptureBadState on a stopped session
    int32_t Stop();
    bool Paused() const { return mPaused; }

    /// Whether what is captured stays audible on its output. Nothing on a stopped session.
    /// @return 0, or the service's error
    int32_t UpdatePlayThru(bool playThru);

    const AVCaptureDetails& GetDetails() const { return mDetails; }

    /// What the tap's service counted since the session was made; zeros on a stopped session and where it counts
    /// nothing.
    AVCaptureLosses GetLosses() const;

    /// Captures other processes on other devices from now on; see CreateAudio. What is in both lists goes on without a
    /// gap.
    /// @return 0, the service's error, or kAVCaptureBadState on a stopped session
    int32_t UpdateTargets(const __CFArray* devices, const __CFArray* processes);

    /// Host time of the sound that the session's frame 0 stands for: frame n stands for the moment n frames later. 0
    /// where the service does not say, and on a stopped session. @thread any @realtime yes
    uint64_t MomentOfFrame0() const;
    /// The first frame of the chunk that the callback has in hand, counted from frame 0 whatever was lost or paused.
    /// @thread the callback's @realtime yes
    uint64_t ChunkFrame() const;
    /// Copies what the service has logged since entry `next`, and moves `next` on; what it has overwritten is left out.
    /// @return how many entries there were @thread one at a time
    size_t ReadLog(uint64_t& next, std::span<tap::wire::LogEntry> entries) const;

    /// The calling thread's scheduling: fixed priority, real time with 25 ms in 50, and as every thread starts.
    /// A machine that does not grant it leaves the thread as it is.
    static void PriorityUpgrade();
    static void PriorityUpgradeRT();
    static void PriorityDowngrade();

    /// Host time in microseconds.
    /// @realtime yes
    static uint64_t Timestamp();

private:
    explicit AVCapture(unsigned int flags);
    int32_t AudioSetup(AVCaptureAudioCallback callback, void* userData, const AudioStreamBasicDescription& format,
                       const __CFArray* devices, const __CFArray* processes);

    unsigned int mFlags;
    bool mPaused = true;
    bool mRunning = true;
    AVCaptureDetails mDetails;
    std::unique_ptr<AVCaptureCorvane> mTap;
    void* mUserData = nullptr;
};
