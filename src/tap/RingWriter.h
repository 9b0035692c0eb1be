// RingWriter: the two regions that a tap shares with its client, written so that a reader without a lock is
// never misled.
// Why: the client validates what it copied by reading the positions again; that only works when every state
// in between two stores is a true one. The argument stands at the top of RingWriter.cpp, every byte in
// docs/formats/tap-status.md.
// Start at WriteBlock.
#pragma once

#include "tap/Schedule.h"
#include "tap/wire/TapStatus.h"

#include <cstddef>
#include <cstdint>

namespace tap {

constexpr uint32_t kBlockFrames = 128;                 // the unit in which frames are published
constexpr uint32_t kOutputFrames = 16 * kBlockFrames;  // what a client gathers that is woken for each block
constexpr size_t kStatusBytes = wire::kStatusBytes;

/// What went wrong so far, for a person to see. Counts wrap.
struct TapCounters {
    uint32_t mDroppedFrames = 0;  // came from the server and found no room, or came too late to be heard
    uint32_t mStarvedFrames = 0;  // silence given because the server was late
    uint32_t mLateBlocks = 0;     // published more than a block after their time
    uint32_t mSkippedPasses = 0;  // passes of the ring that were counted and not written
    uint32_t mMissedFrames = 0;   // silence given because the server went on without delivering
};

class RingWriter {
public:
    /// Frames of one pass: a power of two of blocks, and a second at least.
    static uint32_t LoopFrames(FixedRate rate) noexcept;
    static size_t AudioBytes(FixedRate rate, unsigned channels) noexcept;

    /// Puts the fixed fields and the first positions in place. The ring must be silent, as fresh pages are.
    ///
    /// @param audio   AudioBytes of memory, aligned to 8, that outlives this
    /// @param status  kStatusBytes of memory, aligned to 8, that outlives this
    /// @param outputFrames  what the client gathers at the most
    RingWriter(void* audio, void* status, FixedRate rate, unsigned channels,
               uint32_t outputFrames = kOutputFrames) noexcept;

    /// Publishes the next block.
    ///
    /// @param samples     kBlockFrames interleaved frames
    /// @param skipPasses  passes to count as gone by before it; nothing older than this block is valid then
    /// @thread            one; readers are any threads of the process
    /// @realtime          yes
    void WriteBlock(const float* samples, uint32_t skipPasses = 0) noexcept;

    /// @realtime yes
    void PublishCounters(const TapCounters& counters) noexcept;

    /// Publishes the host time of the sound that frame 0 stands for. Before the first block.
    void PublishTimeline(uint64_t momentOfFrame0Nanos) noexcept;

    /// Appends an entry to the log; the oldest one makes room. @thread the one of WriteBlock @realtime yes
    void Log(const wire::LogEntry& entry) noexcept;

    uint32_t BlocksInLoop() const noexcept { return mLoopFrames / kBlockFrames; }

private:
    template <class T>
    void Store(size_t offset, T value) noexcept;
    void PublishTail() noexcept { Store<uint32_t>(wire::kTailFrame, uint32_t(mTail % mLoopFrames)); }
    void PublishHead() noexcept;
    void CopyBlock(const float* samples) noexcept;

    std::byte* mAudio;
    std::byte* mStatus;
    unsigned mChannels;
    uint32_t mLoopFrames;
    // Frames since pass 0. mHead - mTail lies in [kBlockFrames, mLoopFrames - kBlockFrames], so that head and
    // tail never meet in the ring and the tail's pass follows from the two frames.
    uint64_t mHead;
    uint64_t mTail = kBlockFrames;
    uint64_t mLogged = 0;
};

}  // namespace tap
