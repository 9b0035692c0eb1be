// InputSource: an input device's frames on the recording's grid, out of a capture graph of its own.
// Why: a device counts frames by its own crystal. The graph takes the drift out; with a graph each, a device that stops
// leaves the others alone.
// Start at Open; the thread's work is RenderDue.
#pragma once

#include "capture/CVNMatrixedCapture.h"
#include "platform/kernel/Threads.h"
#include "record/Source.h"

#include <atomic>

namespace record {

class InputSource final : public Source {
public:
    /// @param uid       of the device
    /// @param channels  of the device
    /// @param live      see TapSource
    InputSource(const FrameGrid& grid, std::string uid, unsigned channels, bool live, size_t queueFrames);
    ~InputSource() override;

    int Open() override;
    int Start() override;
    std::string Explain() const override { return mCapture.ExplainRefusal(0); }
    void Stop() override;
    Strand& GetStrand() override { return mStrand; }
    uint64_t DelayNanos() const override;
    void CollectSilences(SilenceAccount& account, size_t source) override;
    /// An input that brings nothing is missed by the recorder itself.
    void CollectOpenSilence(SilenceAccount& account, size_t source, uint64_t) override
    {
        CollectSilences(account, source);
    }
    uint64_t ClippedSamples() const override { return mCapture.GetRenderCounts().mClippedSamples; }
    std::optional<uint64_t> FirstSound() override;

private:
    static constexpr uint32_t kCycleFrames = 512;

    static void* Entry(void* source);
    void Run();
    void RenderDue();
    bool RenderCycle() CORVANE_REALTIME;
    bool IsDue() const noexcept;
    uint32_t EmptyFrames(uint64_t frame) const noexcept;
    void CollectGaps();
    uint64_t NextFrame() const noexcept { return mGrid.FrameAt(mAlignedNanos - mLatencyNanos) + mRendered; }

    const FrameGrid mGrid;
    const std::string mUID;
    const unsigned mChannels;
    const uint64_t mWakeNanos;
    Strand mStrand;
    CVNMatrixedCapture mCapture;
    bool mOpen = false;
    uint64_t mLatencyNanos = 0;
    pthread_t mThread{};
    bool mRuns = false;
    std::atomic<bool> mStop{false};  // stored by the owner, loaded by the thread; no order needed

    // The thread's.
    uint64_t mAlignedNanos = 0;  // host time of the mix's first frame since the alignment
    uint64_t mRendered = 0;      // frames since then
    bool mHasSounded = false;    // since then
    AudioBufferList* mBuffers = nullptr;
    std::vector<float> mInterleaved;

    CAMutex mGapMutex{"InputSource"};  // for what follows: the thread's and the writer's
    std::vector<FrameSpan> mGaps;

    std::atomic<uint64_t> mFirstSound{0};  // stored by the thread, loaded by the writer; a number, no order needed
};

}  // namespace record
