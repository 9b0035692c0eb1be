// The loops themselves, over whatever instruction set the including file has chosen.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/vector/VectorKernels.h"

namespace platform::vector::loops {
namespace {

// A maximum and a minimum as the processor has them: of two where one is no number, the second.
inline float Greater(float a, float b) noexcept
{
    return a > b ? a : b;
}

inline float Lesser(float a, float b) noexcept
{
    return a < b ? a : b;
}

void Add(const float* a, const float* b, float* c, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i) c[i] = a[i] + b[i];
}

void ScaleAndAdd(const float* a, float scale, const float* c, float* d, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i) d[i] = a[i] * scale + c[i];
}

void Clip(const float* a, float low, float high, float* d, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i) d[i] = Lesser(high, Greater(low, a[i]));
}

// What is cut has other bits than before. That is one comparison, and what is no number passes with the bits it has.
size_t ClipCounting(const float* a, float low, float high, float* d, size_t count) noexcept
{
    uint32_t cut = 0;
    for (size_t i = 0; i < count; ++i) {
        const float sample = a[i];
        const float limited = Lesser(high, Greater(low, sample));
        d[i] = limited;
        cut += std::bit_cast<uint32_t>(limited) != std::bit_cast<uint32_t>(sample) ? 1 : 0;
    }
    return cut;
}

// The choice comes before the cast: a float beyond the integer's range must not be cast at all.
template <bool kSwapped>
void ToInt16(const float* a, float scale, uint16_t* d, size_t count) noexcept
{
    for (size_t i = 0; i < count; ++i) {
        const float scaled = a[i] * scale;
        const float inRange = __builtin_fabsf(scaled) < 2147483648.0f ? scaled : 0.0f;
        const auto low = static_cast<uint16_t>(static_cast<int32_t>(inRange));
        d[i] = kSwapped ? static_cast<uint16_t>(low << 8 | low >> 8) : low;
    }
}

// Four frames of four channels, turned over: a row is a channel before and a frame after, or the other way round.
struct FourChannels {
    using Lanes = float __attribute__((vector_size(16)));
    static constexpr unsigned kChannels = 4;

    static inline void LoadChannels(Lanes& row, const float* const* channels, size_t frame) noexcept
    {
        std::memcpy(&row, channels[0] + frame, sizeof row);
    }

    static inline void SaveChannels(const Lanes& row, float* const* channels, size_t frame) noexcept
    {
        std::memcpy(channels[0] + frame, &row, sizeof row);
    }

    static inline void Transpose(Lanes& a, Lanes& b, Lanes& c, Lanes& d) noexcept
    {
        const Lanes ab = __builtin_shufflevector(a, b, 0, 4, 1, 5), AB = __builtin_shufflevector(a, b, 2, 6, 3, 7);
        const Lanes cd = __builtin_shufflevector(c, d, 0, 4, 1, 5), CD = __builtin_shufflevector(c, d, 2, 6, 3, 7);
        a = __builtin_shufflevector(ab, cd, 0, 1, 4, 5), b = __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
        c = __builtin_shufflevector(AB, CD, 0, 1, 4, 5), d = __builtin_shufflevector(AB, CD, 2, 3, 6, 7);
    }
};

#if defined(CORVANE_LANES_OF_EIGHT)
// The same with two channels a row, four apart, so that no sample has to cross the middle of a row.
struct EightChannels {
    using Lanes = float __attribute__((vector_size(32)));
    static constexpr unsigned kChannels = 8;

    static inline void LoadChannels(Lanes& row, const float* const* channels, size_t frame) noexcept
    {
        FourChannels::Lanes low, high;
        FourChannels::LoadChannels(low, channels, frame);
        FourChannels::LoadChannels(high, channels + 4, frame);
        row = __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
    }

    static inline void SaveChannels(const Lanes& row, float* const* channels, size_t frame) noexcept
    {
        FourChannels::SaveChannels(__builtin_shufflevector(row, row, 0, 1, 2, 3), channels, frame);
        FourChannels::SaveChannels(__builtin_shufflevector(row, row, 4, 5, 6, 7), channels + 4, frame);
    }

    static inline void Transpose(Lanes& a, Lanes& b, Lanes& c, Lanes& d) noexcept
    {
        const Lanes ab = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
        const Lanes AB = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
        const Lanes cd = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
        const Lanes CD = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
        a = __builtin_shufflevector(ab, cd, 0, 1, 8, 9, 4, 5, 12, 13);
        b = __builtin_shufflevector(ab, cd, 2, 3, 10, 11, 6, 7, 14, 15);
        c = __builtin_shufflevector(AB, CD, 0, 1, 8, 9, 4, 5, 12, 13);
        d = __builtin_shufflevector(AB, CD, 2, 3, 10, 11, 6, 7, 14, 15);
    }
};
#endif

