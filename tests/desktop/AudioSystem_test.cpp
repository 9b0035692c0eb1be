#include "desktop/ServerWatch.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/DeviceInput.h"
#include "platform/audio/units/UnitRig.h"
#include "platform/foundation/CFObjects.h"
#include "platform/machine/Machine.h"
#include "platform/process/Applications.h"
#include "support/PrivatePipeWire.h"
#include "support/SignalAnalysis.h"
#include "support/SpeakerProbe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>

namespace desktop {

using platform::process::Application;
using platform::process::CopyApplications;
using support::ChildProcess;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

std::vector<std::string> DeviceUIDs()
{
    AudioDeviceID devices[8];
    UInt32 size = sizeof devices;
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, devices), 0);
    std::vector<std::string> names;
    for (size_t i = 0; i < size / sizeof devices[0]; ++i) {
        CFStringRef uid = nullptr;
        UInt32 bytes = sizeof uid;
        EXPECT_EQ(AudioDeviceGetProperty(devices[i], 0, false, kAudioDevicePropertyDeviceUID, &bytes, &uid), 0);
        names.push_back(cf::ToStdString(cf::Ref<cf::String>::Adopt(uid).Get()));
    }
    return names;
}

/// Keeps the stamps of an input.
class Stamps final : public platform::audio::DeviceInputClient {
public:
    void TakeBuffer(const AudioTimeStamp& time, UInt32 frames, std::span<const float* const>) noexcept override
    {
        const platform::kernel::RealtimeExemption exemption("a test keeps what it is given");
        const std::lock_guard guard(mMutex);
        mTimes.push_back(time);
        mFrames += frames;
        mCondition.notify_all();
    }
    /// The stamps until so many frames have come, or twenty seconds have passed.
    std::vector<AudioTimeStamp> Of(size_t frames)
    {
        std::unique_lock guard(mMutex);
        mCondition.wait_for(guard, std::chrono::seconds(20), [&] { return mFrames >= frames; });
        return mTimes;
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    std::vector<AudioTimeStamp> mTimes;
    size_t mFrames = 0;
};

}  // namespace

/// The first look in a process, which is the one that has to wait for the server.
TEST(AudioSystem, TheFirstLookSeesTheDevicesAndTheApplicationsOfARunningServer)
{
    support::PrivatePipeWire pipeWire;
    const ChildProcess plain = pipeWire.Play({"--name", "plain"});
    const ChildProcess withHelper = pipeWire.Play({"--name", "with helper", "--child"});

    EXPECT_THAT(DeviceUIDs(), ElementsAre("speakers", "headset"));
    const std::vector<Application> applications = CopyApplications();
    ASSERT_EQ(applications.size(), 2u);
    EXPECT_EQ(applications[0].mPID, plain.ID());
    EXPECT_EQ(applications[0].mName, "plain");
    EXPECT_TRUE(applications[0].mPlaying);
    EXPECT_EQ(std::filesystem::path(applications[0].mExecutable).filename(), "corvane-test-app");
    EXPECT_EQ(applications[1].mPID, withHelper.ID());
    EXPECT_THAT(applications[1].mHelpers, SizeIs(1));
}

TEST(AudioSystem, TheStampsOfAnInputGoByItsOwnCrystal)
{
    support::PrivatePipeWire pipeWire;
    const ChildProcess microphone = pipeWire.PlugMicrophone({"--name", "mic", "--ppm", "200"});
    ServerWatch watch(platform::machine::Machine::Current().GetAudioServer());
    ASSERT_TRUE(watch.Sees([](const ServerSnapshot& now) {
        const Device* device = FindInput(now, "mic");
        return device && !device->mChannels.empty() && now.mDefaultInput == device->mID;
    }));
    Stamps stamps;
    const platform::audio::DeviceInput input(0, stamps);
    const std::vector<AudioTimeStamp> times = stamps.Of(6 * 48000);
    ASSERT_GE(times.size(), 100u);
    const AudioTimeStamp& middle = times[times.size() / 2];
    const double frames = times.back().mSampleTime - middle.mSampleTime;
    const double seconds = double(times.back().mHostTime - middle.mHostTime) * 1e-9;
    EXPECT_NEAR(frames / seconds / 48000, 1.0002, 20e-6);
    EXPECT_NE(times.back().mRateScalar, 1);
}

TEST(AudioSystem, TheDefaultOutputUnitIsHeardWholeOnWhicheverSinkIsTheDefaultAtWhateverRate)
{
    support::PrivatePipeWire pipeWire;
    pipeWire.SetQuantum(1024);
    const support::OwnedUnit unit = support::Open("def ");
    support::SignalSource source{
        [](unsigned channel, int64_t frame) { return (channel == 0 ? 1 : -1) * float(frame % (1 << 20)) / (1 << 20); }};
    source.Feed(unit.get(), 0);
    EXPECT_EQ(support::SetFormat(unit.get(), support::kInput, 0, support::FloatFormat(48000, 2, support::kInterleaved)),
              0);
    EXPECT_EQ(AudioUnitInitialize(unit.get()), 0);
    EXPECT_EQ(AudioOutputUnitStart(unit.get()), 0);

    for (const std::string standard : {"speakers", "headset"}) {
        pipeWire.SetDefaultSink(standard);
        support::SpeakerProbe playing(standard), other(standard == "headset" ? "speakers" : "headset");
        EXPECT_TRUE(playing.BecomesAudible());
        EXPECT_EQ(support::CheckCounter(playing.Next(48000)).mBreaks, 0u);
        EXPECT_TRUE(other.BecomesSilent());
    }
    EXPECT_THAT(platform::machine::Machine::Current().GetAudioServer().Snapshot().mStreams, SizeIs(0))
        << "nobody may take it for an application";
    support::SpeakerProbe headset("headset");
    pipeWire.SetRate(44100);
    static_cast<void>(headset.Next(48000));
    EXPECT_TRUE(headset.BecomesAudible());
    EXPECT_EQ(AudioOutputUnitStop(unit.get()), 0);
    EXPECT_TRUE(headset.BecomesSilent());
}

}  // namespace desktop
