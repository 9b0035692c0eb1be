#include "tap/Tap.h"

#include "platform/kernel/HostTime.h"
#include "tap/TapLatency.h"

namespace tap {

namespace {

StereoMix MixFor(const TappedDevice& device, unsigned channels)
{
    if (!device.mPreferredPair) return StereoMix(channels);
    return StereoMix(channels, device.mPreferredPair->mLeft, device.mPreferredPair->mRight);
}

std::vector<std::unique_ptr<Lane>> MakeLanes(const Configuration& configuration, const Schedule& schedule,
                                             uint64_t latencyNanos)
{
    std::vector<std::unique_ptr<Lane>> lanes;
    for (const TappedDevice& device : configuration.mDevices)
        lanes.push_back(std::make_unique<Lane>(schedule, latencyNanos, MixFor(device, configuration.mChannels),
                                               configuration.mChannels));
    return lanes;
}

}  // namespace

Tap::Tap(platform::machine::AudioServer& server, const Configuration& configuration, void* audio, void* status,
         bool playThrough)
    : mSchedule(configuration.mRate, mach_absolute_time()),
      mRing(audio, status, configuration.mRate, configuration.mChannels),
      mLanes(MakeLanes(configuration, mSchedule, TapLatencyNanos(server.LongestCycleNanos(), configuration.mRate))),
      mPacer(mSchedule, mRing, mLanes, configuration.mChannels),
      mControl(server, configuration, mLanes, !playThrough)
{
}

}  // namespace tap
