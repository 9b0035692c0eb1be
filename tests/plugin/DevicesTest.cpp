#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFNotificationCenter.h"
#include "plugin/PlugInRig.h"
#include "plugin/settings/SharedPreferences.h"
#include "support/Forked.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace std::chrono_literals;
using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

const Entry kOne{"One", 1}, kTwo{"Two", 2, 1, 44100};

constexpr AudioObjectPropertyAddress kDevices{kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal,
                                              kAudioObjectPropertyElementMaster};

/// Notes in the trace how many devices there are whenever the system says that they changed, and which one dies.
OSStatus NoteCount(AudioObjectID object, UInt32, const AudioObjectPropertyAddress*, void* rig)
{
    const std::string what = object == kAudioObjectSystemObject ? "" : std::to_string(object) + " died, ";
    static_cast<PlugInRig*>(rig)->mScenario.trace().Add(what + std::to_string(PlugInRig::Numbers().size()) +
                                                        " devices");
    return 0;
}

}  // namespace

TEST(PlugInDevices, AreThoseOfTheListWithTheirNamesRatesWidthsAndTheOutputOfTheHost)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.mScenario.output("speakers");
        rig.Write(true,
                  {kOne,
                   {"", 7, 1, 0},
                   kTwo,
                   {"One again", 1},
                   {"No width", 9, 0},
                   {"Negative", 10, -1},
                   {"Too wide", 11, 65},
                   {"Wide", 12, 64, 768001},
                   {"Slow", 13, 1, 999},
                   {"Fast", 14, 1, 768000},
                   {"No rate", 15, 1, NAN},
                   {"Backwards", 16, 1, -48000}},
                  RouteOfHost("com.ostrel.corvane.default_output"));
        const auto devices = PlugInRig::Devices();
        ASSERT_EQ(devices.size(), 8u) << "the second of a number, and ones of 0, -1 and 65 channels, are not made";
        const std::string uid = "com.ostrel.audio.corvane.halplugin.device.";
        const auto number = [&](size_t i) { return devices[i].mNumber; };
        EXPECT_EQ(devices[0], (SeenDevice{number(0), uid + "1", "Corvane: One", 48000, 2, 1}));
        EXPECT_EQ(devices[1], (SeenDevice{number(1), uid + "7", "Corvane: ", 44100, 1, 1}));
        EXPECT_EQ(devices[2], (SeenDevice{number(2), uid + "2", "Corvane: Two", 44100, 1, 1}));
        EXPECT_EQ(devices[3], (SeenDevice{number(3), uid + "12", "Corvane: Wide", 44100, 64, 1}));
        for (const size_t i : {4, 6, 7}) EXPECT_EQ(devices[i].mRateHz, 44100) << devices[i].mName;
        EXPECT_EQ(devices[5].mRateHz, 768000);
        EXPECT_EQ(PlugInRig::SystemWord(kAudioHardwarePropertyDefaultOutputDevice), PlugInRig::Numbers().front());
    });
}

TEST(PlugInDevices, AnswerByAddressAsByTheOlderCalls)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.Write(true, {kOne});
        const AudioDeviceID device = rig.Numbers().at(0), stream = device + 1;
        for (const UInt32 selector : {FourCC("nsrt"), FourCC("nsr#"), FourCC("fsiz"), FourCC("uid "), FourCC("pfta"),
                                      FourCC("slay"), FourCC("sdir"), FourCC("lisa"), FourCC("none")}) {
            const AudioObjectPropertyAddress of{selector, kAudioObjectPropertyScopeInput, 0},
                ofStream{selector, kAudioObjectPropertyScopeGlobal, 0};
            UInt32 size = 0, older = 0;
            Boolean settable = 9, writable = 9;
            const bool has = AudioObjectHasProperty(device, &of);
            EXPECT_EQ(AudioObjectGetPropertyDataSize(device, &of, 0, nullptr, &size) == 0, has) << selector;
            EXPECT_EQ(AudioDeviceGetPropertyInfo(device, 0, true, selector, &older, &writable) == 0, has) << selector;
            EXPECT_EQ(AudioObjectIsPropertySettable(device, &of, &settable) == 0, has) << selector;
            EXPECT_EQ(std::pair(size, settable), std::pair(older, writable)) << selector;
            EXPECT_EQ(AudioStreamGetPropertyInfo(stream, 0, selector, nullptr, nullptr) == 0,
                      AudioObjectHasProperty(stream, &ofStream));
        }
        const AudioObjectPropertyAddress frameSize{FourCC("fsiz"), kAudioObjectPropertyScopeGlobal, 0};
        UInt32 frames = 256, size = sizeof frames;
        EXPECT_EQ(AudioObjectSetPropertyData(device, &frameSize, 0, nullptr, size, &frames), 0);
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, true, FourCC("fsiz"), &size, &(frames = 0)), 0);
        EXPECT_EQ(frames, 256u);
    });
}

