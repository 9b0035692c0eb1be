// RingMemory: what the two threads of a CARingBuffer share, on a real machine.
// Why: samples move by memcpy, five times as fast as atomic words, although a writer may lap its reader. The reader's
// copy is worth nothing until its second look at the span accepts it, so that copy, and no other, is hidden from
// the race detector.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SANITIZE_THREAD__)
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char* file, int line);
#endif

struct RingMemory {
    template <typename T>
    using Atomic = std::atomic<T>;

    // Publications until an entry is used again: what a reader has to be held up for before it must try again.
    static constexpr uint32_t kTimeBoundsEntries = 32;

    static void CopyIn(std::byte* to, const void* from, size_t bytes) noexcept { std::memcpy(to, from, bytes); }
    static void Silence(std::byte* to, size_t bytes) noexcept { std::memset(to, 0, bytes); }

    static void CopyOut(void* to, const std::byte* from, size_t bytes) noexcept
    {
#if defined(__SANITIZE_THREAD__)
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        std::memcpy(to, from, bytes);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
#else
        std::memcpy(to, from, bytes);
#endif
    }

    // The race detector does not know fences. It need not: they order nothing but the copy that is hidden from it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wtsan"
    static void Fence(std::memory_order order) noexcept
    {
        std::atomic_thread_fence(order);
    }
#pragma GCC diagnostic pop
};
