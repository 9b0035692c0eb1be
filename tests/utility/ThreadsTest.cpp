// Mutex, guard, thread and host time, on the running system's machine.
#include "utility/CAException.h"
#include "utility/CAGuard.h"
#include "utility/CAHostTimeBase.h"
#include "utility/CAPThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

TEST(CAMutex, TheOutermostLockAloneTakesAndUnlocks)
{
    CAMutex mutex("test");
    EXPECT_TRUE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    bool needsUnlock = true;
    EXPECT_TRUE(mutex.Try(needsUnlock));
    EXPECT_FALSE(needsUnlock);
    EXPECT_FALSE(mutex.IsFree());
    mutex.Unlock();
    EXPECT_TRUE(mutex.IsFree());
    mutex.Unlock();
    {
        const CAMutex::Scope outer(mutex);
        {
            const CAMutex::Scope inner(mutex);
        }
        EXPECT_TRUE(mutex.IsOwnedByCurrentThread());
    }
    EXPECT_TRUE(mutex.IsFree());
}

TEST(CAMutex, AnotherThreadNeitherTakesNorFreesIt)
{
    CAMutex mutex("test");
    mutex.Lock();
    std::thread([&mutex] {
        bool needsUnlock = true;
        EXPECT_FALSE(mutex.Try(needsUnlock));
        EXPECT_FALSE(needsUnlock);
        EXPECT_FALSE(mutex.IsOwnedByCurrentThread());
        mutex.Unlock();
    }).join();
    EXPECT_TRUE(mutex.IsOwnedByCurrentThread());
    mutex.Unlock();
    std::thread([&mutex] {
        bool needsUnlock = false;
        EXPECT_TRUE(mutex.Try(needsUnlock));
        EXPECT_TRUE(needsUnlock);
        mutex.Unlock();
    }).join();
}

TEST(CAGuard, WaitingWithoutOwningItThrowsOne)
{
    CAGuard guard("test");
    const auto isOne = testing::Property(&CAException::GetError, 1);
    EXPECT_THAT([&guard] { guard.Wait(); }, testing::Throws<CAException>(isOne));
    EXPECT_THAT([&guard] { guard.WaitFor(5); }, testing::Throws<CAException>(isOne));
}

struct Counted {
    std::atomic<int> mRuns{0}, mDeletions{0};
    CAGuard mGuard{"counted"};

    void WaitUntil(std::function<bool()> done)
    {
        const CAMutex::Scope scope(mGuard);
        while (!done()) mGuard.Wait();
    }
    void Tell(std::atomic<int>& counter)
    {
        const CAMutex::Scope scope(mGuard);
        ++counter;
        mGuard.NotifyAll();
    }
};

void* CountARun(void* counted)
{
    auto* const self = static_cast<Counted*>(counted);
    self->Tell(self->mRuns);
    return nullptr;
}

TEST(CAGuard, NotifyHandsTheGuardToAWaiterAndBack)
{
    Counted counted;
    CAPThread other(CountARun, &counted, 31, false, false);
    {
        const CAMutex::Scope scope(counted.mGuard);
        other.Start();
        while (counted.mRuns == 0) counted.mGuard.Wait();
        EXPECT_TRUE(counted.mGuard.IsOwnedByCurrentThread());
    }
    while (other.IsRunning()) sched_yield();
}

class Tracked final : public CAPThread {
public:
    Tracked(Routine entry, Counted& counted) : CAPThread(entry, &counted, 31, false, true, "tracked"), mCounted(counted)
    {
    }
    ~Tracked() override { mCounted.Tell(mCounted.mDeletions); }

private:
    Counted& mCounted;
};

TEST(CAPThread, AThreadThatDeletesItselfIsGoneAfterItsWork)
{
    static Counted sCounted;  // the last to touch it is a detached thread
    for (int turn = 1; turn <= 20; ++turn) {
        (new Tracked(CountARun, sCounted))->Start();
        sCounted.WaitUntil([turn] { return sCounted.mDeletions == turn; });
        EXPECT_EQ(sCounted.mRuns, turn);
    }
}

TEST(CAPThread, NothingLeavesTheThreadNotEvenAnException)
{
    static Counted sCounted;
    (new Tracked([](void*) -> void* { throw CAException(5); }, sCounted))->Start();
    sCounted.WaitUntil([] { return sCounted.mDeletions == 1; });
}

TEST(CAPThread, StartingTwiceStartsOneThreadAndAfterItsEndAnother)
{
    static Counted sCounted;
    static std::atomic<bool> sMayEnd;
    CAPThread thread(
        [](void* argument) -> void* {
            CountARun(argument);
            sCounted.WaitUntil([] { return sMayEnd.load(); });
            return nullptr;
        },
        &sCounted, 1'000'000, 100'000, 1'000'000, true, false, "twice");
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.GetScheduledPriority(), 0u);
    thread.Start();
    EXPECT_GT(thread.GetScheduledPriority(), 0u) << "at once";
    thread.Start();
    sCounted.WaitUntil([] { return sCounted.mRuns > 0; });
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_FALSE(thread.IsCurrentThread());
    thread.SetPriority(31, false);
    sMayEnd = true;
    while (thread.IsRunning()) {
        const CAMutex::Scope scope(sCounted.mGuard);
        sCounted.mGuard.NotifyAll();
    }
    EXPECT_EQ(sCounted.mRuns, 1);
    thread.Start();
    sCounted.WaitUntil([] { return sCounted.mRuns == 2; });
    while (thread.IsRunning()) sched_yield();
}

TEST(CAGuard, NotifyAllWakesEveryWaiter)
{
    CAGuard guard("waited for");
    Counted woken;
    int waiting = 0;
    bool mayGo = false;
    const auto wait = [&] {
        {
            const CAMutex::Scope scope(guard);
            for (++waiting; !mayGo;) guard.Wait();
        }
        woken.Tell(woken.mRuns);
    };
    std::thread first(wait), second(wait);
    while (!mayGo) {
        const CAMutex::Scope scope(guard);
        mayGo = waiting == 2;
    }
    guard.NotifyAll();
    {
        const CAMutex::Scope scope(woken.mGuard);
        bool late = false;
        while (woken.mRuns < 2 && !late) late = woken.mGuard.WaitFor(10'000'000'000);
        EXPECT_FALSE(late);
    }
    guard.Notify();  // a waiter that was passed over
    first.join();
    second.join();
}

TEST(CAHostTimeBase, ConversionsAreExactBelow2To53AndReachTheTopHalfOfTheRange)
{
    for (const uint64_t nanos : {uint64_t{0}, uint64_t{1}, uint64_t{1'000'000'000'000'007}, (uint64_t{1} << 53) - 1,
                                 uint64_t{1} << 63, (uint64_t{1} << 63) + 4096}) {
        EXPECT_EQ(CAHostTimeBase::ConvertToNanos(nanos), nanos);
        EXPECT_EQ(CAHostTimeBase::ConvertFromNanos(nanos), nanos);
    }
    EXPECT_EQ(CAHostTimeBase::ConvertToNanos(UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(CAHostTimeBase::GetFrequency() * CAHostTimeBase::GetInverseFrequency(), 1.0);
}

}  // namespace
