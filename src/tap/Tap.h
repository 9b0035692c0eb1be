// Tap: one running tap: its lanes, its captures and its pacer, over the client's two regions.
// Start at Tap::Start; the data flow is server -> CaptureControl's nodes -> Lane -> Pacer -> RingWriter.
#pragma once

#include "tap/CaptureControl.h"
#include "tap/Configuration.h"
#include "tap/Pacer.h"
#include "tap/RingWriter.h"

#include <memory>

namespace tap {

class Tap {
public:
    /// Puts the status region's fixed fields in place and captures. Frame 0 is the first one from now on of the frames
    /// that the host clock counts at the tap's rate from its own zero, so that taps of one rate share one grid.
    ///
    /// @param audio, status  see RingWriter
    Tap(platform::machine::AudioServer& server, const Configuration& configuration, void* audio, void* status,
        bool playThrough);

    /// Starts publishing and following changes. @return false where a thread cannot be had
    bool Start() { return mPacer.Start() && mControl.Start(); }

    /// @return as CaptureControl::SetTargets
    bool SetTargets(const Configuration& targets) { return mControl.SetTargets(targets.mDevices, targets.mProcesses); }

    void SetPlayThrough(bool playThrough) { mControl.SetSilenced(!playThrough); }

private:
    std::unique_ptr<Lane> MakeLane(const TappedDevice& device, size_t index);

    const unsigned mChannels;
    const uint64_t mLatencyNanos;
    Schedule mSchedule;
    RingWriter mRing;
    LaneTable mLanes;
    Pacer mPacer;
    CaptureControl mControl;  // last: its destructor ends what renders into the lanes
};

}  // namespace tap
