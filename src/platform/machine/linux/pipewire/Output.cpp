#include "platform/machine/linux/pipewire/Output.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

Output::Output(const Surroundings& surroundings, std::string uid, std::string name, PlaybackClient& client)
    : OpenNode(surroundings, std::move(uid), std::move(name), kPlaybackFilter, mCycles),
      mCycles(surroundings.mChanged, client)
{
    const Loop::Guard guard(mAround.mLoop);
    Open();
}

Output::~Output()
{
    const Loop::Guard guard(mAround.mLoop);
    Close();
}

// An output of ours is none to play on, even where the user made it the default: what plays would hear itself.
void Output::Update()
{
    const std::string uid = mUID.empty() ? DefaultOutputName(mAround.mRegistry) : mUID;
    const Node* device = mAround.mRegistry.FindSink(uid);
    if (device == nullptr || device->IsOurs()) return Detach();
    const std::vector<LinkedPort> ports = DevicePortsOf(mAround.mRegistry, *device, false);
    const std::vector<ChannelPosition> channels = PositionsOf(ports);
    Feed(channels, ports);
    mCycles.Announce(OwnFilter(), channels);
}

}  // namespace platform::machine::pipewire