TEST(PlugInDevices, AreReplacedAtEachNotificationWhereTheirEntryIsNotWhatTheySayOfThemselves)
{
    const std::vector<Entry> lists[] = {{{"One", 1, 2, 48000, 1}, kTwo}, {kOne, kTwo, {"Other", 1}}};
    for (const auto& list : lists) {
        ExpectForked([&] {
            PlugInRig rig;
            rig.Write(true, list);
            const auto before = rig.Devices();
            for (int i = 0; i < 2; ++i) rig.Tell();
            const auto after = rig.Devices();
            ASSERT_EQ(after.size(), 2u);
            EXPECT_EQ(after[0], before[1]);
            EXPECT_EQ(after[1].mUID, before[0].mUID);
            EXPECT_GT(after[1].mNumber, before[1].mNumber + 3) << "replaced twice";
        });
    }
}

TEST(PlugInDevices, AllGoWithAnEmptyListOrTheSwitchAndNoneWithAListThatIsMissingOrDamaged)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.Write(true, {kOne, kTwo});
        const auto all = rig.Numbers();
        ASSERT_EQ(all.size(), 2u);
        for (const char* keys : {"", "<key>Enabled</key><integer>1</integer>", "<damaged>",
                                 "<key>DeviceSettings</key><dict><key>Devices</key><string>no list</string></dict>"}) {
            rig.WriteText(keys);
            rig.Tell();
            EXPECT_EQ(rig.Numbers(), all) << keys;
        }
        rig.Write(false, {kOne, kTwo});
        rig.Tell();
        EXPECT_THAT(rig.Numbers(), IsEmpty());
        rig.Write(true, {kTwo});
        rig.Tell();
        EXPECT_THAT(rig.Names(), ElementsAre("Corvane: Two"));
        rig.Write(true, {});
        rig.Tell();
        EXPECT_THAT(rig.Numbers(), IsEmpty());
    });
}

TEST(PlugInDevices, OfAProcessThatStartedWhileTheyWereOffNeverCome)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.Write(false, {kOne});
        EXPECT_THAT(rig.Numbers(), IsEmpty());
        rig.Write(true, {kOne});
        rig.Tell();
        EXPECT_THAT(rig.Numbers(), IsEmpty());
    });
}

