// PlugIn: a loaded plug-in, held by whoever is calling it.
// Why: a client may be in the midst of a call while the system lets the plug-in go; it goes when the last of them is
// done.
#pragma once

#include "platform/audio/AudioHardwarePlugIn.h"

#include <memory>
#include <vector>

namespace platform::audio {

class PlugIn {
public:
    /// Takes over the caller's reference.
    explicit PlugIn(AudioHardwarePlugInRef reference) : mReference(reference) {}
    ~PlugIn() { Calls().Release(mReference); }
    PlugIn(const PlugIn&) = delete;
    PlugIn& operator=(const PlugIn&) = delete;

    AudioHardwarePlugInRef Reference() const { return mReference; }
    const AudioHardwarePlugInInterface& Calls() const { return **mReference; }

private:
    const AudioHardwarePlugInRef mReference;
};

/// One of each plug-in factory of this installation's bundles, in the order of the bundles' names; without those
/// whose factory has nothing for this process.
///
/// @thread any that may block; runs code of the plug-ins
std::vector<std::shared_ptr<PlugIn>> MakePlugIns();

}  // namespace platform::audio
