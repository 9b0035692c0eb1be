#include "platform/audio/NativeDevices.h"

#include "platform/audio/CurrentServer.h"
#include "platform/kernel/MutexGuard.h"

#include <map>
#include <string>

namespace platform::audio {

namespace {

constexpr AudioDeviceID kFirstDevice = 32;  // below lies what the audio system itself may need

AudioDeviceID NumberOf(const std::string& uid)
{
    static pthread_mutex_t sMutex = PTHREAD_MUTEX_INITIALIZER;  // guards the numbers
    static std::map<std::string, AudioDeviceID> sNumbers;
    const kernel::MutexGuard guard(sMutex);
    const AudioDeviceID next = kFirstDevice + AudioDeviceID(sNumbers.size());
    return sNumbers.try_emplace(uid, next).first->second;
}

}  // namespace

NativeDevices CopyNativeDevices()
{
    machine::ServerSnapshot snapshot = LookAtServer();
    NativeDevices native;
    for (machine::Device& device : snapshot.mOutputs) {
        const AudioDeviceID number = NumberOf(device.mUID);
        if (device.mID == snapshot.mDefaultOutput) native.mDefaultOutput = number;
        native.mDevices.push_back({number, std::move(device)});
    }
    return native;
}

}  // namespace platform::audio
