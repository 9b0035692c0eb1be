// CAPThread: a thread that knows real-time and fixed-priority scheduling.
// Why: scheduling is asked for by the thread itself as it starts, so that its work never runs without it.
// Start at the two constructors. Priorities are the platform's (31 is where an ordinary thread lies).
#pragma once

#include "platform/kernel/Threads.h"

#include <atomic>
#include <cstdint>

class CAPThread {
public:
    using Routine = void* (*)(void*);

    enum PriorityKind {
        kBasePriority = 0,
        kScheduledPriority = 1,  ///< the one in effect
    };

    /// A real-time thread; not started yet.
    ///
    /// @param entry        what it runs; an exception out of it ends the thread and nothing else; may be null
    /// @param period       host ticks from one piece of work to the next
    /// @param computation  host ticks of work in a period
    /// @param constraint   host ticks within which the work must be done
    /// @param preemptible  whether the work may be interrupted
    /// @param autoDelete   the object deletes itself when the thread ends; it then lives on the heap
    /// @param name         what people and traces see, at most 15 characters; not copied
    CAPThread(Routine entry, void* argument, uint32_t period, uint32_t computation, uint32_t constraint,
              bool preemptible, bool autoDelete, const char* name = nullptr);

    /// A thread at a priority, time-shared unless `fixed`. Otherwise as above.
    CAPThread(Routine entry, void* argument, uint32_t priority, bool fixed, bool autoDelete,
              const char* name = nullptr);

    virtual ~CAPThread() = default;
    CAPThread(const CAPThread&) = delete;
    CAPThread& operator=(const CAPThread&) = delete;

    /// Starts the detached thread, unless there is one. An object that deletes itself may be gone on return.
    /// @throws CAException with the error number
    virtual void Start();

    /// Whether the thread is started and has not ended. Once false, the thread touches the object no more.
    bool IsRunning() const noexcept { return mThread.load(std::memory_order_acquire) != 0; }
    bool IsCurrentThread() const noexcept;

    /// Gives the thread a priority, now if it runs and else as it starts. The same threading rule for both: one
    /// caller at a time, and not while the thread may be ending.
    /// @throws CAException with the error number
    void SetPriority(uint32_t priority, bool fixed);
    void SetTimeConstraints(uint32_t period, uint32_t computation, uint32_t constraint, bool preemptible);

    /// The priority in effect; 0 when not running. Not while the thread may be ending either.
    uint32_t GetScheduledPriority() const;
    static uint32_t getScheduledPriority(pthread_t thread, int kind);

private:
    static void* Entry(void* launch);
    void* Run() noexcept;
    void CreateThread();
    void ApplyScheduling(pthread_t thread) const;
    void ApplyPriority(pthread_t thread) const;
    void ApplyTimeConstraints(pthread_t thread) const;
    pthread_t StartedThread() const noexcept;

    // 0 when not running, kStarting until Start has the handle. Stored by Start, and by the thread as it ends; loaded
    // by any. Its stores and loads against the wishes below are sequentially consistent: either the thread, which reads
    // the wishes after Start has stored the handle, sees a new wish, or the setter, which stores it and then looks for
    // a thread, sees the thread.
    std::atomic<pthread_t> mThread{0};
    uint32_t mSpawningPriority;  // that of the thread which made the object
    Routine mEntry;
    void* mArgument;
    // The wishes: stored by the setters, loaded by the thread as it enters; see above.
    std::atomic<uint32_t> mPriority;
    std::atomic<uint32_t> mPeriod;
    std::atomic<uint32_t> mComputation;
    std::atomic<uint32_t> mConstraint;
    std::atomic<bool> mPreemptible;
    std::atomic<bool> mTimeConstraintSet;
    std::atomic<bool> mFixedPriority;
    bool mAutoDelete;
    const char* mName;
};
