// AudioHardwarePlugIn: the function table between the audio system and a plug-in, and the calls a plug-in makes of the
// system. Why: a plug-in meets the system through these functions and nothing else; no exception and no C++ type passes
// it. Start at AudioHardwarePlugInInterface. The layout is the published one and never changes.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/audio/AudioObject.h"
#include "platform/foundation/CFUUID.h"

using HRESULT = SInt32;
using ULONG = UInt32;
using LPVOID = void*;
using REFIID = CFUUIDBytes;

struct AudioHardwarePlugInInterface;
using AudioHardwarePlugInRef = AudioHardwarePlugInInterface**;

using AudioDeviceIOProc = OSStatus (*)(AudioDeviceID device, const AudioTimeStamp* now, const AudioBufferList* input,
                                       const AudioTimeStamp* inputTime, AudioBufferList* output,
                                       const AudioTimeStamp* outputTime, void* clientData);
using AudioDeviceIOProcID = AudioDeviceIOProc;

/// Every entry takes the plug-in's reference; results are statuses, "what" for anything foreign that was thrown.
///
/// @thread any that may block; InitializeWithObjectID, Initialize and Teardown on the audio system's run loop
struct AudioHardwarePlugInInterface {
    void* _reserved;
    HRESULT (*QueryInterface)(void* self, REFIID uuid, LPVOID* interface);
    ULONG (*AddRef)(void* self);
    ULONG (*Release)(void* self);
    OSStatus (*Initialize)(AudioHardwarePlugInRef self);
    OSStatus (*Teardown)(AudioHardwarePlugInRef self);
    OSStatus (*DeviceAddIOProc)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProc procedure,
                                void* clientData);
    OSStatus (*DeviceRemoveIOProc)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProc procedure);
    OSStatus (*DeviceStart)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProcID procedure);
    OSStatus (*DeviceStop)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProcID procedure);
    OSStatus (*DeviceRead)(AudioHardwarePlugInRef self, AudioDeviceID device, const AudioTimeStamp* start,
                           AudioBufferList* data);
    OSStatus (*DeviceGetCurrentTime)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioTimeStamp* time);
    OSStatus (*DeviceTranslateTime)(AudioHardwarePlugInRef self, AudioDeviceID device, const AudioTimeStamp* in,
                                    AudioTimeStamp* out);
    OSStatus (*DeviceGetPropertyInfo)(AudioHardwarePlugInRef self, AudioDeviceID device, UInt32 channel,
                                      Boolean isInput, AudioObjectPropertySelector selector, UInt32* size,
                                      Boolean* writable);
    OSStatus (*DeviceGetProperty)(AudioHardwarePlugInRef self, AudioDeviceID device, UInt32 channel, Boolean isInput,
                                  AudioObjectPropertySelector selector, UInt32* size, void* data);
    OSStatus (*DeviceSetProperty)(AudioHardwarePlugInRef self, AudioDeviceID device, const AudioTimeStamp* when,
                                  UInt32 channel, Boolean isInput, AudioObjectPropertySelector selector, UInt32 size,
                                  const void* data);
    OSStatus (*StreamGetPropertyInfo)(AudioHardwarePlugInRef self, AudioStreamID stream, UInt32 channel,
                                      AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
    OSStatus (*StreamGetProperty)(AudioHardwarePlugInRef self, AudioStreamID stream, UInt32 channel,
                                  AudioObjectPropertySelector selector, UInt32* size, void* data);
    OSStatus (*StreamSetProperty)(AudioHardwarePlugInRef self, AudioStreamID stream, const AudioTimeStamp* when,
                                  UInt32 channel, AudioObjectPropertySelector selector, UInt32 size, const void* data);
    OSStatus (*DeviceStartAtTime)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProcID procedure,
                                  AudioTimeStamp* requested, UInt32 flags);
    OSStatus (*DeviceGetNearestStartTime)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioTimeStamp* requested,
                                          UInt32 flags);
    OSStatus (*InitializeWithObjectID)(AudioHardwarePlugInRef self, AudioObjectID object);
    void (*ObjectShow)(AudioHardwarePlugInRef self, AudioObjectID object);
    Boolean (*ObjectHasProperty)(AudioHardwarePlugInRef self, AudioObjectID object,
                                 const AudioObjectPropertyAddress* address);
    OSStatus (*ObjectIsPropertySettable)(AudioHardwarePlugInRef self, AudioObjectID object,
                                         const AudioObjectPropertyAddress* address, Boolean* settable);
    OSStatus (*ObjectGetPropertyDataSize)(AudioHardwarePlugInRef self, AudioObjectID object,
                                          const AudioObjectPropertyAddress* address, UInt32 qualifierSize,
                                          const void* qualifier, UInt32* size);
    OSStatus (*ObjectGetPropertyData)(AudioHardwarePlugInRef self, AudioObjectID object,
                                      const AudioObjectPropertyAddress* address, UInt32 qualifierSize,
                                      const void* qualifier, UInt32* size, void* data);
    OSStatus (*ObjectSetPropertyData)(AudioHardwarePlugInRef self, AudioObjectID object,
                                      const AudioObjectPropertyAddress* address, UInt32 qualifierSize,
                                      const void* qualifier, UInt32 size, const void* data);
    OSStatus (*DeviceCreateIOProcID)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProc procedure,
                                     void* clientData, AudioDeviceIOProcID* id);
    OSStatus (*DeviceDestroyIOProcID)(AudioHardwarePlugInRef self, AudioDeviceID device, AudioDeviceIOProcID id);
};

/// A new number for an object of a plug-in. Nobody finds the object until it is published.
///
/// @param owner  1 for a device, a device's number for its streams and controls
/// @return       0, or "!obj" where the owner is unknown
/// @thread       any that may block, as the next ones
OSStatus AudioObjectCreate(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 classID, AudioObjectID* object);

/// Says which objects of a plug-in can be found from now on, and which not any more; the dead are forgotten with all
/// they own. Where that changes the system's devices, listeners of "dev#" hear of it, once.
OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef plugIn, AudioObjectID owner, UInt32 publishedCount,
                                      const AudioObjectID* published, UInt32 diedCount, const AudioObjectID* died);

/// Tells the listeners of an object's properties, on the audio system's run loop, in order. The caller
/// holds no lock that a listener's property calls could want.
OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef plugIn, AudioObjectID object, UInt32 count,
                                      const AudioObjectPropertyAddress* addresses);
