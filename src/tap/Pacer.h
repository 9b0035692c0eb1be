// Pacer: the thread that publishes a tap's blocks, each at its own time.
// Why: a tap's consumer stamps arrival, so frames must arrive by the host clock, a block at a time, however the
// server delivers them and whether it delivers any.
// Start at PublishDue.
#pragma once

#include "platform/kernel/Threads.h"
#include "tap/LaneTable.h"
#include "tap/RingWriter.h"
#include "tap/Schedule.h"

#include <atomic>
#include <vector>

namespace tap {

class Pacer {
public:
    /// All of them outlive this. Nothing is published before Start or PublishDue.
    ///
    /// @param blocksAWake  blocks that may become due before the thread wakes for them, at least 1: a client that
    ///                     does not need each block at its time is not woken for each
    Pacer(const Schedule& schedule, RingWriter& ring, const LaneTable& lanes, unsigned channels,
          unsigned blocksAWake = 1);
    /// Ends the thread, after a block at the most.
    ~Pacer();

    /// @return whether the thread runs
    bool Start();

    /// Publishes every block whose time has come, one by one.
    ///
    /// Wakes that come late catch up. What lies more than a pass of the ring back is counted, not written:
    /// nobody could hear it any more.
    ///
    /// @param nanos  host time
    /// @thread       the pacer; tests call it from theirs where Start was not called
    void PublishDue(uint64_t nanos);

    /// Host time of the next wake: when as many blocks as may wait are due. @thread as PublishDue
    uint64_t NextDueNanos() const noexcept { return mSchedule.TimeOf((mBlocks + mBlocksAWake) * kBlockFrames); }

private:
    static void* Run(void* self);
    void PublishInParts(uint64_t nanos);
    void PublishBlock(uint32_t skippedPasses);
    void AddLane(Lane& lane, uint64_t until);
    uint64_t TakenOverAt(const Lane& lane) const noexcept;
    void AskForPriority();
    void LogStall(uint64_t blocks) noexcept;
    void PublishCounters() noexcept;

    const Schedule& mSchedule;
    RingWriter& mRing;
    const LaneTable& mLanes;
    const unsigned mBlocksAWake;
    std::vector<float> mBlock, mLaneBlock;
    uint64_t mBlocks = 0;  // published or skipped so far
    TapCounters mCounters;
    pthread_t mThread{};
    bool mStarted = false;
    std::atomic<bool> mStop{false};  // stored by the destructor's thread, loaded by the pacer; no order needed
};

}  // namespace tap
