#include "platform/audio/AudioHardware.h"
#include "platform/foundation/CFObjects.h"
#include "platform/process/Applications.h"
#include "support/PrivatePipeWire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

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

}  // namespace desktop
