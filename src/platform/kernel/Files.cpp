#include "platform/kernel/Files.h"

#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <string>

namespace platform::kernel
{

namespace
{

std::string Resolved(const char* path)
{
    return machine::Machine::Current().GetFiles().Resolve(path);
}

FileTimes TimesOf(const struct stat& status)
{
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, uint64_t(status.st_size)};
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
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) return nullptr;
    void* address = mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (address == MAP_FAILED) return nullptr;
    *bytes = size_t(status.st_size);
    return static_cast<const uint8_t*>(address);
}

void UnmapFile(const uint8_t* address, size_t bytes)
{
    munmap(const_cast<uint8_t*>(address), bytes);
}

}  // namespace platform::kernel
