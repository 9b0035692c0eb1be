// LinuxClock: the host clock on CLOCK_MONOTONIC.
#pragma once

#include "platform/machine/Clock.h"

namespace platform::machine {

class LinuxClock final : public Clock {
public:
    uint64_t NowNanos() override;
    void SleepUntil(uint64_t nanos) override;
};

}  // namespace platform::machine
