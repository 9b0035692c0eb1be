#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFNotificationCenter.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "support/LoopThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace std::chrono_literals;
using platform::machine::simulated::Scenario;
using support::ExpectForked;
using support::LoopThread;
using testing::ElementsAre;

const CFNotificationCenterRef& Local()
{
    static const CFNotificationCenterRef sCenter = CFNotificationCenterGetLocalCenter();
    return sCenter;
}

const CFNotificationCenterRef& Distributed()
{
    static const CFNotificationCenterRef sCenter = CFNotificationCenterGetDistributedCenter();
    return sCenter;
}

void Post(CFNotificationCenterRef center, const char* name, const char* object = nullptr,
          CFDictionaryRef userInfo = nullptr)
{
    CFNotificationCenterPostNotificationWithOptions(center, CFSTR(name), object ? CFSTR(object) : nullptr, userInfo,
                                                    kCFNotificationDeliverImmediately);
}

/// Writes what it hears into the scenario's trace, with the thread and the time, and does what else a case wants.
class Listener {
public:
    Listener(Scenario& scenario, std::string name) : mScenario(scenario), mName(std::move(name)) {}

    void Add(CFNotificationCenterRef center, const char* name, const char* object = nullptr)
    {
        CFNotificationCenterAddObserver(center, this, &Hear, CFSTR(name), object ? CFSTR(object) : nullptr,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }
    void AddOn(LoopThread& thread, const char* name, const char* object = nullptr)
    {
        cf::PerformAndWait(thread.Loop(), [&] { Add(Distributed(), name, object); });
    }
    void Remove(CFNotificationCenterRef center, const char* name = nullptr, const char* object = nullptr)
    {
        CFNotificationCenterRemoveObserver(center, this, name ? CFSTR(name) : nullptr,
                                           object ? CFSTR(object) : nullptr);
    }

    std::function<void()> mAlso;

private:
    static void Hear(CFNotificationCenterRef, void* observer, CFNotificationName name, const void* object,
                     CFDictionaryRef userInfo)
    {
        auto& self = *static_cast<Listener*>(observer);
        self.mScenario.trace().Add(self.mName + " hears " + cf::ToStdString(name) + " of '" +
                                   cf::ToStdString(static_cast<CFStringRef>(object)) + "'" +
                                   (userInfo ? " and more" : ""));
        if (self.mAlso) self.mAlso();
    }

    Scenario& mScenario;
    const std::string mName;
};

}  // namespace

TEST(NotificationCenter, TheLocalCenterTellsThoseWhoWantTheNameAndTheObjectBeforeThePostReturns)
{
    ExpectForked([] {
        Scenario s;
        Listener any(s, "any"), one(s, "one"), self(s, "self");
        any.Add(Local(), "change");
        any.Add(Local(), "other");
        one.Add(Local(), "change", "it");
        self.Add(Local(), "change");
        self.mAlso = [&] {
            self.Remove(Local());
            Post(Local(), "other");
            any.Remove(Local(), "change", "nothing that it asked for");
        };
        Post(Local(), "change", "it");
        Post(Local(), "change", "else");
        any.Remove(Local(), "change");
        one.Remove(Local(), nullptr, "it");
        Post(Local(), "change", "it");
        Post(Local(), "other");
        EXPECT_EQ(s.trace().Text(),
                  "0.000000000 main: any hears change of 'it'\n0.000000000 main: one hears change of 'it'\n"
                  "0.000000000 main: self hears change of 'it'\n0.000000000 main: any hears other of ''\n"
                  "0.000000000 main: any hears change of 'else'\n0.000000000 main: any hears other of ''\n");
    });
}

TEST(NotificationCenter, RemovalWaitsForACallbackOnAnotherThreadAndTakesBackWhatHasNotBegun)
{
    ExpectForked([] {
        Scenario s;
        LoopThread loop("loop");
        Listener listener(s, "listener");
        listener.AddOn(loop, "change");
        listener.mAlso = [&] { s.runFor(50ms); };
        for (int post = 0; post < 3; ++post) Post(Distributed(), "change");
        s.runFor(10ms);
        listener.Remove(Distributed());
        EXPECT_EQ(s.now(), 50ms);
        listener.mAlso = nullptr;
        s.runFor(1s);
        EXPECT_EQ(s.trace().Text(), "0.000000000 loop: listener hears change of ''\n");
    });
}

