#include "TapFixture.h"

#include <array>
#include <atomic>
#include <thread>

namespace {

constexpr uint64_t kBlockUS = 1024;  // 128 frames of 8 us
constexpr uint64_t kLoopUS = 16 * kBlockUS;

class Consumer : public TapFixture {
protected:
    /// That a chunk holds these frames of the service and nothing else.
    void ExpectFrames(const Delivered& chunk, uint64_t first, uint32_t count) const
    {
        ASSERT_EQ(chunk.mFrames, count);
        ASSERT_EQ(chunk.mBytes.size(), count * 8);
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(chunk.FloatAt(i * 2), mService->SampleAt(first + i, 0)) << "frame " << i;
            ASSERT_EQ(chunk.FloatAt(i * 2 + 1), mService->SampleAt(first + i, 1)) << "frame " << i;
        }
    }
    /// Waits, on a thread of the test's, until the consumer has done something.
    template <class Condition>
    static void Await(Condition condition)
    {
        while (!condition()) std::this_thread::yield();
    }
};

TEST_F(Consumer, ChunksAreWholeBlocksInOrderAcrossTheWrapAndNeverLargerThanTheOutputBuffer)
{
    mService->mStatus.mOutputFrames = 4 * 128;  // a page: four blocks
    mService->mStatus.mLoopCount = 0;           // the tail's pass is then the one before 0
    CreateAtWriter();
    mTap->Consume();
    EXPECT_TRUE(mDelivered.empty());
    mService->WriteBlocks(13);
    for (int i = 0; i < 4; ++i) mTap->Consume();
    mService->WriteBlocks(5);
    for (int i = 0; i < 4; ++i) mTap->Consume();
    ASSERT_EQ(mDelivered.size(), 6u);
    uint64_t frame = 0;
    for (size_t i = 0; i < 6; ++i) {
        const uint32_t blocks[] = {4, 4, 4, 1, 4, 1};
        ExpectFrames(mDelivered[i], frame, blocks[i] * 128);
        EXPECT_EQ(mDelivered[i].mTimeUS, frame * 8);
        frame += mDelivered[i].mFrames;
    }
    EXPECT_EQ(mDetails.audioFrames, 18u * 128);
    EXPECT_EQ(mDetails.audioBytes, 18u * 1024);
}

TEST_F(Consumer, TheLogIsReadInOrderFromItsOldestWholeEntryAndNeverTorn)
{
    using namespace tap::wire;
    mService->mSizes[1] = kStatusBytes;
    CreateAtWriter();
    uint32_t written = 0;
    const auto write = [&](uint32_t end) {
        for (; written < end; ++written) {
            const size_t place = kLog + written % kLogEntries * kLogEntryBytes;
            mService->Poke(place, written);
            mService->Poke(place + 8, 2 * written);
            mService->Poke(place + 16, uint32_t(LogKind::Stalled));
            mService->Poke(place + 20, 3 * written);
            mService->Poke(kLogCount, written + 1);
        }
    };
    uint64_t next = 0;
    const auto read = [&] {
        std::array<LogEntry, 64> entries;
        const size_t count = mTap->ReadLog(next, entries);
        for (size_t i = 0; i < count; ++i) {
            const auto number = uint32_t(next - count + i);
            EXPECT_EQ(entries[i], (LogEntry{number, 2 * number, LogKind::Stalled, 3 * number}));
        }
        return count;
    };
    write(100);
    EXPECT_EQ(read(), 0u) << "a service that keeps no log";
    mService->Poke(kTimeline, kTimelineMark);
    for (const size_t count : {64u, 36u, 0u}) EXPECT_EQ(read(), count);
    write(1000);
    EXPECT_EQ(read(), 64u);
    EXPECT_EQ(next, 1000 - (kLogEntries - 1) + 64);
    constexpr uint32_t kEnd = 200'000;
    std::thread writer([&] { write(kEnd); });
    while (next < kEnd) read();
    writer.join();
}

TEST_F(Consumer, AReaderThatFellBehindGoesOnAtTheTailWithItsTimeAheadByTheGap)
{
    struct Case {
        int mRead, mMissed;
        uint64_t mFirstFrame, mTimeUS;
    };
    // Within a pass the gap is what it is. Across passes a block is added, which is wanted.
    for (const Case& c : {Case{0, 16, 128, kBlockUS},                             // (1, 0) to (1, 128)
                          Case{15, 17, 17 * 128, 17 * kBlockUS + kBlockUS},       // (1, 1920) to (2, 128)
                          Case{3, 16 + 13, 17 * 128, 17 * kBlockUS + kBlockUS},   // (1, 384) to (2, 128)
                          Case{3, 32 + 13, 33 * 128, 33 * kBlockUS + kBlockUS}})  // (1, 384) to (3, 128)
    {
        mDelivered.clear();
        mService = support::ScriptedTapService::Publish();
        mService->mVersion = Number(2);
        CreateAtWriter();
        mService->WriteBlocks(c.mRead);
        mTap->Consume();
        mDelivered.clear();
        mService->WriteBlocks(c.mMissed);
        mTap->Consume();
        ASSERT_EQ(mDelivered.size(), 1u);
        ExpectFrames(mDelivered[0], c.mFirstFrame, 15 * 128);
        EXPECT_EQ(mDelivered[0].mTimeUS, c.mTimeUS);
        mTap.reset();
    }
}

