// VectorLoops: the inner loops of VectorKernels, compiled once an instruction set from VectorLoops.inl.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::vector {

struct Crosspoint;

namespace loops {

struct VectorLoops {
    void (*add)(const float* a, const float* b, float* c, size_t count) noexcept;
    void (*scaleAndAdd)(const float* a, float scale, const float* c, float* d, size_t count) noexcept;
    void (*clip)(const float* a, float low, float high, float* d, size_t count) noexcept;
    size_t (*clipCounting)(const float* a, float low, float high, float* d, size_t count) noexcept;
    void (*interleave)(const float* const* channels, unsigned count, float* interleaved, size_t stride,
                       size_t frames) noexcept;
    void (*deinterleave)(const float* interleaved, size_t stride, float* const* channels, unsigned count,
                         size_t frames) noexcept;
    void (*toInt16)(const float* a, float scale, uint16_t* d, size_t count) noexcept;
    void (*toSwappedInt16)(const float* a, float scale, uint16_t* d, size_t count) noexcept;
    void (*mix)(const Crosspoint* crosspoints, size_t count, const float* const* inputs, float* const* outputs,
                unsigned outputCount, size_t frames) noexcept;
};

/// The fastest set that this processor runs.
const VectorLoops& BestVectorLoops() noexcept;

/// The sets themselves. Wide runs only where the processor has AVX2.
extern const VectorLoops kBaselineVectorLoops;
extern const VectorLoops kWideVectorLoops;

}  // namespace loops
}  // namespace platform::vector
