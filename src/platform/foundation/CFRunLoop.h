// CFRunLoop: a thread that waits for timers and for what other threads hand it, and does one thing at a time.
// Why: plug-ins, listeners and notifications live on one such thread, so that none of them needs a lock of its own.
// Start at CFRunLoopRun. A thread has a run loop from its first CFRunLoopRun or cf::RunLoopOfThisThread on; other
// threads have none, and whoever needs one says so (CFRunLoopGetCurrent gives null).
#pragma once

#include "platform/foundation/CFBase.h"

#include <functional>

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

/// A timer, which the caller releases, and which fires on the loop that it is added to.
///
/// @param interval  0: once, after which it is not valid any more
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                       CFOptionFlags flags, CFIndex order, CFRunLoopTimerCallBack callback,
                                       CFRunLoopTimerContext* context);
void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode);
bool CFRunLoopTimerIsValid(CFRunLoopTimerRef timer);
/// After this the timer does not fire; one that is firing on another thread ends first.
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

namespace cf {

/// The calling thread's run loop, made at need, not retained; it lives until the thread ends. For a thread that tells
/// others of its loop before it runs it.
CFRunLoopRef RunLoopOfThisThread();

/// Hands `work` to a loop, which does it in turn. What is handed to one loop is done in that order.
///
/// @thread any that may block, for a moment
void Perform(CFRunLoopRef loop, std::function<void()> work);

/// Perform, and waits until it is done; does it at once where `loop` is the calling thread's own.
void PerformAndWait(CFRunLoopRef loop, const std::function<void()>& work);

}  // namespace cf
