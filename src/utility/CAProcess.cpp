#include "utility/CAProcess.h"

#include "platform/kernel/Signals.h"
#include "platform/kernel/System.h"

namespace {

constexpr pid_t kUnknown = -1;

}  // namespace

std::atomic<pid_t> CAProcess::sPID{kUnknown};

bool CAProcess::ProcessExists(int pid)
{
    return pid >= 1 && platform::kernel::kill(pid, 0) == 0;
}

pid_t CAProcess::GetPID()
{
    pid_t pid = sPID.load(std::memory_order_relaxed);
    if (pid == kUnknown) {
        pid = platform::kernel::getpid();
        sPID.store(pid, std::memory_order_relaxed);
    }
    return pid;
}
