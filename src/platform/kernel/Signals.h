// Signals: asking whether a process is there.
#pragma once

#include <sys/types.h>

namespace platform::kernel {

/// Sends a signal; 0 sends none and only asks whether one could be sent. @return 0, or -1 with errno
int kill(pid_t process, int signal);

}  // namespace platform::kernel