// The group's pointers in a place of their own, which stores of samples cannot change: the loops keep them at hand.
template <typename Group, typename Pointer>
std::array<Pointer, Group::kChannels> Pointers(Pointer const* channels) noexcept
{
    std::array<Pointer, Group::kChannels> all;
    std::copy_n(channels, Group::kChannels, all.begin());
    return all;
}

template <typename Group>
void InterleaveGroup(const float* const* channels, float* interleaved, size_t stride, size_t frames) noexcept
{
    const auto all = Pointers<Group>(channels);
    typename Group::Lanes a, b, c, d;
    size_t frame = 0;
    for (; frame + 4 <= frames; frame += 4, interleaved += 4 * stride) {
        Group::LoadChannels(a, &all[0], frame), Group::LoadChannels(b, &all[1], frame);
        Group::LoadChannels(c, &all[2], frame), Group::LoadChannels(d, &all[3], frame);
        Group::Transpose(a, b, c, d);
        std::memcpy(interleaved, &a, sizeof a), std::memcpy(interleaved + stride, &b, sizeof b);
        std::memcpy(interleaved + 2 * stride, &c, sizeof c), std::memcpy(interleaved + 3 * stride, &d, sizeof d);
    }
    for (; frame < frames; ++frame, interleaved += stride)
        for (unsigned i = 0; i < Group::kChannels; ++i) interleaved[i] = channels[i][frame];
}

template <typename Group>
void DeinterleaveGroup(const float* interleaved, size_t stride, float* const* channels, size_t frames) noexcept
{
    const auto all = Pointers<Group>(channels);
    typename Group::Lanes a, b, c, d;
    size_t frame = 0;
    for (; frame + 4 <= frames; frame += 4, interleaved += 4 * stride) {
        std::memcpy(&a, interleaved, sizeof a), std::memcpy(&b, interleaved + stride, sizeof b);
        std::memcpy(&c, interleaved + 2 * stride, sizeof c), std::memcpy(&d, interleaved + 3 * stride, sizeof d);
        Group::Transpose(a, b, c, d);
        Group::SaveChannels(a, &all[0], frame), Group::SaveChannels(b, &all[1], frame);
        Group::SaveChannels(c, &all[2], frame), Group::SaveChannels(d, &all[3], frame);
    }
    for (; frame < frames; ++frame, interleaved += stride)
        for (unsigned i = 0; i < Group::kChannels; ++i) channels[i][frame] = interleaved[i];
}

void InterleavePair(const float* left, const float* right, float* interleaved, size_t frames) noexcept
{
    for (size_t frame = 0; frame < frames; ++frame) {
        interleaved[2 * frame] = left[frame];
        interleaved[2 * frame + 1] = right[frame];
    }
}

void DeinterleavePair(const float* interleaved, float* left, float* right, size_t frames) noexcept
{
    for (size_t frame = 0; frame < frames; ++frame) {
        left[frame] = interleaved[2 * frame];
        right[frame] = interleaved[2 * frame + 1];
    }
}

void InterleaveOne(const float* channel, float* interleaved, size_t stride, size_t frames) noexcept
{
    for (size_t frame = 0; frame < frames; ++frame) interleaved[frame * stride] = channel[frame];
}

void DeinterleaveOne(const float* interleaved, size_t stride, float* channel, size_t frames) noexcept
{
    for (size_t frame = 0; frame < frames; ++frame) channel[frame] = interleaved[frame * stride];
}

void Interleave(const float* const* channels, unsigned count, float* interleaved, size_t stride, size_t frames) noexcept
{
    if (count == 2 && stride == 2) return InterleavePair(channels[0], channels[1], interleaved, frames);
    unsigned at = 0;
#if defined(CORVANE_LANES_OF_EIGHT)
    for (; at + 8 <= count; at += 8) InterleaveGroup<EightChannels>(channels + at, interleaved + at, stride, frames);
#endif
    for (; at + 4 <= count; at += 4) InterleaveGroup<FourChannels>(channels + at, interleaved + at, stride, frames);
    // Two or three that are left go along with the ones before them, which is faster than one by one.
    if (count > 4 && count - at >= 2) {
        at = count - 4;
        return InterleaveGroup<FourChannels>(channels + at, interleaved + at, stride, frames);
    }
    for (; at < count; ++at) InterleaveOne(channels[at], interleaved + at, stride, frames);
}

