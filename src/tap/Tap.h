// Tap: one running tap: its lanes, its captures and its pacer, over the client's two regions.
// Start at Tap::Start; the data flow is server -> CaptureControl's nodes -> Lane -> Pacer -> RingWriter.
#pragma once

#include "tap/CaptureControl.h"
#include "tap/Configuration.h"
#include "tap/Pacer.h"
#include "tap/RingWriter.h"

#include <memory>
#include <vector>

namespace tap {

class Tap {
public:
    /// Puts the status region's fixed fields in place and captures; frame 0 is now.
    ///
    /// @param configuration  outlives this
    /// @param audio, status  see RingWriter
    Tap(platform::machine::AudioServer& server, const Configuration& configuration, void* audio, void* status,
        bool playThrough);

    /// Starts publishing and following changes. @return false where a thread cannot be had
    bool Start() { return mPacer.Start() && mControl.Start(); }

    void SetPlayThrough(bool playThrough) { mControl.SetSilenced(!playThrough); }

private:
    Schedule mSchedule;
    RingWriter mRing;
    std::vector<std::unique_ptr<Lane>> mLanes;
    Pacer mPacer;
    CaptureControl mControl;  // last: its destructor ends what renders into the lanes
};

}  // namespace tap
