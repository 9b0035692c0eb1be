// VectorKernels: arithmetic on runs of floats under its published names, the weaving of channels, integers, mixing.
// Why: clipping, summing, weaving and conversion are what a cycle does to every sample. The loops are compiled twice,
// for the oldest 64-bit processor and for lanes of eight, and add and round the same way in both. Strides are in
// samples. Outputs may be inputs, sample for sample, but not overlap them otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

using vDSP_Stride = ptrdiff_t;
using vDSP_Length = size_t;

/// c = a + b. @realtime yes
void vDSP_vadd(const float* a, vDSP_Stride strideA, const float* b, vDSP_Stride strideB, float* c, vDSP_Stride strideC,
               vDSP_Length count);

/// d = a * *b + c, rounded after each of the two. @realtime yes
void vDSP_vsma(const float* a, vDSP_Stride strideA, const float* b, const float* c, vDSP_Stride strideC, float* d,
               vDSP_Stride strideD, vDSP_Length count);

/// d = a limited to [*low, *high]; what is not a number passes. @realtime yes
void vDSP_vclip(const float* a, vDSP_Stride strideA, const float* low, const float* high, float* d, vDSP_Stride strideD,
                vDSP_Length count);

namespace platform::vector {

/// The most channels that are woven at a time.
constexpr unsigned kWeaveChannels = 8;

/// Limits samples as vDSP_vclip does, in a run, and counts those that it cut. @realtime yes
size_t ClipCounting(const float* samples, float low, float high, float* limited, size_t count) noexcept;

/// Puts `count` channels beside each other into frames of `stride` samples: interleaved[k * stride + c].
///
/// @param count  1 .. kWeaveChannels
/// @realtime     yes
void Interleave(const float* const* channels, unsigned count, float* interleaved, size_t stride,
                size_t frames) noexcept;

/// The reverse. @realtime yes
void Deinterleave(const float* interleaved, size_t stride, float* const* channels, unsigned count,
                  size_t frames) noexcept;

/// Integers of floats: sample x scale in single precision, truncated towards zero, of which the low 16 bits are
/// kept. What does not fit 32 bits, and what is no number, gives 0.
///
/// @param swapped  whether each integer is stored in the other byte order
/// @realtime       yes
void ToInt16(const float* samples, float scale, bool swapped, uint16_t* integers, size_t count) noexcept;

/// Where a matrix of gains is not zero: how much of one input goes into one output.
struct Crosspoint {
    uint32_t mInput;
    uint32_t mOutput;
    float mGain;      ///< at the block's first frame
    float mNextGain;  ///< at the frame after its last, on an even way: the next block's mGain, so that no step is heard
};

/// Mixes: each output becomes the sum of its inputs, each times its gain; one without any becomes silence. What goes
/// through alone at a gain of 1 stays bit exact. The cost is that of the crosspoints listed, so leave out those that
/// are and stay 0.
///
/// @param crosspoints  ascending by output; the sum is made in their order
/// @param inputs       one pointer a channel. Where many lie at multiples of 2 KiB from each other, the processor's
///                     cache holds few of them: 64 bytes more between two are worth up to half the time
/// @param outputs      `outputCount` of them; must not overlap the inputs
/// @realtime           yes: O(crosspoints x frames)
void MixMatrix(const Crosspoint* crosspoints, size_t count, const float* const* inputs, float* const* outputs,
               unsigned outputCount, size_t frames) noexcept;

}  // namespace platform::vector
