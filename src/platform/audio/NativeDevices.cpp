#include "platform/audio/NativeDevices.h"

#include "platform/audio/CurrentServer.h"
#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <utility>

namespace platform::audio {

namespace {

constexpr AudioDeviceID kFirstDevice = 32;  // below lies what the audio system itself may need

pthread_mutex_t sSeenMutex = PTHREAD_MUTEX_INITIALIZER;  // guards sSeen
std::vector<NativeDevice> sSeen;                         // every device there ever was, by number from kFirstDevice on

/// Gives the device its number.
NativeDevice& Remember(bool isInput, machine::Device device)
{
    const auto known = std::ranges::find_if(
        sSeen, [&](const NativeDevice& seen) { return seen.mIsInput == isInput && seen.mDevice.mUID == device.mUID; });
    if (known == sSeen.end()) {
        const auto number = kFirstDevice + AudioDeviceID(sSeen.size());
        return sSeen.emplace_back(NativeDevice{number, isInput, std::move(device)});
    }
    known->mDevice = std::move(device);
    return *known;
}

/// @return the default's number, or 0
AudioDeviceID AddDevices(bool isInput, std::vector<machine::Device>& devices, uint32_t standard, NativeDevices& native)
{
    AudioDeviceID number = 0;
    for (machine::Device& device : devices) {
        native.mDevices.push_back(Remember(isInput, std::move(device)));
        if (native.mDevices.back().mDevice.mID == standard) number = native.mDevices.back().mID;
    }
    return number;
}

}  // namespace

NativeDevices CopyNativeDevices()
{
    machine::ServerSnapshot snapshot = LookAtServer();
    NativeDevices native;
    const kernel::MutexGuard guard(sSeenMutex);
    native.mDefaultOutput = AddDevices(false, snapshot.mOutputs, snapshot.mDefaultOutput, native);
    native.mDefaultInput = AddDevices(true, snapshot.mInputs, snapshot.mDefaultInput, native);
    return native;
}

std::optional<NativeDevice> LastSeenDevice(AudioDeviceID number)
{
    const kernel::MutexGuard guard(sSeenMutex);
    const size_t index = number - kFirstDevice;
    return number < kFirstDevice || index >= sSeen.size() ? std::nullopt : std::optional(sSeen[index]);
}

}  // namespace platform::audio
