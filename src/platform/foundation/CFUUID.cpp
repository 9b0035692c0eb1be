#include "platform/foundation/CFUUID.h"

#include "platform/kernel/MutexGuard.h"

#include <cstdio>
#include <functional>
#include <map>

namespace cf {

bool UUID::IsEqual(const Object& other) const
{
    return Describe() == other.Describe();
}

CFHashCode UUID::Hash() const
{
    return std::hash<std::string>()(Describe());
}

std::string UUID::Describe() const
{
    const CFUUIDBytes& b = mBytes;
    char text[37];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b.byte0,
                  b.byte1, b.byte2, b.byte3, b.byte4, b.byte5, b.byte6, b.byte7, b.byte8, b.byte9, b.byte10, b.byte11,
                  b.byte12, b.byte13, b.byte14, b.byte15);
    return text;
}

}  // namespace cf

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes)
{
    return new cf::UUID(bytes);
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, uint8_t byte0, uint8_t byte1, uint8_t byte2, uint8_t byte3,
                                         uint8_t byte4, uint8_t byte5, uint8_t byte6, uint8_t byte7, uint8_t byte8,
                                         uint8_t byte9, uint8_t byte10, uint8_t byte11, uint8_t byte12, uint8_t byte13,
                                         uint8_t byte14, uint8_t byte15)
{
    // Neither is ever destroyed: constants are used until the last line of the process.
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static auto& constants = *new std::map<std::string, cf::Ref<cf::UUID>>;
    auto uuid = cf::Ref<cf::UUID>::Adopt(new cf::UUID({byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8,
                                                       byte9, byte10, byte11, byte12, byte13, byte14, byte15}));
    const platform::kernel::MutexGuard guard(mutex);
    return constants.emplace(uuid.Get()->Describe(), uuid).first->second.Get();
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid)
{
    return uuid->Get();
}
