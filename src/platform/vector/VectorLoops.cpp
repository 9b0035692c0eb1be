#include "platform/vector/VectorLoops.h"

#include "platform/vector/VectorLoops.inl"

namespace platform::vector::loops {

const VectorLoops kBaselineVectorLoops = kLoops;

const VectorLoops& BestVectorLoops() noexcept
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return kWideVectorLoops;
#endif
    return kBaselineVectorLoops;
}

}  // namespace platform::vector::loops
