// What AudioSupport.bundle exports: its entry, and nothing else.
#include "tap/Service.h"

platform::kernel::IOService* CorvaneCreateService()
{
    return new tap::Service;
}
