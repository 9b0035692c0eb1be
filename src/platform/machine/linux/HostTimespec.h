// HostTimespec: nanoseconds of the host clock as the record that POSIX calls take.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform::machine {

inline timespec HostTimespec(uint64_t nanos)
{
    constexpr uint64_t kNanosPerSecond = 1'000'000'000;
    return {.tv_sec = time_t(nanos / kNanosPerSecond), .tv_nsec = long(nanos % kNanosPerSecond)};
}

}  // namespace platform::machine
