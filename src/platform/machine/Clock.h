// Clock: the host clock. Nanoseconds that never step back, with a time base of 1/1.
#pragma once

#include <cstdint>

namespace platform::machine {

class Clock {
public:
    virtual ~Clock() = default;

    /// Host time in nanoseconds.
    ///
    /// @thread any
    /// @realtime yes
    virtual uint64_t NowNanos() = 0;

    /// Sleeps until host time has reached `nanos`; returns at once where it has. May wake late, never early.
    ///
    /// @thread any that may block
    virtual void SleepUntil(uint64_t nanos) = 0;
};

}  // namespace platform::machine
