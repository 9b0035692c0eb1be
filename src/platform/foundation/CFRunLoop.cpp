#include "platform/foundation/CFRunLoop.h"

#include "platform/foundation/CFObjects.h"
#include "platform/foundation/RunLoopLock.h"
#include "platform/kernel/HostTime.h"

#include <atomic>

namespace kernel = platform::kernel;
using kernel::MutexGuard;

// Made without a call of the machine: nobody has chosen one yet when this is initialised.
const CFRunLoopMode kCFRunLoopCommonModes = new cf::String("kCFRunLoopCommonModes");

namespace cf {

pthread_mutex_t gRunLoopMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t gRunLoopDidSomething = PTHREAD_COND_INITIALIZER;  // never waited for until a time

namespace {

struct OwnLoop {
    ~OwnLoop()
    {
        RunLoop* const loop = std::exchange(mLoop, nullptr);
        if (!loop) return;
        loop->End();
        CFRelease(loop);
    }
    RunLoop* mLoop = nullptr;
};
thread_local OwnLoop sOwn;

timespec Span(uint64_t nanos)
{
    return {time_t(nanos / 1'000'000'000), long(nanos % 1'000'000'000)};
}

}  // namespace

RunLoop::RunLoop()
{
    kernel::pthread_cond_init(&mWake, nullptr);
}

RunLoop::~RunLoop()
{
    kernel::pthread_cond_destroy(&mWake);
}

void RunLoop::Run()
{
    const MutexGuard guard(gRunLoopMutex);
    while (!mStop)
        if (!Turn()) Wait();
    mStop = false;
}

void RunLoop::Stop()
{
    const MutexGuard guard(gRunLoopMutex);
    mStop = true;
    kernel::pthread_cond_signal(&mWake);
}

/// One timer and one piece of work, so that neither many of these nor many of those keep the others waiting.
///
/// @return whether there was anything to do
bool RunLoop::Turn() noexcept
{
    const bool fired = FireNext();
    return (!mStop && DoNext()) || fired;
}

bool RunLoop::FireNext()
{
    const auto next = mTimers.begin();
    if (next == mTimers.end() || next->first > mach_absolute_time()) return false;
    RunLoopTimer& timer = *next->second;
    mTimers.erase(next);
    timer.mIsFiring = true;
    {
        const RunLoopUnlocked unlocked;
        timer.mCallback(&timer, timer.mContext.info);
    }
    if (timer.mIntervalNanos == 0) timer.mIsValid = false;
    if (timer.mIsValid) {
        mTimers.emplace(timer.FirstAfter(mach_absolute_time()), &timer);
        timer.mIsFiring = false;
        return true;
    }
    {
        const RunLoopUnlocked unlocked;
        timer.ReleaseInfo();
    }
    timer.mIsFiring = false;
    kernel::pthread_cond_broadcast(&gRunLoopDidSomething);
    const RunLoopUnlocked unlocked;
    CFRelease(&timer);
    return true;
}

bool RunLoop::DoNext()
{
    if (mWork.empty()) return false;
    Work work = std::move(mWork.front());
    mWork.pop_front();
    {
        const RunLoopUnlocked unlocked;
        work.mDo();
        work.mDo = nullptr;  // what it holds may call anything when it goes
    }
    if (!work.mOutcome) return true;
    *work.mOutcome = Outcome::Done;
    kernel::pthread_cond_broadcast(&gRunLoopDidSomething);
    return true;
}

void RunLoop::Wait()
{
    if (mTimers.empty()) {
        kernel::pthread_cond_wait(&mWake, &gRunLoopMutex);
        return;
    }
    const uint64_t now = mach_absolute_time();
    const uint64_t next = mTimers.begin()->first;
    const timespec span = Span(next > now ? next - now : 0);
    kernel::pthread_cond_timedwait_relative_np(&mWake, &gRunLoopMutex, &span);
}

void RunLoop::Add(RunLoopTimer& timer)
{
    const MutexGuard guard(gRunLoopMutex);
    if (mEnded || !timer.mIsValid || timer.mLoop) return;
    CFRetain(&timer);
    timer.mLoop = this;
    mTimers.emplace(timer.mFirstNanos, &timer);
    kernel::pthread_cond_signal(&mWake);
}

/// @return whether it stood here, and the caller has its reference now
bool RunLoop::Withdraw(RunLoopTimer& timer)
{
    for (auto each = mTimers.begin(); each != mTimers.end(); ++each) {
        if (each->second != &timer) continue;
        mTimers.erase(each);
        return true;
    }
    return false;
}

void RunLoop::Take(Work work)
{
    mWork.push_back(std::move(work));
    kernel::pthread_cond_signal(&mWake);
}

void RunLoop::Perform(std::function<void()> work)
{
    const MutexGuard guard(gRunLoopMutex);
    if (!mEnded) Take({std::move(work), nullptr});
}

bool RunLoop::PerformAndWait(const std::function<void()>& work)
{
    Outcome outcome = Outcome::Open;
    const MutexGuard guard(gRunLoopMutex);
    if (mEnded) return false;
    Take({std::cref(work), &outcome});
    while (outcome == Outcome::Open) kernel::pthread_cond_wait(&gRunLoopDidSomething, &gRunLoopMutex);
    return outcome == Outcome::Done;
}

void RunLoop::End()
{
    std::deque<Work> work;  // goes when the lock is given up, as the timers do
    std::multimap<uint64_t, RunLoopTimer*> timers;
    {
        const MutexGuard guard(gRunLoopMutex);
        mEnded = true;
        work.swap(mWork);
        timers.swap(mTimers);
        for (Work& each : work)
            if (each.mOutcome) *each.mOutcome = Outcome::Dropped;
        for (const auto& [nanos, timer] : timers) timer->mLoop = nullptr;
        kernel::pthread_cond_broadcast(&gRunLoopDidSomething);
    }
    for (const auto& [nanos, timer] : timers) CFRelease(timer);
}

CFRunLoopRef RunLoopOfThisThread()
{
    if (!sOwn.mLoop) sOwn.mLoop = new RunLoop;
    return sOwn.mLoop;
}

void Perform(CFRunLoopRef loop, std::function<void()> work)
{
    loop->Perform(std::move(work));
}

bool PerformAndWait(CFRunLoopRef loop, const std::function<void()>& work)
{
    if (loop != CFRunLoopGetCurrent()) return loop->PerformAndWait(work);
    work();
    return true;
}

}  // namespace cf

CFRunLoopRef CFRunLoopGetCurrent()
{
    return cf::sOwn.mLoop;
}

void CFRunLoopRun()
{
    cf::RunLoopOfThisThread()->Run();
}

void CFRunLoopStop(CFRunLoopRef loop)
{
    loop->Stop();
}

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode)
{
    loop->Add(*timer);
}
