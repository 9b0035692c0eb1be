#include "framework/HP_Object.h"

#include "framework/HP_HardwarePlugIn.h"
#include "platform/audio/AudioObjectProperties.h"
#include "platform/foundation/CFDictionary.h"
#include "utility/CAException.h"
#include "utility/CAPropertyAddressList.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr UInt32 kListenerBytes = sizeof(AudioObjectPropertyAddress);

bool IsListenerProperty(const AudioObjectPropertyAddress& address)
{
    return address.mSelector == kAudioObjectPropertyListenerAdded ||
           address.mSelector == kAudioObjectPropertyListenerRemoved;
}

void ThrowUnlessListenerBytes(UInt32 size)
{
    if (size != kListenerBytes) throw CAException(kAudioHardwareBadPropertySizeError);
}

std::string NameOf(HP_Object& object)
try {
    CFStringRef name = nullptr;
    UInt32 size = sizeof name;
    object.GetPropertyData({kAudioObjectPropertyName, kAudioObjectPropertyScopeGlobal, 0}, 0, nullptr, size, &name);
    return cf::ToStdString(cf::Ref<cf::String>::Adopt(name).Get());
} catch (...) {  // a nameless object is shown all the same
    return "";
}

}  // namespace

HP_Object::HP_Object(AudioObjectID objectID, AudioClassID classID, HP_HardwarePlugIn* plugIn)
    : mObjectID(objectID), mClassID(classID), mPlugIn(plugIn)
{
    EnterTable();
}

HP_Object::~HP_Object()
{
    LeaveTable();
}

void HP_Object::Teardown()
{
    LeaveTable();
}

void HP_Object::Show()
{
    const char letters[] = {char(mClassID >> 24), char(mClassID >> 16), char(mClassID >> 8), char(mClassID), 0};
    std::printf("AudioObjectID:\t\t0x%lX\n\tAudioClassID:\t'%s'\n\tName:\t\t\t%.255s\n",
                static_cast<unsigned long>(mObjectID), letters, NameOf(*this).c_str());
}

bool HP_Object::HasProperty(const AudioObjectPropertyAddress& address)
{
    return IsListenerProperty(address) || FindActivePropertyByAddress(address);
}

bool HP_Object::IsPropertySettable(const AudioObjectPropertyAddress& address)
{
    return IsListenerProperty(address) || RequireActiveProperty(address).IsPropertySettable(address);
}

UInt32 HP_Object::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                      const void* qualifier)
{
    if (IsListenerProperty(address)) return kListenerBytes;
    return RequireActiveProperty(address).GetPropertyDataSize(address, qualifierSize, qualifier);
}

void HP_Object::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32& size, void* data)
{
    if (!IsListenerProperty(address))
        return RequireActiveProperty(address).GetPropertyData(address, qualifierSize, qualifier, size, data);
    ThrowUnlessListenerBytes(size);
    std::memset(data, 0, size);
}

void HP_Object::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32 size, const void* data, const AudioTimeStamp* when)
{
    if (!IsPropertySettable(address)) throw CAException(kAudioHardwareIllegalOperationError);
    if (!IsListenerProperty(address))
        return RequireActiveProperty(address).SetPropertyData(address, qualifierSize, qualifier, size, data, when);
    ThrowUnlessListenerBytes(size);
    AudioObjectPropertyAddress listened;
    std::memcpy(&listened, data, sizeof listened);
    if (address.mSelector == kAudioObjectPropertyListenerAdded)
        PropertyListenerAdded(listened);
    else
        PropertyListenerRemoved(listened);
}

void HP_Object::PropertiesChanged(UInt32 count, const AudioObjectPropertyAddress* addresses)
{
    // Nothing of the object is used after the mutex was given up: who waited for it may take the object away.
    const std::shared_ptr<CAMutex> mutex = GetObjectStateMutex();
    const bool wasHeld = mutex && mutex->IsOwnedByCurrentThread();
    const AudioHardwarePlugInRef plugIn = mPlugIn->GetInterface();
    const AudioObjectID object = mObjectID;
    if (wasHeld) mutex->Unlock();
    AudioObjectPropertiesChanged(plugIn, object, count, addresses);
    if (wasHeld) mutex->Lock();
}

void HP_Object::AddProperty(HP_Property* property)
{
    for (UInt32 index = 0; index < property->GetNumberAddressesImplemented(); ++index) {
        AudioObjectPropertyAddress address{0, kAudioObjectPropertyScopeGlobal, 0};
        property->GetImplementedAddressByIndex(index, address);
        if (FindPropertyByAddress(address) != mPropertyList.end())
            throw CAException(kAudioHardwareIllegalOperationError);
        mPropertyList.emplace_back(address, property);
    }
}

void HP_Object::RemoveProperty(HP_Property* property)
{
    for (UInt32 index = 0; index < property->GetNumberAddressesImplemented(); ++index) {
        AudioObjectPropertyAddress address{0, kAudioObjectPropertyScopeGlobal, 0};
        property->GetImplementedAddressByIndex(index, address);
        const auto found = FindPropertyByAddress(address);
        if (found != mPropertyList.end()) mPropertyList.erase(found);
    }
}

HP_Object::PropertyList::const_iterator HP_Object::FindPropertyByAddress(
    const AudioObjectPropertyAddress& address) const
{
    return std::ranges::find_if(
        mPropertyList, [&](const auto& entry) { return CAPropertyAddressList::Matches(entry.first, address); });
}

HP_Property* HP_Object::FindActivePropertyByAddress(const AudioObjectPropertyAddress& address) const
{
    const auto found = std::ranges::find_if(mPropertyList, [&](const auto& entry) {
        return CAPropertyAddressList::Matches(entry.first, address) && entry.second->IsActive(address);
    });
    return found != mPropertyList.end() ? found->second : nullptr;
}

HP_Property& HP_Object::RequireActiveProperty(const AudioObjectPropertyAddress& address) const
{
    HP_Property* const property = FindActivePropertyByAddress(address);
    if (!property) throw CAException(kAudioHardwareUnknownPropertyError);
    return *property;
}
