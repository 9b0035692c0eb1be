#include "platform/kernel/Signals.h"

#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"

#include <cerrno>

namespace platform::kernel {

int kill(pid_t process, int signal)
{
    if (signal == 0 && machine::Machine::Current().GetProcesses().MaySignal(process)) return 0;
    errno = signal == 0 ? ESRCH : EINVAL;
    return -1;
}

}  // namespace platform::kernel
