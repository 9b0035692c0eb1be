// DeviceInput: one open input device: its sound, buffer by buffer, each stamped by a clock that is followed.
// Why: a driver's stamps are late at random and its crystal is off. Whoever aligns sources needs stamps on which a late
// wake-up does not show, and a rate that is exact in its sum.
// Start at the constructor; the stamps' rules are those of docs/time.md.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/audio/DeviceClock.h"
#include "platform/audio/StampLatency.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"

#include <memory>
#include <span>

namespace platform::audio {

/// Takes the buffers of an input device.
class DeviceInputClient {
public:
    /// @param time      of the first frame: the device's own sample time; host time, filtered, plus
    /// StampLatencyNanos();
    ///                  rate scalar (host ticks a frame over the nominal), 1.0 until it is known; flags for the three
    /// @param channels  the device's channels in order, `frames` samples each; null: silent
    /// @thread          the server's data thread
    /// @realtime        yes
    virtual void TakeBuffer(const AudioTimeStamp& time, UInt32 frames,
                            std::span<const float* const> channels) noexcept = 0;

protected:
    ~DeviceInputClient() = default;
};

class DeviceInput final : private machine::CaptureClient {
public:
    /// Opens the device, which delivers from now on, also after it was away. `client` outlives this.
    ///
    /// @param device  a native device; 0: what is the default input now
    DeviceInput(AudioDeviceID device, DeviceInputClient& client);
    /// After this no TakeBuffer runs and none will. @thread not the server's
    ~DeviceInput();

private:
    void Render(const machine::CaptureCycle& cycle) CORVANE_REALTIME override;
};

}  // namespace platform::audio
