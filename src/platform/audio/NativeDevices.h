// NativeDevices: the machine's devices under the audio system's numbers.
// Why: the server's numbers are used again and again; ours stand for a device for the process's life.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/machine/AudioServer.h"

#include <optional>
#include <vector>

namespace platform::audio {

struct NativeDevice {
    AudioDeviceID mID = 0;  // never 0 or 1; the same whenever a device of this UID and direction is there
    bool mIsInput = false;
    machine::Device mDevice;
};

struct NativeDevices {
    std::vector<NativeDevice> mDevices;  // in the server's order, outputs first
    AudioDeviceID mDefaultOutput = 0;    // 0: none
    AudioDeviceID mDefaultInput = 0;     // 0: none
};

/// The devices that are there now.
///
/// @thread any that may block
NativeDevices CopyNativeDevices();

/// The device of that number as it was when it was last seen here, whether it is there now or not.
///
/// @thread any that may block
std::optional<NativeDevice> LastSeenDevice(AudioDeviceID number);

}  // namespace platform::audio
