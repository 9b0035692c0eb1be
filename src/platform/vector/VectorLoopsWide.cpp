#include "platform/vector/VectorLoops.h"

// Without fused multiply-add: a sum is to be the same on every machine.
#if defined(__x86_64__)
#pragma GCC target("avx2")
#define CORVANE_LANES_OF_EIGHT
#endif

#include "platform/vector/VectorLoops.inl"

namespace platform::vector::loops {

const VectorLoops kWideVectorLoops = kLoops;

}  // namespace platform::vector::loops
