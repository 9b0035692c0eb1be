#include "platform/audio/AudioHardware.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFObjects.h"
#include "support/FakeMachine.h"

#include <gtest/gtest.h>

#include <vector>

using platform::machine::ChannelPosition;
using platform::machine::Device;

namespace {

class AudioHardware : public testing::Test {
protected:
    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    std::vector<Device>& mOutputs = mMachine.mServer.mSnapshot.mOutputs;

    AudioHardware()
    {
        using P = ChannelPosition;
        mOutputs = {{70, "speakers", "Speakers", 48000, {P::FrontLeft, P::FrontRight}},
                    {71, "cinema", "Cinema", 96000, {P::FrontCenter, P::FrontRight, P::LowFrequency, P::FrontLeft}},
                    {72, "mono", "Mono\n", 44100, {P::Mono}},
                    {73, "desk", "Desk", 48000, {P::Auxiliary0, P::FrontLeft, P::Unknown}}};
        mMachine.mServer.mSnapshot.mDefaultOutput = 71;
    }

    static std::vector<AudioDeviceID> Devices()
    {
        UInt32 size = 0;
        EXPECT_EQ(AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr), 0);
        std::vector<AudioDeviceID> devices(size / sizeof(AudioDeviceID));
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, devices.data()), 0);
        return devices;
    }
    static AudioDeviceID Default(AudioObjectPropertySelector selector)
    {
        AudioDeviceID device = 1;
        UInt32 size = sizeof device;
        EXPECT_EQ(AudioHardwareGetProperty(selector, &size, &device), 0);
        return device;
    }
    static AudioDeviceID Translate(const char* uid)
    {
        CFStringRef string = CFSTR(uid);
        AudioDeviceID device = 1;
        AudioValueTranslation translation{&string, sizeof string, &device, sizeof device};
        UInt32 size = sizeof translation;
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation), 0);
        return device;
    }
    static std::string Text(AudioDeviceID device, AudioObjectPropertySelector selector)
    {
        CFStringRef string = nullptr;
        UInt32 size = sizeof string;
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, false, selector, &size, &string), 0);
        return cf::ToStdString(cf::Ref<cf::String>::Adopt(string).Get());
    }
};

}  // namespace

TEST_F(AudioHardware, ADeviceKeepsItsNumberWhenItComesBackUnderAnother)
{
    const std::vector<AudioDeviceID> devices = Devices();
    ASSERT_EQ(devices.size(), 4u);
    for (const AudioDeviceID device : devices) EXPECT_GT(device, kAudioObjectSystemObject);
    EXPECT_EQ(Translate("cinema"), devices[1]);
    EXPECT_EQ(Translate("nowhere"), 0u);

    const Device cinema = mOutputs[1];
    mOutputs.erase(mOutputs.begin() + 1);
    Float64 rate = 0;
    UInt32 size = sizeof rate;
    EXPECT_EQ(AudioDeviceGetProperty(devices[1], 0, false, kAudioDevicePropertyNominalSampleRate, &size, &rate),
              kAudioHardwareBadDeviceError);
    EXPECT_EQ(Translate("cinema"), 0u);
    EXPECT_EQ(Default(kAudioHardwarePropertyDefaultOutputDevice), 0u);

    mOutputs.insert(mOutputs.begin(), cinema);
    mOutputs[0].mID = 170;
    EXPECT_EQ(Devices(), (std::vector{devices[1], devices[0], devices[2], devices[3]}));
}

TEST_F(AudioHardware, BothDefaultsAreTheServersDefault)
{
    EXPECT_EQ(Default(kAudioHardwarePropertyDefaultOutputDevice), Translate("cinema"));
    EXPECT_EQ(Default(kAudioHardwarePropertyDefaultSystemOutputDevice), Translate("cinema"));
    mMachine.mServer.mSnapshot = {};
    EXPECT_EQ(Default(kAudioHardwarePropertyDefaultOutputDevice), 0u);
    EXPECT_TRUE(Devices().empty());
}

