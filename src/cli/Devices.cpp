#include "cli/Devices.h"

#include "platform/audio/AudioHardware.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"

#include <algorithm>
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

unsigned CountChannels(AudioDeviceID device, bool isInput)
{
    UInt32 size = 0;
    Boolean writable = false;
    if (AudioDeviceGetPropertyInfo(device, 0, isInput, kAudioDevicePropertyStreamConfiguration, &size, &writable) != 0)
        return 0;
    std::vector<std::byte> room(size);
    auto* list = reinterpret_cast<AudioBufferList*>(room.data());
    if (AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyStreamConfiguration, &size, list) != 0) return 0;
    unsigned channels = 0;
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i) channels += list->mBuffers[i].mNumberChannels;
    return channels;
}

}  // namespace

std::vector<Device> CopyDevices(Side side)
{
    UInt32 size = 0;
    Boolean writable = false;
    if (AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, &writable) != 0) return {};
    std::vector<AudioDeviceID> numbers(size / sizeof(AudioDeviceID));
    if (AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, numbers.data()) != 0) return {};
    numbers.resize(size / sizeof(AudioDeviceID));

    const bool isInput = side == Side::Input;
    AudioDeviceID standard = 0;
    size = sizeof(standard);
    AudioHardwareGetProperty(
        isInput ? kAudioHardwarePropertyDefaultInputDevice : kAudioHardwarePropertyDefaultOutputDevice, &size,
        &standard);  // none: stays 0

    std::vector<Device> devices;
    for (const AudioDeviceID number : numbers)
        if (const unsigned channels = CountChannels(number, isInput))
            devices.push_back({ReadText(number, kAudioDevicePropertyDeviceUID),
                               ReadText(number, kAudioDevicePropertyDeviceNameCFString),
                               ReadDevice<Float64>(number, kAudioDevicePropertyNominalSampleRate), channels,
                               number == standard});
    return devices;
}

std::optional<std::string> WhyNoServer()
{
    platform::machine::AudioServer& server = platform::machine::Machine::Current().GetAudioServer();
    if (server.WaitUntilReady(mach_absolute_time() + kServerPatienceNanos)) return std::nullopt;
    return server.Describe();
}

const Device* FindDevice(const std::vector<Device>& devices, const std::string& name)
{
    const Device* byName = nullptr;
    for (const Device& device : devices) {
        if (device.mUID == name) return &device;
        if (device.mName != name) continue;
        if (byName) return nullptr;
        byName = &device;
    }
    return byName;
}

const Device* FindInput(const std::vector<Device>& inputs, const std::string& name)
{
    const Device* input = FindDevice(inputs, name);
    if (input || name != "default") return input;
    const auto standard = std::ranges::find_if(inputs, &Device::mIsDefault);
    return standard == inputs.end() ? nullptr : &*standard;
}

}  // namespace cli
