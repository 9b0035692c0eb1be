// The function table: what the audio system calls. Each entry is a barrier that nothing thrown passes.
#include "framework/HP_Device.h"
#include "framework/HP_HardwarePlugIn.h"
#include "framework/HP_Stream.h"
#include "platform/foundation/CFUUID.h"
#include "utility/CAException.h"

#include <algorithm>

namespace {

using Address = AudioObjectPropertyAddress;
using Ref = AudioHardwarePlugInRef;

/// Does the work, or says by status what was thrown in it.
template <class Work>
OSStatus Barrier(Work&& work) noexcept
try {
    work();
    return kAudioHardwareNoError;
} catch (const CAException& exception) {
    return exception.GetError();
} catch (OSStatus status) {
    return status;
} catch (UInt32 status) {
    return static_cast<OSStatus>(status);
} catch (...) {
    return kAudioHardwareUnspecifiedError;
}

template <class... Pointers>
void ThrowIfNull(Pointers*... pointers)
{
    if ((!pointers || ...)) throw CAException(kAudioHardwareIllegalOperationError);
}

/// Data may only be missing where there are no bytes of it.
void ThrowIfMissing(const void* data, UInt32 size)
{
    if (size != 0) ThrowIfNull(data);
}

// How the object of a call is found, and what is said where there is none.
struct AnyObject {
    static HP_Object* Find(AudioObjectID id) { return HP_Object::GetObjectByID(id); }
    static constexpr OSStatus kUnknown = kAudioHardwareBadObjectError;
};
struct Device {
    static HP_Device* Find(AudioObjectID id) { return HP_Object::GetDeviceByID(id); }
    static constexpr OSStatus kUnknown = kAudioHardwareBadDeviceError;
};
struct Stream {
    static HP_Stream* Find(AudioObjectID id) { return HP_Object::GetStreamByID(id); }
    static constexpr OSStatus kUnknown = kAudioHardwareBadStreamError;
};

template <class Kind>
auto& Require(AudioObjectID id, OSStatus orElse = Kind::kUnknown)
{
    auto* const object = Kind::Find(id);
    if (!object) throw CAException(orElse);
    return *object;
}

/// Asks an object something under its state mutex. Whoever took the mutex may have waited for a thread that took the
/// object away, so that it is looked up once more.
template <class Kind, class Question>
void AskLocked(AudioObjectID id, Question&& question)
{
    Require<Kind>(id);
    const HP_Object::StateScope locked(HP_Object::GetObjectStateMutexByID(id));
    question(Require<Kind>(id, kAudioHardwareBadObjectError));
}

template <class Kind>
OSStatus GetInfo(Ref self, AudioObjectID id, const Address& address, UInt32* size, Boolean* writable)
{
    return Barrier([&] {
        ThrowIfNull(self);
        AskLocked<Kind>(id, [&](HP_Object& object) {
            if (!object.HasProperty(address)) throw CAException(kAudioHardwareUnknownPropertyError);
            if (size) *size = object.GetPropertyDataSize(address, 0, nullptr);
            if (writable) *writable = object.IsPropertySettable(address);
        });
    });
}

template <class Kind>
OSStatus GetData(Ref self, AudioObjectID id, const Address* address, UInt32 qualifierSize, const void* qualifier,
                 UInt32* size, void* data)
{
    return Barrier([&] {
        ThrowIfNull(self, address, size);
        ThrowIfMissing(data, *size);
        AskLocked<Kind>(
            id, [&](HP_Object& object) { object.GetPropertyData(*address, qualifierSize, qualifier, *size, data); });
    });
}

template <class Kind>
OSStatus SetData(Ref self, AudioObjectID id, const Address* address, UInt32 qualifierSize, const void* qualifier,
                 UInt32 size, const void* data, const AudioTimeStamp* when)
{
    return Barrier([&] {
        ThrowIfNull(self, address);
        ThrowIfMissing(data, size);
        AskLocked<Kind>(id, [&](HP_Object& object) {
            object.SetPropertyData(*address, qualifierSize, qualifier, size, data, when);
        });
    });
}

/// Has a device do something. No lock is taken here: the operations know what they need.
template <class Work, class... Pointers>
OSStatus OnDevice(Ref self, AudioDeviceID id, Work&& work, Pointers*... needed)
{
    return Barrier([&] {
        ThrowIfNull(self, needed...);
        work(Require<Device>(id));
    });
}

template <class Work>
OSStatus OnPlugIn(void* self, Work&& work)
{
    return Barrier([&] { work(HP_HardwarePlugIn::FromInterface(static_cast<Ref>(self))); });
}

Address OfDevice(AudioObjectPropertySelector selector, Boolean isInput, UInt32 channel)
{
    return {selector, isInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput, channel};
}

Address OfStream(AudioObjectPropertySelector selector)
{
    return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

/// Whether an identifier is one of the versions of the table, newest first, or the one that every object has.
bool IsOurInterface(REFIID bytes)
{
    const CFUUIDRef ours[] = {
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xE9, 0x6C, 0x3E, 0x92, 0xE7, 0x45, 0x4C, 0xB7, 0xBA, 0x91,
                                       0xB3, 0x3C, 0x68, 0xF2, 0xF0, 0x26),
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x38, 0xD7, 0x8A, 0x18, 0x77, 0xA5, 0x11, 0xD8, 0xB8, 0xB8,
                                       0x00, 0x0A, 0x95, 0x88, 0x78, 0x7E),
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x5D, 0x80, 0xCB, 0x6C, 0x48, 0x4F, 0x11, 0xD7, 0x85, 0x71,
                                       0x00, 0x0A, 0x95, 0x77, 0x12, 0x82),
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xFA, 0xFC, 0xAF, 0xC3, 0xBA, 0xE8, 0x11, 0xD6, 0xB4, 0xA8,
                                       0x00, 0x03, 0x93, 0x15, 0xCD, 0x46),
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0, 0x00,
                                       0x00, 0x00, 0x00, 0x00, 0x00, 0x46),
    };
    const auto asked = cf::Ref<cf::UUID>::Adopt(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
    return std::ranges::any_of(ours, [&](CFUUIDRef known) { return CFEqual(known, asked.Get()); });
}

