// Input: one open input device. It is in the device's own clock domain, since nothing else is linked to its node.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/CaptureCycles.h"
#include "platform/machine/linux/pipewire/OpenNode.h"

#include <string>

namespace platform::machine::pipewire {

class Input final : public InputNode, private OpenNode {
public:
    Input(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client);
    ~Input() override;

private:
    void Update() override;

    CaptureCycles mCycles;
};

}  // namespace platform::machine::pipewire
