// Recorder: one recording, from a feed to a file.
// Why: whoever brings the frames must never wait for a disk. It leaves them in a queue of ten seconds, and a
// thread of the recorder's own writes them; what did not fit becomes silence of the same length, and is told.
// Start at Start; the feed enters at Take, the writer thread at WriteUntilStopped.
#pragma once

#include "cli/Feed.h"
#include "platform/kernel/Realtime.h"
#include "platform/vector/FrameQueue.h"
#include "record/RecordingFile.h"
#include "utility/CAGuard.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What to record, and where to.
struct RecordingWish : FeedWish {
    record::FileType mType = record::FileType::Wav;
    record::SampleFormat mFormat = record::SampleFormat::Float32;
    std::optional<uint64_t> mFrames;  // to stop after; none: until stopped
    std::string mPath;
    bool mReplace = false;
};

/// How a recording stands.
struct RecordingState {
    uint64_t mFrames = 0;  // in the file
    // Each kind of frames that are missing is as much silence in the file.
    FeedState mFeed;
    uint64_t mFramesDropped = 0;  // came while the queue was full
    uint64_t mClippedSamples = 0;
    std::vector<float> mPeaks;  // a channel, since the last call, full scale 1.0
    int mWriteError = 0;        // the system's error number; 0: none
    bool mFinished = false;     // all frames asked for are there, or writing failed

    uint64_t FramesWithoutSound() const { return mFeed.mFramesLost + mFeed.mFramesMissed + mFramesDropped; }
};

class Recorder final : private FeedSink {
public:
    explicit Recorder(RecordingWish wish);
    ~Recorder();

    /// Creates the file. @return 0 or the system's error number
    int OpenFile();
    /// Opens the feed and starts. @return 0 or the feed's status
    int Start();
    /// Stops the feed, writes what is left and closes the file. @return as OpenFile
    int Finish();

    /// How it stands; clears the peaks. @thread the one that called Start
    RecordingState TakeState();

    /// Waits until the recording is finished by itself, or `nanos` have passed.
    void WaitFor(uint64_t nanos);

private:
    void Take(const float* samples, uint32_t frames) CORVANE_REALTIME override;
    bool PayOwedSilence() noexcept;

    static void* WriterEntry(void* recorder);
    void WriteUntilStopped();
    bool WriteWhatIsThere();
    void MeasurePeaks(const float* samples, size_t frames);

    const RecordingWish mWish;
    record::RecordingFile mFile;
    std::optional<platform::vector::FrameQueue> mQueue;  // from Start on
    const std::unique_ptr<Feed> mFeed;

    uint64_t mOwedFrames = 0;  // the feed's own: silence that has to go into the queue before anything else

    CAGuard mGuard{"Recorder"};  // orders the two flags below with the writer's sleep
    bool mStopRequested = false;
    bool mFinished = false;
    pthread_t mWriter{};
    bool mWriterRuns = false;
    std::vector<float> mPiece;  // the writer's

    // Counters, stored by one thread each (relaxed), read by TakeState (relaxed).
    std::atomic<uint64_t> mFramesDropped{0};  // by the feed
    std::atomic<uint64_t> mFramesWritten{0};  // by the writer
    std::atomic<uint64_t> mClipped{0};        // by the writer
    std::atomic<int> mWriteError{0};          // by the writer
    std::vector<std::atomic<float>> mPeaks;   // raised by the writer, cleared by TakeState
};

}  // namespace cli