constexpr HRESULT kNoSuchInterface = static_cast<HRESULT>(0x80000004);

HRESULT QueryInterface(void* self, REFIID identifier, LPVOID* interface)
{
    return OnPlugIn(self, [&](HP_HardwarePlugIn& plugIn) {
        ThrowIfNull(interface);
        *interface = nullptr;
        if (!IsOurInterface(identifier)) throw CAException(kNoSuchInterface);
        plugIn.Retain();
        *interface = self;
    });
}

ULONG AddRef(void* self)
{
    ULONG count = 0;
    OnPlugIn(self, [&](HP_HardwarePlugIn& plugIn) { count = plugIn.Retain(); });
    return count;
}

ULONG Release(void* self)
{
    ULONG count = 0;
    OnPlugIn(self, [&](HP_HardwarePlugIn& plugIn) { count = plugIn.Release(); });
    return count;
}

OSStatus Initialize(Ref self)
{
    return OnPlugIn(self, [](HP_HardwarePlugIn& plugIn) { plugIn.Initialize(); });
}

OSStatus InitializeWithObjectID(Ref self, AudioObjectID object)
{
    return OnPlugIn(self, [&](HP_HardwarePlugIn& plugIn) { plugIn.InitializeWithObjectID(object); });
}

OSStatus Teardown(Ref self)
{
    return OnPlugIn(self, [](HP_HardwarePlugIn& plugIn) { plugIn.Teardown(); });
}

OSStatus DeviceAddIOProc(Ref self, AudioDeviceID device, AudioDeviceIOProc procedure, void* clientData)
{
    return OnDevice(self, device, [&](HP_Device& found) { found.Do_AddIOProc(procedure, clientData); });
}

