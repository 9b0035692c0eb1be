#include "plugin/SHP_Device.h"

#include "capture/buffers/AI.h"
#include "platform/foundation/CFBundle.h"
#include "plugin/SHP_PlugIn.h"
#include "plugin/SHP_Stream.h"
#include "plugin/settings/CVNDevice.h"
#include "utility/CAException.h"

#include <string>

namespace {

using cf::Ref;

constexpr double kAutomaticRateHz = 44100;
constexpr UInt32 kInputSafetyFrames = 1024;
constexpr UInt32 kOutputChannels = 2;
constexpr UInt32 kFirstFrameSize = 512;

CFStringRef MakeString(const std::string& text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

}  // namespace

SHP_Device::SHP_Device(AudioObjectID objectID, SHP_PlugIn* plugIn, bool isCoreAudioD)
    : HP_Device(objectID, kAudioDeviceClassID, plugIn), mPlugIn(plugIn), mIsCoreAudioD(isCoreAudioD)
{
}

SHP_Device::~SHP_Device() = default;

void SHP_Device::SetSettings(const CVNDevice& settings, UInt32 channels)
{
    mUID = settings.mUID;
    mName = settings.mName;
    mSampleRate = mConfiguredSampleRate = settings.mSampleRate;
    mCaptureDevices = settings.mCaptureDevices;
    mCaptureSources = settings.mCaptureSources;
    mChannelCount = channels;
    mOutputChannelCount = settings.mOutputChannelCount;
}

void SHP_Device::Initialize()
{
    HP_Device::Initialize();
    if (!CVNDevice::IsUsableRate(mSampleRate)) mSampleRate = kAutomaticRateHz;
    CreateStreams();
    SetIOBufferFrameSize(kFirstFrameSize, false);
    SetIOBufferFrameSize(DetermineIOBufferFrameSize(), false);
}

void SHP_Device::Teardown()
{
    ReleaseStreams();
    HP_Device::Teardown();
}

void SHP_Device::Finalize()
{
    const StateScope scope(*this);
    for (const auto& stream : mStreams) stream->Finalize();
}

void SHP_Device::SetAlive(bool alive)
{
    mAlive.store(alive, std::memory_order_relaxed);
    const AudioObjectPropertyAddress address{FourCC("livn"), kAudioObjectPropertyScopeGlobal,
                                             kAudioObjectPropertyElementMaster};
    PropertiesChanged(1, &address);
}

CFDictionaryRef SHP_Device::CopySettings() const
{
    CVNDevice settings;
    settings.mUID = mUID;
    settings.mName = mName ? mName : Ref<cf::String>::Adopt(MakeString(""));
    settings.mSampleRate = mConfiguredSampleRate;
    settings.mCaptureDevices = mCaptureDevices;
    settings.mCaptureSources = mCaptureSources;
    settings.SetOutputChannelCount(mOutputChannelCount);
    return settings.CopyDictionaryRepresentation();
}

// ---- Identity

CFStringRef SHP_Device::CopyDeviceName() const
{
    return MakeString(CVNDevice::PublishedName(mName.Get(), mUID));
}

CFStringRef SHP_Device::CopyDeviceManufacturerName() const
{
    return MakeString("Ostrel Software, Inc.");
}

CFStringRef SHP_Device::CopyDeviceUID() const
{
    return MakeString(CVNDevice::PublishedUID(mUID));
}

CFStringRef SHP_Device::CopyModelUID() const
{
    const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR(CVNDevice::kPlugInIdentifier));
    const auto* version =
        cf::As<cf::String>(bundle ? CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleVersion")) : nullptr);
    return MakeString(version ? CVNDevice::kPlugInIdentifier + ("." + version->Text()) : CVNDevice::kPlugInIdentifier);
}

UInt32 SHP_Device::GetLatency(bool isInput) const
{
    return isInput ? 0 : ReadOutputDevice(kAudioDevicePropertyLatency);
}

UInt32 SHP_Device::GetSafetyOffset(bool isInput) const
{
    return isInput ? kInputSafetyFrames : ReadOutputDevice(kAudioDevicePropertySafetyOffset);
}

UInt32 SHP_Device::ReadOutputDevice(AudioObjectPropertySelector selector) const
{
    UInt32 value = 0, size = sizeof value;
    const bool read =
        mOutputDeviceID != 0 && AudioDeviceGetProperty(mOutputDeviceID, 0, false, selector, &size, &value) == 0;
    return read ? value : 0;
}

// ---- Streams

AudioDeviceID SHP_Device::FindOutputDevice() const
{
    AudioDeviceID device = 0;
    if (!mOutputDeviceUID) return 0;
    if (mOutputDeviceUID.Get()->Text() == CVNDevice::kDefaultOutput)
        return AI_GetDefaultOutputDevice(&device) == 0 ? device : 0;
    return AI_GetDeviceWithUID(mOutputDeviceUID.Get(), &device) == 0 ? device : 0;
}

/// Null where the system has no number for it.
std::unique_ptr<SHP_Stream> SHP_Device::MakeStream(bool isInput, UInt32 channels)
{
    AudioObjectID number = 0;
    if (AudioObjectCreate(mPlugIn->GetInterface(), GetObjectID(), kAudioStreamClassID, &number) != 0) return nullptr;
    auto stream = std::make_unique<SHP_Stream>(number, mPlugIn, this, isInput, 1, channels);
    stream->Initialize(mSampleRate);
    stream->GetFormatList().SetCurrentNominalSampleRate(mSampleRate, true);
    AddStream(stream.get());
    return stream;
}

void SHP_Device::CreateStreams()
{
    if (auto input = MakeStream(true, mChannelCount)) mStreams.push_back(std::move(input));
    mOutputDeviceID = FindOutputDevice();
    if (mOutputDeviceID != 0)
        if (auto output = MakeStream(false, kOutputChannels)) mStreams.push_back(std::move(output));

    std::vector<AudioObjectID> numbers;
    for (const auto& stream : mStreams) {
        SetObjectStateMutexForID(stream->GetObjectID(), stream->GetObjectStateMutex());
        numbers.push_back(stream->GetObjectID());
    }
    if (!numbers.empty())
        CAException::ThrowIf(AudioObjectsPublishedAndDied(mPlugIn->GetInterface(), GetObjectID(),
                                                          UInt32(numbers.size()), numbers.data(), 0, nullptr));
}

void SHP_Device::ReleaseStreams()
{
    const StateScope scope(*this);
    for (const auto& stream : mStreams) {
        SetObjectStateMutexForID(stream->GetObjectID(), nullptr);
        RemoveStream(stream.get());
        stream->Teardown();
    }
    mStreams.clear();
}
