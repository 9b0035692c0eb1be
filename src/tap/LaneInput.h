// LaneInput: the cycles of one output device, mixed to the tap's channels, on their way from the server's data
// thread to the pacer.
// Why: a lane needs to know to which cycle each frame belongs, and neither side may wait for the other.
// Start at Write for the server's side, at Next for the pacer's.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/vector/FrameQueue.h"
#include "tap/CycleQueue.h"
#include "tap/StereoMix.h"

namespace tap {

class LaneInput {
public:
    /// @param frames         room for at least so many; allocates
    /// @param touchedFrames  of these the memory is there from the start
    LaneInput(unsigned channels, size_t frames, size_t touchedFrames) : mFrames(channels, frames, touchedFrames) {}

    unsigned Channels() const noexcept { return mFrames.Channels(); }

    /// Takes a cycle in, or counts it as dropped where there is no room for all of it.
    ///
    /// @thread    the server's data thread
    /// @realtime  yes
    void Write(const platform::machine::CaptureCycle& cycle, const StereoMix& mix) CORVANE_REALTIME;

    /// Frames of cycles that Write had no room for. Wraps. @thread any
    uint32_t DroppedFrames() const noexcept { return mDropped.load(std::memory_order_relaxed); }

    /// The oldest cycle that was not begun, or null. @thread the pacer, as all below
    const CycleStamp* Next() const noexcept { return mStamps.Front(); }
    /// The one after it, or null.
    const CycleStamp* AfterNext() const noexcept { return mStamps.Second(); }
    /// Begins the oldest cycle: its frames can be read from now on.
    void Begin() noexcept { mStamps.Pop(); }
    /// Reads frames of cycles that were begun.
    void Read(float* samples, size_t frames) noexcept { mFrames.Read(samples, frames); }
    void Skip(size_t frames) noexcept { mFrames.Skip(frames); }

private:
    platform::vector::FrameQueue mFrames;
    CycleQueue mStamps;
    std::atomic<uint32_t> mDropped{0};  // stored by the data thread, loaded by the pacer; a count, no order needed
};

}  // namespace tap
