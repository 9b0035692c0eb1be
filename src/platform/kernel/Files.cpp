#include "platform/kernel/Files.h"

#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <string>

namespace platform::kernel {

namespace {

constexpr off_t kMostBytes = 256 * 1024 * 1024;  // several times any file that is looked into

std::string Resolved(const char* path)
{
    return machine::Machine::Current().GetFiles().Resolve(path);
}

FileTimes TimesOf(const struct stat& status)
{
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

machine::Memory& CurrentMemory()
{
    return machine::Machine::Current().GetMemory();
}

/// Whether all `size` bytes are there to be read: the file may be cut at any time.
bool ReadWhole(int descriptor, uint8_t* content, size_t size)
{
    for (size_t at = 0; at < size;) {
        const ssize_t got = pread(descriptor, content + at, size - at, off_t(at));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        at += size_t(got);
    }
    return true;
}

}  // namespace

int open(const char* path)
{
    return ::open(Resolved(path).c_str(), O_RDONLY | O_CLOEXEC);
}

int close(int descriptor)
{
    return ::close(descriptor);
}

int stat(const char* path, FileTimes* times)
{
    struct stat status;
    if (::stat(Resolved(path).c_str(), &status) != 0) return -1;
    *times = TimesOf(status);
    return 0;
}

int fstat(int descriptor, FileTimes* times)
{
    struct stat status;
    if (::fstat(descriptor, &status) != 0) return -1;
    *times = TimesOf(status);
    return 0;
}

const uint8_t* MapWholeFile(int descriptor, size_t* bytes)
{
    *bytes = 0;
    struct stat status;
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    if (status.st_size <= 0 || status.st_size > kMostBytes) return nullptr;

    const size_t size = size_t(status.st_size);
    auto* content = static_cast<uint8_t*>(CurrentMemory().Allocate(size));
    if (!content) return nullptr;
    if (!ReadWhole(descriptor, content, size)) {
        CurrentMemory().Free(content, size);
        return nullptr;
    }
    *bytes = size;
    return content;
}

void UnmapFile(const uint8_t* address, size_t bytes)
{
    CurrentMemory().Free(const_cast<uint8_t*>(address), bytes);
}

}  // namespace platform::kernel
