#include "platform/vector/ResamplerLoops.h"

#include "platform/vector/ResamplerLoops.inl"

namespace platform::vector::loops {

const Loops kBaseline{Convolve<1>, Convolve<2>};

const Loops& Best() noexcept
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return kWide;
#endif
    return kBaseline;
}

}  // namespace platform::vector::loops
