// Threads: threads, locks, conditions and scheduling of the current machine.
// Why: on the simulated machine every blocking call hands the turn to another thread, so all blocking goes
// through here. The objects are the system's own, which lets the race detector see their order.
// Results are the system's error numbers, 0 for success.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>

namespace platform::machine {

/// How a thread wants to be scheduled.
struct SchedulingWish {
    enum class Kind {
        Standard,  ///< time-shared, as every thread starts
        Fixed,     ///< fixed priority; `level` 0 (lowest) .. 1 (the machine's highest that we use)
    };
    Kind mKind = Kind::Standard;
    float mLevel = 0;
};

class Threads {
public:
    virtual ~Threads() = default;

    /// Starts a thread that runs entry(argument). `name` (at most 15 characters) is for people and traces.
    virtual int Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument) = 0;
    virtual int Join(pthread_t thread, void** result) = 0;

    virtual int Lock(pthread_mutex_t* mutex) = 0;
    virtual int TryLock(pthread_mutex_t* mutex) = 0;
    virtual int Unlock(pthread_mutex_t* mutex) = 0;

    /// A condition whose timed waits count host time.
    virtual int InitCondition(pthread_cond_t* condition) = 0;
    virtual int DestroyCondition(pthread_cond_t* condition) = 0;
    virtual int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex) = 0;
    /// ETIMEDOUT when host time reached `deadlineNanos` first.
    virtual int WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos) = 0;
    virtual int Signal(pthread_cond_t* condition) = 0;
    virtual int Broadcast(pthread_cond_t* condition) = 0;

    /// Asks for a scheduling of `thread`. Where the process may not have it the thread stays as it is and
    /// the error number is returned; callers go on.
    virtual int Schedule(pthread_t thread, const SchedulingWish& wish) = 0;
    virtual SchedulingWish GetScheduling(pthread_t thread) = 0;

    /// One plain sentence about the scheduling that real-time threads of this process get.
    virtual std::string DescribeScheduling() = 0;
};

}  // namespace platform::machine
