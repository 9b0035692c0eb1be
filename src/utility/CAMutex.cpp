#include "utility/CAMutex.h"

#include "utility/CAException.h"

namespace kernel = platform::kernel;

CAMutex::CAMutex(const char* name) : mName(name)
{
    CAException::ThrowIf(kernel::pthread_mutex_init(&mMutex, nullptr));
}

CAMutex::~CAMutex()
{
    kernel::pthread_mutex_destroy(&mMutex);  // a destructor has nobody to tell of a mutex that is still held
}

bool CAMutex::Lock()
{
    if (CAMutex::IsOwnedByCurrentThread()) return false;
    CAException::ThrowIf(kernel::pthread_mutex_lock(&mMutex));
    SetOwner(pthread_self());
    return true;
}

void CAMutex::Unlock()
{
    if (!CAMutex::IsOwnedByCurrentThread()) return;
    SetOwner(0);
    CAException::ThrowIf(kernel::pthread_mutex_unlock(&mMutex));
}

bool CAMutex::Try(bool& needsUnlock)
{
    needsUnlock = false;
    if (CAMutex::IsOwnedByCurrentThread()) return true;
    const int error = kernel::pthread_mutex_trylock(&mMutex);
    if (error == kernel::kErrorBusy) return false;
    CAException::ThrowIf(error);
    SetOwner(pthread_self());
    needsUnlock = true;
    return true;
}

bool CAMutex::IsFree() const
{
    return mOwner.load(std::memory_order_relaxed) == 0;
}

bool CAMutex::IsOwnedByCurrentThread() const
{
    return pthread_equal(mOwner.load(std::memory_order_relaxed), pthread_self()) != 0;
}
