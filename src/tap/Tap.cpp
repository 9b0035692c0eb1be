#include "tap/Tap.h"

#include "platform/kernel/HostTime.h"
#include "tap/TapLatency.h"

#include <algorithm>

namespace tap {

namespace {

StereoMix MixFor(const TappedDevice& device, unsigned channels)
{
    if (!device.mPreferredPair) return StereoMix(channels);
    return StereoMix(channels, device.mPreferredPair->mLeft, device.mPreferredPair->mRight);
}

uint32_t OutputFrames(const Configuration& configuration)
{
    return configuration.mPublishFrames > 0 ? RingWriter::LoopFrames(configuration.mRate) / 4 : kOutputFrames;
}

unsigned BlocksAWake(const Configuration& configuration)
{
    const uint32_t mostFrames = RingWriter::LoopFrames(configuration.mRate) / 4;
    return std::max(1u, std::min(configuration.mPublishFrames, mostFrames) / kBlockFrames);
}

}  // namespace

Tap::Tap(platform::machine::AudioServer& server, const Configuration& configuration, void* audio, void* status,
         bool playThrough)
    : mChannels(configuration.mChannels),
      mLatencyNanos(TapLatencyNanos(server.LongestCycleNanos(), configuration.mRate)),
      mSchedule(Schedule::OnGrid(configuration.mRate, mach_absolute_time())),
      mRing(audio, status, configuration.mRate, configuration.mChannels, OutputFrames(configuration)),
      mPacer(mSchedule, mRing, mLanes, configuration.mChannels, BlocksAWake(configuration)),
      mControl(
          server, configuration, mLanes,
          [this](const TappedDevice& device, size_t index) { return MakeLane(device, index); }, !playThrough)
{
    mRing.PublishTimeline(mSchedule.TimeOf(0) - mLatencyNanos);
}

std::unique_ptr<Lane> Tap::MakeLane(const TappedDevice& device, size_t index)
{
    return std::make_unique<Lane>(mSchedule, mLatencyNanos, MixFor(device, mChannels), mChannels,
                                  LaneLog{&mRing, uint32_t(index)});
}

}  // namespace tap
