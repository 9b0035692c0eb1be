// SimulatedMemory: real memory that fails when a test says so.
#pragma once

#include "platform/machine/Memory.h"

#include <atomic>
#include <cstdint>

namespace platform::machine::simulated {

class SimulatedMemory final : public Memory {
public:
    size_t PageBytes() override;
    void* Allocate(size_t bytes) override;
    void Free(void* address, size_t bytes) override;
    /// Executable pages are never had, and not missed.
    int Protect(void* address, size_t bytes, bool read, bool write, bool execute) override;
    /// Touches the pages; locks nothing, since time does not pass on a fault here.
    int Lock(void* address, size_t bytes) override;
    std::string Describe() override;

    /// The K-th allocation from now, counted from 1, finds no memory. 0: none fails.
    void FailAllocation(uint64_t k) { mAllocationsLeft = k; }
    /// The same for Lock, with ENOMEM.
    void FailLock(uint64_t k) { mLocksLeft = k; }

private:
    // Stored by the test, counted down by whoever calls; they guard no other memory.
    std::atomic<uint64_t> mAllocationsLeft{0};
    std::atomic<uint64_t> mLocksLeft{0};
};

}  // namespace platform::machine::simulated
