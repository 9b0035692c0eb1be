// The plug-in that TableDriver.c drives: a device (7) and its stream (8) with whatever properties the base classes
// have, and below every operation an exception of the kind that gThrown says, with the operation's own code.
#include "framework/TestObjects.h"
#include "utility/CAException.h"

#include <cstddef>
#include <stdexcept>

extern "C" {
#include "framework/PublishedTable.h"

__attribute__((visibility("default"))) int gThrown = 0;  // 0: nothing
}

namespace {

static_assert(sizeof(PublishedTable) == sizeof(AudioHardwarePlugInInterface));
static_assert(offsetof(PublishedTable, ObjectShow) == offsetof(AudioHardwarePlugInInterface, ObjectShow));

using Address = AudioObjectPropertyAddress;

void Reach(const char (&operation)[5])
{
    const UInt32 code = FourCC(operation);
    switch (gThrown) {
        case 0:
            return;
        case 1:
            throw CAException(OSStatus(code));
        case 2:
            throw OSStatus(code);
        case 3:
            throw code;
        case 4:
            throw std::runtime_error(operation);
        default:
            throw operation;
    }
}

template <class Base>
struct Throwing : Base {
    using Base::Base;
    void Show() override { Reach("show"), Base::Show(); }
    bool HasProperty(const Address& address) override { return Reach("hasp"), Base::HasProperty(address); }
    bool IsPropertySettable(const Address& address) override
    {
        return Reach("sett"), Base::IsPropertySettable(address);
    }
    UInt32 GetPropertyDataSize(const Address& address, UInt32 size, const void* qualifier) override
    {
        return Reach("size"), Base::GetPropertyDataSize(address, size, qualifier);
    }
    void GetPropertyData(const Address& address, UInt32 qualifierSize, const void* qualifier, UInt32& size,
                         void* data) override
    {
        Reach("getd"), Base::GetPropertyData(address, qualifierSize, qualifier, size, data);
    }
    void SetPropertyData(const Address& address, UInt32 qualifierSize, const void* qualifier, UInt32 size,
                         const void* data, const AudioTimeStamp* when) override
    {
        Reach("setd"), Base::SetPropertyData(address, qualifierSize, qualifier, size, data, when);
    }
};

struct ThrowingDevice final : Throwing<TestDevice> {
    using Throwing::Throwing;
    using ID = AudioDeviceIOProcID;
    using Stamp = AudioTimeStamp;
    ID Do_CreateIOProcID(AudioDeviceIOProc procedure, void* data) override
    {
        return Reach("crea"), TestDevice::Do_CreateIOProcID(procedure, data);
    }
    void Do_DestroyIOProcID(ID id) override { Reach("dest"), TestDevice::Do_DestroyIOProcID(id); }
    void Do_AddIOProc(AudioDeviceIOProc procedure, void* data) override
    {
        Reach("addp"), TestDevice::Do_AddIOProc(procedure, data);
    }
    void Do_RemoveIOProc(AudioDeviceIOProc procedure) override
    {
        Reach("remp"), TestDevice::Do_RemoveIOProc(procedure);
    }
    void Do_StartIOProc(ID id) override { Reach("strt"), TestDevice::Do_StartIOProc(id); }
    void Do_StartIOProcAtTime(ID id, Stamp& time, UInt32 flags) override
    {
        Reach("stat"), TestDevice::Do_StartIOProcAtTime(id, time, flags);
    }
    void Do_StopIOProc(ID id) override { Reach("stop"), TestDevice::Do_StopIOProc(id); }
    void Read(const Stamp& start, AudioBufferList& data) override { Reach("read"), TestDevice::Read(start, data); }
    void SafeGetCurrentTime(Stamp& time) override { Reach("time"), TestDevice::SafeGetCurrentTime(time); }
    void TranslateTime(const Stamp& in, Stamp& out) override { Reach("tran"), TestDevice::TranslateTime(in, out); }
    void GetNearestStartTime(Stamp& time, UInt32 flags) override
    {
        Reach("near"), TestDevice::GetNearestStartTime(time, flags);
    }
};

/// Goes with the last reference.
struct DrivenPlugIn final : HP_HardwarePlugIn {
    using HP_HardwarePlugIn::HP_HardwarePlugIn;
    ~DrivenPlugIn() override { mDevice.Teardown(); }
    void Initialize() override { Reach("init"), HP_HardwarePlugIn::Initialize(); }
    void InitializeWithObjectID(AudioObjectID object) override
    {
        Reach("iwid"), HP_HardwarePlugIn::InitializeWithObjectID(object);
    }
    void Teardown() override { Reach("tear"), HP_HardwarePlugIn::Teardown(); }
    UInt32 Retain() override { return Reach("reta"), HP_HardwarePlugIn::Retain(); }
    UInt32 Release() override { return Reach("rele"), HP_HardwarePlugIn::Release(); }

    FakeSystem mSystem;
    ThrowingDevice mDevice{7, kAudioDeviceClassID, this};
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void* New_TestPlugIn(CFAllocatorRef, CFUUIDRef)
{
    auto* const plugIn =
        new DrivenPlugIn(CFUUIDGetConstantUUIDWithBytes(nullptr, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0));
    plugIn->Retain();
    plugIn->mDevice.Initialize();
    plugIn->mDevice.Add<Throwing<TestStream>>(8, true, 1, Integers(16));
    HP_Object::SetObjectStateMutexForID(7, plugIn->mDevice.GetObjectStateMutex());
    return plugIn->GetInterface();
}

/// What a property gave away.
extern "C" __attribute__((visibility("default"))) void ReleaseObject(CFTypeRef object)
{
    CFRelease(object);
}
