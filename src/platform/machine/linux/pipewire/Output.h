// Output: one open output device, or whichever is the default. It is in that device's own clock domain, since its node
// is linked to nothing else.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/OpenNode.h"
#include "platform/machine/linux/pipewire/PlaybackCycles.h"

#include <string>

namespace platform::machine::pipewire {

class Output final : public OutputNode, private OpenNode {
public:
    /// @param uid  empty: the default output, also when another becomes that
    Output(const Surroundings& surroundings, std::string uid, std::string name, PlaybackClient& client);
    ~Output() override;

private:
    void Update() override;

    PlaybackCycles mCycles;
};

}  // namespace platform::machine::pipewire
