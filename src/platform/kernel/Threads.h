// Threads: the published thread calls, made by the current machine.
// Why: the system's calls of these names would block for real where time is simulated. Code above the
// platform therefore says kernel::pthread_mutex_lock, never the bare name; the types are the system's own.
// Results are the published error numbers (16 busy, 60 timed out), 0 for success.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace platform::kernel {

constexpr int kErrorBusy = 16;
constexpr int kErrorTimedOut = 60;

int pthread_mutexattr_init(pthread_mutexattr_t* attributes);
int pthread_mutexattr_destroy(pthread_mutexattr_t* attributes);
int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int pthread_mutex_destroy(pthread_mutex_t* mutex);
int pthread_mutex_lock(pthread_mutex_t* mutex);
int pthread_mutex_trylock(pthread_mutex_t* mutex);
int pthread_mutex_unlock(pthread_mutex_t* mutex);

int pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int pthread_cond_destroy(pthread_cond_t* condition);
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
/// Waits at most `relative` of host time.
int pthread_cond_timedwait_relative_np(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* relative);
int pthread_cond_signal(pthread_cond_t* condition);
int pthread_cond_broadcast(pthread_cond_t* condition);

int pthread_attr_init(pthread_attr_t* attributes);
int pthread_attr_destroy(pthread_attr_t* attributes);
int pthread_attr_setdetachstate(pthread_attr_t* attributes, int state);
/// `name` (at most 15 characters, may be null) is what people and traces see.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument,
                   const char* name = nullptr);
int pthread_join(pthread_t thread, void** result);

/// Sleeps `microseconds` of host time. @return 0
int usleep(uint32_t microseconds);

// ---- Scheduling policies. A thread's Mach name is only a way to its pthread.

using thread_act_t = pthread_t;
thread_act_t pthread_mach_thread_np(pthread_t thread);

constexpr int THREAD_STANDARD_POLICY = 1;         // same number as the extended one, told apart by its count of 0 words
constexpr int THREAD_EXTENDED_POLICY = 1;         // one word: timeshare
constexpr int THREAD_TIME_CONSTRAINT_POLICY = 2;  // four words: period, computation, constraint, preemptible
constexpr int THREAD_PRECEDENCE_POLICY = 3;       // one word: importance

/// Asks for a policy of the thread. A machine that does not grant it leaves the thread as it is; that is
/// told once by DescribeScheduling and is no error, since sound that is late now and then beats none.
/// Importance moves the priority of threads that do not share their time, counted from 31.
///
/// @param words  flavour's words, `count` of them
/// @return       0, or 4 (invalid argument) for an unknown flavour or a wrong count
int thread_policy_set(thread_act_t thread, int flavour, const int32_t* words, uint32_t count);

constexpr int POLICY_TIMESHARE = 1;
constexpr int POLICY_RR = 2;
constexpr int POLICY_FIFO = 4;

/// policy POLICY_RR: two words, base priority 0 .. 63 and quantum. There is no limit to set. Same results.
int thread_policy(thread_act_t thread, int policy, const int32_t* words, uint32_t count, bool setLimit);

constexpr int THREAD_BASIC_INFO = 3;             // 10 words; word 5 is the policy
constexpr int THREAD_SCHED_TIMESHARE_INFO = 10;  // 5 words: max, base, current priority, depressed, depress priority
constexpr int THREAD_SCHED_RR_INFO = 11;         // 5 words: max, base priority, quantum, depressed, depress priority
constexpr int THREAD_SCHED_FIFO_INFO = 12;       // 4 words: max, base priority, depressed, depress priority

/// Fills `words` (room for *count) and sets *count. @return 0, or 4 for an unknown flavour or too little room
int thread_info(thread_act_t thread, int flavour, int32_t* words, uint32_t* count);

}  // namespace platform::kernel
