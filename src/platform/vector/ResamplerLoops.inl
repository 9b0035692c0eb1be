// The loops' one source, included by each instruction set's own file. Nothing here may pull in an inline
// function of a library: the linker could take the copy made for the newer processor for all callers.

namespace platform::vector::loops {
namespace {

// What a register holds. A group of taps is one or two of them.
#if defined(CORVANE_LANES_OF_SIXTEEN)
constexpr unsigned kWidth = 16;
#else
constexpr unsigned kWidth = 8;
#endif

typedef float Lanes __attribute__((vector_size(kWidth * sizeof(float)), may_alias));
typedef float UnalignedLanes __attribute__((vector_size(kWidth * sizeof(float)), aligned(4), may_alias));

typedef float EightLanes __attribute__((vector_size(8 * sizeof(float))));
typedef float FourLanes __attribute__((vector_size(4 * sizeof(float))));

/// The sum of all lanes. A reference, not a value: the oldest processors have no way to pass eight lanes.
inline float Sum(const Lanes& lanes) noexcept
{
#if defined(CORVANE_LANES_OF_SIXTEEN)
    const EightLanes eight = __builtin_shufflevector(lanes, lanes, 0, 1, 2, 3, 4, 5, 6, 7) +
                             __builtin_shufflevector(lanes, lanes, 8, 9, 10, 11, 12, 13, 14, 15);
#else
    const Lanes& eight = lanes;
#endif
    const FourLanes four =
        __builtin_shufflevector(eight, eight, 0, 1, 2, 3) + __builtin_shufflevector(eight, eight, 4, 5, 6, 7);
    return (four[0] + four[2]) + (four[1] + four[3]);
}

constexpr unsigned kBetweenBits = 32 - kPhaseBits;
constexpr float kOneBetween = 1.0f / (1u << kBetweenBits);

inline unsigned Row(const Point& point) noexcept
{
    return point.mPhase >> kBetweenBits;
}

/// How far the point lies from its phase to the next.
inline float Between(const Point& point) noexcept
{
    return static_cast<float>(static_cast<int>(point.mPhase & ((1u << kBetweenBits) - 1))) * kOneBetween;
}

/// One frame after the other, of which each lane sums every kWidth-th tap. kGroups: how many groups of taps a phase
/// has, where that is known beforehand; 0 where it is not.
template <unsigned kChannels, unsigned kGroups>
void ConvolveGroups(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
                    float* const* output) noexcept
{
    constexpr unsigned kParts = kLanes / kWidth;
    const unsigned groups = kGroups ? kGroups : bank.mGroups;
    for (unsigned frame = 0; frame < frames; ++frame) {
        const Point point = points[frame];
        const TapGroup* taps = bank.mTaps + Row(point) * groups;
        const float t = Between(point);
        Lanes sums[kChannels] = {};
        for (unsigned group = 0; group < groups; ++group) {
            const auto* curve = reinterpret_cast<const Lanes*>(taps + group);
            for (unsigned part = 0; part < kParts; ++part) {
                const Lanes weights = curve[part] + t * (curve[kParts + part] + t * curve[2 * kParts + part]);
                for (unsigned channel = 0; channel < kChannels; ++channel) {
                    const float* window = history[channel] + point.mStart;
                    sums[channel] += weights * reinterpret_cast<const UnalignedLanes*>(window)[group * kParts + part];
                }
            }
        }
        for (unsigned channel = 0; channel < kChannels; ++channel) output[channel][frame] = Sum(sums[channel]);
    }
}

/// kWidth frames whose windows lie one frame apart and in one phase, a lane each, so that nothing is left to sum at
/// the end. Each lane has kSums sums that take taps in turns, which round less than one.
template <unsigned kChannels>
struct Run {
    static constexpr unsigned kSums = 4;

    template <unsigned... kTap>
    struct Taps {
    };

    template <unsigned kTap>
    inline void Add(const TapGroup& group, const Lanes& t) noexcept
    {
        const Lanes weights = group.mValue[kTap] + t * (group.mSlope[kTap] + t * group.mBend[kTap]);
        for (unsigned channel = 0; channel < kChannels; ++channel) {
            Lanes frames;
            LoadFrames<kTap>(frames, mWindow[channel]);
            mSums[channel][kTap % kSums] += weights * frames;
        }
    }

