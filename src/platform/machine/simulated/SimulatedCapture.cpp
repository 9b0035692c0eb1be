#include "platform/machine/simulated/SimulatedCapture.h"

#include "platform/machine/simulated/SimulatedServer.h"
#include "platform/machine/simulated/World.h"

#include <algorithm>
#include <utility>

namespace platform::machine::simulated {

SimulatedCapture::SimulatedCapture(SimulatedServer& server, Gate& gate, std::string uid, CaptureClient& client)
    : mServer(server),
      mUID(std::move(uid)),
      mClient(gate, client),
      mHole(server.GetWorld().GetAgenda(), [&server](Driver& driver) { server.OnCycle(driver); })
{
    const Unseen unseen;
    mServer.Add(this);
}

SimulatedCapture::~SimulatedCapture()
{
    mClient.Ended();
    const Unseen unseen;
    mServer.Remove(this);
    mHole.Stop();
}

void SimulatedCapture::SetStreams(std::span<const uint32_t> streams)
{
    mClient.Controlled();
    const Unseen unseen;
    mStreams.assign(streams.begin(), streams.end());
    mServer.Settle();
}

void SimulatedCapture::SetSilenced(bool silenced)
{
    mClient.Controlled();
    const Unseen unseen;
    mSilenced = silenced;
    mServer.Settle();
}

bool SimulatedCapture::Captures(const Stream& stream) const
{
    return stream.Number() && std::ranges::find(mStreams, stream.Number()) != mStreams.end();
}

void SimulatedCapture::Render(const Driver& driver, std::span<const std::unique_ptr<Stream>> streams)
{
    const bool plays = std::ranges::any_of(streams, [&](const auto& each) {
        return Captures(*each) && each->mDriver == &driver && each->mStream.mPlaying;
    });
    if (!plays) {
        mRests = true;
        return;
    }
    Mix(driver, streams);
    CaptureCycle cycle = driver.Now().WithChannels(mChannels);
    cycle.mResumed = std::exchange(mRests, false);
    mClient.Render(cycle);
}

void SimulatedCapture::Mix(const Driver& driver, std::span<const std::unique_ptr<Stream>> streams)
{
    mMixed.clear();
    for (const auto& stream : streams) {
        if (!Captures(*stream) || stream->mDriver != &driver || !stream->mStream.mPlaying) continue;
        for (size_t channel = 0; channel < stream->mSamples.size(); ++channel)
            Add(stream->mStream.mChannels[channel], stream->mSamples[channel]);
    }
    mChannels.clear();
    for (const Channel& channel : mMixed) mChannels.push_back({channel.mPosition, channel.mSamples.data()});
}

void SimulatedCapture::Add(ChannelPosition position, std::span<const float> samples)
{
    const auto found = std::ranges::find(mMixed, position, &Channel::mPosition);
    if (found == mMixed.end()) {
        mMixed.push_back({position, {samples.begin(), samples.end()}});
        return;
    }
    for (size_t i = 0; i < samples.size(); ++i) found->mSamples[i] += samples[i];
}

}  // namespace platform::machine::simulated
