// Files: looking into files at well-known places, whole and in memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::kernel {

struct FileTimes {
    int64_t mModifiedSeconds;
    int64_t mModifiedNanos;
};

/// Opens a well-known path for reading. @return a descriptor, or -1 with errno
int open(const char* path);
int close(int descriptor);
/// @return 0, or -1 with errno
int stat(const char* path, FileTimes* times);
int fstat(int descriptor, FileTimes* times);

/// The whole file in pages of its own, which UnmapFile gives back. A copy: of a mapped file that another
/// process cuts, the next look would be a fault.
/// @return null where the file is empty, longer than 256 MiB, not regular or cannot be read
const uint8_t* MapWholeFile(int descriptor, size_t* bytes);
void UnmapFile(const uint8_t* address, size_t bytes);

}  // namespace platform::kernel
