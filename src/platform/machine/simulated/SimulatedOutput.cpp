#include "platform/machine/simulated/SimulatedOutput.h"

#include "platform/machine/simulated/Devices.h"
#include "platform/machine/simulated/SimulatedServer.h"

namespace platform::machine::simulated {

SimulatedOutput::SimulatedOutput(SimulatedServer& server, Gate& gate, std::string uid, PlaybackClient& client)
    : mServer(server), mUID(std::move(uid)), mClient(gate, client)
{
    const Unseen unseen;
    mServer.Add(this);
}

SimulatedOutput::~SimulatedOutput()
{
    mClient.Ended();
    const Unseen unseen;
    mServer.Remove(this);
}

void SimulatedOutput::Announce()
{
    if (mSeen == mAnnounced) return;
    mAnnounced = mSeen;
    mClient.Announce(mSeen.mRateHz, mSeen.mChannels);
}

void SimulatedOutput::Play(Output& device)
{
    const Driver::Cycle& now = device.mDriver.Now();
    mSeen = {now.mSettings.mRateHz, device.mDevice.mChannels};
    if (mSeen != mAnnounced) return mServer.WantAnnouncement();
    mSamples.assign(mSeen.mChannels.size(), std::vector<float>(now.mSettings.mQuantumFrames));
    mChannels.clear();
    for (std::vector<float>& channel : mSamples) mChannels.push_back(channel.data());
    mClient.Render(PlaybackCycle{now.mHostNanos, now.mSampleTime, now.mSettings.mQuantumFrames, mChannels});
    device.Hear(mSeen.mChannels, mSamples);
}

}  // namespace platform::machine::simulated
