// Realtime: marks what runs in a cycle, so that a test build can trap what a cycle must not do.
// Why: an allocation, a lock or a wait in a cycle is heard only on a busy machine, and then by somebody else.
// Builds with CORVANE_TRAP_REALTIME, as both sanitizer presets are, end the process there, with one line that
// names the call and a stack; in all others nothing of this is left.
// Start at RealtimeScope.
#pragma once

/// A function that runs in a cycle: it cannot fail, and neither allocates nor waits.
#define CORVANE_REALTIME noexcept

namespace platform::kernel {

#ifdef CORVANE_TRAP_REALTIME

/// A cycle of the calling thread, for the life of the object; may be nested.
class RealtimeScope {
public:
    RealtimeScope() noexcept;
    ~RealtimeScope();
    RealtimeScope(const RealtimeScope&) = delete;
    RealtimeScope& operator=(const RealtimeScope&) = delete;
};

/// A stretch inside a cycle that may do all of it, for the reason given, which stands there for the reader.
class RealtimeExemption {
public:
    explicit RealtimeExemption(const char* reason) noexcept;
    ~RealtimeExemption();
    RealtimeExemption(const RealtimeExemption&) = delete;
    RealtimeExemption& operator=(const RealtimeExemption&) = delete;

private:
    const int mDepth;
};

/// Ends the process where the calling thread is in a cycle. For calls that may wait or allocate.
/// @realtime yes
void TrapInRealtime(const char* call) noexcept;

#else

class RealtimeScope {
public:
    RealtimeScope() noexcept {}
};

class RealtimeExemption {
public:
    explicit RealtimeExemption(const char*) noexcept {}
};

/// Nothing in this build. @realtime yes
inline void TrapInRealtime(const char*) noexcept {}

#endif

}  // namespace platform::kernel
