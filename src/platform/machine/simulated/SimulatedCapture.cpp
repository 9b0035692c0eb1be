#include "platform/machine/simulated/SimulatedCapture.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/SimulatedServer.h"
#include "platform/machine/simulated/Unseen.h"
#include "platform/machine/simulated/World.h"

#include <algorithm>

namespace platform::machine::simulated {

SimulatedCapture::SimulatedCapture(SimulatedServer& server, Gate& gate, std::string uid, CaptureClient& client)
    : mServer(server),
      mGate(gate),
      mUID(std::move(uid)),
      mClient(client),
      mHole(server.GetWorld().GetAgenda(), [&server](Driver& driver) { server.OnCycle(driver); })
{
    mControlled.store(1, std::memory_order_release);
    const Unseen unseen;
    mServer.Add(this);
}

SimulatedCapture::~SimulatedCapture()
{
    static_cast<void>(mRendered.load(std::memory_order_acquire));
    const Unseen unseen;
    mServer.Remove(this);
    mHole.Stop();
}

void SimulatedCapture::SetStreams(std::span<const uint32_t> streams)
{
    mControlled.store(1, std::memory_order_release);
    const Unseen unseen;
    mStreams.assign(streams.begin(), streams.end());
    mServer.Settle();
}

void SimulatedCapture::SetSilenced(bool silenced)
{
    mControlled.store(1, std::memory_order_release);
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
    Mix(driver, streams);
    const Driver::Cycle& now = driver.Now();
    const CaptureCycle cycle{now.mHostNanos,
                             now.mSampleTime,
                             now.mSettings.mSaidRateScalar,
                             now.mSettings.mRateHz,
                             now.mSettings.mQuantumFrames,
                             now.mClockID,
                             mChannels};
    const Seen seen;
    static_cast<void>(mControlled.load(std::memory_order_acquire));
    mGate.ForbidBlocking(true);
    mClient.Render(cycle);
    mGate.ForbidBlocking(false);
    mRendered.store(1, std::memory_order_release);
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
