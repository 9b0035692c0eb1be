#include "platform/kernel/Signals.h"

#include <csignal>

namespace platform::kernel {

int kill(pid_t process, int signal)
{
    return ::kill(process, signal);
}

}  // namespace platform::kernel
