#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <cerrno>
#include <deque>
#include <memory>

namespace platform::machine::simulated {

using namespace std::chrono_literals;
using support::ExpectForked;
using support::Forked;
using support::RunForked;
using testing::HasSubstr;

namespace {

/// A scenario, and threads whose bodies are written where they start. Joins them at the end.
class Stage {
public:
    Stage() { Threads().InitCondition(&mCondition); }
    ~Stage()
    {
        JoinAll();
        Threads().DestroyCondition(&mCondition);
    }

    void JoinAll()
    {
        for (const pthread_t thread : mThreads) Threads().Join(thread, nullptr);
        mThreads.clear();
    }

    pthread_t Thread(const char* name, std::function<void()> body)
    {
        mBodies.push_back(std::move(body));
        pthread_t thread{};
        EXPECT_EQ(Threads().Create(&thread, false, name, Run, &mBodies.back()), 0);
        mThreads.push_back(thread);
        return thread;
    }

    SimulatedThreads& Threads() { return mScenario.machine().GetThreads(); }
    void Sleep(nanoseconds length) { mScenario.runFor(length); }
    void Note(const std::string& text) { mScenario.trace().Add(text); }
    void Lock() { EXPECT_EQ(Threads().Lock(&mMutex), 0); }
    void Unlock() { EXPECT_EQ(Threads().Unlock(&mMutex), 0); }
    int WaitUntil(nanoseconds sinceStart)
    {
        return Threads().WaitUntil(&mCondition, &mMutex, kStartNanos + static_cast<uint64_t>(sinceStart.count()));
    }

    Scenario mScenario;
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mCondition;

private:
    static void* Run(void* body)
    {
        (*static_cast<std::function<void()>*>(body))();
        return nullptr;
    }

