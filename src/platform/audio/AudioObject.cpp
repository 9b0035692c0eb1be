// Every object by address: the system, native devices and their streams, and what plug-ins have. Native ones answer
// through the older form, which has the same words in another order.
#include "platform/audio/AudioObject.h"

#include "platform/audio/AudioObjectProperties.h"
#include "platform/audio/AudioSystem.h"
#include "platform/audio/NativeProperties.h"
#include "platform/audio/PropertyRoom.h"

using namespace platform::audio;

namespace {

/// The direction that an address of a native device speaks of; of the whole device, the side that has the stream.
bool IsInput(const NativeDevice& device, AudioObjectPropertyScope scope)
{
    return scope == kAudioObjectPropertyScopeGlobal ? device.mIsInput : scope == kAudioObjectPropertyScopeInput;
}

bool IsKnownScope(AudioObjectPropertyScope scope)
{
    return scope == kAudioObjectPropertyScopeGlobal || scope == kAudioObjectPropertyScopeInput ||
           scope == kAudioObjectPropertyScopeOutput;
}

/// What the system or a native object has of an address; "!obj" where there is none of that number.
OSStatus NativeInfo(AudioObjectID object, const AudioObjectPropertyAddress& address, UInt32* size, Boolean* settable)
{
    const auto& [selector, scope, element] = address;
    const bool known = IsKnownScope(scope);
    if (object == kAudioObjectSystemObject)
        return known ? AudioHardwareGetPropertyInfo(selector, size, settable) : kAudioHardwareUnknownPropertyError;
    if (const auto device = FindNativeDevice(object))
        return known ? NativeDeviceInfo(*device, element, IsInput(*device, scope), selector, size, settable)
                     : kAudioHardwareUnknownPropertyError;
    if (const auto device = FindNativeStream(object))
        return known ? NativeStreamInfo(*device, element, selector, size, settable)
                     : kAudioHardwareUnknownPropertyError;
    return kAudioHardwareBadObjectError;
}

OSStatus NativeData(AudioObjectID object, const AudioObjectPropertyAddress& address, UInt32* size, void* data)
{
    const auto& [selector, scope, element] = address;
    if (const OSStatus error = NativeInfo(object, address, nullptr, nullptr)) return error;
    if (object == kAudioObjectSystemObject) return AudioHardwareGetProperty(selector, size, data);
    if (const auto device = FindNativeDevice(object))
        return NativeDeviceData(*device, element, IsInput(*device, scope), selector, size, data);
    if (const auto device = FindNativeStream(object)) return NativeStreamData(*device, element, selector, size, data);
    return kAudioHardwareBadObjectError;  // it has gone this moment
}

/// A plug-in may want to know who listens; what it says to that concerns nobody.
void TellPlugIn(AudioObjectID object, UInt32 selector, const AudioObjectPropertyAddress& address)
{
    const auto plugIn = AudioSystem::Get().PlugInOf(object);
    if (!plugIn) return;
    const AudioObjectPropertyAddress about{selector, kAudioObjectPropertyScopeGlobal,
                                           kAudioObjectPropertyElementMaster};
    static_cast<void>(plugIn->Calls().ObjectSetPropertyData(plugIn->Reference(), object, &about, 0, nullptr,
                                                            sizeof address, &address));
}

}  // namespace

Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address)
{
    if (!address) return 0;
    if (const auto plugIn = AudioSystem::Get().PlugInOf(object))
        return plugIn->Calls().ObjectHasProperty(plugIn->Reference(), object, address);
    return NativeInfo(object, *address, nullptr, nullptr) == 0;
}

