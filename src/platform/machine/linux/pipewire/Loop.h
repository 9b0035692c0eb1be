// Loop: the control thread of one server object and its lock, and what can wake that thread.
#pragma once

#include "platform/machine/linux/BlockedSignals.h"

#include <cstdint>
#include <functional>

struct pw_loop;
struct pw_thread_loop;
struct spa_source;

namespace platform::machine::pipewire {

class Loop {
public:
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    void Start();
    /// Ends the thread. What is registered on the loop is not called again.
    void Stop();
    pw_loop* Get() const;

    /// Keeps the loop's thread out while it lives. The thread itself may take it too. The calling thread blocks signals
    /// meanwhile, since the library's blocking calls do not survive one.
    class Guard {
    public:
        explicit Guard(Loop& loop);
        ~Guard();
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        const BlockedSignals mBlocked;
        Loop& mLoop;
    };

private:
    pw_thread_loop* mLoop;
};

/// Something that makes the loop's thread run an action. Ends with the object; made and ended under the lock.
class LoopSource {
public:
    using Action = std::function<void()>;

    LoopSource(const Loop& loop, Action action);
    ~LoopSource();
    LoopSource(const LoopSource&) = delete;
    LoopSource& operator=(const LoopSource&) = delete;

protected:
    static void Run(void* self);

    pw_loop* mLoop;
    Action mAction;
    spa_source* mSource = nullptr;
};

/// Runs its action soon after Signal; several signals before that run it once.
class LoopEvent : public LoopSource {
public:
    LoopEvent(const Loop& loop, Action action);
    void Signal();
};

/// Runs its action once, some time after Arm.
class LoopTimer : public LoopSource {
public:
    LoopTimer(const Loop& loop, Action action);
    void Arm(uint64_t nanosFromNow);
};

/// Runs its action while a descriptor, which stays the caller's, can be read.
class LoopReader : public LoopSource {
public:
    LoopReader(const Loop& loop, int descriptor, Action action);
};

}  // namespace platform::machine::pipewire
