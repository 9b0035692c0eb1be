// The tables behind HP_Object's statics: objects and state mutexes of this process by number, and which class derives
// from which.
#include "framework/HP_Device.h"
#include "framework/HP_Object.h"
#include "framework/HP_Stream.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace {

struct Tables {
    CAMutex mMutex{"CATokenMap Mutex"};  // guards both maps, for the time of a look-up or a change
    std::map<AudioObjectID, HP_Object*> mObjects;
    // A mutex is its object's: an entry that outlives its object keeps no mutex alive, and goes at the next change.
    std::map<AudioObjectID, std::weak_ptr<CAMutex>> mStateMutexes;
};

constexpr AudioClassID kObjectClassID = FourCC("aobj"), kControl = FourCC("actl"), kSelector = FourCC("slct"),
                       kBoolean = FourCC("togl"), kLevel = FourCC("levl");

struct DerivedClass {
    AudioClassID mClass, mBase;
};

// What derives from "aobj" alone is left out.
constexpr DerivedClass kDerivedClasses[] = {
    {kAudioAggregateDeviceClassID, kAudioDeviceClassID},
    {kSelector, kControl},
    {kBoolean, kControl},
    {kLevel, kControl},
    {FourCC("span"), kControl},
    {FourCC("clck"), kSelector},
    {FourCC("dest"), kSelector},
    {FourCC("dsrc"), kSelector},
    {FourCC("nlvl"), kSelector},
    {FourCC("atch"), kBoolean},
    {FourCC("jack"), kBoolean},
    {FourCC("mute"), kBoolean},
    {FourCC("solo"), kBoolean},
    {FourCC("subm"), kBoolean},
    {FourCC("pram"), kLevel},
    {FourCC("subv"), kLevel},
    {FourCC("vlme"), kLevel},
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

HP_Object* HP_Object::FindByID(AudioObjectID objectID, AudioClassID baseClassID)
{
    Tables& tables = TablesOfProcess();
    const CAMutex::Scope locked(tables.mMutex);
    const auto found = tables.mObjects.find(objectID);
    return found != tables.mObjects.end() && IsSubClass(found->second->mClassID, baseClassID) ? found->second : nullptr;
}

bool HP_Object::IsSubClass(AudioClassID classID, AudioClassID baseClassID)
{
    if (classID == baseClassID || baseClassID == kObjectClassID) return true;
    const auto* const derived = std::ranges::find(kDerivedClasses, classID, &DerivedClass::mClass);
    return derived != std::end(kDerivedClasses) && IsSubClass(derived->mBase, baseClassID);
}

HP_Object* HP_Object::GetObjectByID(AudioObjectID objectID)
{
    return FindByID(objectID, kObjectClassID);
}

HP_Device* HP_Object::GetDeviceByID(AudioObjectID objectID)
{
    return static_cast<HP_Device*>(FindByID(objectID, kAudioDeviceClassID));
}

HP_Stream* HP_Object::GetStreamByID(AudioObjectID objectID)
{
    return static_cast<HP_Stream*>(FindByID(objectID, kAudioStreamClassID));
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
