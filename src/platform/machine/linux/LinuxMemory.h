// LinuxMemory: pages from mmap, with what a hardened or limited process can have of protection and locking.
#pragma once

#include "platform/machine/Memory.h"

#include <atomic>
#include <cstdint>

namespace platform::machine {

class LinuxMemory final : public Memory {
public:
    size_t PageBytes() override;
    void* Allocate(size_t bytes) override;
    void Free(void* address, size_t bytes) override;
    int Protect(void* address, size_t bytes, bool read, bool write, bool execute) override;
    int Lock(void* address, size_t bytes) override;
    std::string Describe() override;

private:
    size_t LockWhatFits(void* address, size_t bytes);

    // Counters for Describe: stored by any thread, and they guard no other memory.
    std::atomic<uint64_t> mBytesAskedToLock{0};
    std::atomic<uint64_t> mBytesLocked{0};
    std::atomic<bool> mExecutableAsked{false};
    std::atomic<bool> mExecutableRefused{false};
};

}  // namespace platform::machine
