#include "platform/audio/AudioHardware.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFObjects.h"
#include "support/FakeMachine.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <vector>

using platform::machine::ChannelPosition;
using platform::machine::Device;

/// In a copy of a process the memory of its other threads, which are not there, would look like a leak.
static bool sIsCopy = false;
extern "C" int __lsan_is_turned_off()
{
    return sIsCopy;
}

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

TEST_F(AudioHardware, AProcessThatIsACopyOfOneThatUsedItEndsWithoutIt)
{
    EXPECT_EQ(Devices().size(), 4u);
    const pid_t copy = fork();
    if (copy == 0) {
        sIsCopy = true;
        ++mMachine.mProcesses.mSelf;
        alarm(20);
        exit(0);
    }
    int status = -1;
    waitpid(copy, &status, 0);
    EXPECT_EQ(status, 0);
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

TEST_F(AudioHardware, AnInputHasItsStreamOnItsInputSideAndStandsBesideAnOutputOfItsUID)
{
    using P = ChannelPosition;
    mMachine.mServer.mSnapshot.mInputs = {{70, "webcam", "Webcam", 16000, {P::Mono}},
                                          {75, "desk", "Desk", 48000, {P::Auxiliary0, P::FrontLeft, P::FrontRight}}};
    mMachine.mServer.mSnapshot.mDefaultInput = 75;
    const std::vector<AudioDeviceID> devices = Devices();
    ASSERT_EQ(devices.size(), 6u);
    const AudioDeviceID desk = devices[5];
    EXPECT_NE(desk, Translate("desk"));
    EXPECT_EQ(Default(kAudioHardwarePropertyDefaultInputDevice), desk);

    const auto streams = [](AudioDeviceID device, bool isInput) {
        AudioStreamID stream = 0;
        UInt32 size = sizeof stream;
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyStreams, &size, &stream), 0);
        return std::vector<AudioStreamID>(size / sizeof stream, stream);
    };
    EXPECT_TRUE(streams(desk, false).empty());
    EXPECT_TRUE(streams(devices[0], true).empty());
    ASSERT_EQ(streams(desk, true).size(), 1u);
    const auto direction = [&](AudioStreamID stream) {
        UInt32 isInput = 7, size = sizeof isInput;
        EXPECT_EQ(AudioStreamGetProperty(stream, 0, kAudioStreamPropertyDirection, &size, &isInput), 0);
        return isInput;
    };
    EXPECT_EQ(direction(streams(desk, true)[0]), 1u);
    EXPECT_EQ(direction(streams(devices[0], false)[0]), 0u);

    AudioStreamBasicDescription ofDevice{}, ofStream{};
    UInt32 size = sizeof ofDevice;
    EXPECT_EQ(AudioDeviceGetProperty(desk, 0, true, kAudioDevicePropertyStreamFormat, &size, &ofDevice), 0);
    EXPECT_EQ(ofDevice.mChannelsPerFrame, 3u);
    EXPECT_EQ(ofDevice.mBytesPerFrame, 12u);
    EXPECT_EQ(ofDevice.mFormatFlags, 9u);
    EXPECT_EQ(AudioStreamGetProperty(streams(desk, true)[0], 0, kAudioDevicePropertyStreamFormat, &size, &ofStream), 0);
    EXPECT_EQ(std::memcmp(&ofDevice, &ofStream, sizeof ofDevice), 0);
    UInt32 pair[2] = {};
    size = sizeof pair;
    EXPECT_EQ(AudioDeviceGetProperty(desk, 0, true, kAudioDevicePropertyPreferredChannelsForStereo, &size, pair), 0);
    EXPECT_EQ(std::pair(pair[0], pair[1]), std::pair(2u, 3u));

    EXPECT_EQ(AudioDeviceGetPropertyInfo(desk, 0, true, kAudioDevicePropertyDataSource, nullptr, nullptr),
              kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AudioDeviceSetProperty(desk, nullptr, 0, true, kAudioDevicePropertyStreamFormat, size, &ofDevice),
              kAudioHardwareIllegalOperationError);
    EXPECT_EQ(AudioStreamGetProperty(desk, 0, kAudioStreamPropertyDirection, &size, pair),
              kAudioHardwareBadStreamError);
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
