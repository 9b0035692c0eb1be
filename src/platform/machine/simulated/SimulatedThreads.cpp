#include "platform/machine/simulated/SimulatedThreads.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/Unseen.h"

#include <limits.h>

#include <cerrno>
#include <memory>

namespace platform::machine::simulated {

namespace {

struct ThreadStart {
    Gate& mGate;
    GateThread* mThread;
    void* (*mEntry)(void*);
    void* mArgument;
    int mRoundsLeft;
};

/// A thread gives up the turn in the last round of its destructors, which are the program's code still.
void LeaveGate(void* start);

pthread_key_t LeavingKey()
{
    static const pthread_key_t sKey = [] {
        pthread_key_t key{};
        pthread_key_create(&key, LeaveGate);
        return key;
    }();
    return sKey;
}

void LeaveGate(void* value)
{
    auto* start = static_cast<ThreadStart*>(value);
    if (--start->mRoundsLeft > 0) {
        pthread_setspecific(LeavingKey(), start);
        return;
    }
    Gate& gate = start->mGate;
    GateThread* thread = start->mThread;
    delete start;
    gate.Leave(thread);
}

void* Run(void* value)
{
    auto* start = static_cast<ThreadStart*>(value);
    pthread_setname_np(pthread_self(), start->mThread->mName);
    start->mGate.Enter(start->mThread);
    pthread_setspecific(LeavingKey(), start);
    return start->mEntry(start->mArgument);
}

}  // namespace

int SimulatedThreads::Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument)
{
    return Start(thread, {name ? name : "", detached, false}, entry, argument);
}

int SimulatedThreads::CreatePunctual(pthread_t* thread, const char* name, void* (*entry)(void*), void* argument)
{
    return Start(thread, {name, false, true}, entry, argument);
}

int SimulatedThreads::Start(pthread_t* thread, const Traits& traits, void* (*entry)(void*), void* argument)
{
    LeavingKey();
    GateThread* gated = nullptr;
    {
        const Unseen unseen;
        gated = mGate.Add(traits.mName, traits.mDetached, traits.mPunctual);
    }
    auto start =
        std::make_unique<ThreadStart>(ThreadStart{mGate, gated, entry, argument, PTHREAD_DESTRUCTOR_ITERATIONS - 1});
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (traits.mDetached) pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int error = pthread_create(thread, &attributes, Run, start.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        mGate.Forget(gated);
        return error;
    }
    static_cast<void>(start.release());  // LeaveGate owns it
    mGate.Bind(gated, *thread);
    const Unseen unseen;
    mWishes.erase(*thread);  // of an ended thread whose handle this one was given
    return 0;
}

int SimulatedThreads::Join(pthread_t thread, void** result)
{
    GateThread* gated = mGate.Find(thread);
    if (!gated || gated->mDetached) return ESRCH;
    if (gated == &mGate.Self()) return EDEADLK;
    while (!gated->mEnded) mGate.Block(WaitFor::End, gated);
    mGate.Forget(gated);
    return pthread_join(thread, result);
}

int SimulatedThreads::Lock(pthread_mutex_t* mutex)
{
    int error = pthread_mutex_trylock(mutex);
    for (; error == EBUSY; error = pthread_mutex_trylock(mutex)) mGate.Block(WaitFor::Mutex, mutex);
    return error;
}

int SimulatedThreads::TryLock(pthread_mutex_t* mutex)
{
    return pthread_mutex_trylock(mutex);
}

int SimulatedThreads::Unlock(pthread_mutex_t* mutex)
{
    const int error = pthread_mutex_unlock(mutex);
    if (error == 0) mGate.WakeOne(mutex);
    return error;
}

int SimulatedThreads::InitCondition(pthread_cond_t* condition)
{
    return pthread_cond_init(condition, nullptr);
}

int SimulatedThreads::DestroyCondition(pthread_cond_t* condition)
{
    return mGate.IsAwaited(condition) ? EBUSY : pthread_cond_destroy(condition);
}

int SimulatedThreads::Wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return WaitUntil(condition, mutex, kForever);
}

int SimulatedThreads::WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos)
{
    if (const int error = Unlock(mutex)) return error;
    const bool woken = mGate.Block(WaitFor::Condition, condition, deadlineNanos);
    const int error = Lock(mutex);
    return error != 0 || woken ? error : ETIMEDOUT;
}

int SimulatedThreads::Signal(pthread_cond_t* condition)
{
    mGate.WakeOne(condition);
    return 0;
}

int SimulatedThreads::Broadcast(pthread_cond_t* condition)
{
    mGate.WakeAll(condition);
    return 0;
}

int SimulatedThreads::Schedule(pthread_t thread, const SchedulingWish& wish)
{
    const Unseen unseen;
    mWishes[thread] = wish;
    return 0;
}

SchedulingWish SimulatedThreads::GetScheduling(pthread_t thread)
{
    const Unseen unseen;
    const auto found = mWishes.find(thread);
    return found == mWishes.end() ? SchedulingWish{} : found->second;
}

std::string SimulatedThreads::DescribeScheduling()
{
    return "Threads of the simulated machine take turns.";
}

}  // namespace platform::machine::simulated
