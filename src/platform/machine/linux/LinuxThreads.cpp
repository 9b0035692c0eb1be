#include "platform/machine/linux/LinuxThreads.h"

#include "platform/machine/linux/BlockedSignals.h"
#include "platform/machine/linux/HostTimespec.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

namespace platform::machine {

namespace {

constexpr int kLowestPriority = 1;
constexpr int kHighestPriority = 80;

struct Start {
    void* (*mEntry)(void*);
    void* mArgument;
    char mName[16];
};

// The thread names itself: a detached one may be gone before its creator could.
void* Run(void* start)
{
    const std::unique_ptr<Start> mine(static_cast<Start*>(start));
    const Start copy = *mine;
    if (copy.mName[0]) pthread_setname_np(pthread_self(), copy.mName);
    return copy.mEntry(copy.mArgument);
}

int SetPolicy(pthread_t thread, int policy, int priority)
{
    // Children of a real-time thread start time-shared: a library's worker must not inherit the priority.
    const sched_param parameters{.sched_priority = priority};
    return pthread_setschedparam(thread, policy | SCHED_RESET_ON_FORK, &parameters);
}

int AllowedPriority()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_RTPRIO, &limit) != 0) return 0;
    return int(std::min<rlim_t>(limit.rlim_cur, kHighestPriority));
}

/// Spreads the range over what the limit leaves, so that no two threads of different levels share a priority there
/// while that has room.
int ScaledTo(int allowed, int priority)
{
    return kLowestPriority +
           (priority - kLowestPriority) * (allowed - kLowestPriority) / (kHighestPriority - kLowestPriority);
}

}  // namespace

int FixedPriorityForLevel(float level)
{
    const float span = float(kHighestPriority - kLowestPriority);
    return kLowestPriority + int(std::lround(std::clamp(level, 0.0f, 1.0f) * span));
}

float LevelForFixedPriority(int priority)
{
    const float span = float(kHighestPriority - kLowestPriority);
    return std::clamp(float(priority - kLowestPriority) / span, 0.0f, 1.0f);
}

int LinuxThreads::Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument)
{
    auto start = std::make_unique<Start>(Start{entry, argument, {}});
    if (name) std::strncpy(start->mName, name, sizeof(start->mName) - 1);

    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes)) return error;
    if (detached) pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    int error = 0;
    {
        const BlockedSignals inherited;
        error = pthread_create(thread, &attributes, Run, start.get());
    }
    pthread_attr_destroy(&attributes);
    if (error == 0) static_cast<void>(start.release());  // Run owns it
    return error;
}

int LinuxThreads::Join(pthread_t thread, void** result)
{
    return pthread_join(thread, result);
}

int LinuxThreads::Lock(pthread_mutex_t* mutex)
{
    return pthread_mutex_lock(mutex);
}

int LinuxThreads::TryLock(pthread_mutex_t* mutex)
{
    return pthread_mutex_trylock(mutex);
}

int LinuxThreads::Unlock(pthread_mutex_t* mutex)
{
    return pthread_mutex_unlock(mutex);
}

int LinuxThreads::InitCondition(pthread_cond_t* condition)
{
    pthread_condattr_t attributes;
    if (const int error = pthread_condattr_init(&attributes)) return error;
    int error = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    if (error == 0) error = pthread_cond_init(condition, &attributes);
    pthread_condattr_destroy(&attributes);
    return error;
}

int LinuxThreads::DestroyCondition(pthread_cond_t* condition)
{
    return pthread_cond_destroy(condition);
}

int LinuxThreads::Wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return pthread_cond_wait(condition, mutex);
}

int LinuxThreads::WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos)
{
    const timespec deadline = HostTimespec(deadlineNanos);
    return pthread_cond_timedwait(condition, mutex, &deadline);
}

int LinuxThreads::Signal(pthread_cond_t* condition)
{
    return pthread_cond_signal(condition);
}

int LinuxThreads::Broadcast(pthread_cond_t* condition)
{
    return pthread_cond_broadcast(condition);
}

int LinuxThreads::ScheduleFixed(pthread_t thread, int priority)
{
    const int error = TakeFixed(thread, priority);
    if (error == 0) return 0;
    const bool isCaller = pthread_equal(thread, pthread_self()) != 0;
    // The kernel lets a time-shared thread's timers run late by 50 us to save power; only the thread itself
    // may take that back.
    if (isCaller) prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0);
    if (isCaller && AskBroker(priority)) return 0;
    mRefusal.store(error, std::memory_order_relaxed);
    return error;
}

int LinuxThreads::TakeFixed(pthread_t thread, int priority)
{
    const int allowed = AllowedPriority();
    // The highest priority shows whether the limit binds this process at all.
    int error = SetPolicy(thread, SCHED_FIFO, kHighestPriority);
    if (error == EPERM && allowed == 0) return error;
    if (error == EPERM) priority = ScaledTo(allowed, priority);
    error = SetPolicy(thread, SCHED_FIFO, priority);
    if (error != 0) return error;
    int highest = mHighestGranted.load(std::memory_order_relaxed);
    while (highest < priority && !mHighestGranted.compare_exchange_weak(highest, priority)) {
    }
    return 0;
}

bool LinuxThreads::AskBroker(int priority)
{
    SchedulingBroker* broker = mBroker.load(std::memory_order_acquire);
    if (broker == nullptr || !broker->RequestPriority(priority)) return false;
    mBrokerAsked.store(true, std::memory_order_relaxed);
    return true;
}

int LinuxThreads::Schedule(pthread_t thread, const SchedulingWish& wish)
{
    if (wish.mKind == SchedulingWish::Kind::Fixed) return ScheduleFixed(thread, FixedPriorityForLevel(wish.mLevel));
    if (pthread_equal(thread, pthread_self())) prctl(PR_SET_TIMERSLACK, 0, 0, 0, 0);  // the default
    if (GetScheduling(thread).mKind == SchedulingWish::Kind::Standard) return 0;
    return SetPolicy(thread, SCHED_OTHER, 0);
}

SchedulingWish LinuxThreads::GetScheduling(pthread_t thread)
{
    int policy = SCHED_OTHER;
    sched_param parameters{};
    if (pthread_getschedparam(thread, &policy, &parameters) != 0) return {};
    policy &= ~SCHED_RESET_ON_FORK;
    if (policy != SCHED_FIFO && policy != SCHED_RR) return {};
    return {SchedulingWish::Kind::Fixed, LevelForFixedPriority(parameters.sched_priority)};
}

std::string LinuxThreads::DescribeScheduling()
{
    const int granted = mHighestGranted.load(std::memory_order_relaxed);
    const int refusal = mRefusal.load(std::memory_order_relaxed);
    const bool asked = mBrokerAsked.load(std::memory_order_relaxed);
    if (refusal == 0 && asked)
        return "Corvane's own real-time threads run at the priority that the desktop's broker grants, if it does.";
    if (refusal == 0 && granted == 0) return "No thread has asked for real-time scheduling yet.";
    if (refusal == 0)
        return "Corvane's own real-time threads run at fixed priority, the highest at " + std::to_string(granted) + ".";
    const std::string why = std::strerror(refusal);
    return std::string(granted ? "Some real-time threads" : "Real-time threads") +
           " run time-shared and may be late under load: the system refused a fixed priority (" + why +
           "). Join the group `pipewire` (sudo usermod -aG pipewire USER) or raise the limit `ulimit -r`, and log in "
           "again; for the audio server's own threads install rtkit.";
}

}  // namespace platform::machine
