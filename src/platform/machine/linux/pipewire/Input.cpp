#include "platform/machine/linux/pipewire/Input.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

Input::Input(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client)
    : OpenNode(surroundings, std::move(uid), std::move(name), client)
{
    const Loop::Guard guard(mAround.mLoop);
    Open();
}

Input::~Input()
{
    const Loop::Guard guard(mAround.mLoop);
    Close();
}

// While the device is away there is nothing to link, and no node that would have to wait for it.
void Input::Update()
{
    const Node* device = mAround.mRegistry.FindSource(mUID);
    if (device == nullptr) return Detach();
    const std::vector<LinkedPort> ports = SourcePortsOf(mAround.mRegistry, *device);
    std::vector<ChannelPosition> positions;
    for (const LinkedPort& port : ports) positions.push_back(port.mPosition);
    Feed(positions, ports);
}

}  // namespace platform::machine::pipewire
