// The loops themselves, over whatever instruction set the including file has chosen.
#include <cstddef>
#include <cstring>

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

using Lanes4 = float __attribute__((vector_size(16)));
using Lanes8 = float __attribute__((vector_size(32)));

template <typename Lanes>
void Load(Lanes& lanes, const float* from) noexcept
{
    std::memcpy(&lanes, from, sizeof lanes);
}

template <typename Lanes>
void Save(const Lanes& lanes, float* to) noexcept
{
    std::memcpy(to, &lanes, sizeof lanes);
}

// Rows become columns, in steps that swap ever larger blocks: each shuffle is one instruction.
inline void Transpose(Lanes4 (&rows)[4]) noexcept
{
    const Lanes4 a = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
    const Lanes4 b = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
    const Lanes4 c = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
    const Lanes4 d = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
    rows[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5);
    rows[1] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
    rows[2] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
    rows[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
}

inline void Transpose(Lanes8 (&rows)[8]) noexcept
{
    Lanes8 pairs[8], quads[8];
    for (int i = 0; i < 8; i += 2) {
        pairs[i] = __builtin_shufflevector(rows[i], rows[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
        pairs[i + 1] = __builtin_shufflevector(rows[i], rows[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
    }
    for (int i = 0; i < 8; i += 4) {
        for (int half = 0; half < 2; ++half) {
            const Lanes8 left = pairs[i + half], right = pairs[i + 2 + half];
            quads[i + 2 * half] = __builtin_shufflevector(left, right, 0, 1, 8, 9, 4, 5, 12, 13);
            quads[i + 2 * half + 1] = __builtin_shufflevector(left, right, 2, 3, 10, 11, 6, 7, 14, 15);
        }
    }
    for (int i = 0; i < 4; ++i) {
        rows[i] = __builtin_shufflevector(quads[i], quads[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        rows[i + 4] = __builtin_shufflevector(quads[i], quads[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}

// `kChannels` channels, `kChannels` frames at a time; returns the frames done.
template <typename Lanes, unsigned kChannels>
size_t InterleaveSquares(const float* const* channels, float* interleaved, size_t stride, size_t frames) noexcept
{
    Lanes rows[kChannels];
    size_t frame = 0;
    for (; frame + kChannels <= frames; frame += kChannels) {
        for (unsigned i = 0; i < kChannels; ++i) Load(rows[i], channels[i] + frame);
        Transpose(rows);
        for (unsigned i = 0; i < kChannels; ++i) Save(rows[i], interleaved + (frame + i) * stride);
    }
    return frame;
}

template <typename Lanes, unsigned kChannels>
size_t DeinterleaveSquares(const float* interleaved, size_t stride, float* const* channels, size_t frames) noexcept
{
    Lanes rows[kChannels];
    size_t frame = 0;
    for (; frame + kChannels <= frames; frame += kChannels) {
        for (unsigned i = 0; i < kChannels; ++i) Load(rows[i], interleaved + (frame + i) * stride);
        Transpose(rows);
        for (unsigned i = 0; i < kChannels; ++i) Save(rows[i], channels[i] + frame);
    }
    return frame;
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

void Interleave(const float* const* channels, unsigned count, float* interleaved, size_t stride, size_t frames) noexcept
{
    if (count == 2 && stride == 2) return InterleavePair(channels[0], channels[1], interleaved, frames);
    unsigned channel = 0;
    while (channel < count) {
        const unsigned left = count - channel;
        const unsigned group = left >= 8 ? 8 : left >= 4 ? 4 : 1;
        size_t frame = 0;
        if (group == 8) frame = InterleaveSquares<Lanes8, 8>(channels + channel, interleaved + channel, stride, frames);
        if (group == 4) frame = InterleaveSquares<Lanes4, 4>(channels + channel, interleaved + channel, stride, frames);
        for (; frame < frames; ++frame)
            for (unsigned i = channel; i < channel + group; ++i) interleaved[frame * stride + i] = channels[i][frame];
        channel += group;
    }
}

void Deinterleave(const float* interleaved, size_t stride, float* const* channels, unsigned count,
                  size_t frames) noexcept
{
    if (count == 2 && stride == 2) return DeinterleavePair(interleaved, channels[0], channels[1], frames);
    unsigned channel = 0;
    while (channel < count) {
        const unsigned left = count - channel;
        const unsigned group = left >= 8 ? 8 : left >= 4 ? 4 : 1;
        size_t frame = 0;
        if (group == 8)
            frame = DeinterleaveSquares<Lanes8, 8>(interleaved + channel, stride, channels + channel, frames);
        if (group == 4)
            frame = DeinterleaveSquares<Lanes4, 4>(interleaved + channel, stride, channels + channel, frames);
        for (; frame < frames; ++frame)
            for (unsigned i = channel; i < channel + group; ++i) channels[i][frame] = interleaved[frame * stride + i];
        channel += group;
    }
}

constexpr VectorLoops kLoops{Add, ScaleAndAdd, Clip, Interleave, Deinterleave};

}  // namespace
}  // namespace platform::vector::loops
