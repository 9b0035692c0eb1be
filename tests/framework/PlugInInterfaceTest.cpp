// The function table: whom each entry finds, what it says where there is nobody or nothing to write to, and that
// nothing thrown below it comes out.
#include "framework/TestObjects.h"
#include "utility/CAException.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using Address = AudioObjectPropertyAddress;
using Calls = const AudioHardwarePlugInInterface&;
using Ref = AudioHardwarePlugInRef;

/// What the pointers of a call point to: begins as an address of the rate, and a size too large for it.
struct Block {
    UInt32 mWords[64] = {FourCC("nsrt"), kAudioObjectPropertyScopeGlobal};
};

/// A number of a call is the rate's selector, a pointer the block; there is no I/O procedure.
template <class Argument>
Argument Fill(Block* block)
{
    if constexpr (std::is_same_v<Argument, AudioDeviceIOProc>)
        return nullptr;
    else if constexpr (std::is_pointer_v<Argument>)
        return static_cast<Argument>(static_cast<void*>(block));
    else
        return static_cast<Argument>(FourCC("nsrt"));
}

struct Entry {
    template <class... Arguments>
    using Function = OSStatus (*)(Ref, AudioObjectID, Arguments...);

    template <class... Arguments>
    Entry(const char* name, Function<Arguments...> AudioHardwarePlugInInterface::*function, const char* plain,
          const char* withoutPointers)
        : mName(name), mPlain(plain), mWithoutPointers(withoutPointers)
    {
        mCall = [function](Calls calls, Ref ref, AudioObjectID number, Block* block) {
            return Status((calls.*function)(ref, number, Fill<Arguments>(block)...));
        };
    }

    std::string mName;
    const char* mPlain;  // what a device or stream without procedures and clock says
    const char* mWithoutPointers;
    std::function<std::string(Calls, Ref, AudioObjectID, Block*)> mCall;
};

using Table = AudioHardwarePlugInInterface;
const Entry kEntries[] = {
    {"DeviceAddIOProc", &Table::DeviceAddIOProc, "unop", "unop"},
    {"DeviceRemoveIOProc", &Table::DeviceRemoveIOProc, "unop", "unop"},
    {"DeviceCreateIOProcID", &Table::DeviceCreateIOProcID, "unop", "nope"},
    {"DeviceDestroyIOProcID", &Table::DeviceDestroyIOProcID, "unop", "unop"},
    {"DeviceStart", &Table::DeviceStart, "unop", "unop"},
    {"DeviceStartAtTime", &Table::DeviceStartAtTime, "unop", "unop"},
    {"DeviceStop", &Table::DeviceStop, "unop", "unop"},
    {"DeviceRead", &Table::DeviceRead, "unop", "nope"},
    {"DeviceGetCurrentTime", &Table::DeviceGetCurrentTime, "ok", "nope"},
    {"DeviceTranslateTime", &Table::DeviceTranslateTime, "ok", "nope"},
    {"DeviceGetNearestStartTime", &Table::DeviceGetNearestStartTime, "ok", "nope"},
    {"DeviceGetPropertyInfo", &Table::DeviceGetPropertyInfo, "ok", "ok"},
    {"DeviceGetProperty", &Table::DeviceGetProperty, "!siz", "nope"},
    {"DeviceSetProperty", &Table::DeviceSetProperty, "who?", "nope"},  // no stream has that element
    {"StreamGetPropertyInfo", &Table::StreamGetPropertyInfo, "ok", "ok"},
    {"StreamGetProperty", &Table::StreamGetProperty, "!siz", "nope"},
    {"StreamSetProperty", &Table::StreamSetProperty, "!siz", "nope"},
    {"ObjectIsPropertySettable", &Table::ObjectIsPropertySettable, "ok", "nope"},
    {"ObjectGetPropertyDataSize", &Table::ObjectGetPropertyDataSize, "ok", "nope"},
    {"ObjectGetPropertyData", &Table::ObjectGetPropertyData, "!siz", "nope"},
    {"ObjectSetPropertyData", &Table::ObjectSetPropertyData, "!siz", "nope"},
};

std::string Call(TestPlugIn& rig, const Entry& entry, Ref ref, AudioObjectID number)
{
    Block block;
    return entry.mCall(rig.Calls(), ref, number, &block);
}

