// A service that tells where the platform lies, as seen from a bundle, and the how manyeth service it is.
#include "platform/kernel/IOKit.h"
#include "platform/machine/Machine.h"

namespace {

class Witness final : public platform::kernel::IOService {
public:
    const char* GetClass() const override { return "org_corvane_Witness"; }
    CFTypeRef CopyProperty(CFStringRef key) override
    {
        if (key == CFSTR("constant")) return CFRetain(CFSTR("made by whoever comes first"));
        if (key == CFSTR("machine")) return Number(reinterpret_cast<int64_t>(&platform::machine::Machine::Current()));
        return key == CFSTR("number") ? Number(mNumber) : nullptr;
    }
    kern_return_t Open(uint32_t, std::unique_ptr<platform::kernel::IOUserClient>&) override
    {
        return kIOReturnUnsupported;
    }

private:
    static CFTypeRef Number(int64_t value) { return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value); }

    static inline int64_t sMade = 0;
    const int64_t mNumber = ++sMade;
};

}  // namespace

platform::kernel::IOService* CorvaneCreateService()
{
    return new Witness;
}
