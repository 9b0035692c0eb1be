#include "platform/foundation/CFRunLoop.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "support/LoopThread.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>

namespace {

using namespace std::chrono_literals;
using platform::machine::simulated::nanoseconds;
using platform::machine::simulated::Scenario;
using support::ExpectForked;
using support::LoopThread;

/// A scenario with a thread "loop", and timers whose callbacks are written where they are made.
class Stage {
public:
    ~Stage()
    {
        mThread.End();
        for (Scripted& each : mTimers) CFRelease(each.mTimer);
        EXPECT_EQ(mInfos, 0) << "contexts released too rarely or too often";
    }

    CFRunLoopTimerRef Timer(nanoseconds sinceStart, nanoseconds interval, std::function<void(CFRunLoopTimerRef)> fire)
    {
        Scripted& made = mTimers.emplace_back(Scripted{*this, std::move(fire), nullptr});
        CFRunLoopTimerContext context{0, &made, &Retain, &Release, nullptr};
        const double seconds = std::chrono::duration<double>(sinceStart - mScenario.now()).count();
        made.mTimer = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + seconds,
                                           std::chrono::duration<double>(interval).count(), 0, 0, &Fire, &context);
        CFRunLoopAddTimer(mThread.Loop(), made.mTimer, kCFRunLoopCommonModes);
        return made.mTimer;
    }
    std::function<void(CFRunLoopTimerRef)> Noting(const std::string& text)
    {
        return [this, text](CFRunLoopTimerRef) { Note(text); };
    }

    void Note(const std::string& text) { mScenario.trace().Add(text); }
    void Sleep(nanoseconds length) { mScenario.runFor(length); }
    std::string Trace() { return mScenario.trace().Text(); }
    CFRunLoopRef Loop() { return mThread.Loop(); }

    Scenario mScenario;
    LoopThread mThread{"loop"};

private:
    struct Scripted {
        Stage& mStage;
        std::function<void(CFRunLoopTimerRef)> mFire;
        CFRunLoopTimerRef mTimer;
    };
    static const void* Retain(const void* info)
    {
        ++static_cast<const Scripted*>(info)->mStage.mInfos;
        return info;
    }
    static void Release(const void* info) { --static_cast<const Scripted*>(info)->mStage.mInfos; }
    static void Fire(CFRunLoopTimerRef timer, void* info) { static_cast<Scripted*>(info)->mFire(timer); }

    std::list<Scripted> mTimers;
    std::atomic<int> mInfos{0};
};

}  // namespace

TEST(RunLoop, ATimerThatIsLateFiresOnceAndThenAtItsOwnTimesAgain)
{
    ExpectForked([] {
        Stage stage;
        stage.Timer(1ms, 0ns, [&](CFRunLoopTimerRef timer) {
            EXPECT_EQ(CFRunLoopGetCurrent(), stage.Loop());
            stage.Note("once");
            stage.Timer(0ms, 0ns, stage.Noting("already due"));
            EXPECT_TRUE(timer->IsValid());
        });
        const CFRunLoopTimerRef repeating = stage.Timer(10ms, 10ms, stage.Noting("again"));
        stage.Sleep(25ms);
        cf::Perform(stage.Loop(), [&] { stage.Sleep(30ms); });
        stage.Sleep(50ms);
        CFRunLoopTimerInvalidate(repeating);
        EXPECT_FALSE(repeating->IsValid());
        stage.Sleep(1h);
        EXPECT_EQ(stage.Trace(),
                  "0.001000000 loop: once\n0.001000000 loop: already due\n"
                  "0.010000000 loop: again\n0.020000000 loop: again\n0.055000000 loop: again\n"
                  "0.060000000 loop: again\n0.070000000 loop: again\n");
    });
}

