#include "avcapture/TapService.h"

namespace avcapture {

IOObject FindTapService()
{
    io_iterator_t found = IO_OBJECT_NULL;
    if (IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("com_Ostrel_AudioSupport"), &found))
        return {};
    const IOObject iterator(found);
    IOObject first(IOIteratorNext(found));
    while (const IOObject rest{IOIteratorNext(found)}) {
    }
    return first;
}

int32_t ReadTapVersion(const IOObject& service)
{
    const auto property = cf::Ref<cf::Object>::Adopt(
        IORegistryEntryCreateCFProperty(service.Get(), CFSTR("version"), kCFAllocatorDefault, 0));
    if (!property || CFGetTypeID(property.Get()) != CFNumberGetTypeID()) return 0;
    int32_t version = 0;
    // A number that has to be cut to 32 bits is taken as cut.
    CFNumberGetValue(reinterpret_cast<CFNumberRef>(property.Get()), kCFNumberSInt32Type, &version);
    return version;
}

}  // namespace avcapture
