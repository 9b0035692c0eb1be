#include "tap/Schedule.h"

namespace tap {

namespace {

__extension__ using Wide = unsigned __int128;

// Nanoseconds of one second, in the rate's units: frames = nanos * rate / this.
constexpr Wide kSecond = Wide(1'000'000'000) << kRateFractionBits;

}  // namespace

Schedule Schedule::OnGrid(FixedRate rate, uint64_t nanos) noexcept
{
    const Schedule clock(rate, 0);
    return {rate, clock.TimeOf(clock.FramesBy(nanos) + 1)};
}

uint64_t Schedule::TimeOf(uint64_t frame) const noexcept
{
    return mStartNanos + uint64_t(frame * kSecond / mRate);
}

uint64_t Schedule::FramesBy(uint64_t nanos) const noexcept
{
    if (nanos < mStartNanos) return 0;
    // floor(n * second / rate) <= x holds exactly for n * second < (x + 1) * rate.
    const Wide elapsed = nanos - mStartNanos;
    return uint64_t(((elapsed + 1) * mRate - 1) / kSecond);
}

uint64_t Schedule::NanosOf(uint64_t frames, FixedRate rate) noexcept
{
    return uint64_t((frames * kSecond + rate / 2) / rate);
}

}  // namespace tap
