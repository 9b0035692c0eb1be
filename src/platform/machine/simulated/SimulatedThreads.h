// SimulatedThreads: threads, locks and conditions that hand on the turn.
// Why: the objects stay the system's own. A mutex is really locked, so that the race detector sees exactly the
// order that the program makes; only waiting is done in the gate. A condition is a queue of the gate, and the
// mutex taken again after it gives the order.
#pragma once

#include "platform/machine/Threads.h"

#include <map>

namespace platform::machine::simulated {

class Gate;

class SimulatedThreads final : public Threads {
public:
    explicit SimulatedThreads(Gate& gate) : mGate(gate) {}

    int Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument) override;
    int Join(pthread_t thread, void** result) override;

    int Lock(pthread_mutex_t* mutex) override;
    int TryLock(pthread_mutex_t* mutex) override;
    int Unlock(pthread_mutex_t* mutex) override;

    int InitCondition(pthread_cond_t* condition) override;
    /// EBUSY while somebody waits.
    int DestroyCondition(pthread_cond_t* condition) override;
    int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex) override;
    int WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos) override;
    int Signal(pthread_cond_t* condition) override;
    int Broadcast(pthread_cond_t* condition) override;

    /// Every wish is granted and none has an effect: the turn goes round in order.
    int Schedule(pthread_t thread, const SchedulingWish& wish) override;
    SchedulingWish GetScheduling(pthread_t thread) override;
    std::string DescribeScheduling() override;

    /// A thread of the machine itself: always woken on time.
    int CreatePunctual(pthread_t* thread, const char* name, void* (*entry)(void*), void* argument);

private:
    struct Traits {
        const char* mName;
        bool mDetached;
        bool mPunctual;
    };
    int Start(pthread_t* thread, const Traits& traits, void* (*entry)(void*), void* argument);

    Gate& mGate;
    std::map<pthread_t, SchedulingWish> mWishes;
};

}  // namespace platform::machine::simulated