TEST(PlugInDevices, ThatChangeGoAtOnceAndComeBackAMillisecondLaterChangesWithinItTogether)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.Write(true, {kOne, kTwo});
        AudioObjectAddPropertyListener(kAudioObjectSystemObject, &kDevices, &NoteCount, &rig);
        const AudioObjectPropertyAddress alive{FourCC("livn"), kAudioObjectPropertyScopeGlobal, 0};
        const AudioDeviceID one = rig.Numbers().at(0);
        AudioObjectAddPropertyListener(one, &alive, &NoteCount, &rig);
        const auto post = [&](auto when) {
            rig.mScenario.at(when).post(settings::kChangedNotification, settings::kChangedNotification);
        };
        rig.mScenario.runFor(10ms);
        post(20ms);
        rig.mScenario.at(20ms + 300us).call([&] { rig.Write(true, {{"Uno", 1}, {"Due", 2}}); });
        post(20ms + 300us);
        post(20ms + 600us);
        rig.Write(true, {{"Uno", 1}, kTwo});
        rig.mScenario.runUntil(1s);
        AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &kDevices, &NoteCount, &rig);
        const std::string told = " data: com.ostrel.corvane.prefschanged is told\n";
        EXPECT_EQ(rig.mScenario.trace().Text(), "0.020000000" + told +
                                                    "0.020000000 corvane-system: " + std::to_string(one) +
                                                    " died, 1 devices\n" + "0.020000000 corvane-system: 1 devices\n" +
                                                    "0.020300000" + told + "0.020300000 corvane-system: 0 devices\n" +
                                                    "0.020600000" + told + "0.021000000 corvane-system: 2 devices\n");
        EXPECT_THAT(rig.Names(), ElementsAre("Corvane: Uno", "Corvane: Due"));
    });
}

TEST(PlugInDevices, FollowTheOutputThatIsAssignedToTheHost)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.mScenario.output("speakers");
        rig.mScenario.output("desk");
        AudioDeviceID last = 0;
        const std::pair<std::string, size_t> routes[] = {{"", 0},     {"desk", 1},     {"desk", 1}, {"nowhere", 0},
                                                         {"desk", 1}, {"speakers", 1}, {"", 0}};
        std::string before = "none yet";
        for (const auto& [uid, outputs] : routes) {
            rig.Write(true, {kOne}, uid.empty() ? "" : RouteOfHost(uid));
            if (last != 0) rig.Tell();
            const auto devices = rig.Devices();
            ASSERT_EQ(devices.size(), 1u) << uid;
            EXPECT_EQ(devices[0].mOutputs, outputs) << uid;
            EXPECT_EQ(devices[0].mNumber == last, uid == before) << uid;
            last = devices[0].mNumber;
            before = uid;
        }
    });
}

TEST(PlugInDevices, OfTheCompanionFollowTheLocalNotificationAloneAlsoOneFromAThreadWithoutARunLoop)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.mScenario.machine().GetIdentity().mMainBundle = {"COM.ostrel.Corvane", "/opt/companion"};
        rig.Write(true, {kOne});
        EXPECT_THAT(rig.Names(), ElementsAre("Corvane: One"));
        rig.Write(true, {kTwo});
        rig.Tell();
        EXPECT_THAT(rig.Names(), ElementsAre("Corvane: One"));
        CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterGetLocalCenter(),
                                                        CFSTR(settings::kLocallyChangedNotification), nullptr, nullptr,
                                                        kCFNotificationDeliverImmediately);
        rig.mScenario.runFor(5ms);
        EXPECT_THAT(rig.Names(), ElementsAre("Corvane: Two"));
    });
}

TEST(PlugInDevices, EndWithTheSystemAndComeAnewWithOtherNumbersAlsoWhereNobodyEndsIt)
{
    const Forked forked = RunForked([] {
        static auto& rig = *new PlugInRig;  // the process ends under it
        rig.Write(true, {kOne});
        const auto first = rig.Numbers();
        ASSERT_EQ(first.size(), 1u);
        AudioHardwareUnload();
        UInt32 size = sizeof(CFStringRef);
        CFStringRef text = nullptr;
        EXPECT_EQ(AudioDeviceGetProperty(first[0], 0, true, kAudioDevicePropertyDeviceUID, &size, &text),
                  kAudioHardwareBadDeviceError);
        const auto second = rig.Numbers();
        ASSERT_EQ(second.size(), 1u);
        EXPECT_GT(second[0], first[0]);
        rig.Write(true, {kTwo});
        rig.mScenario.at(rig.mScenario.now()).post(settings::kChangedNotification, settings::kChangedNotification);
        rig.mScenario.runFor(500us);  // its timer is pending
    });
    EXPECT_TRUE(forked.mPassed) << forked.mSignal << forked.mOutput;
}
