// RunLoopLock: the one lock of all run loops and their timers.
// Why one: a timer belongs to a loop only from some moment on, and its end must wait for what that loop does with it.
// It is held for a few lines at a time and never while anything is called.
#pragma once

#include "platform/kernel/MutexGuard.h"

namespace cf {

extern pthread_mutex_t gRunLoopMutex;
extern pthread_cond_t gRunLoopDidSomething;  // a timer has fired, or work that somebody waits for is done

/// Gives the lock up for a scope.
class RunLoopUnlocked {
public:
    RunLoopUnlocked() { platform::kernel::pthread_mutex_unlock(&gRunLoopMutex); }
    ~RunLoopUnlocked() { platform::kernel::pthread_mutex_lock(&gRunLoopMutex); }
    RunLoopUnlocked(const RunLoopUnlocked&) = delete;
    RunLoopUnlocked& operator=(const RunLoopUnlocked&) = delete;
};

}  // namespace cf