TEST(NotificationCenter, WhatThisProcessAndOthersPostIsHeardOnTheLoopOfEachObserver)
{
    ExpectForked([] {
        Scenario s;
        LoopThread one("one"), two("two");
        Listener first(s, "first"), second(s, "second");
        first.AddOn(one, "change", "it");
        second.AddOn(two, "change");
        s.at(1ms).post("change", "it").post("change", "else").post("unheard", "it");
        s.runUntil(2ms);

        const CFStringRef key = CFSTR("error");
        const CFTypeRef value = CFSTR("more");
        const CFDictionaryRef more = CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1);
        Post(Distributed(), "change", "it", more);
        CFRelease(more);
        Post(Distributed(), "unheard");
        Post(Distributed(), std::string(4096, 'n').c_str());
        s.runUntil(3ms);
        EXPECT_THAT(s.machine().GetMessenger().Sent(),
                    ElementsAre(std::string("change\0it", 9), std::string("unheard\0", 8)));
        EXPECT_EQ(s.trace().Text(),
                  "0.001000000 data: change is told\n0.001000000 data: change is told\n"
                  "0.001000000 data: unheard is told\n"
                  "0.001000000 one: first hears change of 'it'\n0.001000000 two: second hears change of 'it'\n"
                  "0.001000000 two: second hears change of 'else'\n"
                  "0.002000000 one: first hears change of 'it' and more\n"
                  "0.002000000 two: second hears change of 'it' and more\n");
    });
}

TEST(NotificationCenter, NothingIsMadeOfBytesThatAreNoMessage)
{
    ExpectForked([] {
        Scenario s;
        LoopThread loop("loop");
        Listener listener(s, "listener");
        for (const char* name : {"change", "", "\xEF\xBF\xBD"}) listener.AddOn(loop, name);
        const std::string zero(1, '\0');
        const std::string hostile[] = {"",
                                       zero,
                                       "change",
                                       zero + "change",
                                       "change" + zero + "it" + zero,
                                       "change" + zero + zero,
                                       "change" + zero + "\xC0\xAF",
                                       "change" + zero + "\xED\xA0\x80",
                                       "\xFF" + zero + "it",
                                       "change" + zero + std::string(4095, '\x80')};
        for (const std::string& bytes : hostile) s.at(1ms).message(bytes);
        s.at(2ms).post("change", "it");
        s.runUntil(3ms);
        EXPECT_THAT(s.trace().Text(), testing::EndsWith("0.002000000 loop: listener hears change of 'it'\n"));
        EXPECT_THAT(s.trace().Text(), testing::Not(testing::HasSubstr("0.001000000 loop")));
    });
}

TEST(NotificationCenter, AnObserverOfAThreadWithoutALoopIsCalledOnTheMessengersThread)
{
    ExpectForked([] {
        Scenario s;
        Listener listener(s, "listener");
        listener.Add(Distributed(), "change");
        s.at(1ms).post("change", "");
        s.runUntil(2ms);
        EXPECT_EQ(s.trace().Text(),
                  "0.001000000 data: change is told\n0.001000000 messenger: listener hears change of ''\n");
    });
}

TEST(NotificationCenter, ALoopThatHangsKeepsSixtyFourNotificationsAndHearsAgainWhenItGoesOn)
{
    ExpectForked([] {
        Scenario s;
        LoopThread loop("loop");
        Listener listener(s, "listener");
        int heard = 0;
        listener.AddOn(loop, "change");
        listener.mAlso = [&] { ++heard; };
        cf::Perform(loop.Loop(), [&] { s.runFor(1s); });
        for (int post = 0; post < 1000; ++post) Post(Distributed(), "change");
        s.runUntil(2s);
        Post(Distributed(), "change");
        s.runUntil(3s);
        loop.End();
        EXPECT_EQ(heard, 65);
    });
}
