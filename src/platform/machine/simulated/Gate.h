// Gate: virtual time. Real threads, of which one has the turn and all others stand still.
// Why: a whole system runs as fast as it computes, and in the same order every time. Whoever blocks hands the
// turn to the thread that has been ready longest; when none is ready, the clock jumps to the next deadline;
// when there is none either, everybody's wait is printed and the process ends.
//
// The race detector must not see the gate: it would take every hand-over for an order that the program made.
// So the gate and its turns use bare futexes and builtins, their sources are compiled without that detector, and
// nothing here is a standard container, whose code could be merged with an instrumented copy. All state is touched by
// the thread that has the turn and by no other, so that it needs no lock. Start at Block.
#pragma once

#include "platform/machine/simulated/Turn.h"

#include <pthread.h>

#include <cstdint>

namespace platform::machine::simulated {

constexpr uint64_t kStartNanos = 1'000'000'000'000'007;
constexpr uint64_t kForever = UINT64_MAX;

enum class WaitFor : uint8_t {
    Time,       ///< nothing but its deadline
    Mutex,      ///< object: a pthread_mutex_t
    Condition,  ///< object: a pthread_cond_t
    End,        ///< object: a GateThread
    Work,       ///< object: whatever a thread of the machine waits on
};

/// One thread as the gate knows it. Belongs to the gate.
struct GateThread {
    char mName[16];
    pthread_t mHandle;
    int mSystemID;   // the kernel's number, by which a mutex names its holder
    bool mUsed;      // the slot stands for a thread
    bool mDetached;  // nobody joins it: the slot is free when it ends
    bool mEnded;
    bool mPunctual;  // woken on time even where wake-ups are scripted to be late
    bool mMayNotBlock;

    WaitFor mWaitFor;
    const void* mObject;
    uint64_t mSinceNanos;
    uint64_t mDeadlineNanos;
    uint64_t mWakeNanos;  // the deadline, plus what it is scripted to be late
    uint64_t mStalledUntilNanos;
    bool mWoken;  // by another thread, not by its deadline

    GateThread* mNext;  // in the one queue that it stands in
    Turn mTurn;
};

class Gate {
public:
    /// Makes the caller the thread "main", which has the turn. Keeps the process on one processor, where a
    /// hand-over costs least.
    Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    uint64_t NowNanos() const noexcept { return __atomic_load_n(&mNowNanos, __ATOMIC_RELAXED); }

    // ---- The life of a thread

    /// A thread that will come; it stands last among the ready. Its creator calls this, then Bind.
    GateThread* Add(const char* name, bool detached, bool punctual) noexcept;
    void Bind(GateThread* thread, pthread_t handle) noexcept;
    /// The first call of a new thread: returns when it has the turn.
    void Enter(GateThread* thread);
    /// The last call of a thread: hands the turn on for good.
    void Leave(GateThread* thread);
    /// The thread of that handle, or null.
    GateThread* Find(pthread_t handle) noexcept;
    /// Forgets a thread that ended and was joined, or that could not be started.
    void Forget(GateThread* thread) noexcept;
    /// The caller's own.
    GateThread& Self() noexcept;
    /// Whether the calling thread's Block is a fault of the program, which ends with the report.
    void ForbidBlocking(bool forbidden) noexcept;

    // ---- Waiting

    /// Hands the turn on until somebody wakes this thread for `object`, or host time reaches the deadline.
    ///
    /// @return whether it was woken; false: the deadline came first
    bool Block(WaitFor what, const void* object, uint64_t deadlineNanos = kForever);
    /// Makes ready the thread that waits longest for `object`.
    void WakeOne(const void* object) noexcept;
    void WakeAll(const void* object) noexcept;
    bool IsAwaited(const void* object) const noexcept;

    // ---- Faults, by script

    /// Moves the clock forward at once; deadlines passed over become late.
    void StepClock(uint64_t nanos) noexcept;
    /// The threads of that name do not get the turn before host time `untilNanos`.
    void Stall(const char* name, uint64_t untilNanos) noexcept;
    /// From now on, every deadline of a thread that is not punctual wakes it up to `mostNanos` late.
    void WakeLate(uint64_t mostNanos, uint64_t seed) noexcept;

    /// Prints everybody's wait under `headline` and aborts.
    [[noreturn]] void GiveUp(const char* headline) noexcept;

private:
    static constexpr int kMostThreads = 256;

    struct Queue {
        GateThread* mFirst;
        GateThread* mLast;
    };

    static void Append(Queue& queue, GateThread* thread) noexcept;
    static void Remove(Queue& queue, GateThread* thread) noexcept;
    GateThread* Next() noexcept;
    void Park(GateThread* thread) noexcept;
    void JumpToNextDeadline() noexcept;
    GateThread* Earliest() const noexcept;
    void MakeReady(GateThread* thread, bool woken) noexcept;
    uint64_t Lateness(const GateThread& thread) noexcept;
    void Print(const GateThread& thread) const noexcept;
    void PrintObject(const GateThread& thread) const noexcept;
    int NumberOf(const GateThread& thread) const noexcept;

    uint64_t mNowNanos = kStartNanos;
    Queue mReady{};    // in the order of becoming ready
    Queue mWaiting{};  // in the order of beginning to wait
    uint64_t mMostLateNanos = 0;
    uint64_t mRandom = 1;
    GateThread mThreads[kMostThreads]{};
};

}  // namespace platform::machine::simulated
