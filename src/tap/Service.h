// Service: `com_Ostrel_AudioSupport`, where a tap's client begins.
// Start at Open; a connection is a UserClient.
#pragma once

#include "platform/kernel/IOKit.h"

namespace tap {

class Service final : public platform::kernel::IOService {
public:
    const char* GetClass() const override { return "com_Ostrel_AudioSupport"; }
    /// "version" is the number 2: play-through, symbol exchange, rates as whole part and 2^-32 fraction.
    CFTypeRef CopyProperty(CFStringRef key) override;
    /// @param type  0, the only kind of connection there is; kIOReturnUnsupported otherwise
    kern_return_t Open(uint32_t type, std::unique_ptr<platform::kernel::IOUserClient>& client) override;
};

}  // namespace tap
