#include "platform/machine/linux/pipewire/DriverClock.h"

namespace platform::machine::pipewire {

namespace {

bool IsNear(uint64_t nanos, uint64_t nowNanos) noexcept
{
    constexpr uint64_t kFarNanos = 1'000'000'000;
    return nanos != 0 && (nanos > nowNanos ? nanos - nowNanos : nowNanos - nanos) <= kFarNanos;
}

}  // namespace

CycleMoment DriverClock::Take(uint32_t driver, const CycleMoment& stated, uint64_t frames, uint64_t nowNanos) noexcept
{
    if (driver != mDriver) *this = {};
    const bool isStamped = IsNear(stated.mHostNanos, nowNanos);
    const bool isRepeated = isStamped && stated.mHostNanos == mStated.mHostNanos;
    if (stated.mPosition == mStated.mPosition && !isRepeated) mAddedFrames += mFrames;
    mDriver = driver;
    mStated = stated;
    mFrames = frames;
    return {isStamped ? stated.mHostNanos : nowNanos, stated.mPosition + mAddedFrames};
}

}  // namespace platform::machine::pipewire
