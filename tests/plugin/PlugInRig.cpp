#include "plugin/PlugInRig.h"

#include "platform/foundation/CFDictionary.h"
#include "plugin/settings/SharedPreferences.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <fstream>

namespace support {

using namespace std::chrono_literals;

namespace {

template <class Value>
Value Read(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    Value value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, true, selector, &size, &value), 0);
    return value;
}

std::string ReadText(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    return cf::ToStdString(cf::Ref<cf::String>::Adopt(Read<CFStringRef>(device, selector)).Get());
}

std::vector<AudioStreamID> Streams(AudioDeviceID device, bool isInput)
{
    UInt32 size = 0;
    EXPECT_EQ(AudioDeviceGetPropertyInfo(device, 0, isInput, kAudioDevicePropertyStreams, &size, nullptr), 0);
    std::vector<AudioStreamID> streams(size / sizeof(AudioStreamID));
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyStreams, &size, streams.data()), 0);
    return streams;
}

UInt32 Width(AudioDeviceID device)
{
    const auto streams = Streams(device, true);
    AudioStreamRangedDescription offers[8] = {};
    UInt32 size = sizeof offers;
    if (streams.size() != 1) return 0;
    EXPECT_EQ(AudioStreamGetProperty(streams[0], 0, FourCC("pfta"), &size, offers), 0);
    return offers[0].mFormat.mChannelsPerFrame;
}

}  // namespace

std::string Entry::Text() const
{
    return fmt::format(
        "<dict><key>captureDevices</key><array><string>com.ostrel.corvane.default_output</string></array>"
        "<key>captureSources</key><array/><key>name</key><string>{}</string><key>enabled</key><integer>1</integer>"
        "<key>sampleRate</key><real>{}</real><key>uid</key><integer>{}</integer><key>downMix</key><integer>{}</integer>"
        "<key>softwareSourcesMuted</key><integer>{}</integer><key>outputChannelCount</key><integer>{}</integer>"
        "<key>cachedChannelCount</key><integer>{}</integer></dict>",
        mName, mRateHz, mUID, int(mChannels == 2), mMuted, mChannels, mChannels);
}

std::string RouteOfHost(const std::string& uid)
{
    return "<key>OutputApplications</key><array><dict><key>NSApplicationBundleIdentifier</key><string>org.test.host"
           "</string><key>outputDeviceUID</key><string>" +
           uid + "</string></dict></array>";
}

PlugInRig::PlugInRig()
{
    auto& machine = mScenario.machine();
    machine.GetFiles().mBundleFolder = BUNDLE_FOLDER;
    machine.GetFiles().mPreferencesFolder = mFolder.Root();
    machine.GetIdentity().mMainBundle = {"org.test.host", "/opt/host"};
}

PlugInRig::~PlugInRig()
{
    AudioHardwareUnload();
}

void PlugInRig::Write(bool on, const std::vector<Entry>& entries, const std::string& more)
{
    std::string list;
    for (const Entry& entry : entries) list += entry.Text();
    WriteText(
        fmt::format("<key>Enabled</key><integer>{}</integer><key>DeviceSettings</key><dict><key>Devices</key>"
                    "<array>{}</array>{}</dict>",
                    int(on), list, more));
}

void PlugInRig::WriteText(const std::string& keys)
{
    const std::string path = mFolder.Write(settings::kFileName, "<plist><dict>" + keys + "</dict></plist>");
    chmod(path.c_str(), 0600);
}

void PlugInRig::Tell()
{
    mScenario.at(mScenario.now()).post(settings::kChangedNotification, settings::kChangedNotification);
    mScenario.runFor(5ms);
}

std::vector<AudioDeviceID> PlugInRig::Numbers()
{
    UInt32 size = 0;
    EXPECT_EQ(AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr), 0);
    std::vector<AudioDeviceID> numbers(size / sizeof(AudioDeviceID));
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, numbers.data()), 0);
    return numbers;
}

std::vector<SeenDevice> PlugInRig::Devices()
{
    std::vector<SeenDevice> devices;
    for (const AudioDeviceID number : Numbers()) {
        const std::string uid = ReadText(number, kAudioDevicePropertyDeviceUID);
        if (!uid.starts_with("com.ostrel.audio.corvane.halplugin")) continue;
        devices.push_back({number, uid, ReadText(number, kAudioDevicePropertyDeviceNameCFString),
                           Read<Float64>(number, kAudioDevicePropertyNominalSampleRate), Width(number),
                           Streams(number, false).size()});
    }
    return devices;
}

std::vector<std::string> PlugInRig::Names()
{
    std::vector<std::string> names;
    for (const SeenDevice& device : Devices()) names.push_back(device.mName);
    return names;
}

UInt32 PlugInRig::SystemWord(AudioObjectPropertySelector selector)
{
    UInt32 value = 0, size = sizeof value;
    EXPECT_EQ(AudioHardwareGetProperty(selector, &size, &value), 0);
    return value;
}

}  // namespace support
