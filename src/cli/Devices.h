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

/// Whether the audio server answers within a moment that a person who presses a key does not notice.
bool ServerAnswersAtOnce();

/// Whether programs of this user have virtual devices; if not, one sentence that says why.
std::optional<std::string> WhyNoVirtualDevices();

/// The device that `name` stands for, by UID or else by the name as listed. @return null where nothing, or more than
/// one, matches
const Device* FindDevice(const std::vector<Device>& devices, const std::string& name);

/// The same among inputs, where "default" is the default one.
const Device* FindInput(const std::vector<Device>& inputs, const std::string& name);

}  // namespace cli
