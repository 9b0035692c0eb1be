// KernelFile: the file that kernel symbols are looked up in, mapped into memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace avcapture {

class KernelFile {
public:
    KernelFile() = default;
    KernelFile(const KernelFile&) = delete;
    KernelFile& operator=(const KernelFile&) = delete;
    ~KernelFile();

    /// Chooses the file and maps it; once. A symbol file as old as the kernel is as good as a newer one.
    ///
    /// @return 0; the error number where /mach_kernel cannot be looked at beside a symbol file;
    ///         kIOReturnNotFound where no file can be opened or mapped
    int32_t Open(uint32_t systemVersion);

    /// The whole file, while this object lives.
    std::span<const uint8_t> Bytes() const { return {mBytes, mSize}; }

private:
    int32_t OpenNewest(uint32_t systemVersion);

    int mDescriptor = -1;
    const uint8_t* mBytes = nullptr;
    size_t mSize = 0;
};

}  // namespace avcapture
