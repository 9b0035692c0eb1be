// DriverClock: stamps and positions of a node's cycles that go on, also where the driver does not keep its clock.
// Why: any client may drive, and one that leaves its clock empty would stamp every frame with the start of time.
// Start at Take.
#pragma once

#include <cstdint>

namespace platform::machine::pipewire {

/// When a cycle begins, and where on its driver's timeline.
struct CycleMoment {
    uint64_t mHostNanos = 0;
    uint64_t mPosition = 0;

    bool operator==(const CycleMoment&) const = default;
};

class DriverClock {
public:
    /// Returns the moment of a cycle. It is the one that the driver states, with two exceptions. A stamp more than a
    /// second from `nowNanos` is replaced by `nowNanos`. A position that stands still goes on by the frames of the
    /// cycles since, unless the stamp is repeated too: then a late server delivers the same cycle once more.
    ///
    /// @param driver  the number of the driver
    /// @param stated  what its clock says
    /// @param frames  of the cycle
    /// @thread the data thread
    /// @realtime yes
    CycleMoment Take(uint32_t driver, const CycleMoment& stated, uint64_t frames, uint64_t nowNanos) noexcept;

private:
    uint32_t mDriver = 0;
    CycleMoment mStated;        // of the cycle before
    uint64_t mFrames = 0;       // the same; 0: there was none
    uint64_t mAddedFrames = 0;  // to the driver's own count
};

}  // namespace platform::machine::pipewire
