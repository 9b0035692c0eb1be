// TapSource: the sound of applications, or of all that an output plays, from a session on the tap.
// Why: a tap runs on the host clock and knows the moment of each frame, so that its samples pass bit for bit.
// Start at Open; frames come in through Callback, on the session's consumer.
#pragma once

#include "avcapture/AVCapture.h"
#include "record/Source.h"

namespace record {

class TapSource final : public Source {
public:
    /// @param live  somebody listens: frames come as soon as they can be had, at the price of a wake-up for each few
    TapSource(const FrameGrid& grid, TapTargets targets, bool live, size_t queueFrames);
    ~TapSource() override { Stop(); }

    int Open() override;
    int Start() override;
    void Stop() override;
    Strand& GetStrand() override { return mStrand; }
    uint64_t DelayNanos() const override;
    void CollectSilences(SilenceAccount& account, size_t source) override;
    void CollectOpenSilence(SilenceAccount& account, size_t source, uint64_t end) override;
    std::optional<uint64_t> FirstSound() override { return mFirstSound; }

    /// Takes these in from now on. What is in both goes on without a gap. @return 0 or a status @thread the owner's
    int SetTargets(const TapTargets& targets);

private:
    /// What the session's log says of one of its devices.
    struct Lane {
        bool mSounds = false;
    };

    static int Callback(void* source, const void* samples, uint32_t bytes, uint32_t frames, uint64_t timeUS,
                        AudioStreamBasicDescription format);
    void Take(const float* samples, uint32_t frames) CORVANE_REALTIME;
    void Note(const tap::wire::LogEntry& entry, SilenceAccount& account, size_t source);
    void FallSilent(Lane& lane, uint64_t frame);
    void Sound(Lane& lane, uint64_t frame, tap::wire::LogKind kind, SilenceAccount& account, size_t source);
    bool AnySounds() const;

    const FrameGrid mGrid;
    TapTargets mTargets;
    const bool mLive;
    Strand mStrand;
    std::unique_ptr<AVCapture> mSession;
    uint64_t mFrame0 = 0;  // of the session, on the grid

    // The writer's.
    uint64_t mNextLogEntry = 0;
    std::vector<Lane> mLanes;
    uint64_t mSilentFrom = 0;  // while no lane sounds
    std::optional<uint64_t> mFirstSound;
};

}  // namespace record
