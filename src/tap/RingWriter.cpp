// Why no reader is misled:
//  - Before a block is overwritten the tail moves past the block after it. Both stores and the samples are
//    releases, so a reader that saw one new sample sees that tail when it validates, and refuses its copy.
//  - Pass and head are one 64-bit store: no reader sees the new frame with the old pass.
//  - The tail leads the head by a block in the ring at the least, so they never meet.
//  - A reader may hold an older head beside a newer tail. The tail's pass still follows by the rule (the
//    head's pass where the tail is the lower frame, one less otherwise), as long as head and tail are less than
//    a whole pass of writing apart; beyond that its validation after the copy refuses it.
//  - Counting skipped passes makes everything but the block at hand invalid. The position goes first, since the
//    other order would let head and tail meet: for the moment between the two stores old frames look valid, and a
//    reader that copies one validates against the second store, which comes before its copy is done.
#include "tap/RingWriter.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>

namespace tap {

using namespace wire;

namespace {

// The position store puts the pass into the lower half, which is the field that comes first.
static_assert(std::endian::native == std::endian::little);

}  // namespace

uint32_t RingWriter::LoopFrames(FixedRate rate) noexcept
{
    const uint64_t second = (rate >> kRateFractionBits) + 1;
    return kBlockFrames * uint32_t(std::bit_ceil((second + kBlockFrames - 1) / kBlockFrames));
}

size_t RingWriter::AudioBytes(FixedRate rate, unsigned channels) noexcept
{
    return size_t(LoopFrames(rate)) * channels * sizeof(float);
}

RingWriter::RingWriter(void* audio, void* status, FixedRate rate, unsigned channels, uint32_t outputFrames) noexcept
    : mAudio(static_cast<std::byte*>(audio)),
      mStatus(static_cast<std::byte*>(status)),
      mChannels(channels),
      mLoopFrames(LoopFrames(rate)),
      mHead(mLoopFrames)
{
    Store<uint32_t>(kLegacyOutputFrames, kOutputFrames << 16);
    Store<uint32_t>(kChannelCount, channels);
    // Rounded up: a client tells by it whether two blocks are there, and must not find them too short by a rounding.
    Store<uint64_t>(kNanosPerFrame, (Schedule::NanosOf(kBlockFrames, rate) + kBlockFrames - 1) / kBlockFrames);
    Store<uint32_t>(kLoopFrames, mLoopFrames);
    Store<uint64_t>(kNanosPerLoop, Schedule::NanosOf(mLoopFrames, rate));
    Store<uint32_t>(kBlockFramesField, kBlockFrames);
    Store<uint64_t>(kNanosPerBlock, Schedule::NanosOf(kBlockFrames, rate));
    Store<uint32_t>(kOutputFramesField, outputFrames);
    Store<uint32_t>(kCounterCount, kCountersKept);
    PublishCounters({});
    PublishTail();
    PublishHead();
}

void RingWriter::WriteBlock(const float* samples, uint32_t skipPasses) noexcept
{
    mTail = std::max(mTail, mHead + 2 * kBlockFrames - mLoopFrames);
    PublishTail();
    CopyBlock(samples);

    mHead += uint64_t(skipPasses) * mLoopFrames + kBlockFrames;
    PublishHead();
    if (skipPasses == 0) return;
    mTail = mHead - kBlockFrames;
    PublishTail();
}

void RingWriter::PublishCounters(const TapCounters& counters) noexcept
{
    Store(kCounters, counters.mDroppedFrames);
    Store(kCounters + 4, counters.mStarvedFrames);
    Store(kCounters + 8, counters.mLateBlocks);
    Store(kCounters + 12, counters.mSkippedPasses);
    Store(kMissedFrames, counters.mMissedFrames);
}

void RingWriter::PublishTimeline(uint64_t momentOfFrame0Nanos) noexcept
{
    Store(kMomentOfFrame0, momentOfFrame0Nanos);
    Store(kTimeline, kTimelineMark);
}

/// The count goes last: a reader that sees it sees the entry, and a reader that was overtaken sees a greater one.
void RingWriter::Log(const LogEntry& entry) noexcept
{
    const size_t place = kLog + mLogged % kLogEntries * kLogEntryBytes;
    Store(place, entry.mFrame);
    Store(place + 8, entry.mFrames);
    Store(place + 16, uint64_t(entry.mLane) << 32 | uint32_t(entry.mKind));
    Store(kLogCount, ++mLogged);
}

// Partner: the acquire loads of the regions' readers.
template <class T>
void RingWriter::Store(size_t offset, T value) noexcept
{
    std::atomic_ref<T>(*reinterpret_cast<T*>(mStatus + offset)).store(value, std::memory_order_release);
}

void RingWriter::PublishHead() noexcept
{
    const uint32_t pass = uint32_t(mHead / mLoopFrames);
    const uint32_t frame = uint32_t(mHead % mLoopFrames);
    Store<uint64_t>(kPosition, uint64_t(frame) << 32 | pass);
}

void RingWriter::CopyBlock(const float* samples) noexcept
{
    const size_t bytes = size_t(kBlockFrames) * mChannels * sizeof(float);
    auto* place = reinterpret_cast<uint64_t*>(mAudio + mHead % mLoopFrames * mChannels * sizeof(float));
    for (size_t i = 0; i < bytes / sizeof(uint64_t); ++i) {
        uint64_t word;
        std::memcpy(&word, samples + 2 * i, sizeof word);
        // Released, so that no sample is seen before the tail that moved out of its way.
        std::atomic_ref<uint64_t>(place[i]).store(word, std::memory_order_release);
    }
}

}  // namespace tap
