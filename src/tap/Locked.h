// Locked: holds a mutex for a scope.
#pragma once

#include "platform/kernel/Threads.h"

namespace tap {

class Locked {
public:
    explicit Locked(pthread_mutex_t& mutex) : mMutex(mutex) { platform::kernel::pthread_mutex_lock(&mMutex); }
    ~Locked() { platform::kernel::pthread_mutex_unlock(&mMutex); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    pthread_mutex_t& mMutex;
};

}  // namespace tap
