// What asks the machine for time, threads and processes, on one where the answers are exact.
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "utility/CAGuard.h"
#include "utility/CAHostTimeBase.h"
#include "utility/CAPThread.h"
#include "utility/CAProcess.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using platform::machine::simulated::Scenario;
using support::ExpectForked;

uint64_t Now()
{
    return CAHostTimeBase::GetCurrentTimeInNanos();
}

TEST(CAGuard, TimedWaitsEndAtTheirMomentAndLeaveTheGuardOwned)
{
    ExpectForked([] {
        Scenario scenario;
        CAGuard guard("test");
        const CAMutex::Scope scope(guard);
        uint64_t expected = Now();
        for (const uint64_t nanos : {0ull, 1ull, 999'999'999ull, 1'000'000'000ull, 1'500'000'000ull, 1ull << 40}) {
            EXPECT_TRUE(guard.WaitFor(nanos));
            EXPECT_EQ(Now(), expected += nanos);
        }
        EXPECT_TRUE(guard.WaitUntil(expected - 1));
        EXPECT_EQ(Now(), expected);
        EXPECT_TRUE(guard.WaitUntil(expected + 2'500'000'000));
        EXPECT_EQ(Now(), expected + 2'500'000'000);
        EXPECT_TRUE(guard.IsOwnedByCurrentThread());
    });
}

TEST(CAPThread, EveryThreadStartsAtThePriorityOfItsOwnAndNotOfTheLastOne)
{
    ExpectForked([] {
        Scenario scenario;
        static uint32_t sPriority;
        const auto tellPriority = [](void*) -> void* {
            sPriority = CAPThread::getScheduledPriority(pthread_self(), CAPThread::kScheduledPriority);
            return nullptr;
        };
        CAPThread realTime(tellPriority, nullptr, 1'000'000, 100'000, 1'000'000, true, false, "first");
        CAPThread fixed(tellPriority, nullptr, 40, true, false, "second");
        CAPThread shared(tellPriority, nullptr, 40, false, false, "third");
        for (const auto& [thread, priority] : {std::pair(&realTime, 97u), {&fixed, 40u}, {&shared, 31u}}) {
            thread->Start();
            scenario.runFor(1ms);
            EXPECT_FALSE(thread->IsRunning());
            EXPECT_EQ(sPriority, priority);
        }
    });
}

TEST(CAProcess, TheProcessesThatExistAreThoseOfTheMachine)
{
    ExpectForked([] {
        Scenario scenario;
        auto& other = scenario.application("other", 200);
        EXPECT_TRUE(CAProcess::ProcessExists(CAProcess::GetPID()));
        EXPECT_TRUE(CAProcess::ProcessExists(200));
        for (const int none : {0, -1, -200, 1'000'000'000}) EXPECT_FALSE(CAProcess::ProcessExists(none));
        scenario.at(1ms).end(other);
        scenario.runFor(2ms);
        EXPECT_FALSE(CAProcess::ProcessExists(200));
    });
}

}  // namespace
