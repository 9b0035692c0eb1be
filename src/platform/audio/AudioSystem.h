// AudioSystem: the part of the audio system that runs: its one thread, the plug-ins that live on it, and who is told of
// changes. Why: plug-ins, notifications, timers and listeners meet on one run loop, so that a client needs none and a
// plug-in needs no lock against itself.
// Start at EnsurePlugIns. What native devices answer needs nothing of this.
#pragma once

#include "platform/audio/Listeners.h"
#include "platform/audio/NativeDevices.h"
#include "platform/audio/ObjectTable.h"
#include "platform/foundation/CFRunLoop.h"
#include "platform/machine/AudioServer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace platform::audio {

class AudioSystem final : machine::ServerListener {
public:
    static AudioSystem& Get();

    /// Starts the system's thread and listens to the machine's server, unless that is so already.
    ///
    /// @thread any that may block, as the next ones
    void EnsureRunning();

    /// The same, and loads the plug-ins and lets them make their objects. On the system's own thread, where a plug-in
    /// asks while it is being loaded, it does nothing.
    void EnsurePlugIns();

    /// Lets the plug-ins go and ends the thread.
    ///
    /// @param exiting  what "inot" says meanwhile
    void Unload(bool exiting);

    /// Whether its thread was started by this process, and not by one that this is a copy of.
    bool IsOfThisProcess() const;
    bool IsExiting() const { return mExiting.load(std::memory_order_relaxed); }
    ObjectTable& Objects() { return mObjects; }
    /// The plug-in that has a published object of this number; null for others, quickly for native ones'.
    std::shared_ptr<PlugIn> PlugInOf(AudioObjectID object)
    {
        return object < kFirstPlugInObject ? nullptr : mObjects.Find(object);
    }
    Listeners& PropertyListeners() { return mListeners; }

    /// Tells listeners on the system's thread, in turn. Nothing where that does not run: then nobody listens.
    void TellLater(AudioObjectID object, std::vector<AudioObjectPropertyAddress> changed);

private:
    static void* RunEntry(void* system);
    void OnServerChanged() noexcept override;
    void DoLater(std::function<void()> work);
    void CompareNativeDevices();
    void LoadPlugIns();
    void TearPlugInsDown();
    CFRunLoopRef Loop() const { return mLoop.load(std::memory_order_acquire); }
    bool IsOnOwnThread() const { return CFRunLoopGetCurrent() && CFRunLoopGetCurrent() == Loop(); }

    pthread_mutex_t mStartMutex = PTHREAD_MUTEX_INITIALIZER;  // held while the thread starts, loads plug-ins or ends
    pthread_mutex_t mLoopMutex = PTHREAD_MUTEX_INITIALIZER;   // held while work is handed over: the loop lives
    pthread_cond_t mRuns;                                     // signalled when the thread has its loop
    pthread_t mThread{};
    std::atomic<CFRunLoopRef> mLoop{nullptr};  // stored (release) under mLoopMutex, loaded (acquire) by any
    std::atomic<bool> mLoaded{false};          // stored (release) by the system's thread, loaded (acquire) by any
    std::atomic<pid_t> mProcess{0};            // that started the thread
    std::atomic<bool> mExiting{false};         // one word that orders nothing
    ObjectTable mObjects;
    Listeners mListeners;

    // The system's thread's own:
    std::vector<std::pair<AudioObjectID, std::shared_ptr<PlugIn>>> mPlugIns;
    NativeDevices mNative;  // as last compared
};

}  // namespace platform::audio
