// MutexGuard: holds a mutex of the current machine for a scope.
#pragma once

#include "platform/kernel/Threads.h"

namespace platform::kernel {

class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t& mutex) : mMutex(mutex) { kernel::pthread_mutex_lock(&mMutex); }
    ~MutexGuard() { kernel::pthread_mutex_unlock(&mMutex); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    pthread_mutex_t& mMutex;
};

}  // namespace platform::kernel
