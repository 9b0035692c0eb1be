#include "platform/machine/linux/LinuxClock.h"

#include "platform/machine/linux/HostTimespec.h"

#include <cerrno>
#include <ctime>

namespace platform::machine {

uint64_t LinuxClock::NowNanos()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1'000'000'000 + uint64_t(now.tv_nsec);
}

void LinuxClock::SleepUntil(uint64_t nanos)
{
    const timespec until = HostTimespec(nanos);
    // An absolute time makes going back to sleep after a signal exact.
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

}  // namespace platform::machine
