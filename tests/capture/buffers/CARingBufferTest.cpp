#include "capture/buffers/CARingBuffer.h"
#include "platform/kernel/Threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <random>
#include <vector>

namespace {

namespace kernel = platform::kernel;

constexpr uint32_t kCapacity = 64;
constexpr uint32_t kUntouched = 0xDEADBEEF;
using TimeSpan = std::pair<int64_t, int64_t>;

// Interleaved or mono frames of one 32-bit word, whose value is their sample time.
class Frames {
public:
    explicit Frames(uint32_t frames, uint32_t value = kUntouched) : mWords(frames, value)
    {
        mList.mNumberBuffers = 1;
        mList.mBuffers[0] = {1, frames * 4, mWords.data()};
    }
    Frames& At(int64_t time)
    {
        for (uint32_t& word : mWords) word = static_cast<uint32_t>(time++);
        return *this;
    }
    uint32_t Count() const { return static_cast<uint32_t>(mWords.size()); }

    std::vector<uint32_t> mWords;
    AudioBufferList mList;
};

std::vector<uint32_t> Counting(int64_t from, size_t count)
{
    std::vector<uint32_t> words(count);
    std::generate(words.begin(), words.end(), [&from] { return static_cast<uint32_t>(from++); });
    return words;
}

class CARingBufferTest : public testing::Test {
protected:
    CARingBufferTest() { mRing.Allocate(1, 4, kCapacity); }

    int Store(int64_t time, uint32_t count)
    {
        Frames frames(count);
        return mRing.Store(&frames.At(time).mList, count, time);
    }
    int Fetch(int64_t time, Frames& frames) { return mRing.Fetch(&frames.mList, frames.Count(), time, false); }
    TimeSpan Span()
    {
        int64_t start = -1, end = -1;
        EXPECT_EQ(mRing.GetTimeBounds(start, end), RingOK);
        return {start, end};
    }

    CARingBuffer mRing;
};

TEST_F(CARingBufferTest, CapacityIsTheNextPowerOfTwo)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{1, 1}, {2, 2}, {3, 4}, {64, 64}, {65, 128}, {88200, 131072}};
    for (const auto& [wanted, made] : cases) {
        mRing.Allocate(2, 4, wanted);
        EXPECT_EQ(mRing.GetCapacityFrames(), made) << wanted;
    }
}

TEST_F(CARingBufferTest, StatusSaysHowAReadLiesToTheSpan)
{
    EXPECT_EQ(mRing.CheckTimeBounds(0, 512), RingSlightlyAhead);
    EXPECT_EQ(mRing.CheckTimeBounds(1, 513), RingWayAhead);
    mRing.SetTimeBounds(100, 200);
    const struct {
        int64_t mStart, mEnd;
        int mStatus;
    } cases[] = {{100, 200, RingOK},
                 {150, 150, RingOK},
                 {150, 201, RingSlightlyAhead},
                 {200, 201, RingSlightlyAhead},
                 {201, 202, RingWayAhead},
                 {99, 200, RingSlightlyBehind},
                 {99, 100, RingSlightlyBehind},
                 {98, 99, RingWayBehind},
                 {99, 201, RingTooMuch}};
    for (const auto& read : cases)
        EXPECT_EQ(mRing.CheckTimeBounds(read.mStart, read.mEnd), read.mStatus) << read.mStart << ".." << read.mEnd;
}

TEST_F(CARingBufferTest, AStoreOfTheWholeCapacityKeepsTheStartAndOneMoreFrameIsRefused)
{
    EXPECT_EQ(Store(0, kCapacity + 1), RingTooMuch);
    EXPECT_EQ(Span(), TimeSpan(0, 0));
    EXPECT_EQ(Store(0, kCapacity), RingOK);
    EXPECT_EQ(Span(), TimeSpan(0, kCapacity));
    Frames all(kCapacity);
    EXPECT_EQ(Fetch(0, all), RingOK);
    EXPECT_EQ(all.mWords, Counting(0, kCapacity));
}

