#include "bundle/ObedientPlugIn.h"
#include "platform/audio/AudioObject.h"
#include "platform/foundation/CFDictionary.h"
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
using testing::ElementsAre;

constexpr AudioObjectID kSystem = kAudioObjectSystemObject;

AudioObjectPropertyAddress At(AudioObjectPropertySelector selector,
                              AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal,
                              AudioObjectPropertyElement element = 0)
{
    return {selector, scope, element};
}

std::vector<AudioDeviceID> Devices()
{
    UInt32 size = 0;
    EXPECT_EQ(AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr), 0);
    std::vector<AudioDeviceID> numbers(size / sizeof(AudioDeviceID));
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, numbers.data()), 0);
    return numbers;
}

AudioDeviceID Translate(const char* uid)
{
    CFStringRef string = CFSTR(uid);
    AudioDeviceID device = 99;
    AudioValueTranslation translation{&string, sizeof string, &device, sizeof device};
    UInt32 size = sizeof translation;
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation), 0);
    return device;
}

/// A machine with one output and the bundle whose plug-in does what it is told.
struct System {
    System()
    {
        mScenario.machine().GetFiles().mBundleFolder = BUNDLE_FOLDER;
        mScenario.output("speakers");
    }
    ~System() { AudioHardwareUnload(); }

    /// The plug-in's own number is the first that there is for plug-ins.
    OSStatus Tell(Order order, AudioObjectID* answer = nullptr)
    {
        const AudioObjectPropertyAddress address = At(kOrder);
        UInt32 size = sizeof order;
        const OSStatus error = AudioObjectGetPropertyData(mPlugIn, &address, 0, nullptr, &size, &order);
        if (answer) *answer = order.mObject;
        return error;
    }
    AudioObjectID Make(AudioObjectID owner = kSystem, UInt32 classID = kAudioDeviceClassID)
    {
        AudioObjectID made = 0;
        EXPECT_EQ(Tell({Order::Create, 0, owner, classID}, &made), 0);
        EXPECT_EQ(Tell({Order::Publish, made, owner}), 0);
        return made;
    }
    bool IsThere(AudioObjectID object) const
    {
        const AudioObjectPropertyAddress address = At(0);
        return AudioObjectHasProperty(object, &address);
    }

    Scenario mScenario;
    AudioObjectID mPlugIn = 1u << 24;
};

/// Notes what it hears, and does what else a case wants.
class Ear {
public:
    Ear(System& system, std::string name) : mSystem(system), mName(std::move(name)) {}
    OSStatus Add(AudioObjectID object, AudioObjectPropertyAddress address)
    {
        return AudioObjectAddPropertyListener(object, &address, &Hear, this);
    }
    OSStatus Remove(AudioObjectID object, AudioObjectPropertyAddress address)
    {
        return AudioObjectRemovePropertyListener(object, &address, &Hear, this);
    }
    std::function<void()> mAlso;

private:
    static OSStatus Hear(AudioObjectID object, UInt32 count, const AudioObjectPropertyAddress* addresses, void* self)
    {
        auto& ear = *static_cast<Ear*>(self);
        const UInt32 selector = __builtin_bswap32(addresses[0].mSelector);
        ear.mSystem.mScenario.trace().Add(ear.mName + " hears " + std::string((const char*)&selector, 4) + " of " +
                                          (object == kSystem ? "all" : "it") + (count > 1 ? " and more" : ""));
        if (ear.mAlso) ear.mAlso();
        return 0;
    }

    System& mSystem;
    const std::string mName;
};

}  // namespace

TEST(PlugIns, AreLoadedWhenTheirDevicesMatterAndNotForNativeOnes)
{
    ExpectForked([] {
        System system;
        EXPECT_NE(Translate("speakers"), 0u);
        UInt32 word = 0, size = sizeof word;
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDefaultOutputDevice, &size, &word), 0);
        EXPECT_FALSE(system.IsThere(system.mPlugIn));
        EXPECT_EQ(Translate("obedient"), 0u);
        EXPECT_TRUE(system.IsThere(system.mPlugIn));
        AudioObjectID seen = 0;
        EXPECT_EQ(system.Tell({Order::AskInside}, &seen), 0);
        EXPECT_EQ(seen, 1u) << "who asks while it starts sees what is there so far";
        EXPECT_EQ(Devices().size(), 1u);
    });
}

