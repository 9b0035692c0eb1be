// HP_Object: the base of plug-in, device, stream and control, and the table that finds each by its number.
// Why: calls from outside name an object by number, on any thread, while others come and go.
//
// Who may call when: an object is found from its construction (or SetObjectID) to its Teardown. Whoever makes a call
// for a client finds the object, takes the state mutex, and finds it again under the mutex, so that a Teardown that
// comes between leaves nothing to call. Teardown must therefore run under that same mutex, which lives as long as
// anybody waits for it.
// Start at GetObjectByID and HasProperty.
#pragma once

#include "framework/HP_Property.h"
#include "utility/CAMutex.h"

#include <memory>
#include <utility>
#include <vector>

class HP_Device;
class HP_HardwarePlugIn;
class HP_Stream;

class HP_Object {
public:
    class StateScope;

    /// @param objectID  0: no call finds the object until SetObjectID
    /// @param plugIn    not owned; lives longer than the object
    HP_Object(AudioObjectID objectID, AudioClassID classID, HP_HardwarePlugIn* plugIn);
    virtual ~HP_Object();
    HP_Object(const HP_Object&) = delete;
    HP_Object& operator=(const HP_Object&) = delete;

    virtual void Initialize() {}
    /// From here on no call finds the object. The caller holds the state mutex, where there is one.
    virtual void Teardown();

    /// The lock of what the object's properties stand for; null where it has none. A stream's is its device's.
    virtual std::shared_ptr<CAMutex> GetObjectStateMutex() const { return nullptr; }

    /// Writes a few lines about the object to standard output.
    virtual void Show();

    // Properties. They are not const: a device may make what answers when it is first asked.
    // All throw CAException with the status: "who?" no such property, "!siz" wrong size, "nope" not settable, "!dat" a
    // value that cannot be.
    virtual bool HasProperty(const AudioObjectPropertyAddress& address);
    virtual bool IsPropertySettable(const AudioObjectPropertyAddress& address);
    /// In bytes.
    virtual UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                       const void* qualifier);
    /// @param size  bytes of room at `data` on entry, bytes used on return; no byte beyond the room is written
    virtual void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                 UInt32& size, void* data);
    /// @param when  null: now
    virtual void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                 UInt32 size, const void* data, const AudioTimeStamp* when);

    /// Tells listeners. The state mutex is given up meanwhile where the caller holds it: afterwards anything may have
    /// changed, and the object may be gone, so that this is the last thing a call does.
    virtual void PropertiesChanged(UInt32 count, const AudioObjectPropertyAddress* addresses);

    /// The system's word that a client began or ceased to listen.
    virtual void PropertyListenerAdded(const AudioObjectPropertyAddress&) {}
    virtual void PropertyListenerRemoved(const AudioObjectPropertyAddress&) {}

    AudioObjectID GetObjectID() const { return mObjectID; }
    AudioClassID GetClassID() const { return mClassID; }
    HP_HardwarePlugIn* GetPlugIn() const { return mPlugIn; }

    /// Gives the object another number, and its old one back; before anybody else knows of it.
    void SetObjectID(AudioObjectID objectID);

    /// Serves the property's addresses from now on. Not owned: it is removed before it goes.
    /// @throws CAException "nope" where an address is served already; those before it stay
    void AddProperty(HP_Property* property);
    void RemoveProperty(HP_Property* property);
    /// The first property that serves the address and is active for it; null where there is none.
    HP_Property* FindActivePropertyByAddress(const AudioObjectPropertyAddress& address) const;

    // The tables of the process. Any thread.

    /// Null for an unknown number; GetDeviceByID and GetStreamByID also for an object of another class.
    static HP_Object* GetObjectByID(AudioObjectID objectID);
    static HP_Device* GetDeviceByID(AudioObjectID objectID);
    static HP_Stream* GetStreamByID(AudioObjectID objectID);

    /// Whether a class is `baseClassID` or derives from it. Every class derives from "aobj".
    static bool IsSubClass(AudioClassID classID, AudioClassID baseClassID);

    /// The mutex that calls for this number take before they touch the object: the one that was set, else the object's
    /// own, for whoever destroys an object clears its entry first, and calls may still come. Null where there is none.
    /// An entry keeps no mutex alive.
    static std::shared_ptr<CAMutex> GetObjectStateMutexByID(AudioObjectID objectID);
    /// @param mutex  null: takes the entry away
    static void SetObjectStateMutexForID(AudioObjectID objectID, const std::shared_ptr<CAMutex>& mutex);

private:
    using PropertyList = std::vector<std::pair<AudioObjectPropertyAddress, HP_Property*>>;

    PropertyList::const_iterator FindPropertyByAddress(const AudioObjectPropertyAddress& address) const;
    HP_Property& RequireActiveProperty(const AudioObjectPropertyAddress& address) const;
    static HP_Object* FindByID(AudioObjectID objectID, AudioClassID baseClassID);
    void EnterTable();
    void LeaveTable();

    AudioObjectID mObjectID;
    const AudioClassID mClassID;
    HP_HardwarePlugIn* const mPlugIn;
    PropertyList mPropertyList;
};

/// Holds a state mutex, where there is one, to the end of the block. It keeps the mutex, not the object.
class HP_Object::StateScope {
public:
    explicit StateScope(const HP_Object& object) : StateScope(object.GetObjectStateMutex()) {}
    explicit StateScope(std::shared_ptr<CAMutex> mutex) : mMutex(std::move(mutex)), mTaken(mMutex && mMutex->Lock()) {}
    ~StateScope()
    {
        if (mTaken) mMutex->Unlock();
    }
    StateScope(const StateScope&) = delete;
    StateScope& operator=(const StateScope&) = delete;

private:
    const std::shared_ptr<CAMutex> mMutex;
    const bool mTaken;
};
