#include "utility/CAGuard.h"

#include "utility/CAException.h"
#include "utility/CAHostTimeBase.h"

#include <ctime>

namespace kernel = platform::kernel;

namespace {

constexpr unsigned long long kNanosPerSecond = 1'000'000'000;
constexpr OSStatus kNotOwned = 1;

}  // namespace

CAGuard::CAGuard(const char* name) : CAMutex(name)
{
    CAException::ThrowIf(kernel::pthread_cond_init(&mCondition, nullptr));
}

CAGuard::~CAGuard()
{
    kernel::pthread_cond_destroy(&mCondition);  // as for the mutex: there is nobody to tell
}

void CAGuard::Wait()
{
    ThrowUnlessOwned();
    SetOwner(0);
    const int error = kernel::pthread_cond_wait(&mCondition, &mMutex);
    SetOwner(pthread_self());
    CAException::ThrowIf(error);
}

bool CAGuard::WaitFor(unsigned long long nanos)
{
    ThrowUnlessOwned();
    timespec relative;
    relative.tv_sec = static_cast<time_t>(nanos / kNanosPerSecond);
    relative.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
    SetOwner(0);
    const int error = kernel::pthread_cond_timedwait_relative_np(&mCondition, &mMutex, &relative);
    SetOwner(pthread_self());
    if (error == kernel::kErrorTimedOut) return true;
    CAException::ThrowIf(error);
    return false;
}

bool CAGuard::WaitUntil(unsigned long long nanos)
{
    const unsigned long long now = CAHostTimeBase::GetCurrentTimeInNanos();
    if (now >= nanos) return true;
    return WaitFor(nanos - now);
}

void CAGuard::Notify()
{
    CAException::ThrowIf(kernel::pthread_cond_signal(&mCondition));
}

void CAGuard::NotifyAll()
{
    CAException::ThrowIf(kernel::pthread_cond_broadcast(&mCondition));
}

void CAGuard::ThrowUnlessOwned() const
{
    if (!CAMutex::IsOwnedByCurrentThread()) throw CAException(kNotOwned);
}
