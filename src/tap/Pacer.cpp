#include "tap/Pacer.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

#include <algorithm>

namespace tap {

namespace kernel = platform::kernel;

Pacer::Pacer(const Schedule& schedule, RingWriter& ring, const LaneTable& lanes, unsigned channels,
             unsigned blocksAWake)
    : mSchedule(schedule),
      mRing(ring),
      mLanes(lanes),
      mBlocksAWake(blocksAWake),
      mBlock(size_t(kBlockFrames) * channels)
{
}

Pacer::~Pacer()
{
    if (!mStarted) return;
    mStop.store(true, std::memory_order_relaxed);
    kernel::pthread_join(mThread, nullptr);
}

bool Pacer::Start()
{
    mStarted = kernel::pthread_create(&mThread, nullptr, Run, this, "tap pacer") == 0;
    return mStarted;
}

void* Pacer::Run(void* self)
{
    Pacer& pacer = *static_cast<Pacer*>(self);
    pacer.AskForPriority();  // first, and for itself: what comes with it holds for the thread that asks
    platform::machine::Clock& clock = platform::machine::Machine::Current().GetClock();
    while (!pacer.mStop.load(std::memory_order_relaxed)) {
        clock.SleepUntil(pacer.NextDueNanos());
        pacer.PublishDue(mach_absolute_time());
    }
    return nullptr;
}

void Pacer::PublishDue(uint64_t nanos)
{
    const uint64_t due = mSchedule.FramesBy(nanos) / kBlockFrames;
    if (due <= mBlocks) return;
    const uint64_t behind = due - mBlocks;
    const auto passes = uint32_t(behind > mRing.BlocksInLoop() ? (behind - 1) / mRing.BlocksInLoop() : 0);
    if (behind > mBlocksAWake) LogStall(behind - mBlocksAWake);
    mCounters.mSkippedPasses += passes;

    PublishBlock(passes);
    while (mBlocks < due) PublishBlock(0);
    PublishCounters();
}

/// A wake that is late by some blocks is usual; one that is later tells of a process that was stopped.
void Pacer::LogStall(uint64_t blocks) noexcept
{
    constexpr uint64_t kStallNanos = 50'000'000;
    mCounters.mLateBlocks += uint32_t(blocks);
    const uint64_t frames = blocks * kBlockFrames;
    if (Schedule::NanosOf(frames, mSchedule.Rate()) < kStallNanos) return;
    mRing.Log({(mBlocks + mBlocksAWake) * kBlockFrames, frames, wire::LogKind::Stalled, 0});
}

void Pacer::PublishBlock(uint32_t skippedPasses)
{
    const kernel::RealtimeScope cycle;
    if (skippedPasses > 0)
        for (const auto& lane : mLanes.All()) lane->SkipBlocks();
    mBlocks += uint64_t(skippedPasses) * mRing.BlocksInLoop();

    std::fill(mBlock.begin(), mBlock.end(), 0.0f);
    for (const auto& lane : mLanes.All()) lane->RenderBlock(mBlocks * kBlockFrames, mBlock.data());
    mRing.WriteBlock(mBlock.data(), skippedPasses);
    ++mBlocks;
}

void Pacer::PublishCounters() noexcept
{
    mCounters.mDroppedFrames = mCounters.mStarvedFrames = mCounters.mMissedFrames = 0;
    for (const auto& lane : mLanes.All()) {
        mCounters.mDroppedFrames += lane->DroppedFrames();
        mCounters.mStarvedFrames += lane->StarvedFrames();
        mCounters.mMissedFrames += lane->MissedFrames();
    }
    mRing.PublishCounters(mCounters);
}

/// A block takes microseconds; it may be computed anywhere in its period. Refusal leaves the thread as it is.
void Pacer::AskForPriority()
{
    const auto period = int32_t(Schedule::NanosOf(kBlockFrames, mSchedule.Rate()));
    const int32_t words[] = {period, period / 10, period, 1};
    kernel::thread_policy_set(kernel::pthread_mach_thread_np(::pthread_self()), kernel::THREAD_TIME_CONSTRAINT_POLICY,
                              words, 4);
}

}  // namespace tap
