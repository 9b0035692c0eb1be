#include "tap/Service.h"

#include "platform/foundation/CFDictionary.h"
#include "tap/UserClient.h"

namespace tap {

CFTypeRef Service::CopyProperty(CFStringRef key)
{
    if (!key || !CFEqual(key, CFSTR("version"))) return nullptr;
    const int32_t version = 2;
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &version);
}

kern_return_t Service::Open(uint32_t type, std::unique_ptr<platform::kernel::IOUserClient>& client)
{
    if (type != 0) return kIOReturnUnsupported;
    client = std::make_unique<UserClient>();
    return kIOReturnSuccess;
}

}  // namespace tap
