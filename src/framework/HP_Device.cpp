#include "framework/HP_Device.h"

#include "framework/HP_DeviceFormatList.h"
#include "framework/HP_Stream.h"
#include "platform/audio/AudioObjectProperties.h"
#include "platform/foundation/CFDictionary.h"
#include "utility/CAException.h"
#include "utility/CAPropertyAddressList.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr Float64 kShortestBufferSeconds = 0.0003;
constexpr Float64 kLongestBufferSeconds = 0.25;

/// Of a rate that came from outside: no number at all is no frames.
UInt32 FramesIn(Float64 seconds, Float64 rate)
{
    const Float64 frames = std::ceil(rate * seconds);
    return frames > 0 ? static_cast<UInt32>(std::min<Float64>(frames, std::numeric_limits<UInt32>::max())) : 0;
}

/// The channel after a stream's last, counted from 1.
UInt32 EndOf(const HP_Stream& stream)
{
    return stream.GetFirstDeviceChannel() + stream.GetNumberChannels();
}

[[noreturn]] void ThrowUnsupported()
{
    throw CAException(kAudioHardwareUnsupportedOperationError);
}

}  // namespace

HP_Device::HP_Device(AudioObjectID objectID, AudioClassID classID, HP_HardwarePlugIn* plugIn)
    : HP_Object(objectID, classID, plugIn)
{
}

HP_Device::~HP_Device() = default;

void HP_Device::Initialize()
{
    CreateDeviceStateMutex();
    HP_Object::Initialize();
    mFormatList = std::make_unique<HP_DeviceFormatList>(this);
    mFormatList->Initialize();
    AddProperty(mFormatList.get());
}

void HP_Device::Teardown()
{
    const StateScope locked(*this);
    RemoveProperty(mFormatList.get());
    mFormatList->Teardown();
    mFormatList.reset();
    HP_Object::Teardown();
    DestroyDeviceStateMutex();
}

CFStringRef HP_Device::CopyConfigurationApplicationBundleID() const
{
    return static_cast<CFStringRef>(CFRetain(CFSTR("com.ostrel.corvane")));
}

void HP_Device::CreateDeviceStateMutex()
{
    mStateMutex = std::make_shared<CAMutex>("DeviceStateMutex");
}

void HP_Device::DestroyDeviceStateMutex()
{
    mStateMutex.reset();
}

AudioDeviceIOProcID HP_Device::Do_CreateIOProcID(AudioDeviceIOProc, void*)
{
    ThrowUnsupported();
}

void HP_Device::Do_DestroyIOProcID(AudioDeviceIOProcID)
{
    ThrowUnsupported();
}

void HP_Device::Do_AddIOProc(AudioDeviceIOProc, void*)
{
    ThrowUnsupported();
}

void HP_Device::Do_RemoveIOProc(AudioDeviceIOProc)
{
    ThrowUnsupported();
}

void HP_Device::Do_StartIOProc(AudioDeviceIOProcID)
{
    ThrowUnsupported();
}

void HP_Device::Do_StartIOProcAtTime(AudioDeviceIOProcID, AudioTimeStamp&, UInt32)
{
    ThrowUnsupported();
}

void HP_Device::Do_StopIOProc(AudioDeviceIOProcID)
{
    ThrowUnsupported();
}

void HP_Device::Read(const AudioTimeStamp&, AudioBufferList&)
{
    ThrowUnsupported();
}

bool HP_Device::IsValidIOBufferFrameSize(UInt32 frames) const
{
    return GetMinimumIOBufferFrameSize() <= frames && frames <= GetMaximumIOBufferFrameSize();
}

UInt32 HP_Device::GetMinimumIOBufferFrameSize() const
{
    if (HasAnyNonLinearPCMStreams(true) || HasAnyNonLinearPCMStreams(false)) return GetIOBufferFrameSize();
    return FramesIn(kShortestBufferSeconds, GetCurrentNominalSampleRate());
}

UInt32 HP_Device::GetMaximumIOBufferFrameSize() const
{
    if (HasAnyNonLinearPCMStreams(true) || HasAnyNonLinearPCMStreams(false)) return GetIOBufferFrameSize();
    return FramesIn(kLongestBufferSeconds, GetCurrentNominalSampleRate());
}

