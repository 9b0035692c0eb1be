#include "cli/Devices.h"

#include "cli/NameMatching.h"
#include "platform/audio/NativeDevices.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/System.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"
#include "platform/process/PlainText.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {

namespace {

constexpr uint64_t kServerPatienceNanos = 2'000'000'000;
constexpr uint64_t kAtOnceNanos = 300'000'000;

std::vector<const Device*> BestDevices(const std::vector<Device>& devices, const std::string& name)
{
    return BestMatches(name, devices, [](const Device& device) { return std::vector{device.mUID, device.mName}; });
}

std::string ListUIDs(const std::string& wanted, const std::vector<Device>& devices)
{
    std::vector<std::string> uids;
    for (const Device& device : devices) uids.push_back(device.mUID);
    return ListClosest(wanted, std::move(uids));
}

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

DeviceMatch MatchDevice(const std::vector<Device>& devices, Side side, const std::string& name)
{
    const char* kind = side == Side::Input ? "input" : "output";
    const auto standard = std::ranges::find_if(devices, &Device::mIsDefault);
    const auto found = BestDevices(devices, name);
    const bool wantsDefault = name == "default" && found.size() != 1;
    if (wantsDefault && standard != devices.end()) return {&*standard, {}};
    if (found.size() == 1) return {found.front(), {}};
    if (devices.empty()) return {nullptr, fmt::format("The audio server has no {0} device. Connect one.", kind)};
    const std::string see = fmt::format("See: corvane list {}s.", kind);
    if (wantsDefault) return {nullptr, fmt::format("No {} is the default one now. Name one. {}", kind, see)};
    if (found.empty())
        return {nullptr,
                fmt::format("No {0} matches '{1}'. There are: {2}. {3}", kind, name, ListUIDs(name, devices), see)};
    std::string text = fmt::format("'{}' matches {} {}s. Choose one of them:", name, found.size(), kind);
    for (const Device* one : found) text += fmt::format("\n  {}  {}", one->mUID, one->mName);
    return {nullptr, text};
}

const Device* FindDevice(const std::vector<Device>& devices, const std::string& name)
{
    const auto found = BestDevices(devices, name);
    return found.size() == 1 ? found.front() : nullptr;
}

}  // namespace cli