TEST_F(CARingBufferTest, FetchAcrossTheWrapReturnsBothPiecesInOrder)
{
    Store(0, 50);
    Store(50, 40);
    EXPECT_EQ(Span(), TimeSpan(26, 90));
    Frames frames(30);
    EXPECT_EQ(Fetch(55, frames), RingOK);
    EXPECT_EQ(frames.mWords, Counting(55, 30));
}

TEST_F(CARingBufferTest, AStoreOneFrameBackEmptiesTheRingAndStartsThere)
{
    Store(0, 40);
    EXPECT_EQ(Store(39, 5), RingOK);
    EXPECT_EQ(Span(), TimeSpan(39, 44));
}

TEST_F(CARingBufferTest, SkippedTimeIsSilenceInEveryChannelEvenAroundTheEnd)
{
    mRing.Allocate(2, 4, kCapacity);
    std::vector<uint32_t> left = Counting(1000, kCapacity), right = Counting(2000, kCapacity);
    std::vector<char> memory(8 + 2 * sizeof(AudioBuffer));
    auto* const list = reinterpret_cast<AudioBufferList*>(memory.data());
    AudioBuffer* const buffers = list->mBuffers;
    list->mNumberBuffers = 2;
    buffers[0] = {1, kCapacity * 4, left.data()};
    buffers[1] = {1, kCapacity * 4, right.data()};
    mRing.Store(list, kCapacity, 0);
    mRing.Store(list, 10, kCapacity + 20);
    EXPECT_EQ(mRing.Fetch(list, 30, kCapacity, false), RingOK);
    for (const auto* channel : {&left, &right}) {
        EXPECT_THAT(std::vector(channel->begin(), channel->begin() + 20), testing::Each(0u));
        EXPECT_THAT(std::vector(channel->begin() + 20, channel->begin() + 30), testing::Each(testing::Ge(1000u)));
    }
}

TEST_F(CARingBufferTest, ARefusedFetchLeavesTheListAlone)
{
    Store(0, 40);
    Frames frames(20);
    EXPECT_EQ(Fetch(30, frames), RingSlightlyAhead);
    EXPECT_THAT(frames.mWords, testing::Each(kUntouched));
}

TEST_F(CARingBufferTest, ResetEmptiesTheSpanAndTheNextStoreSilencesTheGap)
{
    Store(0, kCapacity);
    mRing.Reset();
    EXPECT_EQ(Span(), TimeSpan(0, 0));
    Store(1'000'000, 8);
    Frames frames(16);
    EXPECT_EQ(Fetch(1'000'000 - 8, frames), RingOK);
    EXPECT_THAT(std::vector(frames.mWords.begin(), frames.mWords.begin() + 8), testing::Each(0u));
}

// What a ring is, without its storage: the last `capacity` frames of a timeline.
class Model {
public:
    int Store(int64_t time, uint32_t count)
    {
        if (count > kCapacity) return RingTooMuch;
        if (time < mEnd) mStart = mEnd = time;
        for (int64_t silent = std::max(mEnd, time - int64_t(kCapacity)); silent < time; ++silent) At(silent) = 0;
        for (int64_t frame = time; frame < time + count; ++frame) At(frame) = static_cast<uint32_t>(frame);
        mEnd = time + count;
        mStart = std::max(mStart, mEnd - int64_t(kCapacity));
        return RingOK;
    }
    bool Holds(int64_t from, int64_t to) const { return from >= mStart && to <= mEnd; }
    uint32_t& At(int64_t frame) { return mWords[static_cast<uint64_t>(frame) % kCapacity]; }

    int64_t mStart = 0, mEnd = 0;

private:
    uint32_t mWords[kCapacity] = {};
};

