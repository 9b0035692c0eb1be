// ResamplerLoops: the inner loops of the Resampler, compiled once an instruction set.
// Why: the library is built for the oldest 64-bit processor, and nearly every one that runs it has lanes of
// eight and fused multiply-add; the newer ones have lanes of sixteen. One source serves all sets.
// Start at Best.
#pragma once

#include <cstdint>

namespace platform::vector::loops {

constexpr unsigned kLanes = 16;

/// Phases between two input frames. Between two of them each tap is a parabola through both and the middle:
/// at 15 kHz and 48 kHz that lies 150 dB below the kernel, where a straight line would need 2,000 phases.
constexpr unsigned kPhaseBits = 7;

/// Sixteen taps of one phase: value + t * (slope + t * bend), t being how far the position lies to the next.
struct alignas(64) TapGroup {
    float mValue[kLanes];
    float mSlope[kLanes];
    float mBend[kLanes];
};

/// Where one output frame lies: the first frame of its window in the history, and 2^-32 frames beyond.
struct Point {
    uint32_t mStart;
    uint32_t mPhase;
};

/// The taps of all phases, `mGroups` of them a phase.
struct Bank {
    const TapGroup* mTaps;
    unsigned mGroups;
};

/// Output frame i of each channel = the window of `history` at points[i], weighted by the taps of its phase. kLanes
/// frames beyond the last window, and as many points beyond the last, are read, too, whatever they hold.
using Loop = void (*)(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
                      float* const* output) noexcept;

struct Loops {
    Loop mMono;
    Loop mStereo;  ///< two channels at once: the taps are computed once for both
};

/// The fastest set that this processor runs.
const Loops& Best() noexcept;

/// The sets themselves, for comparing them. Wide runs only where the processor has AVX2 and FMA, Widest where it has
/// AVX-512 and Wide runs. All agree within rounding.
extern const Loops kBaseline;
extern const Loops kWide;
extern const Loops kWidest;

}  // namespace platform::vector::loops