TEST(RunLoop, TimesOfADayOfThirdsOfASecondLieWhereTheFirstOnePutsThem)
{
    ExpectForked([] {
        Stage stage;
        int fired = 0;
        nanoseconds last{};
        stage.Timer(0ns, 333'333'333ns, [&](CFRunLoopTimerRef) { ++fired, last = stage.mScenario.now(); });
        stage.Sleep(24h);
        stage.mThread.End();
        EXPECT_EQ(fired, 259'201);
        EXPECT_NEAR(double(last.count()), 259'200 * 333'333'333.0, 2);
    });
}

TEST(RunLoop, ACallbackMayEndItsTimerAndOthersThatAreDue)
{
    ExpectForked([] {
        Stage stage;
        CFRunLoopTimerRef other = nullptr;
        stage.Timer(5ms, 1ms, [&](CFRunLoopTimerRef timer) {
            stage.Note("first");
            CFRunLoopTimerInvalidate(timer);
            CFRunLoopTimerInvalidate(timer);
            CFRunLoopTimerInvalidate(other);
            CFRunLoopAddTimer(stage.Loop(), timer, kCFRunLoopCommonModes);
        });
        other = stage.Timer(5ms, 1ms, stage.Noting("never"));
        stage.Timer(20ms, 0ns, stage.Noting("left when the thread ends"));
        stage.Sleep(10ms);
        EXPECT_EQ(stage.Trace(), "0.005000000 loop: first\n");
    });
}

TEST(RunLoop, WhoEndsATimerWaitsForItsCallbackOnAnotherThread)
{
    ExpectForked([] {
        Stage stage;
        auto used = std::make_unique<int>(0);  // goes right after the timer
        const CFRunLoopTimerRef timer = stage.Timer(1ms, 1ms, [&](CFRunLoopTimerRef) {
            stage.Sleep(50ms);
            ++*used;
        });
        stage.Sleep(20ms);
        CFRunLoopTimerInvalidate(timer);
        EXPECT_EQ(*std::exchange(used, nullptr), 1);
        EXPECT_EQ(stage.mScenario.now(), 51ms);
        stage.Sleep(1s);
    });
}

TEST(RunLoop, AStopEndsTheRunThatIsOrTheOneThatComes)
{
    ExpectForked([] {
        Stage stage;
        EXPECT_EQ(CFRunLoopGetCurrent(), nullptr);
        const CFRunLoopRef own = cf::RunLoopOfThisThread();
        CFRunLoopStop(own);
        CFRunLoopRun();
        cf::Perform(own, [&] {
            cf::Perform(own, [&] { CFRunLoopStop(own); });
            CFRunLoopRun();
            stage.Note("the inner one");
        });
        cf::Perform(stage.Loop(), [&] {
            stage.Sleep(5ms);
            CFRunLoopStop(own);
        });
        CFRunLoopRun();
        EXPECT_EQ(stage.Trace(), "0.000000000 main: the inner one\n");
        EXPECT_EQ(stage.mScenario.now(), 5ms);
    });
}

TEST(RunLoop, WorkIsDoneInOrderBesideTimersThatAreAlwaysDue)
{
    ExpectForked([] {
        Stage stage;
        std::string done;
        for (int timer = 0; timer < 2; ++timer)  // while one fires, the other falls due
            stage.Timer(0ns, 1ns, [&](CFRunLoopTimerRef) { stage.Sleep(1us); });
        for (const char each : {'a', 'b', 'c'}) cf::Perform(stage.Loop(), [&done, each] { done += each; });
        EXPECT_TRUE(cf::PerformAndWait(stage.Loop(), [&] {
            done += 'd';
            EXPECT_TRUE(cf::PerformAndWait(stage.Loop(), [&] { done += 'e'; }));
        }));
        EXPECT_EQ(done, "abcde");
    });
}

TEST(RunLoop, WhoWaitsForALoopThatEndsIsToldThatNothingWasDone)
{
    ExpectForked([] {
        Stage stage;
        const CFRunLoopRef loop = stage.Loop();
        cf::Perform(loop, [&] {
            stage.Sleep(10ms);
            CFRunLoopStop(loop);
        });
        const auto held = std::make_shared<int>();
        cf::Perform(loop, [&, held] { stage.Note("after the stop"); });
        EXPECT_FALSE(cf::PerformAndWait(loop, [&] { stage.Note("after the stop"); }));
        EXPECT_FALSE(cf::PerformAndWait(loop, [&] { stage.Note("after the end"); }));
        EXPECT_EQ(held.use_count(), 1);
        EXPECT_EQ(stage.Trace(), "");
    });
}
