// CFRunLoop: a thread that waits for timers and for what other threads hand it, and does one thing at a time.
// Why: plug-ins, listeners and notifications live on one such thread, so that none of them needs a lock of its own.
// Start at CFRunLoopRun. A thread has a run loop from its first CFRunLoopRun or cf::RunLoopOfThisThread on; other
// threads have none, and whoever needs one says so (CFRunLoopGetCurrent gives null).
#pragma once

#include "platform/foundation/CFBase.h"
#include "platform/kernel/Threads.h"

#include <deque>
#include <functional>
#include <map>

namespace cf {
class RunLoop;
class RunLoopTimer;
}  // namespace cf

using CFRunLoopRef = cf::RunLoop*;
using CFRunLoopTimerRef = cf::RunLoopTimer*;
using CFAbsoluteTime = double;  // seconds
using CFTimeInterval = double;  // seconds
using CFRunLoopMode = CFStringRef;

/// The one mode that there is.
extern const CFRunLoopMode kCFRunLoopCommonModes;

struct CFRunLoopTimerContext {
    CFIndex version;  // 0
    void* info;       // handed to the callback; not retained where `retain` is null
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};
using CFRunLoopTimerCallBack = void (*)(CFRunLoopTimerRef timer, void* info);

/// The time that timers count in: seconds of host time since an arbitrary start, so that a step of the wall clock fires
/// nothing.
CFAbsoluteTime CFAbsoluteTimeGetCurrent();

/// The calling thread's run loop, not retained; null where it has none.
CFRunLoopRef CFRunLoopGetCurrent();

/// Runs the calling thread's loop, made at need, until it is stopped.
void CFRunLoopRun();

/// Ends the present CFRunLoopRun of `loop`, or the next one.
///
/// @thread any
void CFRunLoopStop(CFRunLoopRef loop);

/// A timer, which the caller releases, and which fires on the one loop that it is added to. Callbacks must not throw.
///
/// @param fireDate  what has passed is due at once
/// @param interval  0: once, after which it is not valid any more. Else at every fireDate + n x interval; what is
/// missed
///                  of these is made up for by firing once, late
/// @param flags     0
/// @param order     0: of timers that are due, the one that has been so longest comes first
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                       CFOptionFlags flags, CFIndex order, CFRunLoopTimerCallBack callback,
                                       CFRunLoopTimerContext* context);
/// Quietly nothing where the timer has a loop, or is not valid.
///
/// @thread any, as the next
void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode);
/// After this the timer does not fire; one that is firing on another thread ends first.
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

namespace cf {

/// The calling thread's run loop, made at need, not retained; it lives until the thread ends. For a thread that tells
/// others of its loop before it runs it.
CFRunLoopRef RunLoopOfThisThread();

/// Hands `work`, which must not throw, to a loop, which does it in turn. What is handed to one loop is done in that
/// order; what is left when its thread ends is not done.
///
/// @thread any that may block, for a moment
void Perform(CFRunLoopRef loop, std::function<void()> work);

/// Perform, and waits until it is done; does it at once where `loop` is the calling thread's own. Two loops that wait
/// for each other wait for ever.
///
/// @return whether it was done; false: the loop's thread ended first
bool PerformAndWait(CFRunLoopRef loop, const std::function<void()>& work);

/// The class behind a CFRunLoopTimerRef.
class RunLoopTimer final : public Object {
public:
    static constexpr CFTypeID kTypeID = kRunLoopTimerType;
    RunLoopTimer(CFAbsoluteTime fireDate, CFTimeInterval interval, CFRunLoopTimerCallBack callback,
                 const CFRunLoopTimerContext& context);
    ~RunLoopTimer() override;

    CFTypeID TypeID() const override { return kTypeID; }
    std::string Describe() const override { return "run-loop timer"; }

    bool IsValid() const;
    void Invalidate();

private:
    friend class RunLoop;
    uint64_t FirstAfter(uint64_t nanos) const;
    void ReleaseInfo();

    const uint64_t mFirstNanos;
    const double mIntervalNanos;  // 0: once
    const CFRunLoopTimerCallBack mCallback;
    const CFRunLoopTimerContext mContext;
    RunLoop* mLoop = nullptr;  // that it was added to, while that lives
    bool mIsValid = true;
    bool mIsFiring = false;
};

/// The class behind a CFRunLoopRef: what is to be done, and what waits for its time.
class RunLoop final : public Object {
public:
    static constexpr CFTypeID kTypeID = kRunLoopType;
    RunLoop();
    ~RunLoop() override;

    CFTypeID TypeID() const override { return kTypeID; }
    std::string Describe() const override { return "run loop"; }

    void Run();
    void Stop();
    void Add(RunLoopTimer& timer);
    void Perform(std::function<void()> work);
    bool PerformAndWait(const std::function<void()>& work);
    /// Its thread is about to end, and takes nothing more.
    void End();

private:
    friend class RunLoopTimer;
    enum class Outcome { Open, Done, Dropped };
    struct Work {
        std::function<void()> mDo;
        Outcome* mOutcome;  // whoever waits for it has this; null: nobody does
    };

    void Take(Work work);
    bool Turn() noexcept;
    bool FireNext();
    bool DoNext();
    void Wait();
    bool Withdraw(RunLoopTimer& timer);

    pthread_cond_t mWake;
    std::deque<Work> mWork;
    std::multimap<uint64_t, RunLoopTimer*> mTimers;  // by the host time at which each fires; retained
    bool mStop = false;
    bool mEnded = false;
};

}  // namespace cf
