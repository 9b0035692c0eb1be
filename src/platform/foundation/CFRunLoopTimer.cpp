#include "platform/foundation/CFRunLoop.h"
#include "platform/foundation/RunLoopLock.h"
#include "platform/kernel/HostTime.h"

#include <algorithm>
#include <cmath>
#include <limits>

using platform::kernel::MutexGuard;

namespace {

constexpr double kNanosASecond = 1e9;  // and so many ticks of the host clock

/// The nearest host time: its beginning for what is no number or before it, its end for what is beyond it.
uint64_t HostNanos(double nanos)
{
    constexpr double kEnd = 9e18;
    return nanos > 0 ? uint64_t(std::llround(std::min(nanos, kEnd))) : 0;
}

CFRunLoopTimerContext Retained(const CFRunLoopTimerContext& context)
{
    CFRunLoopTimerContext own = context;
    if (context.retain) own.info = const_cast<void*>(context.retain(context.info));
    return own;
}

}  // namespace

namespace cf {

RunLoopTimer::RunLoopTimer(CFAbsoluteTime fireDate, CFTimeInterval interval, CFRunLoopTimerCallBack callback,
                           const CFRunLoopTimerContext& context)
    : mFirstNanos(HostNanos(fireDate * kNanosASecond)),
      mIntervalNanos(interval > 0 ? std::max(interval * kNanosASecond, 1.0) : 0),
      mCallback(callback),
      mContext(Retained(context))
{
}

RunLoopTimer::~RunLoopTimer()
{
    if (mIsValid) ReleaseInfo();
}

/// The first of its times after `nanos`, from the beginning of them all: added up, their rounding would grow.
uint64_t RunLoopTimer::FirstAfter(uint64_t nanos) const
{
    if (nanos < mFirstNanos) return mFirstNanos;
    const double passed = std::floor(double(nanos - mFirstNanos) / mIntervalNanos);
    return std::max(nanos + 1, HostNanos(double(mFirstNanos) + (passed + 1) * mIntervalNanos));
}

void RunLoopTimer::ReleaseInfo()
{
    if (mContext.release) mContext.release(mContext.info);
}

bool RunLoopTimer::IsValid() const
{
    const MutexGuard guard(gRunLoopMutex);
    return mIsValid;
}

void RunLoopTimer::Invalidate()
{
    bool withdrawn = false;
    {
        const MutexGuard guard(gRunLoopMutex);
        const bool wasValid = mIsValid;
        mIsValid = false;
        if (mIsFiring) {  // its loop does the rest
            while (mIsFiring && mLoop != CFRunLoopGetCurrent())
                platform::kernel::pthread_cond_wait(&gRunLoopDidSomething, &gRunLoopMutex);
            return;
        }
        if (!wasValid) return;
        withdrawn = mLoop && mLoop->Withdraw(*this);
    }
    ReleaseInfo();
    if (withdrawn) CFRelease(this);
}

}  // namespace cf

CFAbsoluteTime CFAbsoluteTimeGetCurrent()
{
    return double(mach_absolute_time()) / kNanosASecond;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate, CFTimeInterval interval, CFOptionFlags,
                                       CFIndex, CFRunLoopTimerCallBack callback, CFRunLoopTimerContext* context)
{
    return new cf::RunLoopTimer(fireDate, interval, callback, context ? *context : CFRunLoopTimerContext{});
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer)
{
    timer->Invalidate();
}
