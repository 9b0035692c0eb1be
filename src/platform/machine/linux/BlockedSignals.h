// BlockedSignals: keeps signals from the calling thread, and from the threads that are created meanwhile.
// Why: a handler belongs to the program and expects the program's threads. On a real-time thread it costs a cycle, and
// a signal that interrupts PipeWire's wait for its data thread makes that wait, and each one after it, end too early.
#pragma once

#include <signal.h>

#include <initializer_list>

namespace platform::machine {

/// Blocks every signal but those that a fault of the thread itself raises, until the destructor restores the mask.
///
/// @thread made and destroyed by the same thread
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t signals;
        sigfillset(&signals);
        // A blocked fault ends the process without the program's own report of the crash.
        for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) sigdelset(&signals, fault);
        pthread_sigmask(SIG_BLOCK, &signals, &mBefore);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t mBefore;
};

}  // namespace platform::machine
