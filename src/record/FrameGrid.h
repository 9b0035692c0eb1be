// FrameGrid: the frames that the host clock counts at a recording's rate, from the clock's own zero.
// Why: every source of a recording places its frames on this one grid, so that sources need no start in common.
#pragma once

#include <cstdint>

namespace record {

class FrameGrid {
public:
    /// @param rateHz  frames a second, at least 1
    explicit FrameGrid(unsigned rateHz) : mRateHz(rateHz) {}

    unsigned RateHz() const noexcept { return mRateHz; }

    /// The frame nearest to a host time; of a length of time, its number of frames. @realtime yes
    uint64_t FrameAt(uint64_t nanos) const noexcept
    {
        return uint64_t((Wide(nanos) * mRateHz + kSecondNanos / 2) / kSecondNanos);
    }

    /// The host time of a frame. @realtime yes
    uint64_t NanosAt(uint64_t frame) const noexcept
    {
        return frame / mRateHz * kSecondNanos + frame % mRateHz * kSecondNanos / mRateHz;
    }

private:
    __extension__ using Wide = unsigned __int128;
    static constexpr uint64_t kSecondNanos = 1'000'000'000;

    unsigned mRateHz;
};

}  // namespace record
