#include "plugin/SHP_Stream.h"

#include "plugin/SHP_Device.h"
#include "plugin/SHP_PlugIn.h"
#include "utility/CAException.h"

#include <cstring>

namespace {

constexpr double kListedRateHz = 44100;
constexpr UInt32 kPackedIntegers = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
constexpr UInt32 kHighIntegers = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsAlignedHigh;
constexpr AudioObjectPropertySelector kPhysicalFormat = FourCC("pft "), kSupportsMixing = FourCC("mix?");

AudioStreamBasicDescription Format(double rate, UInt32 flags, UInt32 frameBytes, UInt32 channels, UInt32 bits)
{
    return {rate, kAudioFormatLinearPCM, flags, frameBytes, 1, frameBytes, channels, bits, 0};
}

bool CanBeMixed(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatLinearPCM && (format.mFormatFlags & kAudioFormatFlagIsNonMixable) == 0;
}

template <class Value>
Value Take(UInt32 size, const void* data)
{
    if (size != sizeof(Value)) throw CAException(kAudioHardwareBadPropertySizeError);
    Value value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

}  // namespace

SHP_Stream::SHP_Stream(AudioObjectID objectID, SHP_PlugIn* plugIn, SHP_Device* device, bool isInput,
                       UInt32 startingChannel, UInt32 channelCount)
    : HP_Stream(objectID, plugIn, device, isInput, startingChannel), mChannelCount(channelCount)
{
}

void SHP_Stream::Initialize(double sampleRate)
{
    HP_Stream::Initialize();
    AddAvailablePhysicalFormats();
    GetFormatList().SetCurrentPhysicalFormat(Format(sampleRate, kPackedIntegers, 4, 2, 16), false);
}

void SHP_Stream::Teardown()
{
    Finalize();
    HP_Stream::Teardown();
}

void SHP_Stream::AddAvailablePhysicalFormats()
{
    const AudioValueRange rates{kListedRateHz, kListedRateHz};
    GetFormatList().AddPhysicalFormat(
        {Format(kListedRateHz, kPackedIntegers, 2 * mChannelCount, mChannelCount, 16), rates});
    GetFormatList().AddPhysicalFormat(
        {Format(kListedRateHz, kHighIntegers, 4 * mChannelCount, mChannelCount, 24), rates});
}

void SHP_Stream::Finalize()
{
    if (!mNonMixable) return;
    AudioStreamBasicDescription format;
    GetFormatList().GetCurrentPhysicalFormat(format);
    if (format.mFormatID == kAudioFormatLinearPCM) {
        format.mFormatFlags &= ~kAudioFormatFlagIsNonMixable;
    } else {
        format = {0, kAudioFormatLinearPCM, 0, 0, 1, 0, 0, 0, 0};
        GetFormatList().BestMatchForPhysicalFormat(format);
    }
    GetFormatList().BestMatchForPhysicalFormat(format);
    GetFormatList().SetCurrentPhysicalFormat(format, true);
}

void SHP_Stream::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                 UInt32 size, const void* data, const AudioTimeStamp* when)
{
    const StateScope scope(*this);
    switch (address.mSelector) {
        case kPhysicalFormat:
            return SetFormat(Take<AudioStreamBasicDescription>(size, data), true);
        case kAudioDevicePropertyStreamFormat:
            return SetFormat(Take<AudioStreamBasicDescription>(size, data), false);
        case kSupportsMixing: {
            const auto mixable = Take<UInt32>(size, data) != 0;
            // Without this the current format would be one that the list does not have, and buffers half as large.
            if (!GetFormatList().CanSetIsMixable()) throw CAException(kAudioHardwareIllegalOperationError);
            mNonMixable = !mixable;
            return GetFormatList().SetIsMixable(mixable, true);
        }
        default:
            HP_Stream::SetPropertyData(address, qualifierSize, qualifier, size, data, when);
    }
}

void SHP_Stream::SetFormat(const AudioStreamBasicDescription& wanted, bool isPhysical)
{
    HP_FormatList& list = GetFormatList();
    AudioStreamBasicDescription format = wanted;
    if (!(isPhysical ? list.SanityCheckPhysicalFormat(format) : list.SanityCheckVirtualFormat(format)))
        throw CAException(OSStatus(FourCC("!dat")));
    if (isPhysical)
        list.BestMatchForPhysicalFormat(format);
    else
        list.BestMatchForVirtualFormat(format);
    mNonMixable = !CanBeMixed(format);
    if (isPhysical)
        list.SetCurrentPhysicalFormat(format, true);
    else
        list.SetCurrentVirtualFormat(format, true);
}
