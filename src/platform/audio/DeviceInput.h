// DeviceInput: one open input device: its sound, buffer by buffer, each stamped by a clock that is followed.
// Why: a driver's stamps are late at random and its crystal is off. Whoever aligns sources needs stamps on which a late
// wake-up does not show, and a rate that is exact in its sum.
// Start at the constructor; the stamps' rules are those of docs/time.md.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/audio/HeldCycle.h"
#include "platform/audio/StampLatency.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform::audio {

class DeviceTimeline;

/// Takes the buffers of an input device.
class DeviceInputClient {
public:
    /// @param time      of the first frame: the device's own sample time, which never goes back and jumps by what is
    ///                  missing; host time, filtered, plus StampLatencyNanos(); rate scalar (host ticks a frame over
    ///                  the nominal), 1.0 until it is known; flags for the three
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
    /// @param device  a native device; 0: what is the default input now. One that was never there delivers nothing
    /// @thread any that may block
    DeviceInput(AudioDeviceID device, DeviceInputClient& client);
    /// After this no TakeBuffer runs and none will. @thread not the server's
    ~DeviceInput();
    DeviceInput(const DeviceInput&) = delete;
    DeviceInput& operator=(const DeviceInput&) = delete;

private:
    void Render(const machine::CaptureCycle& cycle) CORVANE_REALTIME override;
    bool IsRepeated(const machine::CaptureCycle& cycle) const noexcept;
    bool ComesAfterAGap(const machine::CaptureCycle& cycle) const noexcept;
    void Deliver(const machine::CaptureCycle& cycle) noexcept;
    void PlaceChannels(const machine::CaptureCycle& cycle) noexcept;

    /// Where the cycles go on if nothing happens.
    struct Expectation {
        uint32_t mClockID;
        uint32_t mRateHz;
        int64_t mDriverTime;
        int64_t mSampleTime;
        // The cycle before, where its place is sure: it followed on another; else a host time of 0.
        int64_t mBeforeDriverTime;
        uint64_t mBeforeHostNanos;
    };

    DeviceInputClient& mClient;
    DeviceTimeline* mTimeline = nullptr;  // lives for ever
    std::vector<machine::ChannelPosition> mPositions;
    // The data thread's.
    std::vector<const float*> mSamples;
    std::optional<Expectation> mNext;
    std::optional<HeldCycle> mHeld;

    std::unique_ptr<machine::InputNode> mNode;
};

}  // namespace platform::audio
