#include "platform/vector/ResamplerLoops.h"

#include "platform/vector/ResamplerLoops.inl"

namespace platform::vector::loops {

const Loops kBaseline{Convolve<1>, Convolve<2>};

namespace {

bool HasWide() noexcept
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#else
    return false;
#endif
}

// Of the processors with lanes of sixteen, the first generation slows its clock down for all that runs beside them.
// Those after it can be told by VBMI2.
bool HasWidest() noexcept
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vbmi2");
#else
    return false;
#endif
}

}  // namespace

const Loops& Best() noexcept
{
    return HasWidest() ? kWidest : HasWide() ? kWide : kBaseline;
}

}  // namespace platform::vector::loops
