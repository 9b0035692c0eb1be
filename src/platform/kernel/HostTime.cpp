#include "platform/kernel/HostTime.h"

#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

using platform::machine::Machine;

uint64_t mach_absolute_time()
{
    return Machine::Current().GetClock().NowNanos();
}

int mach_timebase_info(mach_timebase_info_data_t* info)
{
    *info = {.numer = 1, .denom = 1};
    return 0;
}

uint64_t UpTime()
{
    return mach_absolute_time();
}

uint64_t AbsoluteToNanoseconds(uint64_t ticks)
{
    return ticks;
}
