// Feed: what fills a recording with frames: a tap's session alone, or a graph of several sources.
// Why: the recorder keeps and writes frames and counts what is missing, wherever they come from.
// Start at MakeFeed.
#pragma once

#include "platform/kernel/Realtime.h"

#include <sys/types.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cli {

/// One thing to record: processes' sound, or an input device's.
struct Track {
    std::string mWords;             // as it was asked for, for people
    std::vector<pid_t> mProcesses;  // none: the whole mix of the outputs
    std::string mInputUID;          // of a track that is an input
    bool mIsInput = false;
    unsigned mChannels = 2;
};

/// What a recording is made of.
struct FeedWish {
    std::vector<Track> mTracks;            // at least one
    std::vector<std::string> mDeviceUIDs;  // outputs to take applications' sound from; none: the default outputs
    unsigned mRateHz = 48000;
    unsigned mChannels = 2;
    bool mKeepsChannels = false;  // every track's channels side by side, not mixed
};

/// What did not arrive, in frames of the recording, and who is silent.
struct FeedState {
    uint64_t mFramesLost = 0;              // came and could not be read in time
    uint64_t mFramesMissed = 0;            // the audio server did not deliver them, or not in time
    uint64_t mFramesSilent = 0;            // all were silent until they were aligned, or while one brought nothing
    std::vector<std::string> mWaitingFor;  // tracks that bring nothing now and so hold up all, as they were asked for
};

/// Takes the frames. One thread at a time.
class FeedSink {
public:
    /// @param samples  interleaved; null: silence of that length
    /// @thread         the feed's @realtime yes
    virtual void Take(const float* samples, uint32_t frames) noexcept = 0;

protected:
    ~FeedSink() = default;
};

/// Frames flow from Start to Stop. @thread the owner's, as all here
class Feed {
public:
    virtual ~Feed() = default;

    /// Makes everything ready; frames may not flow yet. @return 0 or the status of what could not be made
    virtual int Open() = 0;
    /// @return 0 or a status; frames flow after 0
    virtual int Start() = 0;
    /// Returns when no Take runs and none will. Harmless where it did not start.
    virtual void Stop() = 0;
    /// Also after Stop.
    virtual FeedState State() = 0;
};

/// @param sink  outlives the feed
std::unique_ptr<Feed> MakeFeed(const FeedWish& wish, FeedSink& sink);

}  // namespace cli
