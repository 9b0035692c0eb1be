// HostTime: the host clock under its published names. One tick is one nanosecond here: the time base is 1/1.
#pragma once

#include <cstdint>

struct mach_timebase_info_data_t {
    uint32_t numer;
    uint32_t denom;
};

namespace platform::kernel {

constexpr uint64_t kNanosPerSecond = 1'000'000'000;
constexpr uint64_t kNanosPerMicrosecond = 1'000;

}  // namespace platform::kernel

/// Host time in ticks.
/// @realtime yes
uint64_t mach_absolute_time();

/// Nanoseconds a tick are numer / denom. @return 0
int mach_timebase_info(mach_timebase_info_data_t* info);

/// Time since the system came up, in ticks: the host clock itself here.
/// @realtime yes
uint64_t UpTime();

/// The nanoseconds of a span of ticks.
/// @realtime yes
uint64_t AbsoluteToNanoseconds(uint64_t ticks);
