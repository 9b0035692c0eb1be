#include "platform/machine/simulated/SimulatedMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace platform::machine::simulated {

namespace {

/// Counts down. @return whether this call is the one that fails
bool Fails(std::atomic<uint64_t>& left)
{
    const uint64_t now = left.load(std::memory_order_relaxed);
    if (now == 0) return false;
    left.store(now - 1, std::memory_order_relaxed);
    return now == 1;
}

}  // namespace

size_t SimulatedMemory::PageBytes()
{
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

void* SimulatedMemory::Allocate(size_t bytes)
{
    if (Fails(mAllocationsLeft)) return nullptr;
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return address == MAP_FAILED ? nullptr : address;
}

void SimulatedMemory::Free(void* address, size_t bytes)
{
    munmap(address, bytes);
}

int SimulatedMemory::Protect(void* address, size_t bytes, bool read, bool write, bool)
{
    return mprotect(address, bytes, (read ? PROT_READ : 0) | (write ? PROT_WRITE : 0)) == 0 ? 0 : errno;
}

int SimulatedMemory::Lock(void* address, size_t bytes)
{
    if (Fails(mLocksLeft)) return ENOMEM;
    return madvise(address, bytes, MADV_POPULATE_WRITE) == 0 || errno == EINVAL ? 0 : errno;
}

std::string SimulatedMemory::Describe()
{
    return "Memory of the simulated machine is neither locked nor executable.";
}

}  // namespace platform::machine::simulated
