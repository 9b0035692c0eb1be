// CAMutex: a mutex that knows its owner and may be re-entered.
// Why: locked paths call each other here; Lock says whether it took the mutex, and only then is there anything
// to unlock. No counter is kept: the outermost caller alone unlocks. CAMutex::Scope does that by itself.
#pragma once

#include "platform/kernel/Threads.h"

#include <atomic>

class CAMutex {
public:
    class Scope;

    /// @param name  for people; not copied
    /// @throws      CAException with the error number, here and below
    explicit CAMutex(const char* name);
    virtual ~CAMutex();
    CAMutex(const CAMutex&) = delete;
    CAMutex& operator=(const CAMutex&) = delete;

    /// Takes the mutex unless the caller has it. @return whether this call took it, and the caller is to unlock
    virtual bool Lock();

    /// Gives the mutex up; quietly nothing where the caller does not own it.
    virtual void Unlock();

    /// Takes the mutex if that needs no waiting.
    ///
    /// @param needsUnlock  set to whether this call took it
    /// @return             whether the caller owns it now
    virtual bool Try(bool& needsUnlock);

    /// Whether nobody owned it a moment ago; a hint, unless the caller knows better.
    virtual bool IsFree() const;

    virtual bool IsOwnedByCurrentThread() const;

protected:
    /// For derived classes that sleep on the mutex: says who owns it, while holding it.
    void SetOwner(pthread_t owner) noexcept { mOwner.store(owner, std::memory_order_relaxed); }
    const char* mName;

private:
    // Stored by the thread that holds the mutex, 0 when free; loaded by any. Relaxed is enough: a reader only asks
    // whether it is its own thread, and that value no other thread ever stores. The mutex orders all else.
    std::atomic<pthread_t> mOwner{0};

protected:
    pthread_mutex_t mMutex;
};

/// Holds a mutex from construction to the end of the block, and gives it up only if it took it.
class CAMutex::Scope {
public:
    explicit Scope(CAMutex& mutex) : mMutex(mutex), mTaken(mutex.Lock()) {}
    ~Scope()
    {
        if (mTaken) mMutex.Unlock();
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    CAMutex& mMutex;
    bool mTaken;
};
