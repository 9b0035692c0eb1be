// Files: looking into files at well-known places, by whole-file mapping.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::kernel {

struct FileTimes {
    int64_t mModifiedSeconds;
    int64_t mModifiedNanos;
    uint64_t mBytes;
};

/// Opens a well-known path for reading. @return a descriptor, or -1 with errno
int open(const char* path);
int close(int descriptor);
/// @return 0, or -1 with errno
int stat(const char* path, FileTimes* times);
int fstat(int descriptor, FileTimes* times);

/// Maps the whole file, read-only and private. @return null where that fails or the file is empty
const uint8_t* MapWholeFile(int descriptor, size_t* bytes);
void UnmapFile(const uint8_t* address, size_t bytes);

}  // namespace platform::kernel