TEST_F(CARingBufferTest, AMillionRandomOperationsAgreeWithTheModel)
{
    std::mt19937 random(20071);
    Model model;
    std::vector<uint32_t> words(kCapacity + 8);
    AudioBufferList list{1, {{1, 0, words.data()}}};
    for (int operation = 0; operation < 1'000'000; ++operation) {
        const auto count = static_cast<uint32_t>(1 + random() % (kCapacity + 4));
        const bool jump = random() % 16 == 0;
        const int64_t time = model.mEnd + (jump ? int64_t(random() % 400) - 200 : 0);
        if (random() % 2) {
            for (uint32_t i = 0; i < count; ++i) words[i] = static_cast<uint32_t>(time + i);
            ASSERT_EQ(mRing.Store(&list, count, time), model.Store(time, count));
        } else {
            const int64_t from = time - int64_t(random() % (2 * kCapacity));
            ASSERT_EQ(mRing.Fetch(&list, count, from, false) == RingOK, model.Holds(from, from + count));
            for (uint32_t i = 0; model.Holds(from, from + count) && i < count; ++i)
                ASSERT_EQ(words[i], model.At(from + i)) << operation;
        }
        ASSERT_EQ(Span(), TimeSpan(model.mStart, model.mEnd));
    }
}

// A writer on a thread of its own, until told to stop.
class Writer {
public:
    Writer(CARingBuffer& ring, int64_t runAhead) : mRing(ring), mRunAhead(runAhead)
    {
        EXPECT_EQ(kernel::pthread_create(&mThread, nullptr, Run, this, "ring writer"), 0);
    }
    ~Writer()
    {
        mStop.store(true, std::memory_order_relaxed);
        kernel::pthread_join(mThread, nullptr);
    }

    std::atomic<int64_t> mRead{
        0};  // how far the reader has come: stored by it (release), loaded by the writer (acquire)
    std::atomic<int64_t> mWritten{0};

private:
    static void* Run(void* self)
    {
        static_cast<Writer*>(self)->Write();
        return nullptr;
    }
    void Write()
    {
        Frames frames(24);
        uint32_t count = 1;
        for (int64_t time = 0; !mStop.load(std::memory_order_relaxed);) {
            if (time + count - mRead.load(std::memory_order_acquire) > mRunAhead) {
                sched_yield();
                continue;
            }
            mRing.Store(&frames.At(time).mList, count, time);
            time += count;
            count = count % 24 + 1;
            mWritten.store(time, std::memory_order_relaxed);
        }
    }

    CARingBuffer& mRing;
    int64_t mRunAhead;
    std::atomic<bool> mStop{false};
    pthread_t mThread;
};

TEST_F(CARingBufferTest, BelowCapacityNothingIsLostDoubledOrTornBetweenTwoThreads)
{
    constexpr int64_t kFrames = 3'000'000;
    Writer writer(mRing, kCapacity);
    Frames frames(16);
    for (int64_t time = 0; time < kFrames;) {
        const int status = Fetch(time, frames);
        if (status == RingSlightlyAhead || status == RingWayAhead) {
            sched_yield();
            continue;
        }
        ASSERT_EQ(status, RingOK);
        ASSERT_EQ(frames.mWords, Counting(time, 16));
        time += 16;
        writer.mRead.store(time, std::memory_order_release);
    }
}

TEST_F(CARingBufferTest, ReaderNeverAcceptsATornFrame)
{
    Writer writer(mRing, std::numeric_limits<int64_t>::max());
    Frames frames(kCapacity - 24);
    int accepted = 0, refused = 0;
    for (int turn = 0; turn < 10'000'000 && (accepted < 20'000 || refused < 200); ++turn) {
        const int64_t time =
            std::max<int64_t>(0, writer.mWritten.load(std::memory_order_relaxed) - frames.Count() - turn % 24);
        if (Fetch(time, frames) != RingOK) {
            ++refused;
            continue;
        }
        ++accepted;
        ASSERT_EQ(frames.mWords, Counting(time, frames.Count()));
    }
    EXPECT_GE(accepted, 20'000);
    EXPECT_GE(refused, 200);
}

}  // namespace
