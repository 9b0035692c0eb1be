// CAProcess: this process and others by their identifiers.
#pragma once

#include <sys/types.h>

#include <atomic>

class CAProcess {
public:
    /// Whether there is such a process that we may signal; never for an identifier below 1.
    static bool ProcessExists(int pid);

    static pid_t GetPID();

private:
    // All ones until asked for. Stored and loaded by any thread, always the same value: relaxed.
    static std::atomic<pid_t> sPID;
};