OSStatus AudioObjectIsPropertySettable(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                       Boolean* settable)
{
    if (!address || !settable) return kAudioHardwareIllegalOperationError;
    if (const auto plugIn = AudioSystem::Get().PlugInOf(object))
        return plugIn->Calls().ObjectIsPropertySettable(plugIn->Reference(), object, address, settable);
    return NativeInfo(object, *address, nullptr, settable);
}

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                        UInt32 qualifierSize, const void* qualifier, UInt32* size)
{
    if (!address || !size) return kAudioHardwareIllegalOperationError;
    if (const auto plugIn = AudioSystem::Get().PlugInOf(object))
        return plugIn->Calls().ObjectGetPropertyDataSize(plugIn->Reference(), object, address, qualifierSize, qualifier,
                                                         size);
    return NativeInfo(object, *address, size, nullptr);
}

OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32* size, void* data)
{
    if (!address || !size || !data) return kAudioHardwareIllegalOperationError;
    if (const auto plugIn = AudioSystem::Get().PlugInOf(object))
        return plugIn->Calls().ObjectGetPropertyData(plugIn->Reference(), object, address, qualifierSize, qualifier,
                                                     size, data);
    return NativeData(object, *address, size, data);
}

OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32 size, const void* data)
{
    if (!address || !data) return kAudioHardwareIllegalOperationError;
    if (const auto plugIn = AudioSystem::Get().PlugInOf(object))
        return plugIn->Calls().ObjectSetPropertyData(plugIn->Reference(), object, address, qualifierSize, qualifier,
                                                     size, data);
    Boolean settable = false;
    if (const OSStatus error = NativeInfo(object, *address, nullptr, &settable)) return error;
    return settable ? AudioHardwareSetProperty(address->mSelector, size, data) : kAudioHardwareIllegalOperationError;
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener, void* clientData)
{
    if (!address || !listener) return kAudioHardwareIllegalOperationError;
    AudioSystem& system = AudioSystem::Get();
    if (object == kAudioObjectSystemObject) system.EnsurePlugIns();  // what they publish is the system's change
    if (object != kAudioObjectSystemObject && !system.PlugInOf(object) && !FindNativeDevice(object) &&
        !FindNativeStream(object))
        return kAudioHardwareBadObjectError;
    system.EnsureRunning();
    if (system.PropertyListeners().Add({object, *address, listener, clientData}))
        TellPlugIn(object, kAudioObjectPropertyListenerAdded, *address);
    return kAudioHardwareNoError;
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc listener, void* clientData)
{
    if (!address || !listener) return kAudioHardwareIllegalOperationError;
    if (AudioSystem::Get().PropertyListeners().Remove({object, *address, listener, clientData}))
        TellPlugIn(object, kAudioObjectPropertyListenerRemoved, *address);
    return kAudioHardwareNoError;
}

// ---- What plug-ins call.

OSStatus AudioObjectCreate(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 classID, AudioObjectID* object)
{
    if (!object) return kAudioHardwareIllegalOperationError;
    const auto number = AudioSystem::Get().Objects().Create(plugIn, owner, classID);
    if (!number) return kAudioHardwareBadObjectError;
    *object = *number;
    return kAudioHardwareNoError;
}

OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 publishedCount,
                                      const AudioObjectID* published, UInt32 diedCount, const AudioObjectID* died)
{
    if ((publishedCount > 0 && !published) || (diedCount > 0 && !died)) return kAudioHardwareIllegalOperationError;
    ObjectTable& objects = AudioSystem::Get().Objects();
    bool changed = objects.Publish(plugIn, {published, publishedCount});
    changed |= objects.Forget(plugIn, {died, diedCount});
    if (changed && owner == kAudioObjectSystemObject)
        AudioSystem::Get().TellLater(owner, {{kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal,
                                              kAudioObjectPropertyElementMaster}});
    return kAudioHardwareNoError;
}

OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef, AudioObjectID object, UInt32 count,
                                      const AudioObjectPropertyAddress* addresses)
{
    if (count > 0 && !addresses) return kAudioHardwareIllegalOperationError;
    AudioSystem::Get().TellLater(object, {addresses, addresses + count});
    return kAudioHardwareNoError;
}
