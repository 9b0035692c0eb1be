#include "platform/kernel/Threads.h"

#include "platform/kernel/Realtime.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Threads.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace platform::kernel {

using machine::Machine;

static_assert(EBUSY == kErrorBusy, "lock results pass unchanged");

namespace {

machine::Threads& CurrentThreads()
{
    return Machine::Current().GetThreads();
}

/// Host time `relative` from now: the past where it is negative, the end of time where it is beyond it.
uint64_t DeadlineAfter(const timespec& relative)
{
    constexpr int64_t kForever = std::numeric_limits<int64_t>::max();
    int64_t nanos = 0;
    if (__builtin_mul_overflow(relative.tv_sec, 1'000'000'000, &nanos) ||
        __builtin_add_overflow(nanos, relative.tv_nsec, &nanos))
        nanos = relative.tv_sec < 0 ? 0 : kForever;
    const uint64_t now = Machine::Current().GetClock().NowNanos();
    return now + uint64_t(std::clamp<int64_t>(nanos, 0, kForever - int64_t(now)));
}

}  // namespace

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes)
{
    return ::pthread_mutex_init(mutex, attributes);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex)
{
    return ::pthread_mutex_destroy(mutex);
}

int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    TrapInRealtime("pthread_mutex_lock");
    return CurrentThreads().Lock(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex)
{
    return CurrentThreads().TryLock(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    return CurrentThreads().Unlock(mutex);
}

int pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes)
{
    // An attribute would choose a clock, and there is only the host clock.
    return attributes ? EINVAL : CurrentThreads().InitCondition(condition);
}

int pthread_cond_destroy(pthread_cond_t* condition)
{
    return CurrentThreads().DestroyCondition(condition);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    TrapInRealtime("pthread_cond_wait");
    return CurrentThreads().Wait(condition, mutex);
}

int pthread_cond_timedwait_relative_np(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* relative)
{
    TrapInRealtime("pthread_cond_timedwait_relative_np");
    const int result = CurrentThreads().WaitUntil(condition, mutex, DeadlineAfter(*relative));
    return result == ETIMEDOUT ? kErrorTimedOut : result;
}

int pthread_cond_signal(pthread_cond_t* condition)
{
    return CurrentThreads().Signal(condition);
}

int pthread_cond_broadcast(pthread_cond_t* condition)
{
    return CurrentThreads().Broadcast(condition);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument,
                   const char* name)
{
    TrapInRealtime("pthread_create");
    int state = PTHREAD_CREATE_JOINABLE;
    if (attributes) pthread_attr_getdetachstate(attributes, &state);
    return CurrentThreads().Create(thread, state == PTHREAD_CREATE_DETACHED, name ? name : "", entry, argument);
}

int pthread_join(pthread_t thread, void** result)
{
    TrapInRealtime("pthread_join");
    return CurrentThreads().Join(thread, result);
}

int usleep(uint32_t microseconds)
{
    TrapInRealtime("usleep");
    machine::Clock& clock = Machine::Current().GetClock();
    clock.SleepUntil(clock.NowNanos() + uint64_t(microseconds) * 1000);
    return 0;
}

}  // namespace platform::kernel
