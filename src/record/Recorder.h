// Recorder: one recording, from its sources to its file.
// Why: sources stop, come late and come back, each for itself. A thread of the recorder's own goes along the grid of
// the host clock, takes from each strand what is there, writes silence for what is not, and keeps the account of it.
// Start at Start; the writer's work is Assemble.
#pragma once

#include "record/RecordingFile.h"
#include "record/RecordingState.h"
#include "record/Source.h"
#include "record/TrackMix.h"
#include "utility/CAGuard.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace record {

class TapSource;

/// Channels of the file that belong together: a mix of the sources that name it.
struct TrackSettings {
    std::string mName;
    unsigned mChannels = 2;
};

struct SourceSettings {
    std::string mName;  // as it was asked for, for people
    bool mIsInput = false;
    std::string mInputUID;   // of an input
    unsigned mChannels = 2;  // of an input
    TapTargets mTargets;     // of a tap
    size_t mTrack = 0;       // index into the tracks
};

struct RecordingSettings {
    std::vector<TrackSettings> mTracks;    // at least one
    std::vector<SourceSettings> mSources;  // at least one
    std::optional<uint64_t> mFrames;       // to stop after; none: until stopped
    bool mLive = false;                    // somebody listens to what is written
    FileSettings mFile;                    // its channels are the tracks' together
};

/// All operations are for the owner's thread, but for those that say otherwise.
class Recorder {
public:
    explicit Recorder(RecordingSettings settings);
    ~Recorder();

    /// Finds out whether the file can be written, without touching what is there. @return 0 or the system's error
    /// number
    int Check() const { return mFile.Check(); }
    /// Opens the sources and lets sound flow; nothing is written yet. @return 0 or the status of a source
    int Start();
    /// Which source could not be started and why, as a sentence for a person; empty: only Start's status tells.
    const std::string& WhyNotStarted() const { return mWhyNotStarted; }
    /// Creates the file and writes. After Start. @return 0 or the system's error number
    int OpenFile();

    /// Host time `nanos` is the recording's last moment: what was played before it is still written.
    void Stop(uint64_t nanos);
    /// Waits until the recording has ended, something happened (see Wake), or `nanos` have passed.
    /// @return whether it has ended
    bool WaitFor(uint64_t nanos);
    /// Makes a WaitFor return. @thread any
    void Wake();
    /// Makes a write that waits for its reader give up. @thread any
    void Interrupt() noexcept { mFile.Interrupt(); }
    /// Ends the sources and closes the file. @return 0 or the system's error number
    int Finish();

    /// What a tap takes in from now on. @return 0 or a status
    int SetTargets(size_t source, const TapTargets& targets);
    /// The audio server went, or came back.
    void NoteServer(bool isThere);
    /// The application of a source ended or stopped playing, or plays again.
    void NotePresence(size_t source, bool plays);
    /// Something happened now. @return the event as it was noted, for a person to see
    RecordingEvent NoteEvent(std::string kind, std::string source, std::string text);
    /// What the recorder itself found out since the last call: sources that bring nothing, and those that came back.
    std::vector<RecordingEvent> TakeEvents();

    /// How it stands; clears the peaks. Lost frames are those of a second ago at the most.
    RecordingState TakeState();
    /// After Finish.
    RecordingResult Result();

    /// Host time of the recording's last frame; none while its end is not known.
    std::optional<uint64_t> EndNanos() const;
    /// Host time of Start.
    uint64_t StartNanos() const { return mStartNanos; }
    /// From Start to the recording's first frame, in nanoseconds; none before it is known.
    std::optional<uint64_t> HeadNanos();

private:
    /// What the writer keeps of a source.
    struct Input {
        std::unique_ptr<Source> mSource;
        TapSource* mTap = nullptr;  // the same, where it is a tap
        TrackMix mMix;
        std::vector<float> mSamples;  // one piece
        bool mLeftOut = false;        // brings nothing: nothing waits for it
    };

    static RecordingSettings WithChannels(RecordingSettings settings);
    int OpenSource(const SourceSettings& settings);
    int Refuse(size_t source, int status);

    static void* WriterEntry(void* recorder);
    void WriteUntilDone();
    bool WaitForWork();
    bool Assemble();
    bool FindStart(uint64_t now);
    uint64_t ReadyFrame(uint64_t now);
    void LeaveOut(Input& input, bool leftOut, uint64_t frame);
    bool WritePieces(uint64_t limit);
    void MixSource(size_t source, const FrameSpan& span);
    void AccountFor(size_t source, const FrameSpan& missing);
    void MeasurePeaks(size_t frames);
    void EndAt(uint64_t frame);
    uint64_t LostFrames(uint64_t frames) const;
    uint64_t FrameNow() const;

    const RecordingSettings mSettings;
    const FrameGrid mGrid;
    RecordingFile mFile;
    std::vector<Input> mInputs;
    uint64_t mDelayNanos = 0;  // of the source that takes longest
    uint64_t mStartNanos = 0;
    std::string mWhyNotStarted;

    CAGuard mGuard{"Recorder"};  // for the flags and waits of the owner and the writer
    bool mQuit = false;          // the writer is to end at once
    bool mWoken = false;         // for the owner
    bool mFinished = false;      // by the writer
    pthread_t mWriter{};
    bool mWriterRuns = false;

    // The writer's.
    uint64_t mAt = 0;            // next frame of the grid to be written; 0: the start is not known
    uint64_t mPatientNanos = 0;  // until then no source is left out: this process stood still
    uint64_t mHeaderNanos = 0;   // when the header is brought up to date next
    std::vector<float> mPiece;
    std::vector<FrameSpan> mMissing;
    std::vector<float> mRowPeaks;

    // One past the last frame of the recording; 0: not known. Stored by the owner (release), and by the writer where
    // the length is given; loaded by both (acquire).
    std::atomic<uint64_t> mEnd{0};
    std::atomic<uint64_t> mStart{0};  // first frame; stored by the writer (release), loaded by the owner (acquire)
    // Counters, stored by the writer, loaded by the owner (relaxed).
    std::atomic<uint64_t> mFramesWritten{0};
    std::atomic<uint64_t> mClipped{0};
    std::atomic<int> mWriteError{0};
    std::vector<std::atomic<float>> mPeaks;  // raised by the writer, cleared by the owner

    CAMutex mAccountMutex{"SilenceAccount"};  // for what follows: the writer's and the owner's, never in a cycle
    SilenceAccount mAccount;
    std::vector<RecordingEvent> mEvents, mNewEvents;

    // The owner's: levels hold until more frames have been written.
    std::vector<float> mShownPeaks;
    uint64_t mShownFrames = 0;
    uint64_t mShownLost = 0, mLostNanos = 0;  // counted once a second: a list of silences may be long
};

}  // namespace record
