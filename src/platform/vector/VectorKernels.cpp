#include "platform/vector/VectorKernels.h"

#include "platform/vector/VectorLoops.h"

using platform::vector::loops::BestVectorLoops;

namespace {

float Clipped(float value, float low, float high) noexcept
{
    const float raised = low > value ? low : value;
    return high < raised ? high : raised;
}

bool AreDense(vDSP_Stride a, vDSP_Stride b, vDSP_Stride c) noexcept
{
    return a == 1 && b == 1 && c == 1;
}

}  // namespace

void vDSP_vadd(const float* a, vDSP_Stride strideA, const float* b, vDSP_Stride strideB, float* c, vDSP_Stride strideC,
               vDSP_Length count)
{
    if (AreDense(strideA, strideB, strideC)) return BestVectorLoops().add(a, b, c, count);
    for (; count != 0; --count, a += strideA, b += strideB, c += strideC) *c = *a + *b;
}

void vDSP_vsma(const float* a, vDSP_Stride strideA, const float* b, const float* c, vDSP_Stride strideC, float* d,
               vDSP_Stride strideD, vDSP_Length count)
{
    if (AreDense(strideA, strideC, strideD)) return BestVectorLoops().scaleAndAdd(a, *b, c, d, count);
    for (; count != 0; --count, a += strideA, c += strideC, d += strideD) *d = *a * *b + *c;
}

void vDSP_vclip(const float* a, vDSP_Stride strideA, const float* low, const float* high, float* d, vDSP_Stride strideD,
                vDSP_Length count)
{
    if (AreDense(strideA, strideD, 1)) return BestVectorLoops().clip(a, *low, *high, d, count);
    for (; count != 0; --count, a += strideA, d += strideD) *d = Clipped(*a, *low, *high);
}

namespace platform::vector {

size_t ClipCounting(const float* samples, float low, float high, float* limited, size_t count) noexcept
{
    return BestVectorLoops().clipCounting(samples, low, high, limited, count);
}

void Interleave(const float* const* channels, unsigned count, float* interleaved, size_t stride, size_t frames) noexcept
{
    BestVectorLoops().interleave(channels, count, interleaved, stride, frames);
}

void Deinterleave(const float* interleaved, size_t stride, float* const* channels, unsigned count,
                  size_t frames) noexcept
{
    BestVectorLoops().deinterleave(interleaved, stride, channels, count, frames);
}

void ToInt16(const float* samples, float scale, bool swapped, uint16_t* integers, size_t count) noexcept
{
    const auto& loops = BestVectorLoops();
    (swapped ? loops.toSwappedInt16 : loops.toInt16)(samples, scale, integers, count);
}

void MixMatrix(const Crosspoint* crosspoints, size_t count, const float* const* inputs, float* const* outputs,
               unsigned outputCount, size_t frames) noexcept
{
    BestVectorLoops().mix(crosspoints, count, inputs, outputs, outputCount, frames);
}

}  // namespace platform::vector
