#include "platform/vector/ResamplerLoops.h"

#if defined(__x86_64__)
#pragma GCC target("avx512f,avx2,fma")
#define CORVANE_LANES_OF_SIXTEEN
#endif

#include "platform/vector/ResamplerLoops.inl"

namespace platform::vector::loops {

const Loops kWidest{Convolve<1>, Convolve<2>};

}  // namespace platform::vector::loops
