#include "capture/buffers/CARingBuffer.h"
#include "platform/kernel/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <random>
#include <vector>

namespace {

namespace kernel = platform::kernel;

constexpr uint32_t kCapacity = 64;

// Of two channels: a frame's time in the first, its complement in the second.
uint64_t WordsAt(int64_t time)
{
    return static_cast<uint32_t>(time) | uint64_t{~static_cast<uint32_t>(time)} << 32;
}

class Frames {
public:
    explicit Frames(uint32_t frames) : mLeft(frames), mRight(frames)
    {
        AudioBuffer* const buffers = List()->mBuffers;
        List()->mNumberBuffers = 2;
        buffers[0] = {1, frames * 4, mLeft.data()};
        buffers[1] = {1, frames * 4, mRight.data()};
    }
    template <typename Words>
    Frames& Fill(Words wordsAt)
    {
        for (uint32_t i = 0; i < Count(); ++i) {
            const uint64_t words = wordsAt(i);
            mLeft[i] = static_cast<uint32_t>(words), mRight[i] = static_cast<uint32_t>(words >> 32);
        }
        return *this;
    }
    Frames& At(int64_t time)
    {
        return Fill([time](uint32_t i) { return WordsAt(time + i); });
    }
    uint32_t Count() const { return static_cast<uint32_t>(mLeft.size()); }
    AudioBufferList* List() { return reinterpret_cast<AudioBufferList*>(mMemory); }
    bool operator==(const Frames& other) const { return mLeft == other.mLeft && mRight == other.mRight; }

private:
    std::vector<uint32_t> mLeft, mRight;
    uint64_t mMemory[5] = {};
};

class CARingBufferTest : public testing::Test {
protected:
    CARingBufferTest() { mRing.Allocate(2, 4, kCapacity); }
    int Fetch(int64_t time, Frames& frames) { return mRing.Fetch(frames.List(), frames.Count(), time, false); }

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

// What a ring is, without its storage: the last `capacity` frames of a timeline.
class Model {
public:
    int Store(int64_t time, uint32_t count)
    {
        if (count > kCapacity) return RingTooMuch;
        if (time < mEnd) mStart = mEnd = time;
        for (int64_t silent = std::max(mEnd, time - int64_t(kCapacity)); silent < time; ++silent) At(silent) = 0;
        for (int64_t frame = time; frame < time + count; ++frame) At(frame) = WordsAt(frame);
        mEnd = time + count;
        mStart = std::max(mStart, mEnd - int64_t(kCapacity));
        return RingOK;
    }
    bool Holds(int64_t from, int64_t to) const { return from >= mStart && to <= mEnd; }
    uint64_t& At(int64_t frame) { return mWords[static_cast<uint64_t>(frame) % kCapacity]; }

    int64_t mStart = 0, mEnd = 0;

private:
    uint64_t mWords[kCapacity] = {};
};

// A refused fetch is to leave the list as it is.
TEST_F(CARingBufferTest, AMillionRandomOperationsAgreeWithTheModel)
{
    std::mt19937 random(20071);
    Model model;
    for (int operation = 0; operation < 1'000'000; ++operation) {
        const auto count = static_cast<uint32_t>(1 + random() % (kCapacity + 4));
        const bool jump = random() % 16 == 0;
        const int64_t time = model.mEnd + (jump ? int64_t(random() % 400) - 200 : 0);
        Frames frames(count);
        if (random() % 512 == 0) {
            mRing.Reset();
            model.mStart = model.mEnd = 0;
        } else if (random() % 2) {
            ASSERT_EQ(mRing.Store(frames.At(time).List(), count, time), model.Store(time, count));
        } else {
            const int64_t from = time - int64_t(random() % (2 * kCapacity));
            const bool holds = model.Holds(from, from + count);
            ASSERT_EQ(Fetch(from, frames) == RingOK, holds);
            ASSERT_TRUE(frames == Frames(count).Fill([&](uint32_t i) { return holds ? model.At(from + i) : 0; }))
                << operation;
        }
        int64_t start = -1, end = -1;
        ASSERT_EQ(mRing.GetTimeBounds(start, end), RingOK);
        ASSERT_EQ(std::pair(start, end), std::pair(model.mStart, model.mEnd));
    }
}

TEST_F(CARingBufferTest, ALongGapIsSilencedAPieceAStoreAndShownInOrder)
{
    constexpr uint32_t kFrameBytes = 1 << 18;  // four of which are a store's piece
    mRing.Allocate(1, kFrameBytes, kCapacity);
    std::vector<uint8_t> frame(kFrameBytes);
    AudioBufferList list = {1, {{1, kFrameBytes, frame.data()}}};
    const auto store = [&](int64_t time, uint8_t fill) {
        std::fill(frame.begin(), frame.end(), fill);
        mRing.Store(&list, 1, time);
        int64_t start = 0, end = 0;
        mRing.GetTimeBounds(start, end);
        return end;
    };
    const auto at = [&](int64_t time) {
        EXPECT_EQ(mRing.Fetch(&list, 1, time, false), RingOK) << time;
        return frame.front() == frame.back() ? int(frame.back()) : -1;
    };
    for (int64_t time = 0; time < kCapacity; ++time) store(time, 99);
    const struct {
        int64_t mTime, mEnd;                                // of a store, and of the span then
    } stores[] = {{73, 68}, {74, 72}, {75, 76},             // a gap of nine takes three stores
                  {85, 80}, {95, 90}, {96, 94}, {97, 98}};  // another one meanwhile closes the first at once
    for (const auto& each : stores) EXPECT_EQ(store(each.mTime, uint8_t(each.mTime)), each.mEnd) << each.mTime;
    for (int64_t time = kCapacity; time < 98; ++time) {
        const bool stored =
            std::ranges::find(stores, time, [](const auto& each) { return each.mTime; }) != std::end(stores);
        EXPECT_EQ(at(time), stored ? time : 0) << time;
    }
    EXPECT_EQ(store(110, 110), 102);
    EXPECT_EQ(store(103, 103), 104) << "a step back ends the gap";
    EXPECT_EQ(mRing.CheckTimeBounds(102, 103), RingSlightlyBehind);
    EXPECT_EQ(at(103), 103);
    EXPECT_EQ(store(1000, 100), 1001) << "nothing from before the gap is left";
    EXPECT_EQ(at(996), 0);
    EXPECT_EQ(at(1000), 100);
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

    std::atomic<int64_t> mRead{0};  // how far the reader has come: it stores (release), the writer loads (acquire)
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
            mRing.Store(frames.At(time).List(), count, time);
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
        ASSERT_TRUE(frames == Frames(16).At(time));
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
        ASSERT_TRUE(frames == Frames(frames.Count()).At(time));
    }
    EXPECT_GE(accepted, 20'000);
    EXPECT_GE(refused, 200);
}

}  // namespace
