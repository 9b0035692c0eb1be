#include "platform/machine/linux/pipewire/Capture.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

Capture::Capture(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client)
    : mAround(surroundings), mUID(std::move(uid)), mName(std::move(name)), mClient(client)
{
    const Loop::Guard guard(mAround.mLoop);
    mAround.mCaptures.Add(this);
    Update();
}

Capture::~Capture()
{
    const Loop::Guard guard(mAround.mLoop);
    mAround.mCaptures.Remove(this);
    mSilencer.reset();
    mLinks.reset();
    mFilter.reset();
}

void Capture::SetStreams(std::span<const uint32_t> streams)
{
    const Loop::Guard guard(mAround.mLoop);
    mStreams.assign(streams.begin(), streams.end());
    Update();
}

void Capture::SetSilenced(bool silenced)
{
    const Loop::Guard guard(mAround.mLoop);
    mWantsSilence = silenced;
    Update();
}

void Capture::Update()
{
    if (!mAround.mCaptures.IsConnected()) return;
    RenewFilter();
    mLinks->Update(mStreams);
    if (!mWantsSilence) return mSilencer.reset();
    if (!mSilencer) mSilencer.emplace(mAround.mRegistry, mUID);
    mSilencer->Update(mStreams);
}

void Capture::RenewFilter()
{
    if (mFilter && !mFilter->IsOver()) return;
    mLinks.reset();
    mFilter.emplace(mAround.mContext, mName, LikelyChannels(), mClient, [this] { mAround.mChanged.Signal(); });
    mLinks.emplace(mAround.mRegistry, *mFilter);
}

// The session manager gives a stream the channels of the device it plays on, so that these are the ports that
// will be needed. Ports that are there already let the first frame of a stream be caught.
std::vector<ChannelPosition> Capture::LikelyChannels() const
{
    const Node* device = mAround.mRegistry.FindSink(mUID);
    std::vector<ChannelPosition> channels;
    if (device != nullptr) channels = ChannelsOf(mAround.mRegistry, *device, false);
    std::erase(channels, ChannelPosition::Unknown);
    if (channels.empty()) channels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
    return channels;
}

void Capture::Detach()
{
    if (mSilencer) mSilencer->Forget();
    mSilencer.reset();
    mLinks.reset();
    mFilter.reset();
}

void Captures::SetConnected(bool connected)
{
    mConnected = connected;
    for (Capture* capture : mCaptures) connected ? capture->Update() : capture->Detach();
}

void Captures::Update()
{
    for (Capture* capture : mCaptures) capture->Update();
}

}  // namespace platform::machine::pipewire
