#include "platform/vector/ResamplerLoops.h"

#if defined(__x86_64__)
#pragma GCC target("avx2,fma")
#endif

#include "platform/vector/ResamplerLoops.inl"

namespace platform::vector::loops {

const Loops kWide{Convolve<1>, Convolve<2>};

}  // namespace platform::vector::loops
