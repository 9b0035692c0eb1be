// HP_SystemInfo: what the audio system says of this process: whether it may be heard, and in which session it runs.
// Why: the I/O side must know without asking, and hears of a change as a listener.
// Start at Initialize.
#pragma once

#include "platform/audio/AudioObject.h"

#include <atomic>

class HP_SystemInfo {
public:
    HP_SystemInfo() = delete;

    /// Begins to listen, once, and reads what is so now.
    static void Initialize();
    /// Ceases to listen, but for the mixing to mono, and can be initialised again.
    static void Teardown();

    /// Asked of the system at each call; false where it does not say.
    static bool IsCurrentProcessTheMaster();
    static bool IsCurrentProcessInitingOrExiting();

    /// Reads anew what has changed. One that cannot be read counts as true, but mixing to mono stays as it was.
    static OSStatus SystemListener(AudioObjectID object, UInt32 count, const AudioObjectPropertyAddress* addresses,
                                   void* data);

    // Each stands alone: stored by the listener, loaded by any thread, relaxed.
    static inline std::atomic<bool> sIsMixingStereoToMono{false};
    static inline std::atomic<bool> sCurrentProcessIsAudible{true};
    static inline std::atomic<bool> sCurrentUserSessionIsActiveOrHeadless{true};

private:
    static inline std::atomic<bool> sIsInitialized{false};
};
