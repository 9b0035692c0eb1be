#include "cli/Devices.h"

#include "platform/audio/NativeDevices.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/System.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"
#include "platform/process/PlainText.h"

#include <algorithm>

namespace cli {

namespace {

constexpr uint64_t kServerPatienceNanos = 2'000'000'000;
constexpr uint64_t kAtOnceNanos = 300'000'000;

}  // namespace

std::vector<Device> CopyDevices(Side side)
{
    const platform::audio::NativeDevices native = platform::audio::CopyNativeDevices();
    const bool isInput = side == Side::Input;
    const AudioDeviceID standard = isInput ? native.mDefaultInput : native.mDefaultOutput;
    std::vector<Device> devices;
    for (const auto& [number, is, device] : native.mDevices)
        if (is == isInput)
            devices.push_back({device.mUID, platform::process::PlainText(device.mName), device.mNominalRateHz,
                               unsigned(device.mChannels.size()), number == standard});
    return devices;
}

std::optional<std::string> WhyNoServer()
{
    platform::machine::AudioServer& server = platform::machine::Machine::Current().GetAudioServer();
    if (server.WaitUntilReady(mach_absolute_time() + kServerPatienceNanos)) return std::nullopt;
    return server.Describe();
}

bool ServerAnswersAtOnce()
{
    return platform::machine::Machine::Current().GetAudioServer().WaitUntilReady(mach_absolute_time() + kAtOnceNanos);
}

std::optional<std::string> WhyNoVirtualDevices()
{
    if (platform::kernel::getuid() != 0 && platform::kernel::geteuid() != 0) return std::nullopt;
    return "root has no virtual devices: they are a user's, and programs that run as root get none";
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
