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

class LinuxThreads : public Threads {
public:
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

    /// A thread that is refused a fixed priority and asked for itself at least has its timers made exact.
    int Schedule(pthread_t thread, const SchedulingWish& wish) override;
    /// What the thread really runs under, which is Standard where a wish was refused.
    SchedulingWish GetScheduling(pthread_t thread) override;
    std::string DescribeScheduling() override;

private:
    int ScheduleFixed(pthread_t thread, int priority);

    // Both stored by any thread that schedules, read by DescribeScheduling; they guard no other memory.
    std::atomic<int> mHighestGranted{0};
    std::atomic<int> mRefusal{0};  // the last error number, 0: none was refused
};

}  // namespace platform::machine
