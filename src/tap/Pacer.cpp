#include "tap/Pacer.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

#include <algorithm>

namespace tap {

namespace kernel = platform::kernel;

Pacer::Pacer(const Schedule& schedule, RingWriter& ring, std::span<const std::unique_ptr<Lane>> lanes,
             unsigned channels)
    : mSchedule(schedule), mRing(ring), mLanes(lanes), mBlock(size_t(kBlockFrames) * channels)
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
    if (mStarted) AskForPriority();
    return mStarted;
}

void* Pacer::Run(void* self)
{
    Pacer& pacer = *static_cast<Pacer*>(self);
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
    mCounters.mLateBlocks += uint32_t(behind - 1);
    mCounters.mSkippedPasses += passes;

    PublishBlock(passes);
    while (mBlocks < due) PublishBlock(0);
    PublishCounters();
}

void Pacer::PublishBlock(uint32_t skippedPasses)
{
    const kernel::RealtimeScope cycle;
    if (skippedPasses > 0)
        for (const auto& lane : mLanes) lane->SkipBlocks();
    mBlocks += uint64_t(skippedPasses) * mRing.BlocksInLoop();

    std::fill(mBlock.begin(), mBlock.end(), 0.0f);
    for (const auto& lane : mLanes) lane->RenderBlock(mBlocks * kBlockFrames, mBlock.data());
    mRing.WriteBlock(mBlock.data(), skippedPasses);
    ++mBlocks;
}

void Pacer::PublishCounters() noexcept
{
    mCounters.mDroppedFrames = mCounters.mStarvedFrames = mCounters.mMissedFrames = 0;
    for (const auto& lane : mLanes) {
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
    kernel::thread_policy_set(kernel::pthread_mach_thread_np(mThread), kernel::THREAD_TIME_CONSTRAINT_POLICY, words, 4);
}

}  // namespace tap
