// Signals: asking whether a process is there.
#pragma once

#include <sys/types.h>

namespace platform::kernel {

/// Asks whether a signal could be sent to a process, 1 or above; the only signal taken is 0, which sends none.
/// @return 0, or -1 with errno: ESRCH where it could not, EINVAL for any other signal
int kill(pid_t process, int signal);

}  // namespace platform::kernel
