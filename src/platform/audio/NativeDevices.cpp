#include "platform/audio/NativeDevices.h"

#include "platform/audio/CurrentServer.h"

#include <map>
#include <mutex>
#include <string>

namespace platform::audio
{

namespace
{

constexpr AudioDeviceID kFirstDevice = 32;  // below lies what the audio system itself may need

AudioDeviceID NumberOf(const std::string& uid)
{
    static std::mutex sMutex;  // never held across a call that waits
    static std::map<std::string, AudioDeviceID> sNumbers;
    const std::lock_guard lock(sMutex);
    return sNumbers.try_emplace(uid, kFirstDevice + AudioDeviceID(sNumbers.size())).first->second;
}

}  // namespace

NativeDevices CopyNativeDevices()
{
    machine::ServerSnapshot snapshot = LookAtServer();
    NativeDevices native;
    for (machine::OutputDevice& device : snapshot.mOutputs) {
        const AudioDeviceID number = NumberOf(device.mUID);
        if (device.mID == snapshot.mDefaultOutput) native.mDefaultOutput = number;
        native.mDevices.push_back({number, std::move(device)});
    }
    return native;
}

}  // namespace platform::audio
