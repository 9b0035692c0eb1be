// AllocationFaults: allocations of this program and its libraries as calls that a test makes fail. For one source of a
// program: it replaces operator new, and what buffer lists are allocated by.
#pragma once

#include "support/Faults.h"

#include <cstdlib>
#include <new>

namespace support {
// A thread's own: the system's libraries allocate on others, and do not bear that it fails. Null: none fails.
inline thread_local Faults* sAllocationFaults = nullptr;

inline bool AllocationFailsNow()
{
    return sAllocationFaults && sAllocationFaults->FailsNow();
}
}  // namespace support

// Not inlined: the compiler would judge the pairs by halves.
[[gnu::noinline]] void* operator new(size_t bytes, const std::nothrow_t&) noexcept
{
    return support::AllocationFailsNow() ? nullptr : std::malloc(bytes);
}
[[gnu::noinline]] void* operator new(size_t bytes)
{
    if (void* const memory = operator new(bytes, std::nothrow)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* aligned_alloc(size_t alignment, size_t bytes) noexcept
{
    void* memory = nullptr;
    return support::AllocationFailsNow() || posix_memalign(&memory, alignment, bytes) != 0 ? nullptr : memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
