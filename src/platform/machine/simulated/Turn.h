// Turn: how the turn goes from one thread of the gate to another, which is what virtual time does most.
// Two ways. By the kernel: each thread sleeps on a futex of its own; a hand-over wakes one and puts another to sleep,
// which takes microseconds. By hand: the main thread of the kernel runs everybody, and the others have lent it their
// stacks and their thread-local storage; a hand-over exchanges registers, which takes nanoseconds. A thread comes home
// to end, so that its creation, its destructors and its end are the system's own either way.
// By hand wherever CanSwitch.
#pragma once

#include "platform/machine/simulated/SwitchedContext.h"

namespace platform::machine::simulated {

class Turn {
public:
    /// Of the thread that has the turn at first, and on it. Chooses the way.
    void Begin() noexcept;
    /// Of any other thread, on it: returns when it has the turn.
    void Arrive() noexcept;
    /// Hands on to a thread that has arrived or is about to, and returns when the turn came back.
    void HandTo(Turn& next) noexcept;
    /// Hands on for good. Others may have made something else of this object when it returns.
    void LeaveTo(Turn& next) noexcept;

private:
    uint32_t mWord;             // a futex. By the kernel: 1 while the turn is given; by hand: 1 from the arrival on
    SwitchedContext* mContext;  // by hand
};

}  // namespace platform::machine::simulated
