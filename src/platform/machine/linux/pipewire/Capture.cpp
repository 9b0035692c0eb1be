#include "platform/machine/linux/pipewire/Capture.h"

#include "platform/machine/linux/pipewire/Snapshot.h"

#include <utility>

namespace platform::machine::pipewire {

namespace {

// Ports made before anyone asks, so that a common stream is linked without waiting for one: its first frame counts.
constexpr ChannelPosition kPreparedPositions[] = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight,
                                                  ChannelPosition::Mono};

}  // namespace

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
    if (mFilter && mFilter->Works()) return;
    mLinks.reset();
    mFilter.emplace(mAround.mContext, mName, mClient, [this] { mAround.mChanged.Signal(); });
    for (const ChannelPosition position : kPreparedPositions) mFilter->EnsurePort(position);
    mLinks.emplace(mAround.mRegistry, *mFilter);
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