TEST(PlugIns, HaveObjectsThatAreFoundFromPublicationToDeathWithAllTheyOwn)
{
    ExpectForked([] {
        System system;
        const auto native = Devices();
        AudioObjectID device = 0;
        EXPECT_EQ(system.Tell({Order::Create, 0, 4711}), kAudioHardwareBadObjectError);
        EXPECT_EQ(system.Tell({Order::Create, 0, native[0]}), kAudioHardwareBadObjectError) << "not its own";
        ASSERT_EQ(system.Tell({Order::Create}, &device), 0);
        EXPECT_FALSE(system.IsThere(device));
        EXPECT_EQ(Devices(), native);
        EXPECT_EQ(system.Tell({Order::Publish, device}), 0);
        EXPECT_THAT(Devices(), ElementsAre(native[0], device));
        EXPECT_EQ(Translate("obedient"), device);
        const AudioObjectID stream = system.Make(device, kAudioStreamClassID);
        const AudioObjectID second = system.Make();
        EXPECT_TRUE(system.IsThere(stream));
        EXPECT_THAT(Devices(), ElementsAre(native[0], device, second)) << "a stream is no device";
        EXPECT_EQ(system.Tell({Order::Kill, device}), 0);
        EXPECT_FALSE(system.IsThere(device) || system.IsThere(stream));
        EXPECT_THAT(Devices(), ElementsAre(native[0], second));
        EXPECT_EQ(system.Tell({Order::Publish, device}), 0) << "the dead stay so";
        EXPECT_FALSE(system.IsThere(device));
        EXPECT_GT(system.Make(), second) << "no number comes back";

        AudioHardwareUnload();
        EXPECT_FALSE(system.IsThere(second));
        EXPECT_EQ(Devices(), native);
        EXPECT_TRUE(system.IsThere(second + 2)) << "the plug-in, anew";
    });
}

TEST(PlugIns, AreAskedForTheirObjectsByEveryCallAndToldWhoListens)
{
    ExpectForked([] {
        System system;
        Devices();
        const AudioObjectID device = system.Make();
        UInt32 word = 0, size = sizeof word;
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, true, FourCC("any "), &size, &word), 0);
        EXPECT_EQ(word, device);
        const auto listeners = [&] {
            const AudioObjectPropertyAddress address = At(kHeard);
            UInt32 count = 99, bytes = sizeof count;
            EXPECT_EQ(AudioObjectGetPropertyData(device, &address, 0, nullptr, &bytes, &count), 0);
            return count;
        };
        Ear ear(system, "ear");
        EXPECT_EQ(ear.Add(device, At(FourCC("any "))), 0);
        EXPECT_EQ(ear.Add(device, At(FourCC("any "))), 0) << "the same once";
        EXPECT_EQ(listeners(), 1u);
        EXPECT_EQ(ear.Remove(device, At(FourCC("any "))), 0);
        EXPECT_EQ(ear.Remove(device, At(FourCC("any "))), 0);
        EXPECT_EQ(listeners(), 0u);
        EXPECT_EQ(ear.Add(4711, At(FourCC("any "))), kAudioHardwareBadObjectError);
        for (const AudioObjectID object : {kSystem, device, AudioObjectID(4711)}) {
            EXPECT_FALSE(AudioObjectHasProperty(object, nullptr));
            EXPECT_EQ(AudioObjectGetPropertyData(object, nullptr, 0, nullptr, &size, &word),
                      kAudioHardwareIllegalOperationError);
        }
    });
}

TEST(PlugIns, AreTornDownWhenTheSystemIsUnloadedAndAtTheEndOfTheProcessWhichTheyAreTold)
{
    const auto forked = support::RunForked([] {
        static auto& system = *new System;  // the process ends under it
        Devices();
        AudioHardwareUnload();
        EXPECT_EQ(system.mScenario.now(), 0s);
        Devices();
    });
    EXPECT_TRUE(forked.mPassed);
    EXPECT_EQ(forked.mOutput, "torn down, exiting 0\ntorn down, exiting 1\n");
}

