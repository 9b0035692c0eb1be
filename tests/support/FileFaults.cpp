#include "support/FileFaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

using support::FileFaults;

namespace {

bool Fails(char call)
{
    FileFaults* const faults = FileFaults::sCurrent;
    if (!faults) return false;
    faults->mOrder += call;
    if (!faults->FailsNow()) return false;
    if (faults->mDies) _exit(0);
    errno = faults->mError;
    return true;
}

size_t Taken(size_t bytes)
{
    return FileFaults::sCurrent ? std::min(bytes, FileFaults::sCurrent->mMostBytes) : bytes;
}

bool IsFolder(int file)
{
    struct stat status;
    return fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

extern "C" {
int __real_openat(int folder, const char* path, int flags, ...);
int __real_open(const char* path, int flags, ...);
int __real_close(int file);
int __real_rename(const char* from, const char* to);
int __real_renameat(int fromFolder, const char* from, int toFolder, const char* to);
int __real_ftruncate(int file, off_t bytes);
ssize_t __real_write(int file, const void* data, size_t bytes);
ssize_t __real_pwrite(int file, const void* data, size_t bytes, off_t offset);

int __wrap_open(const char* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;
    va_end(more);
    return Fails('o') ? -1 : __real_open(path, flags, mode);
}
int __wrap_openat(int folder, const char* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;
    va_end(more);
    return Fails('o') ? -1 : __real_openat(folder, path, flags, mode);
}
int __wrap_close(int file)
{
    const int result = __real_close(file);
    return Fails('c') ? -1 : result;
}
int __wrap_fsync(int file)  // nothing reaches the disk sooner for a test
{
    return Fails(IsFolder(file) ? 'd' : 'f') ? -1 : 0;
}
int __wrap_rename(const char* from, const char* to)
{
    return Fails('r') ? -1 : __real_rename(from, to);
}
int __wrap_renameat(int fromFolder, const char* from, int toFolder, const char* to)
{
    return Fails('r') ? -1 : __real_renameat(fromFolder, from, toFolder, to);
}
int __wrap_ftruncate(int file, off_t bytes)
{
    return Fails('t') ? -1 : __real_ftruncate(file, bytes);
}
ssize_t __wrap_write(int file, const void* data, size_t bytes)
{
    return Fails('w') ? -1 : __real_write(file, data, Taken(bytes));
}
ssize_t __wrap_pwrite(int file, const void* data, size_t bytes, off_t offset)
{
    return Fails('p') ? -1 : __real_pwrite(file, data, Taken(bytes), offset);
}
}
