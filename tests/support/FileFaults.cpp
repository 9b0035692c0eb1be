#include "support/FileFaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

bool Fails(char call)
{
    support::FileFaults* const faults = support::FileFaults::sCurrent;
    if (!faults) return false;
    faults->mOrder += call;
    if (!faults->FailsNow()) return false;
    if (faults->mDies) _exit(0);
    errno = faults->mError;
    return true;
}

size_t Taken(size_t bytes)
{
    return support::FileFaults::sCurrent ? std::min(bytes, support::FileFaults::sCurrent->mMostBytes) : bytes;
}

bool IsFolder(int file)
{
    struct stat status;
    return fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

// A call named in the linker's list arrives at __wrap_..., and finds the system's as __real_...
#define WRAP(result, call, letter, parameters, ...) \
    extern "C" result __real_##call parameters;     \
    extern "C" result __wrap_##call parameters      \
    {                                               \
        return Fails(letter) ? -1 : __VA_ARGS__;    \
    }

// Where the caller leaves the mode out, the system looks at none.
WRAP(int, open, 'o', (const char* path, int flags, mode_t mode), __real_open(path, flags, mode))
WRAP(int, openat, 'o', (int at, const char* path, int flags, mode_t mode), __real_openat(at, path, flags, mode))
WRAP(int, rename, 'r', (const char* from, const char* to), __real_rename(from, to))
WRAP(int, renameat, 'r', (int a, const char* from, int b, const char* to), __real_renameat(a, from, b, to))
WRAP(int, ftruncate, 't', (int file, off_t bytes), __real_ftruncate(file, bytes))
WRAP(ssize_t, write, 'w', (int file, const void* data, size_t bytes), __real_write(file, data, Taken(bytes)))
WRAP(ssize_t, pwrite, 'p', (int file, const void* data, size_t bytes, off_t at),
     __real_pwrite(file, data, Taken(bytes), at))
// Nothing reaches the disk sooner for a test.
WRAP(int, fsync, IsFolder(file) ? 'd' : 'f', (int file), 0)

extern "C" int __real_close(int file);
extern "C" int __wrap_close(int file)
{
    const int result = __real_close(file);
    return Fails('c') ? -1 : result;
}
