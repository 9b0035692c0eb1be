// ObjectTable: the plug-ins' objects by number: whose they are, and whether they can be found.
// Why: one process-wide space of numbers, in which a number never comes back.
// Native devices have a table of their own, NativeDevices; their numbers lie below all of these.
#pragma once

#include "platform/audio/PlugIn.h"

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform::audio {

constexpr AudioObjectID kFirstPlugInObject = 1u << 24;

/// May be called from any thread that may block; calls no plug-in.
class ObjectTable {
public:
    /// Enters a plug-in itself, to be found from now on. @return its number
    AudioObjectID Add(std::shared_ptr<PlugIn> plugIn);

    /// A number for an object that is not to be found yet; nothing where the plug-in or the owner is unknown.
    std::optional<AudioObjectID> Create(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 classID);

    /// @return whether anything changed in what can be found
    bool Publish(AudioHardwarePlugInRef plugIn, std::span<const AudioObjectID> objects);
    /// Forgets objects and all they own. The same result.
    bool Forget(AudioHardwarePlugInRef plugIn, std::span<const AudioObjectID> objects);
    /// Forgets all.
    void Clear();

    /// The plug-in that a published object belongs to; null where there is none of that number.
    std::shared_ptr<PlugIn> Find(AudioObjectID object);

    /// The published devices, in the order in which they were created.
    std::vector<AudioDeviceID> CopyDevices();

private:
    struct Row {
        std::shared_ptr<PlugIn> mPlugIn;
        AudioObjectID mOwner = 0;
        UInt32 mClassID = 0;
        bool mPublished = false;
    };

    bool Owns(AudioHardwarePlugInRef plugIn, AudioObjectID object) const;
    void ForgetWithWhatItOwns(AudioObjectID object);

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;  // guards all below; held for look-ups and changes alone
    std::map<AudioObjectID, Row> mRows;
    AudioObjectID mNext = kFirstPlugInObject;
};

}  // namespace platform::audio
