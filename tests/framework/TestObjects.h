// A plug-in of one device with streams, whose answers a test sets.
#pragma once

#include "framework/FakeSystem.h"
#include "framework/HP_Device.h"
#include "framework/HP_HardwarePlugIn.h"
#include "framework/HP_Stream.h"
#include "platform/foundation/CFDictionary.h"

#include <memory>

inline AudioStreamBasicDescription Integers(UInt32 bits, UInt32 channels = 2, Float64 rate = 44100)
{
    const UInt32 bytes = bits / 8 * channels;
    return {rate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
            bytes,
            1,
            bytes,
            channels,
            bits,
            0};
}

inline AudioStreamBasicDescription Floats(UInt32 channels = 2, Float64 rate = 44100)
{
    return {rate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
            4 * channels,
            1,
            4 * channels,
            channels,
            32,
            0};
}

inline AudioStreamBasicDescription Unmixable(AudioStreamBasicDescription format)
{
    format.mFormatFlags |= kAudioFormatFlagIsNonMixable;
    return format;
}

/// Compressed, in packets of 1536 frames and at most 2048 bytes.
inline AudioStreamBasicDescription Packets(Float64 rate = 48000)
{
    return {rate, kAudioFormatAC3, 0, 2048, 1536, 0, 2, 0, 0};
}

class TestStream : public HP_Stream {
public:
    using HP_Stream::HP_Stream;
    bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& format) override
    {
        mTold = format;
        return mTakesFormats;
    }

    bool mTakesFormats = true;
    AudioStreamBasicDescription mTold{};
};

class TestDevice : public HP_Device {
public:
    using HP_Device::HP_Device;
    ~TestDevice() override
    {
        for (const auto& stream : mStreams) {
            RemoveStream(stream.get());
            stream->Teardown();
        }
    }
    template <class Stream = TestStream>
    TestStream& Add(AudioObjectID number, bool isInput, UInt32 channel, const AudioStreamBasicDescription& format)
    {
        auto& stream = mStreams.emplace_back(std::make_unique<Stream>(number, GetPlugIn(), this, isInput, channel));
        stream->Initialize();
        stream->GetFormatList().AddPhysicalFormat({format, {format.mSampleRate, format.mSampleRate}});
        stream->GetFormatList().SetCurrentPhysicalFormat(format, false);
        AddStream(stream.get());
        return *stream;
    }

    CFStringRef CopyDeviceName() const override { return Name("Voices"); }
    CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress& address) const override
    {
        return Name(("Channel " + std::to_string(address.mElement)).c_str());
    }
    CFStringRef CopyDeviceUID() const override { return Name("voices.1"); }
    UInt32 GetTransportType() const override { return FourCC("virt"); }
    bool CanBeDefaultDevice(bool isInput, bool isSystem) const override { return isInput && !isSystem; }
    UInt32 GetLatency(bool isInput) const override { return isInput ? 11 : 22; }

private:
    static CFStringRef Name(const char* text)
    {
        return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
    }
    std::vector<std::unique_ptr<TestStream>> mStreams;
};

/// A plug-in as its factory hands it out, a device (number 7) that is known by its state mutex, no stream yet.
struct TestPlugIn {
    TestPlugIn()
    {
        mPlugIn->Retain();
        mDevice->Initialize();
        HP_Object::SetObjectStateMutexForID(7, mDevice->GetObjectStateMutex());
    }
    ~TestPlugIn()
    {
        if (mDevice) mDevice->Teardown();
        mDevice.reset();
        mPlugIn->Release();
    }
    AudioHardwarePlugInRef Ref() { return mPlugIn->GetInterface(); }
    const AudioHardwarePlugInInterface& Calls() { return **Ref(); }

    FakeSystem mSystem;
    HP_HardwarePlugIn* mPlugIn = new HP_HardwarePlugIn(
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
    std::unique_ptr<TestDevice> mDevice = std::make_unique<TestDevice>(7, kAudioDeviceClassID, mPlugIn);
};
