// Listeners: who wants to hear of which properties of which objects.
// Why: they are called one at a time, without any lock, and none that was removed is called any more.
#pragma once

#include "platform/audio/AudioObject.h"
#include "platform/kernel/Threads.h"

#include <cstdint>
#include <list>
#include <vector>

namespace platform::audio {

class Listeners {
public:
    struct Listener {
        AudioObjectID mObject;
        AudioObjectPropertyAddress mAddress;  // may hold wildcards
        AudioObjectPropertyListenerProc mProcedure;
        void* mClientData;

        bool operator==(const Listener& other) const;
    };

    Listeners();

    /// @return whether it was not there yet
    bool Add(const Listener& listener);
    /// @return whether it was there. No call of it is under way then, save one that the caller himself runs in.
    bool Remove(const Listener& listener);

    /// Tells those who listen to any of these, in the order in which they were added, each once with what he
    /// listens to. On one thread at a time.
    void Tell(AudioObjectID object, const std::vector<AudioObjectPropertyAddress>& changed);

private:
    struct Row {
        Listener mListener;
        uint64_t mNumber;  // rises with each that is added
    };

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;  // guards all below, never held in a listener
    pthread_cond_t mCallEnded;
    std::list<Row> mRows;
    uint64_t mNextNumber = 1;
    uint64_t mRunning = 0;  // the row whose call is under way; 0: none
    pthread_t mRunner{};    // who makes that call
};

}  // namespace platform::audio