TEST(HP_HardwarePlugIn, EveryEntryFindsItsKindOfObjectAndNeedsItsPointers)
{
    TestPlugIn rig;
    rig.mDevice->Add(8, true, 1, Integers(16));
    for (const Entry& entry : kEntries) {
        const char kind = entry.mName[0];
        const AudioObjectID right = kind == 'S' ? 8 : 7;
        const char* unknown = kind == 'D' ? "!dev" : kind == 'S' ? "!str" : "!obj";
        SCOPED_TRACE(entry.mName);
        EXPECT_EQ(Call(rig, entry, rig.Ref(), right), entry.mPlain);
        EXPECT_EQ(Call(rig, entry, rig.Ref(), kind == 'O' ? 99 : 15 - right), unknown);
        EXPECT_EQ(Call(rig, entry, nullptr, right), "nope");
        EXPECT_EQ(entry.mCall(rig.Calls(), rig.Ref(), right, nullptr), entry.mWithoutPointers);
    }
    const Address address{FourCC("nsrt"), kAudioObjectPropertyScopeGlobal, 0};
    EXPECT_FALSE(rig.Calls().ObjectHasProperty(nullptr, 7, &address));
    EXPECT_FALSE(rig.Calls().ObjectHasProperty(rig.Ref(), 99, &address));
    EXPECT_FALSE(rig.Calls().ObjectHasProperty(rig.Ref(), 7, nullptr));
    EXPECT_EQ(Status(rig.Calls().DeviceGetPropertyInfo(rig.Ref(), 7, 0, true, FourCC("zzzz"), nullptr, nullptr)),
              "who?");
    EXPECT_EQ(Status(rig.Calls().Initialize(nullptr)), "nope");
    EXPECT_EQ(Status(rig.Calls().Teardown(nullptr)), "nope");
    EXPECT_EQ(rig.Calls().AddRef(nullptr), 0u);
    EXPECT_EQ(rig.Calls().Release(nullptr), 0u);
    rig.Calls().ObjectShow(nullptr, 7);
}

// ---- Whatever is thrown below

int sThrown = 0;

[[noreturn]] void Throw()
{
    switch (sThrown) {
        case 0:
            throw CAException(OSStatus(FourCC("oops")));
        case 1:
            throw OSStatus(FourCC("oops"));
        case 2:
            throw FourCC("oops");
        case 3:
            throw std::runtime_error("foreign");
        default:
            throw "text";
    }
}

template <class Base>
struct Throwing : Base {
    using Base::Base;
    void Show() override { Throw(); }
    bool HasProperty(const Address&) override { Throw(); }
    bool IsPropertySettable(const Address&) override { Throw(); }
    UInt32 GetPropertyDataSize(const Address&, UInt32, const void*) override { Throw(); }
    void GetPropertyData(const Address&, UInt32, const void*, UInt32&, void*) override { Throw(); }
    void SetPropertyData(const Address&, UInt32, const void*, UInt32, const void*, const AudioTimeStamp*) override
    {
        Throw();
    }
};

struct ThrowingDevice final : Throwing<HP_Device> {
    using Throwing::Throwing;
    AudioDeviceIOProcID Do_CreateIOProcID(AudioDeviceIOProc, void*) override { Throw(); }
    void Do_DestroyIOProcID(AudioDeviceIOProcID) override { Throw(); }
    void Do_AddIOProc(AudioDeviceIOProc, void*) override { Throw(); }
    void Do_RemoveIOProc(AudioDeviceIOProc) override { Throw(); }
    void Do_StartIOProc(AudioDeviceIOProcID) override { Throw(); }
    void Do_StartIOProcAtTime(AudioDeviceIOProcID, AudioTimeStamp&, UInt32) override { Throw(); }
    void Do_StopIOProc(AudioDeviceIOProcID) override { Throw(); }
    void Read(const AudioTimeStamp&, AudioBufferList&) override { Throw(); }
    void SafeGetCurrentTime(AudioTimeStamp&) override { Throw(); }
    void TranslateTime(const AudioTimeStamp&, AudioTimeStamp&) override { Throw(); }
    void GetNearestStartTime(AudioTimeStamp&, UInt32) override { Throw(); }
};

