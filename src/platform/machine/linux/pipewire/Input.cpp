#include "platform/machine/linux/pipewire/Input.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

Input::Input(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client)
    : OpenNode(surroundings, std::move(uid), std::move(name), kCaptureFilter, mCycles), mCycles(client)
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
    const std::vector<LinkedPort> ports = DevicePortsOf(mAround.mRegistry, *device, true);
    Feed(PositionsOf(ports), ports);
}

}  // namespace platform::machine::pipewire
