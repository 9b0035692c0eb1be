#include "bundle/ObedientPlugIn.h"

#include "platform/foundation/CFDictionary.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

using Self = AudioHardwarePlugInRef;

std::atomic<UInt32> sReferences{0}, sListeners{0}, sDevicesAtStart{99};

UInt32 CountDevices()
{
    UInt32 size = 0;
    return AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr) == 0
               ? UInt32(size / sizeof(AudioDeviceID))
               : 99;
}

OSStatus Obey(Self self, Order& order)
{
    const AudioObjectPropertyAddress changed{order.mSelector, kAudioObjectPropertyScopeInput, 3};
    switch (order.mWhat) {
        case Order::Create:
            return AudioObjectCreate(self, order.mOwner, order.mClass, &order.mObject);
        case Order::Publish:
            return AudioObjectsPublishedAndDied(self, order.mOwner, 1, &order.mObject, 0, nullptr);
        case Order::Kill:
            return AudioObjectsPublishedAndDied(self, order.mOwner, 0, nullptr, 1, &order.mObject);
        case Order::Change:
            return AudioObjectPropertiesChanged(self, order.mObject, 1, &changed);
        default:
            order.mObject = sDevicesAtStart;
            return 0;
    }
}

/// A device's UID is "obedient", whichever device it is; all else of it is its number.
OSStatus GetOfDevice(Self, AudioDeviceID device, UInt32, Boolean, AudioObjectPropertySelector selector, UInt32* size,
                     void* data)
{
    if (selector != kAudioDevicePropertyDeviceUID) {
        std::memcpy(data, &device, *size = sizeof device);
        return 0;
    }
    const CFStringRef uid = CFSTR("obedient");
    CFRetain(uid);
    std::memcpy(data, &uid, *size = sizeof uid);
    return 0;
}

OSStatus Get(Self self, AudioObjectID, const AudioObjectPropertyAddress* address, UInt32, const void*, UInt32* size,
             void* data)
{
    if (address->mSelector == kOrder && *size == sizeof(Order)) return Obey(self, *static_cast<Order*>(data));
    if (address->mSelector != kHeard) return kAudioHardwareUnknownPropertyError;
    const UInt32 listeners = sListeners;
    std::memcpy(data, &listeners, *size = sizeof listeners);
    return 0;
}

OSStatus Set(Self, AudioObjectID, const AudioObjectPropertyAddress* address, UInt32, const void*, UInt32, const void*)
{
    if (address->mSelector == FourCC("lisa")) ++sListeners;
    if (address->mSelector == FourCC("lisr")) --sListeners;
    return 0;
}

AudioHardwarePlugInInterface sTable{
    .AddRef = [](void*) { return ++sReferences; },
    .Release = [](void*) { return --sReferences; },
    .Teardown =
        [](Self) {
            UInt32 exiting = 9, size = sizeof exiting;
            AudioHardwareGetProperty(kAudioHardwarePropertyIsInitingOrExiting, &size, &exiting);
            return std::printf("torn down, exiting %u\n", exiting), OSStatus(0);
        },
    .DeviceGetProperty = &GetOfDevice,
    .InitializeWithObjectID =
        [](Self, AudioObjectID) {
            sDevicesAtStart = CountDevices();
            return OSStatus(0);
        },
    .ObjectHasProperty = [](Self, AudioObjectID, const AudioObjectPropertyAddress*) { return Boolean(1); },
    .ObjectGetPropertyData = &Get,
    .ObjectSetPropertyData = &Set,
};
AudioHardwarePlugInInterface* sReference = &sTable;

}  // namespace

extern "C" __attribute__((visibility("default"))) void* MakeObedientPlugIn(CFAllocatorRef, CFUUIDRef)
{
    ++sReferences;
    return &sReference;
}