    /// The frames that one tap weighs. Registers are slid along where loads across the lines of the cache would cost
    /// more.
    template <unsigned kTap>
    static inline void LoadFrames(Lanes& frames, const float* window) noexcept
    {
#if defined(CORVANE_LANES_OF_SIXTEEN)
        const Lanes low = reinterpret_cast<const UnalignedLanes*>(window)[0];
        const Lanes high = reinterpret_cast<const UnalignedLanes*>(window)[1];
        frames = __builtin_shufflevector(low, high, kTap, kTap + 1, kTap + 2, kTap + 3, kTap + 4, kTap + 5, kTap + 6,
                                         kTap + 7, kTap + 8, kTap + 9, kTap + 10, kTap + 11, kTap + 12, kTap + 13,
                                         kTap + 14, kTap + 15);
#else
        frames = *reinterpret_cast<const UnalignedLanes*>(window + kTap);
#endif
    }

    template <unsigned... kTap>
    inline void AddAll(const TapGroup& group, const Lanes& t, Taps<kTap...>) noexcept
    {
        (..., Add<kTap>(group, t));
    }

    Lanes mSums[kChannels][kSums];
    const float* mWindow[kChannels];
};

template <unsigned kChannels>
inline void ConvolveRun(const Bank& bank, const Point& first, const Lanes& t, const float* const* history,
                        Lanes* output) noexcept
{
    Run<kChannels> run = {};
    for (unsigned channel = 0; channel < kChannels; ++channel) run.mWindow[channel] = history[channel] + first.mStart;
    const TapGroup* group = bank.mTaps + Row(first) * bank.mGroups;
    for (const TapGroup* end = group + bank.mGroups; group < end; ++group) {
        run.AddAll(*group, t,
                   typename Run<kChannels>::template Taps<0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15>());
        for (unsigned channel = 0; channel < kChannels; ++channel) run.mWindow[channel] += kLanes;
    }
    for (unsigned channel = 0; channel < kChannels; ++channel)
        output[channel] =
            (run.mSums[channel][0] + run.mSums[channel][2]) + (run.mSums[channel][1] + run.mSums[channel][3]);
}

/// How many frames from the first on lie as Run wants them. Ratios are even: where the last frame does, all do, but for
/// what a ratio that turns back at 1 has gone beyond the phase meanwhile, and so far its curves hold.
inline unsigned RunOf(const Point* points, unsigned most) noexcept
{
    const auto belongs = [&](unsigned frame) {
        return points[frame].mStart == points[0].mStart + frame && Row(points[frame]) == Row(points[0]);
    };
    if (belongs(most - 1)) return most;
    unsigned run = 1;
    while (belongs(run)) ++run;
    return run;
}

/// A block near ratio 1, run by run. What the lanes beyond a run hold is left out.
template <unsigned kChannels>
void ConvolveRuns(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
                  float* const* output) noexcept
{
    for (unsigned frame = 0; frame < frames;) {
        const Point* const first = points + frame;
        const unsigned phase = Row(*first) << kBetweenBits, left = frames - frame;
        Lanes between;
        for (unsigned lane = 0; lane < kWidth; ++lane)
            between[lane] = static_cast<float>(static_cast<int>(first[lane].mPhase - phase)) * kOneBetween;
        Lanes lanes[kChannels];
        ConvolveRun<kChannels>(bank, *first, between, history, lanes);
        const unsigned run = RunOf(first, left < kWidth ? left : kWidth);
        for (unsigned channel = 0; channel < kChannels; ++channel) {
            float* const to = output[channel] + frame;
            if (left >= kWidth)
                *reinterpret_cast<UnalignedLanes*>(to) = lanes[channel];  // what is too much is overwritten by the next
            else
                __builtin_memcpy(to, &lanes[channel], run * sizeof(float));
        }
        frame += run;
    }
}

/// Whether a phase holds more than kWidth frames on the average.
inline bool HasRuns(const Point* points, unsigned frames) noexcept
{
    const auto place = [](const Point& point) {
        return static_cast<long long>((static_cast<unsigned long long>(point.mStart) << 32) + point.mPhase);
    };
    const long long drift = place(points[frames - 1]) - place(points[0]) - (static_cast<long long>(frames - 1) << 32);
    return ((drift < 0 ? -drift : drift) >> kBetweenBits) * kWidth < frames;
}

template <unsigned kChannels>
void Convolve(const Bank& bank, const Point* points, unsigned frames, const float* const* history,
              float* const* output) noexcept
{
    constexpr unsigned kLow = 4, kHigh = 6;  // every ratio near 1 or below, of the two stages
    if (HasRuns(points, frames)) return ConvolveRuns<kChannels>(bank, points, frames, history, output);
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
