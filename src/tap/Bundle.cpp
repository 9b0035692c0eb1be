// What AudioSupport.bundle exports: its entry, and nothing else.
#include "tap/Service.h"

extern "C" __attribute__((visibility("default"))) platform::kernel::IOService* CorvaneCreateService()
{
    return new tap::Service;
}
