// CAGuard: a CAMutex with a condition, whose times count host time.
// Why: threads here wait for a cycle, a command or a stop, and on the simulated machine that must be virtual time.
#pragma once

#include "utility/CAMutex.h"

class CAGuard : public CAMutex {
public:
    explicit CAGuard(const char* name);
    ~CAGuard() override;

    /// Sleeps until notified, the guard given up meanwhile. May wake without cause.
    /// @throws CAException 1 where the caller does not own the guard; else the error number, here and below
    virtual void Wait();

    /// The same for at most `nanos` nanoseconds. @return whether the time ran out
    virtual bool WaitFor(unsigned long long nanos);

    /// The same until host time has reached `nanos`. @return true where it has, at once if it lies in the past
    virtual bool WaitUntil(unsigned long long nanos);

    /// Wakes one waiter. The caller need not own the guard.
    virtual void Notify();

    /// Wakes all waiters.
    virtual void NotifyAll();

protected:
    pthread_cond_t mCondition;

private:
    void ThrowUnlessOwned() const;
};