TEST_F(Consumer, PositionsApartByPassesCountABlockMoreThanTheirFrames)
{
    CreateAtWriter();
    EXPECT_EQ(mTap->ComputeDeltaNS(4, 256, 4, 256), 0u);
    EXPECT_EQ(mTap->ComputeDeltaNS(4, 256, 4, 128), 128u * 8000);
    EXPECT_EQ(mTap->ComputeDeltaNS(4, 1920, 5, 128), (kBlockUS * 2 + kBlockUS) * 1000);
    EXPECT_EQ(mTap->ComputeDeltaNS(6, 128, 4, 1920), (kLoopUS + kBlockUS * 2 + kBlockUS) * 1000);
    mService->WriteBlocks(15);
    unsigned int loop, head, tailLoop, tail;
    mTap->GrabStateSnapshot(&loop, &head, &tailLoop, &tail);
    EXPECT_EQ((std::vector{loop, head, tailLoop, tail}), (std::vector{1u, 1920u, 1u, 0u}));
}

TEST_F(Consumer, PositionsOffTheRingsBlocksOrBehindTheReaderAreNothingNew)
{
    CreateAtWriter();
    mService->WriteBlocks(2);
    for (const uint32_t frame : {64u, 2048u, 2049u, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFF80u}) {
        mService->Poke(76, frame);
        mTap->Consume();
        mService->Poke(76, 256);
        if (frame < 2048) continue;  // a tail in the ring may lie off a block
        mService->Poke(68, frame);
        mTap->Consume();
        mService->Poke(68, 384);
    }
    EXPECT_TRUE(mDelivered.empty());
    mTap->Consume();
    ASSERT_EQ(mDelivered.size(), 1u);
    ExpectFrames(mDelivered[0], 0, 256);

    mService->Poke(76, 0xFFFFFFFF);
    mTap->MoveToWriter();
    mService->Poke(76, 256);
    mTap->Consume();
    EXPECT_EQ(mDelivered.size(), 2u);

    mService->Poke(76, 128);
    mService->Poke(68, 256);
    mTap->Consume();
    mService->Poke(72, 0);
    mTap->Consume();
    EXPECT_EQ(mDelivered.size(), 2u);
}

TEST_F(Consumer, ATailOffTheBlocksMovesTheReaderToTheNextBlock)
{
    CreateAtWriter();
    mService->WriteBlocks(4);
    mService->Poke(68, 129);
    mTap->Consume();
    ASSERT_EQ(mDelivered.size(), 1u);
    ExpectFrames(mDelivered[0], 256, 256);
    EXPECT_EQ(mTap->ChunkFrame(), 256u);
}

TEST_F(Consumer, IntegersAndSwappedFloatsComeInTheSessionsFormat)
{
    mDetails.audioFormat = Int16Format(kAudioFormatFlagIsBigEndian);
    CreateAtWriter();
    mService->WriteBlocks(1);
    const float wrapping[] = {1.0f, -1.0f};
    std::memcpy(mService->Ring(), wrapping, sizeof wrapping);
    mTap->Consume();
    ASSERT_EQ(mDelivered.size(), 1u);
    EXPECT_EQ(mDelivered[0].mFrames, 128u);
    EXPECT_EQ(std::vector(mDelivered[0].mBytes.begin(), mDelivered[0].mBytes.begin() + 4),
              (std::vector<uint8_t>{0x7F, 0xFF, 0x80, 0x01}));

    mDetails.audioFormat = FloatFormat();
    mService->mSwapped = true;
    mService->mStatus = {};
    ASSERT_EQ(Create(Array({CFSTR("speakers")}), {}, true), 0);
    mTap->MoveToWriter();
    mService->WriteBlocks(17);
    mTap->Consume();
    ASSERT_EQ(mDelivered.size(), 2u);
    EXPECT_EQ(mDelivered[1].FloatAt(1), mService->SampleAt(3 * 128, 1));
    EXPECT_EQ(mDelivered[1].mFrames, 15u * 128);
}

// ---- With the consumer's thread.

TEST_F(Consumer, PauseAndResumeSkipWhatWasPlayedAndTimeGoesOn)
{
    ASSERT_EQ(Create(), 0);
    std::atomic<size_t> chunks{0};
    mOnChunk = [&] { return ++chunks, 0; };
    mService->WriteBlocks(5);
    for (size_t run = 1; run <= 3; ++run) {
        EXPECT_EQ(mTap->Resume(), 0);
        EXPECT_EQ(mTap->Resume(), 0);
        mService->WriteBlocks(2);
        Await([&] { return chunks == run; });
        mTap->Pause();
        mTap->Pause();
        mService->WriteBlocks(20);
    }
    for (uint64_t run = 0; run < 3; ++run) {
        ExpectFrames(mDelivered[run], (5 + run * 22) * 128, 2 * 128);
        EXPECT_EQ(mDelivered[run].mTimeUS, run * 2 * kBlockUS);
    }
}

