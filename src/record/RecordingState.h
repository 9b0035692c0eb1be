// RecordingState: how a recording stands, which of its frames are silence and why, and what happened meanwhile.
// Why: there is one account of what a recording lacks. Everything that a person or a program is told is made from it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace record {

/// Why the recorder wrote silence in place of a source's sound.
enum class SilenceCause {
    NotPlaying,    // the application played nothing or did not run: there was no sound to record
    NotDelivered,  // the audio server went on and did not deliver the sound, or not in time; an input that stopped
    ServerAway,    // the audio server was not there
    Stopped,       // this process did not run
    TooSlow,       // the sound came and could not be kept in time: the disk or this machine was too slow
};
constexpr std::array kSilenceCauses{SilenceCause::NotPlaying, SilenceCause::NotDelivered, SilenceCause::ServerAway,
                                    SilenceCause::Stopped, SilenceCause::TooSlow};

/// Stable, for JSON: "not_playing", "not_delivered", "server_away", "stopped", "too_slow".
std::string_view NameOf(SilenceCause cause);
/// Whether sound was lost; a source that does not play loses none.
constexpr bool IsLoss(SilenceCause cause)
{
    return cause != SilenceCause::NotPlaying;
}

/// Silence that the recorder wrote in place of one source's sound.
struct Silence {
    size_t mSource = 0;  // index into RecordingState::mSources
    SilenceCause mCause = SilenceCause::NotPlaying;
    uint64_t mStart = 0;   // frame of the recording, from 0
    uint64_t mFrames = 0;  // at least 1

    bool operator==(const Silence&) const = default;
};

/// Something that happened while recording.
struct RecordingEvent {
    uint64_t mFrame = 0;  // of the recording
    std::string mKind;    // stable, for JSON: "moved", "ended", "started", "default_output", "server_away", ...
    std::string mSource;  // as it was asked for; empty: it concerns all
    std::string mText;    // one sentence for a person, without the command's name; may hold what other programs wrote
};

struct SourceState {
    std::string mName;                                            // as it was asked for: "app:Firefox"
    std::array<uint64_t, kSilenceCauses.size()> mSilentFrames{};  // by cause
    bool mDelivers = true;                                        // false: left out, since it brings nothing
};

/// Channels of the file that belong together.
struct TrackState {
    std::string mName;
    unsigned mFirstChannel = 0;
    unsigned mChannels = 0;
};

struct RecordingState {
    uint64_t mFrames = 0;      // in the file, or in all files together
    uint64_t mFramesLost = 0;  // frames of the recording in which some source's sound was lost; counted once each
    uint64_t mClippedSamples = 0;
    std::vector<float> mPeaks;  // a channel each, greatest since the last look, full scale 1.0
    std::vector<TrackState> mTracks;
    std::vector<SourceState> mSources;
    int mWriteError = 0;     // the system's error number; 0: none
    bool mFinished = false;  // all frames asked for are there, or writing failed
};

/// What is known when a recording has ended.
struct RecordingResult {
    RecordingState mState;
    std::vector<Silence> mSilences;  // in the order of their starts; the first kMostSilences of them
    bool mSilencesCut = false;       // there were more
    std::vector<RecordingEvent> mEvents;
    std::vector<std::string> mPaths;  // of the files
};
constexpr size_t kMostSilences = 10'000;

}  // namespace record
