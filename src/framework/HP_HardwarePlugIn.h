// HP_HardwarePlugIn: the plug-in as the audio system holds it: a counted reference to a table of functions.
// Why: those functions are the only way in. They find the object of a call by its number, lock it, and turn whatever is
// thrown below them into a status, so that nothing thrown reaches the system.
// Start at sInterface (HP_HardwarePlugInInterface.cpp).
#pragma once

#include "framework/HP_Object.h"
#include "platform/audio/AudioHardwarePlugIn.h"

#include <atomic>

class HP_HardwarePlugIn : public HP_Object {
public:
    /// Nobody holds it yet: whoever hands it out retains it first.
    explicit HP_HardwarePlugIn(CFUUIDRef factory);
    ~HP_HardwarePlugIn() override;

    void Initialize() override;
    void Teardown() override;

    /// The system's word for which number the plug-in has; first thing it hears. @thread the system's run loop
    virtual void InitializeWithObjectID(AudioObjectID objectID);
    /// @return the count after the call. @thread any
    virtual UInt32 Retain();
    /// Destroys the plug-in at 0.
    virtual UInt32 Release();

    /// What the system holds; good as long as the plug-in is.
    AudioHardwarePlugInRef GetInterface() { return &mReference.mInterface; }

    /// @throws CAException "nope" for null
    static HP_HardwarePlugIn& FromInterface(AudioHardwarePlugInRef interface);

private:
    // Its first field is what a reference points to, so that the one leads to the other.
    struct Reference {
        AudioHardwarePlugInInterface* mInterface;
        HP_HardwarePlugIn* mPlugIn;
    };

    static AudioHardwarePlugInInterface sInterface;

    Reference mReference{&sInterface, this};
    const cf::Ref<cf::UUID> mFactoryUUID;
    std::atomic<UInt32> mRefCount{0};  // raised relaxed; lowered acq_rel, which orders uses before the end
};