TEST_F(Consumer, WhatWasGatheredBeforeAGapLeavesFirstWithItsOwnTime)
{
    ASSERT_EQ(Create(), 0);
    std::atomic<size_t> chunks{0};
    int looks = -1;  // at the clock, by the consumer, one before each block
    mOnChunk = [&] {
        if (++chunks == 1) mService->WriteBlocks(2), looks = 0;
        return 0;
    };
    const support::ClockHook hook(mMachine.mClock, [&] {
        if (looks >= 0 && ++looks == 2) mService->WriteBlocks(18), looks = -1;
    });
    ASSERT_EQ(mTap->Resume(), 0);
    mService->WriteBlocks(2);
    Await([&] { return chunks == 3; });
    mTap->Pause();
    ExpectFrames(mDelivered[1], 2 * 128, 128);
    EXPECT_EQ(mDelivered[1].mTimeUS, 2 * kBlockUS);
    ExpectFrames(mDelivered[2], 7 * 128, 15 * 128);  // 22 blocks were written, the last 15 are there
    EXPECT_EQ(mDelivered[2].mTimeUS, 7 * kBlockUS);
}

TEST_F(Consumer, ACallbacksErrorEndsTheConsumerUntilPauseAndResume)
{
    ASSERT_EQ(Create(), 0);
    std::atomic<int> chunks{0};
    mOnChunk = [&] { return ++chunks == 1 ? -1 : 0; };
    ASSERT_EQ(mTap->Resume(), 0);
    mService->WriteBlocks(2);
    Await([&] { return chunks == 1; });
    mService->WriteBlocks(8);
    EXPECT_EQ(mTap->Resume(), 0);
    mTap->Pause();
    EXPECT_EQ(chunks, 1);
    ASSERT_EQ(mTap->Resume(), 0);
    mService->WriteBlocks(2);
    Await([&] { return chunks == 2; });
}

TEST_F(Consumer, AConsumerThatNeverWaitsForASecondSaysSoOnceAndGoesOn)
{
    ASSERT_EQ(Create(), 0);
    std::atomic<int> chunks{0};
    mOnChunk = [&] {
        mMachine.mClock.mAheadNanos += 400'000'000;
        if (chunks < 8) mService->WriteBlocks(2);
        return ++chunks, 0;
    };
    testing::internal::CaptureStderr();
    ASSERT_EQ(mTap->Resume(), 0);
    mService->WriteBlocks(2);
    Await([&] { return chunks == 9; });
    mTap->Pause();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "AudioConsumer has been compute bound for >1s, breaking the cycle...\n");
}

TEST_F(Consumer, PauseEndsAConsumerThatIsShownPositionsWithoutSense)
{
    struct Position {
        uint32_t mLoop, mHead, mTail = 128;
    };
    ASSERT_EQ(Create(), 0);
    std::atomic<int> looks{0};
    const support::ClockHook hook(mMachine.mClock, [&] { ++looks; });
    for (const Position& shown :
         {Position{1, 0xFFFFFFFF}, {1, 64}, {1, 2048}, {0, 1024}, {0xFFFFFFFF, 1}, {1, 1024, 4096}}) {
        ASSERT_EQ(mTap->Resume(), 0);
        mService->Poke(68, shown.mTail);
        mService->Poke(76, shown.mHead);
        mService->Poke(72, shown.mLoop);
        const int before = looks;
        Await([&] { return looks > before + 4; });  // it has looked at least once since
        mTap->Pause();
        mService->Poke(72, 1);
        mService->Poke(76, 0);
    }
    EXPECT_TRUE(mDelivered.empty());
}

TEST_F(Consumer, NoTornBlockIsDeliveredFromARingThatIsLappedAllTheTime)
{
    mService->mStatus.mLoopFrames = 4 * 128;
    mService->mStatus.mNSPerLoop = 4 * 128 * 8000;
    CreateAtWriter();
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop) mService->WriteBlocks(1);
    });
    constexpr uint32_t kFrames = 1u << 23;  // after which samples repeat
    int chunks = 0;
    uint32_t lastLead = 0;
    mOnChunk = [&] {
        const Delivered& chunk = mDelivered.back();
        const auto frame = uint32_t(chunk.FloatAt(0) * kFrames);
        EXPECT_EQ(frame % 128, 0u);
        for (uint32_t i = 0; i < chunk.mFrames * 2; ++i)
            EXPECT_EQ(chunk.FloatAt(i), mService->SampleAt(frame + i / 2, i % 2));
        // Time is ahead of the frames by a block for each gap across passes, and by nothing else.
        const auto lead = (uint32_t(chunk.mTimeUS / 8) - frame) % kFrames;
        EXPECT_EQ(lead % 128, 0u);
        EXPECT_LT((lead - lastLead) % kFrames, kFrames / 2) << "stream time fell behind what was delivered";
        lastLead = lead;
        mDelivered.clear();
        return ++chunks, 0;
    };
    while (chunks < 500 && !HasFailure()) mTap->Consume();
    stop = true;
    writer.join();
}

}  // namespace
