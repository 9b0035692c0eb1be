// NativeDevices: the machine's output devices under the audio system's numbers.
// Why: the server's numbers are used again and again; ours stand for a device for the process's life.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/machine/AudioServer.h"

#include <vector>

namespace platform::audio {

struct NativeDevice {
    AudioDeviceID mID = 0;  // never 0 or 1; the same whenever a device of this UID is there
    machine::Device mDevice;
};

struct NativeDevices {
    std::vector<NativeDevice> mDevices;  // in the server's order
    AudioDeviceID mDefaultOutput = 0;    // 0: none
};

/// The devices that are there now.
///
/// @thread any that may block
NativeDevices CopyNativeDevices();

}  // namespace platform::audio
