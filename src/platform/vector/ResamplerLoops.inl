// The loops' one source, included by each instruction set's own file. Nothing here may pull in an inline
// function of a library: the linker could take the copy made for the newer processor for all callers.

namespace platform::vector::loops {
namespace {

typedef float Lanes __attribute__((vector_size(kLanes * sizeof(float)), may_alias));
typedef float UnalignedLanes __attribute__((vector_size(kLanes * sizeof(float)), aligned(4), may_alias));

typedef float HalfLanes __attribute__((vector_size(kLanes / 2 * sizeof(float))));

/// The sum of all lanes. A reference, not a value: the oldest processors have no way to pass eight lanes.
inline float Sum(const Lanes& lanes) noexcept
{
    const HalfLanes halves =
        __builtin_shufflevector(lanes, lanes, 0, 1, 2, 3) + __builtin_shufflevector(lanes, lanes, 4, 5, 6, 7);
    return (halves[0] + halves[2]) + (halves[1] + halves[3]);
}

/// kGroups: how many groups of taps a phase has, where that is known beforehand; 0 where it is not.
template <unsigned kChannels, unsigned kGroups>
void ConvolveGroups(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
                    float* const* output) noexcept
{
    constexpr unsigned kBetweenBits = 32 - kPhaseBits;
    const unsigned groups = kGroups ? kGroups : bank.mGroups;
    for (unsigned frame = 0; frame < frames; ++frame) {
        const Point point = points[frame];
        const TapGroup* taps = bank.mTaps + (point.mPhase >> kBetweenBits) * groups;
        const float t = static_cast<float>(static_cast<int>(point.mPhase & ((1u << kBetweenBits) - 1))) *
                        (1.0f / (1u << kBetweenBits));

        Lanes sums[kChannels] = {};
        for (unsigned group = 0; group < groups; ++group) {
            const auto* curve = reinterpret_cast<const Lanes*>(taps + group);
            const Lanes weights = curve[0] + t * (curve[1] + t * curve[2]);
            for (unsigned channel = 0; channel < kChannels; ++channel) {
                const float* window = history[channel] + point.mStart;
                sums[channel] += weights * reinterpret_cast<const UnalignedLanes*>(window)[group];
            }
        }
        for (unsigned channel = 0; channel < kChannels; ++channel) output[channel][frame] = Sum(sums[channel]);
    }
}

template <unsigned kChannels>
void Convolve(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
              float* const* output) noexcept
{
    constexpr unsigned kLow = 8, kHigh = 12;  // every ratio near 1 or below, of the two stages
    switch (bank.mGroups) {
        case kLow:
            return ConvolveGroups<kChannels, kLow>(bank, points, frames, history, output);
        case kHigh:
            return ConvolveGroups<kChannels, kHigh>(bank, points, frames, history, output);
        default:
            return ConvolveGroups<kChannels, 0>(bank, points, frames, history, output);
    }
}

}  // namespace
}  // namespace platform::vector::loops
