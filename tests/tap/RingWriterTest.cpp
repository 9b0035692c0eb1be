#include "tap/RingWriter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

using tap::kBlockFrames;
constexpr tap::FixedRate kRate = 1000ull << 32;  // the smallest ring: 8 blocks

/// The two regions, as a client allocates them.
struct Regions {
    explicit Regions(tap::FixedRate rate = kRate, unsigned channels = 1)
        : mChannels(channels),
          mAudio(tap::RingWriter::AudioBytes(rate, channels) / 8),
          mStatus(tap::kStatusBytes / 8),
          mWriter(mAudio.data(), mStatus.data(), rate, channels)
    {
    }
    template <class T>
    T Load(size_t offset) const
    {
        auto* field = reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(mStatus.data()) + offset);
        return std::atomic_ref<T>(*field).load(std::memory_order_acquire);
    }
    float Sample(uint64_t index) const
    {
        const uint64_t word = std::atomic_ref(const_cast<uint64_t&>(mAudio[index / 2])).load(std::memory_order_acquire);
        float pair[2];
        std::memcpy(pair, &word, sizeof pair);
        return pair[index % 2];
    }

    unsigned mChannels;
    std::vector<uint64_t> mAudio, mStatus;
    tap::RingWriter mWriter;
};

/// The positions as a client reads them: position first, tail second, the tail's pass derived.
struct Positions {
    explicit Positions(const Regions& regions)
    {
        const auto position = regions.Load<uint64_t>(72);
        mLoop = uint32_t(position), mHead = uint32_t(position >> 32);
        mTail = regions.Load<uint32_t>(68);
        mTailLoop = mTail < mHead ? mLoop : mLoop - 1;
    }
    uint64_t HeadFrame(uint32_t loopFrames) const { return uint64_t(mLoop) * loopFrames + mHead; }
    uint64_t TailFrame(uint32_t loopFrames) const { return uint64_t(mTailLoop) * loopFrames + mTail; }
    uint32_t mLoop, mHead, mTail, mTailLoop;
};

std::vector<float> Block(uint64_t number, unsigned channels)
{
    std::vector<float> block(kBlockFrames * channels);
    for (size_t i = 0; i < block.size(); ++i) block[i] = float((number * block.size() + i) % (1 << 24));
    return block;
}

}  // namespace

TEST(RingWriter, FixedFieldsAreInPlaceAtOnce)
{
    const Regions regions(44100ull << 32, 2);
    EXPECT_EQ(regions.Load<uint32_t>(0) >> 16, 2048u);
    EXPECT_EQ(regions.Load<uint32_t>(4), 2u);
    EXPECT_EQ(regions.Load<uint64_t>(8), 22676u);  // each rounded from the rate: 128 of these are no block
    EXPECT_EQ(regions.Load<uint32_t>(20), 65536u);
    EXPECT_EQ(regions.Load<uint64_t>(24), 1486077098u);
    EXPECT_EQ(regions.Load<uint32_t>(36), 128u);
    EXPECT_EQ(regions.Load<uint64_t>(40), 2902494u);
    EXPECT_EQ(regions.Load<uint32_t>(96), 2048u);
    EXPECT_EQ(tap::RingWriter::AudioBytes(44100ull << 32, 2), 65536u * 8);
}

TEST(RingWriter, EachCounterHasItsPlace)
{
    Regions regions;
    regions.mWriter.PublishCounters({1, 2, 3, 4, 5});
    const std::pair<size_t, uint32_t> places[] = {{80, 1}, {84, 2}, {88, 3}, {92, 4}, {100, 5}};
    for (const auto& [offset, value] : places) EXPECT_EQ(regions.Load<uint32_t>(offset), value) << offset;
}

// A client that measures blocks by frames is to find them whole.
TEST(RingWriter, RingsHoldASecondOfWholeBlocksAtEveryRate)
{
    for (const uint64_t hz : {1000, 1024, 22050, 44100, 48000, 65536, 96000, 192000, 768000}) {
        const Regions regions(hz << 32);
        const auto frames = regions.Load<uint32_t>(20);
        EXPECT_GE(frames, hz);
        EXPECT_EQ(frames % kBlockFrames, 0u);
        EXPECT_EQ(frames & (frames - 1), 0u);
        EXPECT_GE(kBlockFrames * regions.Load<uint64_t>(8), regions.Load<uint64_t>(40)) << hz;
    }
}

// After every block of several passes, through every wrap, and right after skipped passes.
TEST(RingWriter, EveryPublishedStateTellsTheOldestAndNewestFrameTruly)
{
    Regions regions;
    const uint32_t loop = tap::RingWriter::LoopFrames(kRate);
    uint64_t head = loop;  // pass 1, frame 0
    uint64_t valid = loop - kBlockFrames;
    std::vector<uint64_t> frameAt(loop, 0);
    for (uint64_t block = 0; block < 100; ++block) {
        const Positions before(regions);
        ASSERT_EQ(before.HeadFrame(loop), head);
        ASSERT_EQ(before.TailFrame(loop), head - valid);

        const uint32_t skipped = block == 37 || block == 62 ? 5 : 0;
        regions.mWriter.WriteBlock(Block(block, 1).data(), skipped);
        head += kBlockFrames + uint64_t(skipped) * loop;
        valid = skipped ? kBlockFrames : std::min<uint64_t>(valid + kBlockFrames, loop - kBlockFrames);

        const Positions after(regions);
        ASSERT_NE(after.mTail, after.mHead);
        for (uint64_t frame = after.TailFrame(loop); frame < after.HeadFrame(loop); ++frame) {
            const uint64_t age = after.HeadFrame(loop) - frame;
            const float wanted = age > (block + 1) * kBlockFrames ? 0 : float((block + 1) * kBlockFrames - age);
            ASSERT_EQ(regions.Sample(frame % loop), wanted) << block;
        }
    }
}

// The client's own way to read, against a writer that never waits: a copy that validates is never torn.
TEST(RingWriter, AReaderNeverAcceptsATornBlock)
{
    Regions regions(kRate, 2);
    const uint32_t loop = tap::RingWriter::LoopFrames(kRate);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (uint64_t block = 0; block < 50'000; ++block) {
            regions.mWriter.WriteBlock(Block(block, 2).data());
            if (block % 64 == 0) std::this_thread::yield();
        }
        done.store(true, std::memory_order_relaxed);
    });
    uint64_t accepted = 0, refused = 0, torn = 0;
    std::vector<float> copy(kBlockFrames * 2);
    while (!done.load(std::memory_order_relaxed)) {
        const Positions before(regions);
        if (before.mTail == before.mHead) continue;
        const uint64_t block = before.TailFrame(loop) / kBlockFrames;  // the next to be overwritten
        for (size_t i = 0; i < copy.size(); ++i) copy[i] = regions.Sample(block * kBlockFrames % loop * 2 + i);
        const Positions after(regions);
        if (after.mTail == after.mHead || after.TailFrame(loop) > block * kBlockFrames) {
            ++refused;
            continue;
        }
        ++accepted;
        torn += block >= loop / kBlockFrames && copy != Block(block - loop / kBlockFrames, 2);
    }
    writer.join();
    EXPECT_GT(accepted, 0u);
    EXPECT_EQ(torn, 0u) << refused << " were refused";
}