void HP_Device::Do_SetIOBufferFrameSize(UInt32 frames)
{
    if (!IsValidIOBufferFrameSize(frames)) throw CAException(kAudioHardwareIllegalOperationError);
    SetIOBufferFrameSize(frames, true);
}

void HP_Device::SetIOBufferFrameSize(UInt32 frames, bool sendNotifications)
{
    if (mIOBufferFrameSize.exchange(frames, std::memory_order_relaxed) == frames || !sendNotifications) return;
    CAPropertyAddressList changed;
    changed.AppendUnique({kAudioDevicePropertyBufferSize, kAudioObjectPropertyScopeGlobal, 0});
    changed.AppendUnique({kAudioDevicePropertyBufferFrameSize, kAudioObjectPropertyScopeGlobal, 0});
    PropertiesChanged(changed.GetCount(), changed.GetAddresses());
}

UInt32 HP_Device::DetermineIOBufferFrameSize() const
{
    for (const HP_Stream* const stream : mOutputStreams) {
        if (stream->GetFormatList().IsLinearPCM()) continue;
        AudioStreamBasicDescription format;
        stream->GetFormatList().GetCurrentPhysicalFormat(format);
        return format.mFramesPerPacket;
    }
    return std::max(std::min(GetIOBufferFrameSize(), GetMaximumIOBufferFrameSize()), GetMinimumIOBufferFrameSize());
}

Float64 HP_Device::GetCurrentNominalSampleRate() const
{
    const StreamList& streams = mInputStreams.empty() ? mOutputStreams : mInputStreams;
    return streams.empty() ? 0 : streams.front()->GetFormatList().GetCurrentNominalSampleRate();
}

Float64 HP_Device::GetCurrentActualSampleRate() const
{
    return IsIOEngineRunningSomewhere() ? GetCurrentNominalSampleRate() : 0;
}

void HP_Device::AddStream(HP_Stream* stream)
{
    StreamList& streams = stream->IsInput() ? mInputStreams : mOutputStreams;
    const auto place = std::ranges::find_if(streams, [&](const HP_Stream* other) {
        return other->GetFirstDeviceChannel() >= stream->GetFirstDeviceChannel();
    });
    streams.insert(place, stream);
}

void HP_Device::RemoveStream(HP_Stream* stream)
{
    std::erase(stream->IsInput() ? mInputStreams : mOutputStreams, stream);
}

const HP_Device::StreamList& HP_Device::GetStreamsByScope(AudioObjectPropertyScope scope) const
{
    static const StreamList none;
    switch (scope) {
        case kAudioObjectPropertyScopeInput:
            return mInputStreams;
        case kAudioObjectPropertyScopeOutput:
            return mOutputStreams;
        case kAudioObjectPropertyScopeGlobal:
            return mOutputStreams.empty() ? mInputStreams : mOutputStreams;
        default:
            return none;
    }
}

HP_Stream* HP_Device::GetStreamByPropertyAddress(const AudioObjectPropertyAddress& address, bool tryOtherSection) const
{
    const StreamList& streams = GetStreamsByScope(address.mScope);
    const auto found =
        std::ranges::find_if(streams, [&](const HP_Stream* stream) { return address.mElement < EndOf(*stream); });
    if (found != streams.end()) return *found;
    const StreamList& all = GetStreamsByScope(kAudioObjectPropertyScopeGlobal);
    return tryOtherSection && !all.empty() ? all.front() : nullptr;
}

bool HP_Device::HasAnyNonLinearPCMStreams(bool isInput) const
{
    return std::ranges::any_of(GetStreams(isInput),
                               [](const HP_Stream* stream) { return !stream->GetFormatList().IsLinearPCM(); });
}

bool HP_Device::HasAnyNonMixableStreams(bool isInput) const
{
    return std::ranges::any_of(GetStreams(isInput),
                               [](const HP_Stream* stream) { return !stream->GetFormatList().IsMixable(); });
}

bool HP_Device::CanSetIsMixable(bool isInput) const
{
    return std::ranges::any_of(GetStreams(isInput),
                               [](const HP_Stream* stream) { return stream->GetFormatList().CanSetIsMixable(); });
}