TEST(PropertyListeners, HearInTheirOrderOnTheSystemsThreadWhatTheyAskedForAndOnceEach)
{
    ExpectForked([] {
        System system;
        Ear devices(system, "devices"), outputs(system, "outputs"), all(system, "all"), exact(system, "exact"),
            other(system, "other"), alerts(system, "alerts"), inputs(system, "inputs");
        alerts.Add(kSystem, At(kAudioHardwarePropertyDefaultSystemOutputDevice));
        inputs.Add(kSystem, At(kAudioHardwarePropertyDefaultInputDevice));
        system.mScenario.input("microphone");
        devices.Add(kSystem, At(kAudioHardwarePropertyDevices));
        outputs.Add(kSystem, At(kAudioHardwarePropertyDefaultOutputDevice));
        const AudioObjectID device = system.Make();
        const auto any = kAudioObjectPropertySelectorWildcard;
        all.Add(device, At(any, kAudioObjectPropertyScopeWildcard, kAudioObjectPropertyElementWildcard));
        exact.Add(device, At(FourCC("pitc"), kAudioObjectPropertyScopeInput, 3));
        other.Add(device, At(FourCC("pitc"), kAudioObjectPropertyScopeInput, 2));
        other.Add(device, At(FourCC("pitc"), kAudioObjectPropertyScopeGlobal, 3));
        other.Add(system.mPlugIn, At(any, any, kAudioObjectPropertyElementWildcard));
        system.mScenario.runFor(10ms);
        system.Tell({Order::Change, device, kSystem, 0, FourCC("pitc")});
        system.mScenario.runFor(10ms);
        auto& desk = system.mScenario.output("desk");
        system.mScenario.at(30ms).makeDefault(desk);
        system.mScenario.runUntil(1s);
        const std::string text = system.mScenario.trace().Text();
        const auto count = [&](const std::string& line) {
            size_t found = 0;
            for (size_t at = 0; (at = text.find(line, at)) != text.npos; ++at) ++found;
            return found;
        };
        EXPECT_EQ(count("corvane-system: devices hears dev# of all"), 3u) << text;
        EXPECT_EQ(count("0.010000000 corvane-system: all hears pitc of it\n"
                        "0.010000000 corvane-system: exact hears pitc of it\n"),
                  1u)
            << text;
        EXPECT_EQ(count("corvane-system: outputs hears dOut of all"), 1u) << text;
        EXPECT_EQ(count("corvane-system: alerts hears sOut of all"), 1u) << text;
        EXPECT_EQ(count("corvane-system: inputs hears dIn  of all"), 1u) << text;
        EXPECT_EQ(count("hears"), 8u) << text;
    });
}

TEST(PropertyListeners, AreNotCalledAfterTheirRemovalWhichWaitsForACallSaveWithinIt)
{
    ExpectForked([] {
        System system;
        Devices();
        const AudioObjectID device = system.Make();
        const auto pitch = At(FourCC("pitc"), kAudioObjectPropertyScopeInput, 3);
        Ear slow(system, "slow"), self(system, "self"), late(system, "late");
        slow.mAlso = [&] { system.mScenario.runFor(50ms); };
        self.mAlso = [&] {
            self.Remove(device, pitch);
            late.Remove(device, pitch);
        };
        for (Ear* ear : {&slow, &self, &late}) ear->Add(device, pitch);
        for (int i = 0; i < 2; ++i) system.Tell({Order::Change, device, kSystem, 0, FourCC("pitc")});
        system.mScenario.runFor(10ms);
        slow.Remove(device, pitch);
        EXPECT_EQ(system.mScenario.now(), 50ms);
        system.mScenario.runFor(1s);
        EXPECT_EQ(system.mScenario.trace().Text(),
                  "0.000000000 corvane-system: slow hears pitc of it\n"
                  "0.050000000 corvane-system: self hears pitc of it\n");
    });
}

TEST(SystemWords, ThatCanBeSetAreToldAndTheOthersRefuse)
{
    ExpectForked([] {
        System system;
        Ear ear(system, "ear");
        UInt32 word = 7, size = sizeof word;
        for (const UInt32 selector :
             {FourCC("pmut"), FourCC("stmo"), FourCC("inot"), FourCC("mast"), FourCC("user"), FourCC("dev#")}) {
            const bool isWord = selector == FourCC("pmut") || selector == FourCC("stmo");
            const AudioObjectPropertyAddress address = At(selector);
            ear.Add(kSystem, address);
            const auto set = [&](UInt32 bytes) {
                return AudioObjectSetPropertyData(kSystem, &address, 0, nullptr, bytes, &word);
            };
            EXPECT_EQ(set(3), isWord ? kAudioHardwareBadPropertySizeError : kAudioHardwareIllegalOperationError);
            EXPECT_EQ(set(4), isWord ? 0 : kAudioHardwareIllegalOperationError);
        }
        system.mScenario.runFor(1ms);
        EXPECT_EQ(system.mScenario.trace().Text(), "0.000000000 corvane-system: ear hears stmo of all\n")
            << "it is audible already";
        EXPECT_EQ(AudioHardwareGetProperty(FourCC("stmo"), &size, &word), 0);
        EXPECT_EQ(word, 1u);
    });
}