struct ThrowingPlugIn final : HP_HardwarePlugIn {
    using HP_HardwarePlugIn::HP_HardwarePlugIn;
    void Initialize() override { Throw(); }
    void InitializeWithObjectID(AudioObjectID) override { Throw(); }
    void Teardown() override { Throw(); }
    UInt32 Retain() override { Throw(); }
    UInt32 Release() override { Throw(); }
};

TEST(HP_HardwarePlugIn, WhateverIsThrownBelowAnEntryComesOutAsAStatus)
{
    TestPlugIn rig;
    ThrowingPlugIn plugIn(CFUUIDGetConstantUUIDWithBytes(nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    ThrowingDevice device(30, kAudioDeviceClassID, rig.mPlugIn);
    Throwing<HP_Stream> stream(31, rig.mPlugIn, rig.mDevice.get(), true, 1);
    const Address address{FourCC("nsrt"), kAudioObjectPropertyScopeGlobal, 0};
    const Ref ref = plugIn.GetInterface();
    for (sThrown = 0; sThrown <= 4; ++sThrown) {
        const char* status = sThrown <= 2 ? "oops" : "what";
        for (const Entry& entry : kEntries) {
            EXPECT_EQ(Call(rig, entry, rig.Ref(), entry.mName[0] == 'S' ? 31 : 30), status) << entry.mName;
        }
        EXPECT_FALSE(rig.Calls().ObjectHasProperty(rig.Ref(), 30, &address));
        rig.Calls().ObjectShow(rig.Ref(), 30);
        EXPECT_EQ(Status((*ref)->Initialize(ref)), status);
        EXPECT_EQ(Status((*ref)->InitializeWithObjectID(ref, 5)), status);
        EXPECT_EQ(Status((*ref)->Teardown(ref)), status);
        EXPECT_EQ((*ref)->AddRef(ref), 0u);
        EXPECT_EQ((*ref)->Release(ref), 0u);
    }
}

// ---- Its life

TEST(HP_HardwarePlugIn, AnInterfaceThatItHasIsAReferenceMoreAndAnyOtherIsNone)
{
    TestPlugIn rig;
    const CFUUIDBytes known[] = {
        {0xE9, 0x6C, 0x3E, 0x92, 0xE7, 0x45, 0x4C, 0xB7, 0xBA, 0x91, 0xB3, 0x3C, 0x68, 0xF2, 0xF0, 0x26},
        {0x38, 0xD7, 0x8A, 0x18, 0x77, 0xA5, 0x11, 0xD8, 0xB8, 0xB8, 0x00, 0x0A, 0x95, 0x88, 0x78, 0x7E},
        {0x5D, 0x80, 0xCB, 0x6C, 0x48, 0x4F, 0x11, 0xD7, 0x85, 0x71, 0x00, 0x0A, 0x95, 0x77, 0x12, 0x82},
        {0xFA, 0xFC, 0xAF, 0xC3, 0xBA, 0xE8, 0x11, 0xD6, 0xB4, 0xA8, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46},
        {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    void* interface = nullptr;
    for (const CFUUIDBytes& bytes : known) {
        EXPECT_EQ(rig.Calls().QueryInterface(rig.Ref(), bytes, &interface), 0);
        EXPECT_EQ(interface, rig.Ref());
        EXPECT_EQ(rig.Calls().Release(rig.Ref()), 1u);
    }
    CFUUIDBytes unknown = known[0];
    unknown.byte15 = 0;
    EXPECT_EQ(rig.Calls().QueryInterface(rig.Ref(), unknown, &interface), HRESULT(0x80000004));
    EXPECT_EQ(interface, nullptr);
    EXPECT_EQ(Status(rig.Calls().QueryInterface(rig.Ref(), known[0], nullptr)), "nope");
    EXPECT_EQ(Status(rig.Calls().QueryInterface(nullptr, known[0], &interface)), "nope");
    EXPECT_EQ(rig.Calls().AddRef(rig.Ref()), 2u);
    EXPECT_EQ(rig.Calls().Release(rig.Ref()), 1u);

    EXPECT_EQ(rig.Calls().InitializeWithObjectID(rig.Ref(), 5), 0);
    EXPECT_EQ(HP_Object::GetObjectByID(5), rig.mPlugIn);
    EXPECT_EQ(rig.Calls().Teardown(rig.Ref()), 0);
}

}  // namespace
