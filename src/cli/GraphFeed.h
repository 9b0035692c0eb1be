// GraphFeed: several sources in one stream: a capture graph, pulled once a cycle by the host clock.
// Why: applications and inputs have clocks of their own; the graph aligns them, takes their drift out and mixes them.
// It has to be pulled at the pace of the host clock, neither faster nor slower, for as long as the recording lasts.
// Start at Open.
#pragma once

#include "capture/CVNMatrixedCapture.h"
#include "cli/Feed.h"
#include "platform/kernel/Threads.h"

#include <atomic>

namespace cli {

class GraphFeed final : public Feed {
public:
    GraphFeed(const FeedWish& wish, FeedSink& sink);
    ~GraphFeed() override { Stop(); }

    int Open() override;
    int Start() override;
    void Stop() override;
    FeedState State() override;

private:
    static constexpr uint32_t kCycleFrames = 512;

    int AddTracks();
    int AddTrack(const Track& track);

    static void* Entry(void* feed);
    void RenderWhenDue();
    uint64_t DueNanos(uint64_t cycle) const noexcept;
    void RenderCycle() CORVANE_REALTIME;

    const FeedWish mWish;
    FeedSink& mSink;
    CVNMatrixedCapture mCapture;
    bool mOpen = false;
    FeedState mLast;
    pthread_t mThread{};
    bool mRuns = false;
    std::atomic<bool> mStop{false};  // stored by the owner, loaded by the thread; no order needed

    // The thread's.
    uint64_t mStartNanos = 0;
    double mSampleTime = 0;
    AudioBufferList* mBuffers = nullptr;
    std::vector<float> mInterleaved;
};

}  // namespace cli
