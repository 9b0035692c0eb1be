// AVCaptureDetails: what a session captures, how much of it has been delivered, and to whom.
// Why: the session owns these records; its tap reads and counts in them by reference.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <atomic>
#include <cstdint>

/// Bits of the word of flags that every session is created with.
enum AVCaptureFlags : unsigned int {
    kAVCaptureNoMemoryLock = 1,     ///< the tap's output buffer is not locked into memory
    kAVCaptureLowLatencyAudio = 2,  ///< the consumer wakes every two blocks, not every quarter of the ring
};

/// Results of this room. What the platform says is passed on unchanged beside them.
constexpr int32_t kAVCaptureBadState = -50;  // an argument or the session's state forbids the call
constexpr int32_t kAVCaptureNoMemory =
    -108;  // a region, the output buffer or the session itself could not be allocated
constexpr int32_t kAVCaptureNoDevice = -200;     // no output device to tap
constexpr int32_t kAVCaptureNoExtension = -204;  // no tap service, or one too old for this process

struct AVCaptureDetails {
    bool hasAudio = false;
    AudioStreamBasicDescription audioFormat{};  // as given by the creator
    std::atomic<uint64_t> audioFrames{0};       // delivered; added to by the consumer, read by any thread (relaxed)
    std::atomic<uint64_t> audioBytes{0};        // the same, in bytes
};

/// What did not reach a session although it was played, as far as the tap's service knows. Counts wrap.
struct AVCaptureLosses {
    uint32_t droppedFrames = 0;  // came to the service and found no room, or came too late to be heard
    uint32_t starvedFrames = 0;  // of silence in front of sound that came late
    uint32_t missedFrames = 0;   // of silence in place of sound that never came
};

/// Takes one chunk of captured sound.
///
/// @param userData    the pointer given to the session's creator
/// @param samples     interleaved, in `format`; valid during the call
/// @param byteCount   a whole number of blocks, never 0
/// @param frameCount  frames in `samples`
/// @param timeUS      captured stream time of the first frame, microseconds: 0 when the tap is made, without the
///                    time of pauses, ahead by the gap where the consumer fell behind
/// @param format      the description given at creation
/// @return            0 to go on; any other value ends the consumer, and nothing else reports it
/// @thread            the tap's consumer, with the tap's mutex held: must not call Pause, Stop or the
///                    destructor of its session
using AVCaptureAudioCallback = int (*)(void* userData, const void* samples, uint32_t byteCount, uint32_t frameCount,
                                       uint64_t timeUS, AudioStreamBasicDescription format);