OSStatus DeviceRemoveIOProc(Ref self, AudioDeviceID device, AudioDeviceIOProc procedure)
{
    return OnDevice(self, device, [&](HP_Device& found) { found.Do_RemoveIOProc(procedure); });
}

OSStatus DeviceCreateIOProcID(Ref self, AudioDeviceID device, AudioDeviceIOProc procedure, void* clientData,
                              AudioDeviceIOProcID* id)
{
    const auto create = [&](HP_Device& found) { *id = found.Do_CreateIOProcID(procedure, clientData); };
    return OnDevice(self, device, create, id);
}

OSStatus DeviceDestroyIOProcID(Ref self, AudioDeviceID device, AudioDeviceIOProcID id)
{
    return OnDevice(self, device, [&](HP_Device& found) { found.Do_DestroyIOProcID(id); });
}

OSStatus DeviceStart(Ref self, AudioDeviceID device, AudioDeviceIOProcID procedure)
{
    return OnDevice(self, device, [&](HP_Device& found) { found.Do_StartIOProc(procedure); });
}

OSStatus DeviceStartAtTime(Ref self, AudioDeviceID device, AudioDeviceIOProcID procedure, AudioTimeStamp* requested,
                           UInt32 flags)
{
    return OnDevice(self, device, [&](HP_Device& found) {
        if (procedure && requested)
            found.Do_StartIOProcAtTime(procedure, *requested, flags);
        else
            found.Do_StartIOProc(procedure);
    });
}

OSStatus DeviceStop(Ref self, AudioDeviceID device, AudioDeviceIOProcID procedure)
{
    return OnDevice(self, device, [&](HP_Device& found) { found.Do_StopIOProc(procedure); });
}

OSStatus DeviceRead(Ref self, AudioDeviceID device, const AudioTimeStamp* start, AudioBufferList* data)
{
    return OnDevice(
        self, device, [&](HP_Device& found) { found.Read(*start, *data); }, start, data);
}

OSStatus DeviceGetCurrentTime(Ref self, AudioDeviceID device, AudioTimeStamp* time)
{
    return OnDevice(
        self, device, [&](HP_Device& found) { found.SafeGetCurrentTime(*time); }, time);
}

OSStatus DeviceTranslateTime(Ref self, AudioDeviceID device, const AudioTimeStamp* in, AudioTimeStamp* out)
{
    return OnDevice(
        self, device, [&](HP_Device& found) { found.TranslateTime(*in, *out); }, in, out);
}

OSStatus DeviceGetNearestStartTime(Ref self, AudioDeviceID device, AudioTimeStamp* requested, UInt32 flags)
{
    return OnDevice(
        self, device, [&](HP_Device& found) { found.GetNearestStartTime(*requested, flags); }, requested);
}

OSStatus DeviceGetPropertyInfo(Ref self, AudioDeviceID device, UInt32 channel, Boolean isInput,
                               AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    return GetInfo<Device>(self, device, OfDevice(selector, isInput, channel), size, writable);
}

OSStatus DeviceGetProperty(Ref self, AudioDeviceID device, UInt32 channel, Boolean isInput,
                           AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    const Address address = OfDevice(selector, isInput, channel);
    return GetData<Device>(self, device, &address, 0, nullptr, size, data);
}

OSStatus DeviceSetProperty(Ref self, AudioDeviceID device, const AudioTimeStamp* when, UInt32 channel, Boolean isInput,
                           AudioObjectPropertySelector selector, UInt32 size, const void* data)
{
    const Address address = OfDevice(selector, isInput, channel);
    return SetData<Device>(self, device, &address, 0, nullptr, size, data, when);
}

OSStatus StreamGetPropertyInfo(Ref self, AudioStreamID stream, UInt32 /*channel*/, AudioObjectPropertySelector selector,
                               UInt32* size, Boolean* writable)
{
    return GetInfo<Stream>(self, stream, OfStream(selector), size, writable);
}

