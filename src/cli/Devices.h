// Devices: outputs and inputs as the command shows and chooses them, and whether there is a server at all.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Device {
    std::string mUID;
    std::string mName;
    double mRateHz = 0;
    unsigned mChannels = 0;
    bool mIsDefault = false;
};

enum class Side { Output, Input };

/// The machine's own; virtual devices are not among them.
std::vector<Device> CopyDevices(Side side);

/// Whether the audio server can be reached; if not, one sentence that says what was tried and what to start.
std::optional<std::string> WhyNoServer();

/// Whether the audio server answers within a time that is too short to be noticed at a key press.
bool ServerAnswersAtOnce();

/// Whether programs of this user have virtual devices; if not, one sentence that says why.
std::optional<std::string> WhyNoVirtualDevices();

struct DeviceMatch {
    const Device* mDevice = nullptr;
    std::string mError;  // for a person, where there is no device
};

/// Finds a device of that side by UID or name as listed, upper and lower case alike: by the whole of it first, then by
/// its beginning, then by a part. "default" is the default device. Several that match equally well are an error.
DeviceMatch MatchDevice(const std::vector<Device>& devices, Side side, const std::string& name);

/// The same without what is wrong, and "default" is a name like any other; null for no device.
const Device* FindDevice(const std::vector<Device>& devices, const std::string& name);

}  // namespace cli
