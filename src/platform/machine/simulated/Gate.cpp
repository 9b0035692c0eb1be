#include "platform/machine/simulated/Gate.h"

#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace platform::machine::simulated {

namespace {

thread_local GateThread* sSelf = nullptr;

void StayOnOneProcessor() noexcept
{
    const int here = sched_getcpu();
    if (here < 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(here), &one);
    sched_setaffinity(0, sizeof one, &one);  // refused: only slower
}

// The library's string functions are watched by the race detector wherever they are called from; hence the
// volatile, which keeps the compiler from making calls of them.
void CopyName(char (&to)[16], const char* from) noexcept
{
    volatile char* place = to;
    int length = 0;
    for (; length < 15 && from[length]; ++length) place[length] = from[length];
    place[length] = 0;
}

bool SameName(const volatile char* one, const volatile char* other) noexcept
{
    int i = 0;
    while (i < 15 && one[i] && one[i] == other[i]) ++i;
    return i == 15 || one[i] == other[i];
}

uint64_t SinceStart(uint64_t nanos) noexcept
{
    return nanos - kStartNanos;
}

void PrintTime(uint64_t nanos) noexcept
{
    const uint64_t since = SinceStart(nanos);
    dprintf(STDERR_FILENO, "%llu.%09llu s", static_cast<unsigned long long>(since / 1'000'000'000),
            static_cast<unsigned long long>(since % 1'000'000'000));
}

}  // namespace

Gate::Gate()
{
    StayOnOneProcessor();
    GateThread& main = mThreads[0];
    CopyName(main.mName, "main");
    main.mHandle = pthread_self();
    main.mSystemID = gettid();
    main.mUsed = main.mPunctual = true;
    main.mTurn.Begin();
    sSelf = &main;
}

GateThread& Gate::Self() noexcept
{
    if (sSelf) return *sSelf;
    GiveUp("A thread that the simulated machine did not start called it");
}

// ---- The life of a thread

GateThread* Gate::Add(const char* name, bool detached, bool punctual) noexcept
{
    GateThread* slot = mThreads;
    while (slot < mThreads + kMostThreads && slot->mUsed) ++slot;
    if (slot == mThreads + kMostThreads) GiveUp("Too many threads");
    *slot = GateThread{};
    CopyName(slot->mName, name);
    slot->mUsed = true;
    slot->mDetached = detached;
    slot->mPunctual = punctual;
    Append(mReady, slot);
    return slot;
}

void Gate::Bind(GateThread* thread, pthread_t handle) noexcept
{
    thread->mHandle = handle;
}

void Gate::ForbidBlocking(bool forbidden) noexcept
{
    Self().mMayNotBlock = forbidden;
}

void Gate::Enter(GateThread* thread)
{
    sSelf = thread;
    const int systemID = gettid();  // before the turn, with which another thread of the kernel may go on
    thread->mTurn.Arrive();
    thread->mSystemID = systemID;
}

void Gate::Leave(GateThread* thread)
{
    thread->mEnded = true;
    WakeAll(thread);
    if (thread->mDetached) thread->mUsed = false;
    sSelf = nullptr;
    thread->mTurn.LeaveTo(Next()->mTurn);
}

GateThread* Gate::Find(pthread_t handle) noexcept
{
    for (GateThread& thread : mThreads)
        if (thread.mUsed && pthread_equal(thread.mHandle, handle)) return &thread;
    return nullptr;
}

void Gate::Forget(GateThread* thread) noexcept
{
    if (!thread->mEnded) Remove(mReady, thread);
    thread->mUsed = false;
}

// ---- Waiting

bool Gate::Block(WaitFor what, const void* object, uint64_t deadlineNanos)
{
    GateThread& self = Self();
    self.mWaitFor = what;
    self.mObject = object;
    self.mSinceNanos = mNowNanos;
    self.mDeadlineNanos = deadlineNanos;
    self.mWakeNanos = deadlineNanos == kForever ? kForever : deadlineNanos + Lateness(self);
    self.mWoken = false;
    Append(mWaiting, &self);
    if (self.mMayNotBlock) GiveUp("A cycle of the audio server would block");

    GateThread* next = Next();
    if (next != &self) self.mTurn.HandTo(next->mTurn);
    return self.mWoken;
}

void Gate::WakeOne(const void* object) noexcept
{
    for (GateThread* thread = mWaiting.mFirst; thread; thread = thread->mNext) {
        if (thread->mObject == object) return MakeReady(thread, true);
    }
}

void Gate::WakeAll(const void* object) noexcept
{
    GateThread* following = nullptr;
    for (GateThread* thread = mWaiting.mFirst; thread; thread = following) {
        following = thread->mNext;
        if (thread->mObject == object) MakeReady(thread, true);
    }
}

bool Gate::IsAwaited(const void* object) const noexcept
{
    for (const GateThread* thread = mWaiting.mFirst; thread; thread = thread->mNext)
        if (thread->mObject == object) return true;
    return false;
}

/// The thread that has the turn next. It may be the caller's own: then nothing is handed over at all.
GateThread* Gate::Next() noexcept
{
    for (;;) {
        while (GateThread* thread = mReady.mFirst) {
            Remove(mReady, thread);
            if (thread->mStalledUntilNanos <= mNowNanos) return thread;
            Park(thread);
        }
        JumpToNextDeadline();
    }
}

/// A stalled thread waits for the end of its stall only; what it was woken for stays noted.
void Gate::Park(GateThread* thread) noexcept
{
    thread->mWaitFor = WaitFor::Time;
    thread->mObject = nullptr;
    thread->mWakeNanos = thread->mStalledUntilNanos;
    Append(mWaiting, thread);
}

void Gate::JumpToNextDeadline() noexcept
{
    GateThread* earliest = Earliest();
    if (!earliest) GiveUp("Nobody can ever run again");
    if (earliest->mWakeNanos > mNowNanos) __atomic_store_n(&mNowNanos, earliest->mWakeNanos, __ATOMIC_RELAXED);
    do {
        MakeReady(earliest, earliest->mWoken);
        earliest = Earliest();
    } while (earliest && earliest->mWakeNanos <= mNowNanos);
}

/// Of those with the same deadline, the one that began to wait first.
GateThread* Gate::Earliest() const noexcept
{
    GateThread* earliest = nullptr;
    uint64_t nanos = kForever;
    for (GateThread* thread = mWaiting.mFirst; thread; thread = thread->mNext) {
        if (thread->mWakeNanos >= nanos) continue;
        nanos = thread->mWakeNanos;
        earliest = thread;
    }
    return earliest;
}

void Gate::MakeReady(GateThread* thread, bool woken) noexcept
{
    Remove(mWaiting, thread);
    thread->mObject = nullptr;
    thread->mWoken = woken;
    Append(mReady, thread);
}

void Gate::Append(Queue& queue, GateThread* thread) noexcept
{
    thread->mNext = nullptr;
    (queue.mLast ? queue.mLast->mNext : queue.mFirst) = thread;
    queue.mLast = thread;
}

void Gate::Remove(Queue& queue, GateThread* thread) noexcept
{
    GateThread* before = nullptr;
    for (GateThread* each = queue.mFirst; each != thread; each = each->mNext) before = each;
    (before ? before->mNext : queue.mFirst) = thread->mNext;
    if (queue.mLast == thread) queue.mLast = before;
}

// ---- Faults

void Gate::StepClock(uint64_t nanos) noexcept
{
    __atomic_store_n(&mNowNanos, mNowNanos + nanos, __ATOMIC_RELAXED);
}

void Gate::Stall(const char* name, uint64_t untilNanos) noexcept
{
    for (GateThread& thread : mThreads)
        if (thread.mUsed && SameName(thread.mName, name)) thread.mStalledUntilNanos = untilNanos;
}

void Gate::WakeLate(uint64_t mostNanos, uint64_t seed) noexcept
{
    mMostLateNanos = mostNanos;
    mRandom = seed | 1;
}

uint64_t Gate::Lateness(const GateThread& thread) noexcept
{
    if (mMostLateNanos == 0 || thread.mPunctual) return 0;
    mRandom ^= mRandom << 13;
    mRandom ^= mRandom >> 7;
    mRandom ^= mRandom << 17;
    return mRandom % (mMostLateNanos + 1);
}

// ---- The report

void Gate::GiveUp(const char* headline) noexcept
{
    dprintf(STDERR_FILENO, "%s, ", headline);
    PrintTime(mNowNanos);
    dprintf(STDERR_FILENO, " after the start:\n");
    for (const GateThread& thread : mThreads)
        if (thread.mUsed && !thread.mEnded) Print(thread);
    abort();
}

void Gate::Print(const GateThread& thread) const noexcept
{
    bool waits = false;
    for (const GateThread* each = mWaiting.mFirst; each; each = each->mNext) waits |= each == &thread;
    if (!waits) {
        dprintf(STDERR_FILENO, "  %s: could run\n", thread.mName);
        return;
    }
    dprintf(STDERR_FILENO, "  %s: waits for ", thread.mName);
    PrintObject(thread);
    dprintf(STDERR_FILENO, ", since ");
    PrintTime(thread.mSinceNanos);
    dprintf(STDERR_FILENO, "\n");
}

void Gate::PrintObject(const GateThread& thread) const noexcept
{
    switch (thread.mWaitFor) {
        case WaitFor::Time:
            PrintTime(thread.mWakeNanos);
            break;
        case WaitFor::Mutex: {
            dprintf(STDERR_FILENO, "mutex %d", NumberOf(thread));
            const int holder = static_cast<const pthread_mutex_t*>(thread.mObject)->__data.__owner;
            for (const GateThread& each : mThreads)
                if (each.mUsed && each.mSystemID == holder) dprintf(STDERR_FILENO, " held by %s", each.mName);
            break;
        }
        case WaitFor::Condition:
            dprintf(STDERR_FILENO, "condition %d", NumberOf(thread));
            break;
        case WaitFor::End:
            dprintf(STDERR_FILENO, "the end of %s", static_cast<const GateThread*>(thread.mObject)->mName);
            break;
        case WaitFor::Work:
            dprintf(STDERR_FILENO, "work");
            break;
    }
}

/// Objects have no names, and addresses differ from run to run: they are counted, a kind at a time, as the
/// report comes to them.
int Gate::NumberOf(const GateThread& thread) const noexcept
{
    int number = 0;
    for (const GateThread& each : mThreads) {
        const bool sameKind = each.mUsed && !each.mEnded && each.mObject && each.mWaitFor == thread.mWaitFor;
        if (!sameKind) continue;
        bool first = true;
        for (const GateThread* before = mThreads; before < &each; ++before)
            first &= !(before->mUsed && before->mWaitFor == each.mWaitFor && before->mObject == each.mObject);
        number += first;
        if (each.mObject == thread.mObject) break;
    }
    return number;
}

}  // namespace platform::machine::simulated
