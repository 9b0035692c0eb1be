// CFUUID: 128-bit identifiers, of factories and of interface versions.
// Start at CFUUIDGetConstantUUIDWithBytes.
#pragma once

#include "platform/foundation/CFBase.h"

struct CFUUIDBytes {
    uint8_t byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
    uint8_t byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
};

namespace cf {

/// 16 bytes.
class UUID final : public Object {
public:
    static constexpr CFTypeID kTypeID = kUUIDType;
    explicit UUID(CFUUIDBytes bytes) : mBytes(bytes) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    /// In hexadecimal capitals, in groups of 4, 2, 2, 2 and 6 bytes.
    std::string Describe() const override;

    const CFUUIDBytes& Get() const { return mBytes; }

private:
    const CFUUIDBytes mBytes;
};

}  // namespace cf

/// An identifier of these bytes, which the caller releases.
CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
/// An identifier that lives as long as the process, the same object for the same bytes.
CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, uint8_t byte0, uint8_t byte1, uint8_t byte2,
                                         uint8_t byte3, uint8_t byte4, uint8_t byte5, uint8_t byte6, uint8_t byte7,
                                         uint8_t byte8, uint8_t byte9, uint8_t byte10, uint8_t byte11, uint8_t byte12,
                                         uint8_t byte13, uint8_t byte14, uint8_t byte15);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);