    std::deque<std::function<void()>> mBodies;
    std::vector<pthread_t> mThreads;
};

}  // namespace

TEST(Gate, ThreadsRunInTheOrderInWhichTheyBecameReadyAndTheClockJumps)
{
    ExpectForked([] {
        Stage stage;
        for (const char* name : {"one", "two", "three"})
            stage.Thread(name, [&] {
                stage.Note("begins");
                stage.Sleep(1h);
                stage.Note("ends");
            });
        stage.Thread("early", [&] {
            stage.Sleep(1h - 1ns);
            stage.Note("ends");
        });
        stage.Sleep(2h);
        EXPECT_EQ(stage.mScenario.trace().Text(),
                  "0.000000000 one: begins\n0.000000000 two: begins\n0.000000000 three: begins\n"
                  "3599.999999999 early: ends\n"
                  "3600.000000000 one: ends\n3600.000000000 two: ends\n3600.000000000 three: ends\n");
    });
}

TEST(Gate, AContendedMutexGoesToWhoWaitedLongest)
{
    ExpectForked([] {
        Stage stage;
        stage.Lock();
        for (const char* name : {"one", "two"})
            stage.Thread(name, [&] {
                stage.Lock();
                stage.Note("has it");
                stage.Sleep(1s);
                stage.Unlock();
            });
        stage.Sleep(1s);
        EXPECT_EQ(stage.Threads().TryLock(&stage.mMutex), EBUSY);
        stage.Unlock();
        stage.Sleep(500ms);
        EXPECT_EQ(stage.Threads().TryLock(&stage.mMutex), EBUSY);
        stage.Sleep(5s);
        EXPECT_EQ(stage.mScenario.trace().Text(), "1.000000000 one: has it\n2.000000000 two: has it\n");
    });
}

TEST(Gate, ATimedWaitEndsWithTheSignalOrTheDeadlineWhicheverComesFirst)
{
    ExpectForked([] {
        Stage stage;
        const auto wait = [&](nanoseconds deadline) {
            stage.Lock();
            const int result = stage.WaitUntil(deadline);
            stage.Note(result == 0 ? "signalled" : result == ETIMEDOUT ? "timed out" : "failed");
            stage.Unlock();
        };
        stage.Thread("patient", [&] { wait(3s); });
        stage.Thread("hasty", [&] { wait(1s); });
        stage.Thread("late", [&] { wait(4s); });
        stage.Sleep(2s);
        EXPECT_EQ(stage.Threads().DestroyCondition(&stage.mCondition), EBUSY);
        stage.Threads().Signal(&stage.mCondition);
        stage.Sleep(1s);
        stage.Threads().Broadcast(&stage.mCondition);
        stage.Sleep(1s);
        stage.Threads().Signal(&stage.mCondition);  // nobody is there, and nothing is remembered
        stage.Thread("last", [&] { wait(5s); });
        stage.Sleep(2s);
        EXPECT_EQ(stage.mScenario.trace().Text(),
                  "1.000000000 hasty: timed out\n2.000000000 patient: signalled\n"
                  "3.000000000 late: signalled\n5.000000000 last: timed out\n");
    });
}

TEST(Gate, JoiningWaitsForTheLastOfAThreadsDestructors)
{
    struct Farewell {
        Stage* mStage = nullptr;
        ~Farewell()
        {
            mStage->Sleep(1s);
            mStage->Note("gone");
        }
    };
    ExpectForked([] {
        Stage stage;
        {
            pthread_t thread{};
            std::function<void()> body = [&] {
                static thread_local Farewell sFarewell;
                sFarewell.mStage = &stage;
            };
            const auto run = [](void* value) -> void* {
                (*static_cast<std::function<void()>*>(value))();
                return value;
            };
            ASSERT_EQ(stage.Threads().Create(&thread, false, "leaver", run, &body), 0);
            void* result = nullptr;
            ASSERT_EQ(stage.Threads().Join(thread, &result), 0);
            EXPECT_EQ(result, &body);
            stage.Note("joined");
        }
        EXPECT_EQ(stage.mScenario.trace().Text(), "1.000000000 leaver: gone\n1.000000000 main: joined\n");
    });
}

TEST(Gate, ADeadlockEndsTheProcessWithEverybodysWait)
{
    const Forked forked = RunForked([] {
        Stage stage;
        pthread_mutex_t other = PTHREAD_MUTEX_INITIALIZER;
        stage.Thread("one", [&] {
            stage.Lock();
            stage.Sleep(1s);
            stage.Threads().Lock(&other);
        });
        stage.Thread("two", [&] {
            stage.Threads().Lock(&other);
            stage.Sleep(500ms);
            stage.Lock();
        });
        stage.Thread("idle", [&] {
            stage.Sleep(2s);
            pthread_mutex_t own = PTHREAD_MUTEX_INITIALIZER;
            stage.Threads().Lock(&own);
            stage.Threads().Wait(&stage.mCondition, &own);
        });
        stage.Sleep(3s);
    });
    EXPECT_EQ(forked.mSignal, SIGABRT);
    EXPECT_THAT(forked.mOutput, HasSubstr("Nobody can ever run again, 3.000000000 s after the start:\n"
                                          "  main: waits for the end of one, since 3.000000000 s\n"
                                          "  data: waits for work, since 0.000000000 s\n"
                                          "  control: waits for work, since 0.000000000 s\n"
                                          "  one: waits for mutex 1 held by two, since 1.000000000 s\n"
                                          "  two: waits for mutex 2 held by one, since 0.500000000 s\n"
                                          "  idle: waits for condition 1, since 2.000000000 s\n"));
}

TEST(Gate, ScriptedFaultsReachWhomTheyAreMeantForAndNobodyElse)
{
    ExpectForked([] {
        Stage stage;
        stage.mScenario.at(1500ms).stall("slow", 2s);
        stage.mScenario.at(5500ms).stepClock(10s);
        for (const char* name : {"slow", "quick"})
            stage.Thread(name, [&] {
                for (const nanoseconds due : {1s, 2s, 3s, 4s, 6s, 16s}) {
                    stage.mScenario.runUntil(due);
                    stage.Note("wakes for " + std::to_string(due / 1s));
                }
            });
        stage.mScenario.runUntil(20s);
        EXPECT_EQ(stage.mScenario.trace().Text(),
                  "1.000000000 slow: wakes for 1\n1.000000000 quick: wakes for 1\n"
                  "1.500000000 data: slow stalls\n"
                  "2.000000000 quick: wakes for 2\n3.000000000 quick: wakes for 3\n"
                  "3.500000000 slow: wakes for 2\n3.500000000 slow: wakes for 3\n"
                  "4.000000000 quick: wakes for 4\n4.000000000 slow: wakes for 4\n"
                  "5.500000000 data: clock steps by 10000000000 ns\n"
                  "15.500000000 quick: wakes for 6\n15.500000000 slow: wakes for 6\n"
                  "16.000000000 quick: wakes for 16\n16.000000000 slow: wakes for 16\n");
    });
}

TEST(Gate, LateWakeUpsLieWithinTheirLimitAndDependOnTheSeedAlone)
{
    const auto run = [](uint64_t seed) {
        return RunForked([seed] {
            Stage stage;
            stage.mScenario.lateWakeups(2ms, seed);
            uint64_t latest = 0;
            stage.Thread("sleeper", [&] {
                for (nanoseconds due = 10ms; due <= 1s; due += 10ms) {
                    stage.mScenario.runUntil(due);
                    const auto late = static_cast<uint64_t>((stage.mScenario.now() - due).count());
                    latest = std::max(latest, late);
                    stage.Note("wakes");
                }
            });
            stage.mScenario.runUntil(2s);
            stage.JoinAll();
            EXPECT_LE(latest, 2'000'000u);
            EXPECT_GT(latest, 1'000'000u);
            EXPECT_EQ(stage.mScenario.now(), 2s);
            printf("%s", stage.mScenario.trace().Text().c_str());
        });
    };
    const Forked first = run(7);
    EXPECT_TRUE(first.mPassed) << first.mOutput;
    EXPECT_EQ(first.mOutput, run(7).mOutput);
    EXPECT_NE(first.mOutput, run(8).mOutput);
}

}  // namespace platform::machine::simulated
