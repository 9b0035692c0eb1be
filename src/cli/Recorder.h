// Recorder: one recording, from a tap session to a file.
// Why: the tap's consumer must never wait for a disk. It leaves its frames in a queue of ten seconds, and a
// thread of the recorder's own writes them; what did not fit becomes silence of the same length, and is told.
// Start at Start; the consumer enters at Take, the writer thread at WriteUntilStopped.
#pragma once

#include "avcapture/AVCapture.h"
#include "cli/WavWriter.h"
#include "platform/kernel/Realtime.h"
#include "platform/vector/FrameQueue.h"
#include "utility/CAGuard.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What to record, and where to.
struct RecordingWish {
    std::vector<pid_t> mProcesses;         // none: the whole mix of the devices
    std::vector<std::string> mDeviceUIDs;  // none: the default outputs
    unsigned mRateHz = 48000;
    SampleFormat mFormat = SampleFormat::Float32;
    std::optional<uint64_t> mFrames;  // to stop after; none: until stopped
    std::string mPath;
    bool mReplace = false;
};

/// How a recording stands.
struct RecordingState {
    uint64_t mFrames = 0;  // in the file
    // Each kind is as much silence in the file.
    uint64_t mFramesLost = 0;     // came and could not be read in time
    uint64_t mFramesDropped = 0;  // came while the queue was full
    uint64_t mFramesMissed = 0;   // the audio server did not deliver them, or not in time
    uint64_t mClippedSamples = 0;
    float mPeak[2] = {0, 0};  // since the last call, full scale 1.0
    int mWriteError = 0;      // the system's error number; 0: none
    bool mFinished = false;   // all frames asked for are there, or writing failed
};

class Recorder {
public:
    static constexpr unsigned kChannels = 2;

    explicit Recorder(RecordingWish wish);
    ~Recorder();

    /// Creates the file. @return 0 or the system's error number
    int OpenFile();
    /// Opens the tap and starts. @return 0 or the session's status
    int Start();
    /// Stops the tap, writes what is left and closes the file. @return as OpenFile
    int Finish();

    /// How it stands; clears the peaks. @thread the one that called Start
    RecordingState TakeState();

    /// Waits until the recording is finished by itself, or `nanos` have passed.
    void WaitFor(uint64_t nanos);

private:
    static int Callback(void* recorder, const void* samples, uint32_t bytes, uint32_t frames, uint64_t timeUS,
                        AudioStreamBasicDescription format);
    void Take(const float* samples, uint32_t frames, uint64_t timeUS) CORVANE_REALTIME;
    uint64_t FramesMissingBefore(uint64_t timeUS) const noexcept;
    bool PayOwedSilence() noexcept;

    static void* WriterEntry(void* recorder);
    void WriteUntilStopped();
    bool WriteWhatIsThere();
    void TakeLosses();
    void MeasurePeaks(const float* samples, size_t frames);

    const RecordingWish mWish;
    WavWriter mFile;
    std::optional<platform::vector::FrameQueue> mQueue;  // from Start on
    AVCapture* mSession = nullptr;
    AVCaptureLosses mLosses;  // the tap's; kept when the session has gone

    // The consumer's own.
    bool mStarted = false;
    uint64_t mNextTimeUS = 0;
    uint64_t mOwedFrames = 0;  // silence that has to go into the queue before anything else

    CAGuard mGuard{"Recorder"};  // orders the two flags below with the writer's sleep
    bool mStopRequested = false;
    bool mFinished = false;
    pthread_t mWriter{};
    bool mWriterRuns = false;
    std::vector<float> mPiece;  // the writer's

    // Counters, stored by one thread each (relaxed), read by TakeState (relaxed).
    std::atomic<uint64_t> mFramesLost{0};      // by the consumer
    std::atomic<uint64_t> mFramesDropped{0};   // by the consumer
    std::atomic<uint64_t> mFramesWritten{0};   // by the writer
    std::atomic<uint64_t> mClipped{0};         // by the writer
    std::atomic<int> mWriteError{0};           // by the writer
    std::atomic<float> mPeak[kChannels] = {};  // raised by the writer, cleared by TakeState
};

}  // namespace cli
