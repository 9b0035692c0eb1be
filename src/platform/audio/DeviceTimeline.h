// DeviceTimeline: how one input device counts its frames, and when they happened; one for all who have it open.
// Why: what is known of a clock must not be learnt anew by each of them, and a host time must mean the same frame to
// all. The rules are those of docs/time.md, "An input's timeline".
// Start at Take.
#pragma once

#include "platform/audio/PublishedReading.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"
#include "platform/vector/ClockFollower.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace platform::audio {

class DeviceTimeline {
public:
    /// The device's timeline, for one more who opens the device. It begins anew where nobody has it open.
    ///
    /// @thread  any that may block, as Close
    static DeviceTimeline& Open(AudioDeviceID device);
    /// Gives it back; no cycle of the caller comes any more.
    void Close();

    /// The timeline of a device that was opened ever, or null. @thread any @realtime yes
    static DeviceTimeline* Find(AudioDeviceID device) noexcept;
    /// @thread any @realtime yes
    std::optional<ClockReading> Read() const noexcept { return mPublished.Read(); }

    /// Takes a cycle of the device, once or once for each who has it open. @return its first frame's sample time
    /// @thread the server's data thread, as all below
    int64_t Take(const machine::CaptureCycle& cycle) CORVANE_REALTIME;

    /// Says that a cycle's frames have to follow on those before it, which Take did not see: the sample time of its
    /// first frame is `sampleTime`. The timeline moves there, where nobody else relies on it.
    void FollowOn(const machine::CaptureCycle& cycle, int64_t sampleTime) CORVANE_REALTIME;

    /// The whole stamp of a frame near the cycle taken last; without host time (0) while the driver has none.
    AudioTimeStamp StampOf(int64_t sampleTime) const CORVANE_REALTIME;

private:
    explicit DeviceTimeline(AudioDeviceID device) : mDevice(device) {}

    bool IsOfSameClock(const machine::CaptureCycle& cycle) const noexcept;
    std::optional<int64_t> TimeOfKnown(const machine::CaptureCycle& cycle) const noexcept;
    int64_t FramesMissedBefore(const machine::CaptureCycle& cycle) const noexcept;
    int64_t FramesPassedBefore(const machine::CaptureCycle& cycle) const noexcept;
    bool Agrees(const machine::CaptureCycle& cycle, int64_t sampleTime) const noexcept;
    bool IsAnother(const machine::CaptureCycle& cycle, int64_t sampleTime) const noexcept;
    void Follow(const machine::CaptureCycle& cycle, int64_t sampleTime, bool continues) noexcept;
    uint64_t HostNanosOf(int64_t sampleTime) const noexcept;
    void Publish() noexcept;

    /// A cycle that was taken. One of our clients may bring it later than another, by a cycle that it held.
    struct Taken {
        int64_t mDriverTime = 0;
        uint64_t mHostNanos = 0;
        int64_t mSampleTime = 0;
    };
    static constexpr size_t kTaken = 4;

    const AudioDeviceID mDevice;
    DeviceTimeline* mNext = nullptr;  // in the list of all; set before the list shows this one
    std::atomic<unsigned> mUsers{0};  // stored under the list's mutex, loaded by the data thread; no order needed
    PublishedReading mPublished;

    // The data thread's, and of who opens it first.
    uint64_t mLatencyNanos = 0;
    bool mRunning = false;
    bool mTimed = false;  // whether the follower knows a time: a driver may bring cycles before it has one
    vector::ClockFollower mFollower;
    uint32_t mClockID = 0;
    uint32_t mRateHz = 0;
    uint64_t mHostNanos = 0;           // of the last cycle that had a time
    int64_t mNextDriverTime = 0;       // where the driver's count goes on if nothing happens,
    int64_t mNextSampleTime = 0;       // and ours then
    std::array<Taken, kTaken> mTaken;  // the latest ones of this clock, in a round
    size_t mTakenCount = 0;
};

}  // namespace platform::audio
