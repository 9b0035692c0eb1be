// SymbolLookup: values of kernel symbols, out of the kernel's file, for the tap service.
// Why: the service needs addresses that it cannot link against, and asks its client to look them up.
// Request and reply are wire formats; the file is untrusted, so every offset in it is checked.
// Start at AnswerSymbolRequest.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace avcapture {

/// A longer request is refused.
constexpr uint32_t kLargestSymbolRequestBytes = 64u << 10;

/// Looks up the names of a request in the kernel's file and makes the reply.
///
/// The file is /var/run/mach.sym, or /mach.sym before system version 0x1050, unless it is missing or older
/// than /mach_kernel, which is taken then.
///
/// @param names  symbol names, each ended by a NUL, the whole by an empty name
/// @return       0; the error number where /mach_kernel cannot be looked at beside a symbol file;
///               kIOReturnNotFound for a malformed request, a file or an image that cannot be had, and a
///               symbol that is missing or 0
int32_t AnswerSymbolRequest(uint32_t systemVersion, std::span<const char> names, std::vector<uint8_t>& reply);

/// The image for a processor type in a kernel's file: the first entry of that type in a universal file of
/// either byte order, or a plain 32-bit file itself. Empty where there is none.
std::span<const uint8_t> GetNativeArch(std::span<const uint8_t> file, uint32_t cpuType);

/// The value of a symbol in a 32-bit image; 0 where it is missing, or the image is malformed.
uint32_t FindSymbol(std::span<const uint8_t> image, std::string_view name);

}  // namespace avcapture
