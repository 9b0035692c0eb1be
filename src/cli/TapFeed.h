// TapFeed: one tap's frames, straight from its session: bit for bit where the clocks agree, nothing clipped.
#pragma once

#include "avcapture/AVCapture.h"
#include "cli/Feed.h"

#include <atomic>

namespace cli {

class TapFeed final : public Feed {
public:
    TapFeed(const FeedWish& wish, FeedSink& sink);
    ~TapFeed() override { Stop(); }

    int Open() override;
    int Start() override;
    void Stop() override;
    FeedState State() override;

private:
    static int Callback(void* feed, const void* samples, uint32_t bytes, uint32_t frames, uint64_t timeUS,
                        AudioStreamBasicDescription format);
    void Take(const float* samples, uint32_t frames, uint64_t timeUS) CORVANE_REALTIME;
    uint64_t FramesMissingBefore(uint64_t timeUS) const noexcept;

    const FeedWish mWish;
    FeedSink& mSink;
    std::unique_ptr<AVCapture> mSession;
    AVCaptureLosses mLosses;  // the tap's; kept when the session has gone

    // The consumer's own.
    bool mStarted = false;
    uint64_t mNextTimeUS = 0;

    std::atomic<uint64_t> mFramesLost{0};  // stored by the consumer, loaded by the owner; a count, no order needed
};

}  // namespace cli
