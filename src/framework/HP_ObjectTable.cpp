// The tables behind HP_Object's statics: objects and state mutexes of this process by number.
#include "framework/HP_Device.h"
#include "framework/HP_Object.h"
#include "framework/HP_Stream.h"

#include <algorithm>
#include <map>

namespace {

struct Tables {
    CAMutex mMutex{"CATokenMap Mutex"};  // guards both maps, for the time of a look-up or a change
    std::map<AudioObjectID, HP_Object*> mObjects;
    // A mutex is its object's: an entry that outlives its object keeps no mutex alive, and goes at the next change.
    std::map<AudioObjectID, std::weak_ptr<CAMutex>> mStateMutexes;
};

// Never destroyed: calls may still come while the process ends.
Tables& TablesOfProcess()
{
    static Tables& tables = *new Tables;
    return tables;
}

}  // namespace

void HP_Object::EnterTable()
{
    if (mObjectID == 0) return;
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    tables.mObjects[mObjectID] = this;
}

void HP_Object::LeaveTable()
{
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    const auto found = tables.mObjects.find(mObjectID);
    if (found != tables.mObjects.end() && found->second == this) tables.mObjects.erase(found);
}

void HP_Object::SetObjectID(AudioObjectID objectID)
{
    const CAMutex::Scope locked(TablesOfProcess().mMutex);
    LeaveTable();
    mObjectID = objectID;
    EnterTable();
}

HP_Object* HP_Object::FindByID(AudioObjectID objectID, std::initializer_list<AudioClassID> classes)
{
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    const auto found = tables.mObjects.find(objectID);
    if (found == tables.mObjects.end()) return nullptr;
    const bool fits = classes.size() == 0 || std::ranges::find(classes, found->second->mClassID) != classes.end();
    return fits ? found->second : nullptr;
}

HP_Object* HP_Object::GetObjectByID(AudioObjectID objectID)
{
    return FindByID(objectID, {});
}

HP_Device* HP_Object::GetDeviceByID(AudioObjectID objectID)
{
    return static_cast<HP_Device*>(FindByID(objectID, {kAudioDeviceClassID, kAudioAggregateDeviceClassID}));
}

HP_Stream* HP_Object::GetStreamByID(AudioObjectID objectID)
{
    return static_cast<HP_Stream*>(FindByID(objectID, {kAudioStreamClassID}));
}

std::shared_ptr<CAMutex> HP_Object::GetObjectStateMutexByID(AudioObjectID objectID)
{
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    if (const auto set = tables.mStateMutexes.find(objectID); set != tables.mStateMutexes.end()) {
        if (auto mutex = set->second.lock()) return mutex;
    }
    const auto found = tables.mObjects.find(objectID);
    return found != tables.mObjects.end() ? found->second->GetObjectStateMutex() : nullptr;
}

void HP_Object::SetObjectStateMutexForID(AudioObjectID objectID, const std::shared_ptr<CAMutex>& mutex)
{
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    // A weak entry holds the memory of its mutex. Numbers never come back, so entries of the dead would add up.
    std::erase_if(tables.mStateMutexes,
                  [&](const auto& entry) { return entry.first == objectID || entry.second.expired(); });
    if (mutex) tables.mStateMutexes.emplace(objectID, mutex);
}
