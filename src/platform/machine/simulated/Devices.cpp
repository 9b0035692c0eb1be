#include "platform/machine/simulated/Devices.h"

#include "platform/machine/simulated/World.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace platform::machine::simulated {

// ---- ScriptedDevice

ScriptedDevice::ScriptedDevice(World& world, std::string uid, std::function<void(Driver&)> onCycle)
    : mWorld(world), mDriver(world.GetAgenda(), std::move(onCycle))
{
    mDevice.mName = uid;
    mDevice.mUID = std::move(uid);
    mDevice.mNominalRateHz = mDriver.mSettings.mRateHz;
    mDevice.mChannels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
}

void ScriptedDevice::Changed()
{
    mDevice.mNominalRateHz = mDriver.mSettings.mRateHz;
    mWorld.Changed();
}

void ScriptedDevice::Leave()
{
    mWorld.Unplug(*this);
}

void ScriptedDevice::Restart()
{
    if (mDriver.IsRunning()) mDriver.Start(mDevice.mID, mLateNanos);
}

// ---- Output, Input

Output::Output(World& world, std::string uid)
    : DeviceVerbs(world, std::move(uid), [&world](Driver& driver) { world.mOnCycle(driver); })
{
}

Output& Output::heardBy(Listener listener)
{
    mListener = std::move(listener);
    return *this;
}

std::vector<std::vector<float>>& Output::Heard()
{
    if (mHeard.empty())
        mHeard.assign(mDevice.mChannels.size(), std::vector<float>(mDriver.Now().mSettings.mQuantumFrames));
    return mHeard;
}

void Output::Hear(std::span<const ChannelPosition> channels, std::span<const std::vector<float>> samples)
{
    if (!mListener) return;
    for (size_t i = 0; i < channels.size(); ++i) {
        const auto place = std::ranges::find(mDevice.mChannels, channels[i]);
        if (place == mDevice.mChannels.end()) continue;
        std::vector<float>& heard = Heard()[static_cast<size_t>(place - mDevice.mChannels.begin())];
        std::ranges::transform(heard, samples[i], heard.begin(), std::plus());
    }
}

void Output::EndCycle()
{
    if (!mListener) return;
    const Driver::Cycle& now = mDriver.Now();
    mListener({*this, now.mHostNanos, static_cast<uint64_t>(now.mSampleTime), Heard()});
    mHeard.clear();
}

Input::Input(World& world, std::string uid)
    : DeviceVerbs(world, std::move(uid), [this](Driver& driver) { OnCycle(driver.Now()); })
{
}

Input& Input::channels(unsigned count)
{
    std::vector<ChannelPosition> positions;
    for (unsigned i = 0; i < count; ++i)
        positions.push_back(static_cast<ChannelPosition>(static_cast<unsigned>(ChannelPosition::Auxiliary0) + i));
    if (count == 1) positions = {ChannelPosition::Mono};
    if (count == 2) positions = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
    return channels(std::move(positions));
}

Input& Input::plays(Signal signal)
{
    mSignal = std::move(signal);
    return *this;
}

void Input::OnCycle(const Driver::Cycle& now)
{
    Fill(mSamples, mSignal, now.FramesFrom(mFrame), mDevice.mChannels.size(), now.mSettings.mQuantumFrames);
    mFrame += now.mSettings.mQuantumFrames;
    if (!mDelivering) return;
    if (std::exchange(mDelay, false)) return std::swap(mDelayed, mSamples);
    if (!mDelayed.empty()) Deliver(now, std::exchange(mDelayed, {}));
    Deliver(now, mSamples);
    if (std::exchange(mRepeat, false)) Deliver(now, mSamples);
}

void Input::Deliver(const Driver::Cycle& now, const Samples& samples)
{
    std::vector<CaptureCycle::Channel> channels;
    for (size_t i = 0; i < samples.size(); ++i) channels.push_back({mDevice.mChannels[i], samples[i].data()});
    CaptureCycle cycle = now.WithChannels(channels);
    if (!mStamped) cycle.mHostNanos = 0;
    mWorld.mOnDelivery(*this, cycle);
}

}  // namespace platform::machine::simulated
