// Built under ThreadSanitizer only: does the gate leave it its sight?
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace platform::machine::simulated {

using namespace std::chrono_literals;
using support::Forked;
using support::RunForked;
using testing::HasSubstr;

namespace {

struct Shared {
    SimulatedMachine* mMachine = nullptr;
    bool mLocked = false;
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    int mCount = 0;
};

void* CountTwice(void* value)
{
    Shared& shared = *static_cast<Shared*>(value);
    SimulatedThreads& threads = shared.mMachine->GetThreads();
    for (int i = 0; i < 2; ++i) {
        shared.mMachine->GetClock().SleepUntil(shared.mMachine->GetClock().NowNanos() + 1'000'000);
        if (shared.mLocked) threads.Lock(&shared.mMutex);
        ++shared.mCount;
        if (shared.mLocked) threads.Unlock(&shared.mMutex);
    }
    return nullptr;
}

/// Two threads that count in one place. They never run at once, and hand the turn to each other in between.
void CountByTwo(bool locked)
{
    Scenario s;
    Shared shared{.mMachine = &s.machine(), .mLocked = locked};
    SimulatedThreads& threads = s.machine().GetThreads();
    pthread_t one{}, two{};
    ASSERT_EQ(threads.Create(&one, false, "one", CountTwice, &shared), 0);
    ASSERT_EQ(threads.Create(&two, false, "two", CountTwice, &shared), 0);
    s.runUntil(1s);
    threads.Join(one, nullptr);
    threads.Join(two, nullptr);
    EXPECT_EQ(shared.mCount, 4);
}

struct Racer final : CaptureClient {
    void Render(const CaptureCycle& cycle) noexcept override { mFrames += cycle.mFrames; }
    uint64_t mFrames = 0;
};

}  // namespace

TEST(Race, BetweenTwoThreadsIsReportedAlthoughTheyTakeTurns)
{
    const Forked forked = RunForked([] { CountByTwo(false); });
    EXPECT_FALSE(forked.mPassed);
    EXPECT_THAT(forked.mOutput, HasSubstr("WARNING: ThreadSanitizer: data race"));
    EXPECT_THAT(forked.mOutput, HasSubstr("CountTwice"));
}

TEST(Race, IsNotSeenWhereALockOrders)
{
    support::ExpectForked([] { CountByTwo(true); });
}

TEST(Race, BetweenACycleOfTheServerAndAThreadThatOnlyLooksAtTheServerIsReported)
{
    const Forked forked = RunForked([] {
        Scenario s;
        s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter());
        Racer racer;
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "racer", racer);
        capture->SetStreams(std::vector{game.Number()});
        s.runFor(1s);
        s.machine().GetAudioServer().Snapshot();
        EXPECT_GT(racer.mFrames, 0u);
    });
    EXPECT_FALSE(forked.mPassed);
    EXPECT_THAT(forked.mOutput, HasSubstr("WARNING: ThreadSanitizer: data race"));
}

TEST(Race, IsNotSeenAcrossTheEndOfACapture)
{
    support::ExpectForked([] {
        Scenario s;
        s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter());
        Racer racer;
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "racer", racer);
        capture->SetStreams(std::vector{game.Number()});
        s.runFor(1s);
        capture.reset();
        EXPECT_GT(racer.mFrames, 0u);
    });
}

}  // namespace platform::machine::simulated
