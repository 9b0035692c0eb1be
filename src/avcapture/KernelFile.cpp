#include "avcapture/KernelFile.h"

#include "platform/kernel/Files.h"
#include "platform/kernel/IOKit.h"

#include <cerrno>
#include <tuple>

namespace kernel = platform::kernel;

namespace avcapture {
namespace {

constexpr const char* kKernelPath = "/mach_kernel";
constexpr uint32_t kSymbolsInRunFolder = 0x1050;

bool IsOlder(const kernel::FileTimes& a, const kernel::FileTimes& b)
{
    return std::tie(a.mModifiedSeconds, a.mModifiedNanos) < std::tie(b.mModifiedSeconds, b.mModifiedNanos);
}

}  // namespace

KernelFile::~KernelFile()
{
    if (mBytes) kernel::UnmapFile(mBytes, mSize);
    if (mDescriptor >= 0) kernel::close(mDescriptor);
}

int32_t KernelFile::Open(uint32_t systemVersion)
{
    if (const int32_t error = OpenNewest(systemVersion)) return error;
    if (mDescriptor < 0) return kIOReturnNotFound;
    mBytes = kernel::MapWholeFile(mDescriptor, &mSize);
    return mBytes ? 0 : kIOReturnNotFound;
}

int32_t KernelFile::OpenNewest(uint32_t systemVersion)
{
    mDescriptor = kernel::open(systemVersion < kSymbolsInRunFolder ? "/mach.sym" : "/var/run/mach.sym");
    if (mDescriptor >= 0) {
        kernel::FileTimes kernelTimes{}, symbolTimes{};
        if (kernel::stat(kKernelPath, &kernelTimes) != 0) return errno;
        if (kernel::fstat(mDescriptor, &symbolTimes) == 0 && !IsOlder(symbolTimes, kernelTimes)) return 0;
        kernel::close(mDescriptor);
    }
    mDescriptor = kernel::open(kKernelPath);
    return 0;
}

}  // namespace avcapture