void Deinterleave(const float* interleaved, size_t stride, float* const* channels, unsigned count,
                  size_t frames) noexcept
{
    if (count == 2 && stride == 2) return DeinterleavePair(interleaved, channels[0], channels[1], frames);
    unsigned at = 0;
#if defined(CORVANE_LANES_OF_EIGHT)
    for (; at + 8 <= count; at += 8) DeinterleaveGroup<EightChannels>(interleaved + at, stride, channels + at, frames);
#endif
    for (; at + 4 <= count; at += 4) DeinterleaveGroup<FourChannels>(interleaved + at, stride, channels + at, frames);
    if (count > 4 && count - at >= 2) {
        at = count - 4;
        return DeinterleaveGroup<FourChannels>(interleaved + at, stride, channels + at, frames);
    }
    for (; at < count; ++at) DeinterleaveOne(interleaved + at, stride, channels[at], frames);
}

struct Matrix {
    const Crosspoint* mFirst;
    const Crosspoint* mEnd;
    const float* const* mInputs;
    float* const* mOutputs;
    unsigned mOutputCount;
    float mFrames;
};

/// sizeof...(kAt) x kLanes frames of all outputs, the sums of one output after the other in registers. They are
/// counted out by a pack, since a loop over them would be unrolled too late to keep them there.
template <bool kMoving, unsigned kLanes, size_t... kAt>
struct MixTile {
    typedef float Lanes __attribute__((vector_size(kLanes * sizeof(float))));
    using Sums = Lanes[sizeof...(kAt)];
    static constexpr size_t kFrames = kLanes * sizeof...(kAt);

    static inline Lanes Load(const float* samples) noexcept
    {
        Lanes lanes;
        std::memcpy(&lanes, samples, sizeof lanes);
        return lanes;
    }

    static inline Lanes Places(size_t frame) noexcept
    {
        float places[kLanes];
        for (unsigned lane = 0; lane < kLanes; ++lane) places[lane] = static_cast<float>(frame + lane);
        return Load(places);
    }

    static inline void Add(Sums& sums, const Crosspoint& point, const float* input) noexcept
    {
        (..., (sums[kAt] += point.mGain * Load(input + kAt * kLanes)));
    }

    static inline void AddMoving(Sums& sums, const Crosspoint& point, const float* input, float step,
                                 const Lanes& places) noexcept
    {
        (..., (sums[kAt] += (point.mGain + step * (places + float{kAt * kLanes})) * Load(input + kAt * kLanes)));
    }

    static inline void Make(const Matrix& matrix, size_t frame) noexcept
    {
        const Lanes places = Places(frame);
        const Crosspoint* point = matrix.mFirst;
        for (unsigned output = 0; output < matrix.mOutputCount; ++output) {
            const auto isHere = [&] { return point != matrix.mEnd && point->mOutput == output; };
            const Lanes none = isHere() ? -Lanes{} : Lanes{};  // a negative zero would be lost in a sum from 0
            Sums sums = {(static_cast<void>(kAt), none)...};
            for (; isHere(); ++point) {
                const float* const input = matrix.mInputs[point->mInput] + frame;
                const float step = (point->mNextGain - point->mGain) / matrix.mFrames;
                kMoving ? AddMoving(sums, *point, input, step, places) : Add(sums, *point, input);
            }
            float* const to = matrix.mOutputs[output] + frame;
            (..., std::memcpy(to + kAt * kLanes, &sums[kAt], sizeof(Lanes)));
        }
    }

    static size_t MakeAll(const Matrix& matrix, size_t from, size_t end) noexcept
    {
        for (; from + kFrames <= end; from += kFrames) Make(matrix, from);
        return from;
    }
};

// Eight sums are half of the registers, whatever they hold.
#if defined(CORVANE_LANES_OF_EIGHT)
constexpr unsigned kMixLanes = 8;
#else
constexpr unsigned kMixLanes = 4;
#endif

template <bool kMoving>
void MixTiles(const Matrix& matrix, size_t frames) noexcept
{
    size_t frame = MixTile<kMoving, kMixLanes, 0, 1, 2, 3, 4, 5, 6, 7>::MakeAll(matrix, 0, frames);
    frame = MixTile<kMoving, kMixLanes, 0>::MakeAll(matrix, frame, frames);
    MixTile<kMoving, 1, 0>::MakeAll(matrix, frame, frames);
}

// Gains move seldom. Where none does, the loops are without all that moves them; where one does, the others come out
// the same either way.
void Mix(const Crosspoint* crosspoints, size_t count, const float* const* inputs, float* const* outputs,
         unsigned outputCount, size_t frames) noexcept
{
    const Matrix matrix{crosspoints, crosspoints + count, inputs, outputs, outputCount, static_cast<float>(frames)};
    bool moving = false;
    for (size_t i = 0; i < count; ++i) moving |= crosspoints[i].mGain != crosspoints[i].mNextGain;
    (moving ? MixTiles<true> : MixTiles<false>)(matrix, frames);
}

constexpr VectorLoops kLoops{Add,          ScaleAndAdd,    Clip,          ClipCounting, Interleave,
                             Deinterleave, ToInt16<false>, ToInt16<true>, Mix};

}  // namespace
}  // namespace platform::vector::loops
