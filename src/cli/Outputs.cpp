#include "cli/Outputs.h"

#include "platform/audio/AudioHardware.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"

#include <cstddef>

namespace cli {

namespace {

constexpr uint64_t kServerPatienceNanos = 2'000'000'000;

template <class T>
T ReadDevice(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    T value{};
    UInt32 size = sizeof(value);
    AudioDeviceGetProperty(device, 0, false, selector, &size, &value);  // a device that has just gone reads as zero
    return value;
}

std::string ReadText(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    const auto text = cf::Ref<cf::String>::Adopt(ReadDevice<CFStringRef>(device, selector));
    return cf::ToStdString(text.Get());
}

unsigned CountChannels(AudioDeviceID device)
{
    UInt32 size = 0;
    Boolean writable = false;
    if (AudioDeviceGetPropertyInfo(device, 0, false, kAudioDevicePropertyStreamConfiguration, &size, &writable) != 0)
        return 0;
    std::vector<std::byte> room(size);
    auto* list = reinterpret_cast<AudioBufferList*>(room.data());
    if (AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyStreamConfiguration, &size, list) != 0) return 0;
    unsigned channels = 0;
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i) channels += list->mBuffers[i].mNumberChannels;
    return channels;
}

}  // namespace

std::vector<Output> CopyOutputs()
{
    UInt32 size = 0;
    Boolean writable = false;
    if (AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, &writable) != 0) return {};
    std::vector<AudioDeviceID> devices(size / sizeof(AudioDeviceID));
    if (AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, devices.data()) != 0) return {};
    devices.resize(size / sizeof(AudioDeviceID));

    AudioDeviceID standard = 0;
    size = sizeof(standard);
    AudioHardwareGetProperty(kAudioHardwarePropertyDefaultOutputDevice, &size, &standard);  // none: stays 0

    std::vector<Output> outputs;
    for (const AudioDeviceID device : devices) {
        outputs.push_back({ReadText(device, kAudioDevicePropertyDeviceUID),
                           ReadText(device, kAudioDevicePropertyDeviceNameCFString),
                           ReadDevice<Float64>(device, kAudioDevicePropertyNominalSampleRate), CountChannels(device),
                           device == standard});
    }
    return outputs;
}

std::optional<std::string> WhyNoServer()
{
    platform::machine::AudioServer& server = platform::machine::Machine::Current().GetAudioServer();
    if (server.WaitUntilReady(mach_absolute_time() + kServerPatienceNanos)) return std::nullopt;
    return server.Describe();
}

const Output* FindOutput(const std::vector<Output>& outputs, const std::string& name)
{
    const Output* byName = nullptr;
    for (const Output& output : outputs) {
        if (output.mUID == name) return &output;
        if (output.mName != name) continue;
        if (byName) return nullptr;
        byName = &output;
    }
    return byName;
}

}  // namespace cli
