// SwitchedContext: a thread as registers on its own stack, with which another thread of the kernel can go on.
// Why: to hand the turn over without the kernel. Start at CanSwitch; Turn is the one user.
#pragma once

#include <cstdint>

namespace platform::machine::simulated {

/// Belongs to its thread, in whose storage it lies.
struct SwitchedContext {
    void* mStack;     // where its registers lie
    uintptr_t mBase;  // of its thread-local storage, by which everybody knows who he is
    uint32_t mHome;   // a futex: 1 sends the thread that was parked on its way
};

/// Whether processor and kernel let a program exchange threads. Never in debug and sanitizer builds: debuggers and
/// detectors want to find every thread on its own stack.
bool CanSwitch() noexcept;

/// The calling thread's.
SwitchedContext& OwnContext() noexcept;

extern "C" {

/// Makes the calling thread one to switch to, stores 1 to `arrived`, wakes who waits for that, and returns in whoever
/// switches to `self`. The thread itself stands still until it is sent home, and then goes on where `self` was left.
void CorvaneParkContext(SwitchedContext* self, uint32_t* arrived) noexcept;

/// Goes on at `to`. Returns when somebody switches to `from`, or on the thread that was sent home with it.
void CorvaneSwitchContext(SwitchedContext* from, SwitchedContext* to) noexcept;
}

}  // namespace platform::machine::simulated
