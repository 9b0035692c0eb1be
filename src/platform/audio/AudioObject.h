// AudioObject: every object of the audio system by address: selector, scope, element. And who listens to it.
// Why: the system, its native devices and the devices, streams and controls of plug-ins answer alike.
// Start at AudioObjectGetPropertyData. The calls of AudioHardware.h are the older form of the same.
#pragma once

#include "platform/audio/AudioHardware.h"

using AudioClassID = UInt32;
using AudioObjectPropertyScope = UInt32;
using AudioObjectPropertyElement = UInt32;

struct AudioObjectPropertyAddress {
    AudioObjectPropertySelector mSelector;
    AudioObjectPropertyScope mScope;
    AudioObjectPropertyElement mElement;
};

constexpr AudioClassID kAudioPlugInClassID = FourCC("aplg");
constexpr AudioClassID kAudioDeviceClassID = FourCC("adev");
constexpr AudioClassID kAudioAggregateDeviceClassID = FourCC("aagg");
constexpr AudioClassID kAudioStreamClassID = FourCC("astr");

constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeGlobal = FourCC("glob");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeInput = FourCC("inpt");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeOutput = FourCC("outp");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopePlayThrough = FourCC("ptru");
constexpr AudioObjectPropertySelector kAudioObjectPropertySelectorWildcard = FourCC("****");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeWildcard = FourCC("****");
constexpr AudioObjectPropertyElement kAudioObjectPropertyElementWildcard = 0xFFFFFFFF;
constexpr AudioObjectPropertyElement kAudioObjectPropertyElementMaster = 0;

constexpr OSStatus kAudioHardwareBadObjectError = OSStatus(FourCC("!obj"));
constexpr OSStatus kAudioDeviceUnsupportedFormatError = OSStatus(FourCC("!dat"));
constexpr OSStatus kAudioHardwareUnspecifiedError = OSStatus(FourCC("what"));
constexpr OSStatus kAudioHardwareUnsupportedOperationError = OSStatus(FourCC("unop"));

// Of the system object:
constexpr uint32_t kAudioHardwarePropertyIsInitingOrExiting =
    FourCC("inot");  // UInt32; 1 while the audio system ends with its process
constexpr uint32_t kAudioHardwarePropertyProcessIsMaster = FourCC("mast");                // UInt32
constexpr uint32_t kAudioHardwarePropertyUserSessionIsActiveOrHeadless = FourCC("user");  // UInt32
constexpr uint32_t kAudioHardwarePropertyProcessIsAudible = FourCC("pmut");               // UInt32, settable
constexpr uint32_t kAudioHardwarePropertyMixStereoToMono = FourCC("stmo");                // UInt32, settable

/// Called with what changed, on the audio system's run loop, no lock of an object held. It may ask anything. The call
/// comes after the change: a listener of "livn" is called once the device is gone, and gets "!obj" where it asks the
/// device.
using AudioObjectPropertyListenerProc = OSStatus (*)(AudioObjectID object, UInt32 count,
                                                     const AudioObjectPropertyAddress* addresses, void* clientData);

/// @return 0; "!obj" no such object; "who?" no such property; "!siz" wrong size; "nope" null pointers, or not
///         settable; else what the object's plug-in says
/// @thread any that may block, all of these
Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address);
OSStatus AudioObjectIsPropertySettable(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                       Boolean* settable);
OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                        UInt32 qualifierSize, const void* qualifier, UInt32* size);
/// @param size  bytes of room at `data` on entry, bytes used on return; no byte beyond the room is written
OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32* size, void* data);
OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32 size, const void* data);

/// Selector, scope and element may be wildcards. The same procedure with the same data is added once.
OSStatus AudioObjectAddPropertyListener(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener, void* clientData);
/// After this the listener does not run, and none of its calls is under way, unless it is itself the caller.
OSStatus AudioObjectRemovePropertyListener(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc listener, void* clientData);

/// Ends the audio system: tears the plug-ins down and lets them go, with "inot" 1 meanwhile. At the end of a process
/// that used a plug-in it happens by itself. What is called afterwards starts the system anew.
void AudioHardwareUnload();
