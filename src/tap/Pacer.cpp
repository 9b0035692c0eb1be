#include "tap/Pacer.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

#include <algorithm>

namespace tap {

namespace kernel = platform::kernel;

namespace {

constexpr uint64_t kMoveNanos = 250'000'000;  // a stream that moves is on its way for less

}  // namespace

Pacer::Pacer(const Schedule& schedule, RingWriter& ring, const LaneTable& lanes, unsigned channels,
             unsigned blocksAWake)
    : mSchedule(schedule),
      mRing(ring),
      mLanes(lanes),
      mBlocksAWake(blocksAWake),
      mBlock(size_t(kBlockFrames) * channels),
      mLaneBlock(mBlock.size())
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
        pacer.PublishInParts(mach_absolute_time());
    }
    return nullptr;
}

/// After a stall the client still has the last part to fetch, and the lanes hold what came before it: an eighth of the
/// ring at a time leaves the client room for both. While the parts follow each other, the lanes hold what sounds now: a
/// stall that takes longer to publish than they can hold keeps its first part only.
void Pacer::PublishInParts(uint64_t nanos)
{
    constexpr uint64_t kLongestStallSeconds = 3;
    const uint64_t part = mRing.BlocksInLoop() / 8;
    const uint64_t due = mSchedule.FramesBy(nanos) / kBlockFrames;
    if (due > mBlocks + mBlocksAWake) LogStall(due - mBlocks - mBlocksAWake);
    const uint64_t longest =
        mSchedule.FramesBy(mSchedule.TimeOf(0) + kLongestStallSeconds * 1'000'000'000) / kBlockFrames;
    unsigned parts = due - std::min(due, mBlocks) > longest ? 2 : UINT32_MAX;
    const uint64_t pauseNanos = mBlocksAWake > 1 ? 100'000'000 : 10'000'000;
    platform::machine::Clock& clock = platform::machine::Machine::Current().GetClock();
    while (mBlocks + 2 * part < due && parts-- > 0 && !mStop.load(std::memory_order_relaxed)) {
        PublishDue(mSchedule.TimeOf((mBlocks + part) * kBlockFrames));
        clock.SleepUntil(mach_absolute_time() + pauseNanos);
    }
    PublishDue(nanos);
}

void Pacer::PublishDue(uint64_t nanos)
{
    const uint64_t due = mSchedule.FramesBy(nanos) / kBlockFrames;
    if (due <= mBlocks) return;
    const uint64_t behind = due - mBlocks;
    const auto passes = uint32_t(behind > mRing.BlocksInLoop() ? (behind - 1) / mRing.BlocksInLoop() : 0);
    if (behind > mBlocksAWake) mCounters.mLateBlocks += uint32_t(behind - mBlocksAWake);
    mCounters.mSkippedPasses += passes;

    PublishBlock(passes);
    while (mBlocks < due) PublishBlock(0);
    PublishCounters();
}

/// The frame at which another lane took over what a lane's streams play, or the end of time. A server asks a stream
/// that it moves for sound on the new device before the last cycle of the old one has passed: both speak of the same
/// moments.
uint64_t Pacer::TakenOverAt(const Lane& lane) const noexcept
{
    const uint64_t left = lane.LeftFrame();
    const uint64_t near = mSchedule.FramesBy(mSchedule.TimeOf(0) + kMoveNanos);
    uint64_t frame = UINT64_MAX;
    for (const auto& other : mLanes.All()) {
        if (other->HasLeft()) continue;
        const auto from = other->SoundsFrom();
        if (from && *from + near > left && *from < left + near) frame = std::min(frame, *from);
    }
    return frame;
}

/// Adds what a lane gives to the block, up to frame `until` of the tap.
void Pacer::AddLane(Lane& lane, uint64_t until)
{
    const uint64_t first = mBlocks * kBlockFrames;
    std::fill(mLaneBlock.begin(), mLaneBlock.end(), 0.0f);
    lane.RenderBlock(first, mLaneBlock.data());
    const uint64_t frames = until > first ? std::min<uint64_t>(until - first, kBlockFrames) : 0;
    const size_t samples = size_t(frames) * (mBlock.size() / kBlockFrames);
    for (size_t i = 0; i < samples; ++i) mBlock[i] += mLaneBlock[i];
}

/// A wake that is late by some blocks is usual; one that is later tells of a process that was stopped.
void Pacer::LogStall(uint64_t blocks) noexcept
{
    constexpr uint64_t kStallNanos = 50'000'000;
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
    // Lanes whose streams have left go last: then it is known where others took over.
    for (const auto& lane : mLanes.All())
        if (!lane->HasLeft()) lane->RenderBlock(mBlocks * kBlockFrames, mBlock.data());
    for (const auto& lane : mLanes.All())
        if (lane->HasLeft()) AddLane(*lane, TakenOverAt(*lane));
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