TEST_F(AudioHardware, DevicesSayWhatTheyAre)
{
    const AudioDeviceID cinema = Translate("cinema");
    EXPECT_EQ(Text(cinema, kAudioDevicePropertyDeviceUID), "cinema");
    EXPECT_EQ(Text(Translate("mono"), kAudioDevicePropertyDeviceNameCFString), "Mono\xEF\xBF\xBD");
    Float64 rate = 0;
    UInt32 size = sizeof rate;
    EXPECT_EQ(AudioDeviceGetProperty(cinema, 0, false, kAudioDevicePropertyNominalSampleRate, &size, &rate), 0);
    EXPECT_EQ(rate, 96000);

    AudioBufferList list{};
    size = sizeof list;
    EXPECT_EQ(AudioDeviceGetProperty(cinema, 0, false, kAudioDevicePropertyStreamConfiguration, &size, &list), 0);
    EXPECT_EQ(list.mNumberBuffers, 1u);
    EXPECT_EQ(list.mBuffers[0].mNumberChannels, 4u);
    EXPECT_EQ(AudioDeviceGetProperty(cinema, 0, true, kAudioDevicePropertyStreamConfiguration, &size, &list), 0);
    EXPECT_EQ(list.mNumberBuffers, 0u);
    EXPECT_EQ(size, 8u);
}

TEST_F(AudioHardware, StereoGoesWhereLeftAndRightAreElseToTheFirstChannels)
{
    const auto stereo = [](const char* uid) {
        UInt32 pair[2] = {};
        UInt32 size = sizeof pair;
        EXPECT_EQ(AudioDeviceGetProperty(Translate(uid), 0, false, kAudioDevicePropertyPreferredChannelsForStereo,
                                         &size, pair),
                  0);
        return std::pair(pair[0], pair[1]);
    };
    EXPECT_EQ(stereo("speakers"), std::pair(1u, 2u));
    EXPECT_EQ(stereo("cinema"), std::pair(4u, 2u));
    EXPECT_EQ(stereo("mono"), std::pair(1u, 1u));
    EXPECT_EQ(stereo("desk"), std::pair(1u, 2u));
}

TEST_F(AudioHardware, RoomThatIsTooSmallAndSelectorsThatDoNotExistAreRefused)
{
    uint64_t room[4] = {};
    const AudioDeviceID device = Translate("speakers");
    for (const UInt32 selector : {kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultOutputDevice,
                                  kAudioHardwarePropertyDeviceForUID}) {
        UInt32 size = 0;
        ASSERT_EQ(AudioHardwareGetPropertyInfo(selector, &size, nullptr), 0);
        --size;
        EXPECT_EQ(AudioHardwareGetProperty(selector, &size, room), kAudioHardwareBadPropertySizeError);
    }
    for (const UInt32 selector :
         {kAudioDevicePropertyDeviceUID, kAudioDevicePropertyDeviceNameCFString, kAudioDevicePropertyNominalSampleRate,
          kAudioDevicePropertyPreferredChannelsForStereo, kAudioDevicePropertyStreamConfiguration}) {
        UInt32 size = 0;
        ASSERT_EQ(AudioDeviceGetPropertyInfo(device, 0, false, selector, &size, nullptr), 0);
        const UInt32 exact = size--;
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, false, selector, &size, room), kAudioHardwareBadPropertySizeError);
        EXPECT_LE(exact, sizeof room);
    }
    UInt32 size = sizeof room;
    EXPECT_EQ(AudioHardwareGetProperty(FourCC("none"), &size, room), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyPreferredChannelsForStereo, &size, room),
              kAudioHardwareUnknownPropertyError);
    AudioValueTranslation narrow{room, 4, room, 4};
    size = sizeof narrow;
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &narrow),
              kAudioHardwareBadPropertySizeError);
}
