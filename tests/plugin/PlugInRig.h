// PlugInRig: a host on the simulated machine, with the plug-in as it is installed, and preferences that a test writes.
// Why: the plug-in is met as any host meets it, through the audio system. One a process: for the body of a forked test.
#pragma once

#include "platform/audio/AudioObject.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/FolderTree.h"

#include <string>
#include <vector>

namespace support {

/// A device of the plug-in as a host sees it.
struct SeenDevice {
    AudioDeviceID mNumber = 0;
    std::string mUID, mName;
    double mRateHz = 0;
    UInt32 mWidth = 0;  // channels of the first format that its input stream offers
    size_t mOutputs = 0;

    bool operator==(const SeenDevice&) const = default;
};

/// An entry of the list with all its keys, as a companion writes it.
struct Entry {
    std::string mName;
    int mUID = 0;
    int mChannels = 2;
    double mRateHz = 48000;
    int mMuted = 0;

    std::string Text() const;
};

class PlugInRig {
public:
    PlugInRig();
    ~PlugInRig();

    /// Replaces the file.
    void Write(bool on, const std::vector<Entry>& entries, const std::string& more = {});
    void WriteText(const std::string& keys);

    /// Says that the file changed, as another process would, and lets the host do all that follows.
    void Tell();

    static std::vector<AudioDeviceID> Numbers();
    static std::vector<SeenDevice> Devices();
    static std::vector<std::string> Names();
    static UInt32 SystemWord(AudioObjectPropertySelector selector);

    platform::machine::simulated::Scenario mScenario;
    FolderTree mFolder;
};

/// An entry of "OutputApplications" for the host.
std::string RouteOfHost(const std::string& uid);

}  // namespace support
