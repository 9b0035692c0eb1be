#include "platform/machine/linux/pipewire/Capture.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

Capture::Capture(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client)
    : OpenNode(surroundings, std::move(uid), std::move(name), kCaptureFilter, mCycles), mCycles(client)
{
    const Loop::Guard guard(mAround.mLoop);
    Open();
}

Capture::~Capture()
{
    const Loop::Guard guard(mAround.mLoop);
    mSilencer.reset();
    Close();
}

void Capture::SetStreams(std::span<const uint32_t> streams)
{
    const Loop::Guard guard(mAround.mLoop);
    mStreams.assign(streams.begin(), streams.end());
    if (mAround.mNodes.IsConnected()) Update();
}

void Capture::SetSilenced(bool silenced)
{
    const Loop::Guard guard(mAround.mLoop);
    mWantsSilence = silenced;
    if (mAround.mNodes.IsConnected()) Update();
}

void Capture::Update()
{
    Feed(LikelyChannels(), WantedPorts());
    if (!mWantsSilence) return mSilencer.reset();
    if (!mSilencer) mSilencer.emplace(mAround.mRegistry, mUID);
    mSilencer->Update(mStreams);
}

// The session manager gives a stream the channels of the device it plays on, so that these are the ports that
// will be needed.
std::vector<ChannelPosition> Capture::LikelyChannels() const
{
    const Node* device = mAround.mRegistry.FindSink(mUID);
    std::vector<ChannelPosition> channels;
    if (device != nullptr) channels = ChannelsOf(mAround.mRegistry, *device, false);
    std::erase(channels, ChannelPosition::Unknown);
    if (channels.empty()) channels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
    return channels;
}

std::vector<LinkedPort> Capture::WantedPorts() const
{
    std::vector<LinkedPort> ports;
    for (const uint32_t id : mStreams) {
        const Node* stream = mAround.mRegistry.FindStream(id);
        if (stream == nullptr) continue;
        for (const auto& [port, described] : mAround.mRegistry.PortsOf(stream->mID, true)) {
            const ChannelPosition position = PositionOf(described->mChannel);
            ports.push_back({port, position == ChannelPosition::Unknown ? ChannelPosition::Mono : position});
        }
    }
    return ports;
}

void Capture::Detach()
{
    if (mSilencer) mSilencer->Forget();
    mSilencer.reset();
    OpenNode::Detach();
}

}  // namespace platform::machine::pipewire
