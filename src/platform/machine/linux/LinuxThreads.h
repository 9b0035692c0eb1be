// LinuxThreads: POSIX threads, with fixed priority for those that ask where the process may have it.
// Why fixed priority and never the deadline policy: that one cuts a cycle off at its computation time.
#pragma once

#include "platform/machine/Threads.h"

#include <atomic>

namespace platform::machine {

/// The fixed priority for a level: 1 for 0, 80 for 1, a step each 1/79. The audio server's own threads run
/// at 88, and nothing of ours may keep them waiting.
int FixedPriorityForLevel(float level);
float LevelForFixedPriority(int priority);

/// Grants real-time scheduling to threads of a process that may not take it.
class SchedulingBroker {
public:
    /// Asks for a fixed priority of the calling thread. The answer may come later, and the priority may be lower.
    /// @return whether the request was taken
    virtual bool RequestPriority(int priority) = 0;

protected:
    ~SchedulingBroker() = default;
};

class LinuxThreads : public Threads {
public:
    /// Asks `broker` from now on where a thread that asks for itself is refused; null: none.
    void SetBroker(SchedulingBroker* broker) { mBroker.store(broker, std::memory_order_release); }

    /// The thread blocks all signals but its own faults.
    int Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument) override;
    int Join(pthread_t thread, void** result) override;

    int Lock(pthread_mutex_t* mutex) override;
    int TryLock(pthread_mutex_t* mutex) override;
    int Unlock(pthread_mutex_t* mutex) override;

    int InitCondition(pthread_cond_t* condition) override;
    int DestroyCondition(pthread_cond_t* condition) override;
    int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex) override;
    int WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos) override;
    int Signal(pthread_cond_t* condition) override;
    int Broadcast(pthread_cond_t* condition) override;

    /// Where the process may have a part of the range only, levels are spread over that part. A thread that is refused
    /// a fixed priority and asked for itself has the broker asked, and its timers made exact until it is Standard
    /// again.
    int Schedule(pthread_t thread, const SchedulingWish& wish) override;
    /// What the thread really runs under, which is Standard where a wish was refused.
    SchedulingWish GetScheduling(pthread_t thread) override;
    std::string DescribeScheduling() override;

private:
    int ScheduleFixed(pthread_t thread, int priority);
    int TakeFixed(pthread_t thread, int priority);
    bool AskBroker(int priority);

    std::atomic<SchedulingBroker*> mBroker{nullptr};  // stored by SetBroker (release), loaded by any thread (acquire)
    // All stored by any thread that schedules, read by DescribeScheduling; they guard no other memory.
    std::atomic<int> mHighestGranted{0};
    std::atomic<int> mRefusal{0};  // the last error number, 0: none was refused
    std::atomic<bool> mBrokerAsked{false};
};

}  // namespace platform::machine
