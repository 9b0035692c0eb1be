// DeviceClock: what is known of a device's clock, written by the server's data thread, read by any.
// Why: host times are translated on threads that must not wait for the data thread, nor it for them.
#pragma once

#include "platform/audio/AudioHardware.h"

#include <cstdint>
#include <optional>

namespace platform::audio {

/// One moment of a clock as it was handed out, and its rate, in host time as stamps have it (the constant included).
struct ClockReading {
    double mSampleTime = 0;
    uint64_t mHostNanos = 0;
    double mFramesANano = 0;  // as measured
    double mRateScalar = 1;   // host ticks a frame over the nominal, as handed out
};

/// The clock of a device that is open for input in this process; nothing where it is not, or has not delivered yet.
/// @thread any @realtime yes
std::optional<ClockReading> ReadDeviceClock(AudioDeviceID device) noexcept;

}  // namespace platform::audio
