#include "platform/machine/linux/LinuxMemory.h"

#include "platform/machine/linux/BoundedFile.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <charconv>

namespace platform::machine {

namespace {

/// Bytes that this process has locked, as the kernel counts them against the limit.
uint64_t LockedBytes()
{
    const std::string status = ReadBoundedFile("/proc/self/status", 64 * 1024).value_or("");
    const std::string_view field = "VmLck:";
    const size_t at = status.find(field);
    if (at == std::string::npos) return 0;
    const size_t digits = status.find_first_of("0123456789", at + field.size());
    uint64_t kibibytes = 0;
    if (digits != std::string::npos) std::from_chars(&status[digits], status.data() + status.size(), kibibytes);
    return kibibytes * 1024;
}

uint64_t LockableBytes()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0) return 0;
    const uint64_t locked = LockedBytes();
    return limit.rlim_cur > locked ? limit.rlim_cur - locked : 0;
}

}  // namespace

size_t LinuxMemory::PageBytes()
{
    static const size_t sPageBytes = size_t(sysconf(_SC_PAGESIZE));
    return sPageBytes;
}

void* LinuxMemory::Allocate(size_t bytes)
{
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return address == MAP_FAILED ? nullptr : address;
}

void LinuxMemory::Free(void* address, size_t bytes)
{
    munmap(address, bytes);  // fails for a range that is not ours alone, and then nothing was freed
}

int LinuxMemory::Protect(void* address, size_t bytes, bool read, bool write, bool execute)
{
    const int plain = (read ? PROT_READ : 0) | (write ? PROT_WRITE : 0);
    if (execute) {
        mExecutableAsked = true;
        if (mprotect(address, bytes, plain | PROT_EXEC) == 0) return 0;
        if (errno != EACCES && errno != EPERM) return errno;
        mExecutableRefused = true;
    }
    return mprotect(address, bytes, plain) == 0 ? 0 : errno;
}

int LinuxMemory::Lock(void* address, size_t bytes)
{
    // Faults the pages in for writing without changing a byte, whoever writes there meanwhile. A range that
    // may not be written, and a kernel that does not know the call, leave it to the lock.
    if (madvise(address, bytes, MADV_POPULATE_WRITE) != 0 && errno == ENOMEM) return ENOMEM;
    mBytesAskedToLock += bytes;
    mBytesLocked += LockWhatFits(address, bytes);
    return 0;
}

size_t LinuxMemory::LockWhatFits(void* address, size_t bytes)
{
    if (mlock(address, bytes) == 0) return bytes;
    const size_t page = PageBytes();
    const size_t fits = std::min<uint64_t>(LockableBytes(), bytes) / page * page;
    return fits != 0 && mlock(address, fits) == 0 ? fits : 0;
}

std::string LinuxMemory::Describe()
{
    const uint64_t asked = mBytesAskedToLock, locked = mBytesLocked;
    std::string text = "Memory: ";
    if (asked == 0) {
        text += "nothing was asked to be locked";
    } else if (locked == asked) {
        text += "all of the " + std::to_string(asked / 1024) + " KiB asked for are locked";
    } else {
        text += std::to_string(locked / 1024) + " of the " + std::to_string(asked / 1024) +
                " KiB asked for are locked, as far as the limit (ulimit -l) allows";
    }
    if (mExecutableAsked)
        text += mExecutableRefused ? "; executable pages were refused, and are not needed"
                                   : "; executable pages were had as asked for";
    return text + ".";
}

}  // namespace platform::machine
