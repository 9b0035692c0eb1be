#include "platform/audio/DeviceClock.h"

#include "platform/audio/DeviceTimeline.h"

namespace platform::audio {

std::optional<ClockReading> ReadDeviceClock(AudioDeviceID device) noexcept
{
    const DeviceTimeline* timeline = DeviceTimeline::Find(device);
    return timeline ? timeline->Read() : std::nullopt;
}

}  // namespace platform::audio
