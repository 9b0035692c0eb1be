// Lane: one output device's sound on the tap's timeline.
// Why: a device counts its frames by its own crystal and delivers them in bursts; a tap hands out frames by the
// host clock. The rules are those of docs/time.md, "A lane": frames are sacred, gaps are silence, errors of
// phase are paid back slowly, and where the clocks agree samples pass bit for bit.
// Start at Render (the server's side) and RenderBlock (the pacer's side).
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"
#include "platform/vector/ClockFollower.h"
#include "tap/LaneInput.h"
#include "tap/LaneVoice.h"
#include "tap/RingWriter.h"
#include "tap/Schedule.h"
#include "tap/StereoMix.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace tap {

/// Where a lane says when it has sound to give and when it has none.
struct LaneLog {
    RingWriter* mRing = nullptr;  // null: nothing is logged
    uint32_t mLane = 0;
};

class Lane final : public platform::machine::CaptureClient {
public:
    /// @param schedule  the tap's; outlives this
    /// @param latencyNanos  TapLatencyNanos of the server and the tap's rate
    /// @param log  its ring outlives this; entries are written on the pacer's thread
    Lane(const Schedule& schedule, uint64_t latencyNanos, const StereoMix& mix, unsigned channels, LaneLog log = {});

    /// @thread the server's data thread @realtime yes
    void Render(const platform::machine::CaptureCycle& cycle) CORVANE_REALTIME override { mInput.Write(cycle, mMix); }

    /// Adds the device's sound to the tap's frames firstFrame .. firstFrame + kBlockFrames - 1.
    ///
    /// Blocks come in order. Allocates where the device's nominal rate has changed.
    ///
    /// @param block  interleaved
    /// @thread       the pacer
    void RenderBlock(uint64_t firstFrame, float* block);

    /// Whether the device's streams have all left, at host time `nanos`; what is in the lane is still given. 0: they
    /// have not. @thread any
    void SetLeft(uint64_t nanos) noexcept { mLeftNanos.store(nanos, std::memory_order_relaxed); }
    bool HasLeft() const noexcept { return mLeftNanos.load(std::memory_order_relaxed) != 0; }
    /// The tap's frame at which the sound of that time is heard. @thread the pacer
    uint64_t LeftFrame() const noexcept
    {
        return mSchedule.FramesBy(mLeftNanos.load(std::memory_order_relaxed) + mLatencyNanos);
    }

    /// The tap's frame from which the lane has been giving sound; none while it gives silence. @thread the pacer
    std::optional<uint64_t> SoundsFrom() const noexcept
    {
        return mSounding ? std::optional(mSoundsFrom) : std::nullopt;
    }

    /// Says that the blocks up to the next one were not asked for: their sound is discarded. @thread the pacer
    void SkipBlocks() noexcept;

    /// Frames that had no room, or were discarded. Wraps. @thread the pacer
    uint32_t DroppedFrames() const noexcept { return mInput.DroppedFrames() + mDiscarded; }
    /// Frames of silence given although the device's sound went on: the server was late. Wraps. @thread the pacer
    uint32_t StarvedFrames() const noexcept { return mStarved; }
    /// Frames of silence given because the server went on without delivering. Wraps. @thread the pacer
    uint32_t MissedFrames() const noexcept { return mMissed; }

private:
    enum class Next { Nothing, Continues, OtherRate, StartsAnew };

    /// Where the device's timeline goes on if nothing happens.
    struct Expectation {
        uint32_t mClockID = 0;
        uint32_t mRateHz = 0;
        int64_t mSampleTime = 0;
    };

    Next Classify() const noexcept;
    CycleStamp NextStamp() const noexcept;
    bool IsUncounted(const CycleStamp& stamp, int64_t gap) const noexcept;
    bool IsLateContinuation(const CycleStamp& stamp) const noexcept;
    void Expect(const CycleStamp& stamp) noexcept;
    void BeginCycle() noexcept;
    void DiscardCycle() noexcept;
    unsigned Take(float* samples, unsigned frames) noexcept;
    int64_t Consumed() const noexcept { return mEnd - mSilenceLeft - mFramesLeft; }

    uint64_t HeardAt(unsigned taken) const noexcept;
    void FallSilent(uint64_t frame) noexcept;
    void Sound(uint64_t frame, wire::LogKind kind) noexcept;

    void StartWithin(uint64_t firstFrame, float* block);
    uint64_t PlaceOf(const CycleStamp& stamp) noexcept;
    void BeginStretch(uint64_t at) noexcept;
    void Advance(double inputFrames) noexcept;
    void EndStretch(uint64_t frame, unsigned frames, double playedFrames) noexcept;
    void DiscardFrames(int64_t frames) noexcept;

    void Run(uint64_t frame, unsigned frames, float* output) noexcept;
    double RatioFor(uint64_t frame, unsigned frames) noexcept;
    double MeasuredScalar(uint64_t nanos) const noexcept;
    double WantedPosition(uint64_t frame) noexcept;

    LaneVoice& Current() noexcept { return mVoices[mCurrent]; }
    LaneVoice& Waiting() noexcept { return mVoices[1 - mCurrent]; }

    const Schedule& mSchedule;
    const uint64_t mLatencyNanos;
    const double mTapRateHz;
    const StereoMix mMix;
    LaneInput mInput;
    const LaneLog mLog;

    // The pacer's, all of it. Positions count the frames of the lane, silence for gaps included. A stretch is
    // sound without a break at one nominal rate.
    platform::vector::ClockFollower mFollower;
    Expectation mExpected;
    int64_t mEnd = 0;                  // one past the last frame of the cycles begun
    int64_t mSilenceLeft = 0;          // of the cycle begun last: first the silence of a gap,
    int64_t mFramesLeft = 0;           // then its frames
    std::array<LaneVoice, 2> mVoices;  // the one that plays or rings out, and the one for the next stretch
    unsigned mCurrent = 0;
    bool mRunning = false;
    bool mSpliced = false;   // the next stretch follows on the last without a break
    bool mSkipped = false;   // what is late is to be discarded
    uint64_t mEarliest = 0;  // tap frame before which the next stretch may not start
    double mHeardUntil = 0;  // tap frame, with fraction, at which the last stretch was heard out
    uint64_t mRendered = 0;  // one past the last tap frame that was asked for
    // Where input frame i of the Take in hand is heard: tap frame mHeardFrom + i / mHeardRatio.
    double mHeardFrom = 0, mHeardRatio = 1;
    bool mSounding = false;  // as the log has it
    uint64_t mSoundsFrom = 0;
    std::atomic<uint64_t> mLeftNanos{0};  // stored by control, loaded by the pacer; a time alone, no order needed
    wire::LogKind mGapKind = wire::LogKind::None;  // of the silence in mSilenceLeft
    uint32_t mDiscarded = 0, mStarved = 0, mMissed = 0;
};

}  // namespace tap