OSStatus StreamGetProperty(Ref self, AudioStreamID stream, UInt32 /*channel*/, AudioObjectPropertySelector selector,
                           UInt32* size, void* data)
{
    const Address address = OfStream(selector);
    return GetData<Stream>(self, stream, &address, 0, nullptr, size, data);
}

OSStatus StreamSetProperty(Ref self, AudioStreamID stream, const AudioTimeStamp* when, UInt32 /*channel*/,
                           AudioObjectPropertySelector selector, UInt32 size, const void* data)
{
    const Address address = OfStream(selector);
    return SetData<Stream>(self, stream, &address, 0, nullptr, size, data, when);
}

void ObjectShow(Ref self, AudioObjectID object)
{
    OnPlugIn(self, [&](HP_HardwarePlugIn&) { Require<AnyObject>(object).Show(); });
}

Boolean ObjectHasProperty(Ref self, AudioObjectID object, const Address* address)
{
    Boolean has = false;
    Barrier([&] {
        ThrowIfNull(self, address);
        AskLocked<AnyObject>(object, [&](HP_Object& found) { has = found.HasProperty(*address); });
    });
    return has;
}

OSStatus ObjectIsPropertySettable(Ref self, AudioObjectID object, const Address* address, Boolean* settable)
{
    return Barrier([&] {
        ThrowIfNull(self, address, settable);
        AskLocked<AnyObject>(object, [&](HP_Object& found) { *settable = found.IsPropertySettable(*address); });
    });
}

OSStatus ObjectGetPropertyDataSize(Ref self, AudioObjectID object, const Address* address, UInt32 qualifierSize,
                                   const void* qualifier, UInt32* size)
{
    return Barrier([&] {
        ThrowIfNull(self, address, size);
        AskLocked<AnyObject>(
            object, [&](HP_Object& found) { *size = found.GetPropertyDataSize(*address, qualifierSize, qualifier); });
    });
}

OSStatus ObjectSetPropertyData(Ref self, AudioObjectID object, const Address* address, UInt32 qualifierSize,
                               const void* qualifier, UInt32 size, const void* data)
{
    return SetData<AnyObject>(self, object, address, qualifierSize, qualifier, size, data, nullptr);
}

constexpr AudioHardwarePlugInInterface kFunctions = {
    ._reserved = nullptr,
    .QueryInterface = QueryInterface,
    .AddRef = AddRef,
    .Release = Release,
    .Initialize = Initialize,
    .Teardown = Teardown,
    .DeviceAddIOProc = DeviceAddIOProc,
    .DeviceRemoveIOProc = DeviceRemoveIOProc,
    .DeviceStart = DeviceStart,
    .DeviceStop = DeviceStop,
    .DeviceRead = DeviceRead,
    .DeviceGetCurrentTime = DeviceGetCurrentTime,
    .DeviceTranslateTime = DeviceTranslateTime,
    .DeviceGetPropertyInfo = DeviceGetPropertyInfo,
    .DeviceGetProperty = DeviceGetProperty,
    .DeviceSetProperty = DeviceSetProperty,
    .StreamGetPropertyInfo = StreamGetPropertyInfo,
    .StreamGetProperty = StreamGetProperty,
    .StreamSetProperty = StreamSetProperty,
    .DeviceStartAtTime = DeviceStartAtTime,
    .DeviceGetNearestStartTime = DeviceGetNearestStartTime,
    .InitializeWithObjectID = InitializeWithObjectID,
    .ObjectShow = ObjectShow,
    .ObjectHasProperty = ObjectHasProperty,
    .ObjectIsPropertySettable = ObjectIsPropertySettable,
    .ObjectGetPropertyDataSize = ObjectGetPropertyDataSize,
    .ObjectGetPropertyData = GetData<AnyObject>,
    .ObjectSetPropertyData = ObjectSetPropertyData,
    .DeviceCreateIOProcID = DeviceCreateIOProcID,
    .DeviceDestroyIOProcID = DeviceDestroyIOProcID,
};

}  // namespace

AudioHardwarePlugInInterface HP_HardwarePlugIn::sInterface = kFunctions;
