#include "framework/HP_FormatList.h"

#include "framework/HP_Stream.h"
#include "utility/CAException.h"

#include <algorithm>

namespace {

constexpr UInt32 kVirtualFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr UInt32 kVirtualBits = 32;
constexpr UInt32 kBytesPerWiredAC3Frame = 4;

bool IsLPCM(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatLinearPCM;
}

AudioStreamBasicDescription Normalized(AudioStreamBasicDescription format)
{
    CAStreamBasicDescription::NormalizeLinearPCMFormat(format);
    return format;
}

AudioStreamBasicDescription WithOtherMixability(AudioStreamBasicDescription format)
{
    format.mFormatFlags ^= kAudioFormatFlagIsNonMixable;
    return format;
}

}  // namespace

HP_FormatList::HP_FormatList(HP_Stream* stream) : mStream(stream) {}

bool HP_FormatList::IsLinearPCM() const
{
    return IsLPCM(mCurrentPhysicalFormat);
}

bool HP_FormatList::IsMixable() const
{
    return IsLinearPCM() && !(mCurrentPhysicalFormat.mFormatFlags & kAudioFormatFlagIsNonMixable);
}

bool HP_FormatList::CanSetIsMixable() const
{
    AudioStreamBasicDescription other = WithOtherMixability(mCurrentPhysicalFormat);
    other.mSampleRate = 0;
    return IsLinearPCM() && SupportsPhysicalFormat(other);
}

void HP_FormatList::SetIsMixable(bool mixable, bool tellHardware)
{
    if (mixable != IsMixable()) SetCurrentPhysicalFormat(WithOtherMixability(mCurrentPhysicalFormat), tellHardware);
}

void HP_FormatList::SetCurrentPhysicalFormat(const AudioStreamBasicDescription& format, bool tellHardware)
{
    if (!tellHardware || mStream->TellHardwareToSetPhysicalFormat(format)) mCurrentPhysicalFormat = format;
}

void HP_FormatList::GetCurrentVirtualFormat(AudioStreamBasicDescription& format) const
{
    format = Normalized(mCurrentPhysicalFormat);
}

void HP_FormatList::SetCurrentVirtualFormat(const AudioStreamBasicDescription& format, bool tellHardware)
{
    AudioStreamBasicDescription physical = format;
    if (!ConvertVirtualFormatToPhysicalFormat(physical)) throw CAException(kAudioDeviceUnsupportedFormatError);
    SetCurrentPhysicalFormat(physical, tellHardware);
}

void HP_FormatList::SetCurrentNominalSampleRate(Float64 rate, bool tellHardware)
{
    if (!SupportsNominalSampleRate(rate)) return;
    AudioStreamBasicDescription wanted = mCurrentPhysicalFormat;
    wanted.mSampleRate = rate;
    if (!SupportsPhysicalFormat(wanted) && IsLPCM(wanted)) {
        wanted.mBytesPerPacket = wanted.mBytesPerFrame = wanted.mChannelsPerFrame = 0;
        BestMatchForPhysicalFormat(wanted);
        if (wanted.mSampleRate != rate) {
            wanted = {.mSampleRate = rate, .mFormatID = wanted.mFormatID};
            BestMatchForPhysicalFormat(wanted);
        }
    }
    SetCurrentPhysicalFormat(wanted, tellHardware);
}

bool HP_FormatList::SupportsNominalSampleRate(Float64 rate) const
{
    const CAAudioValueRangeList ranges = GatherNominalSampleRateRanges();
    return std::ranges::any_of(ranges,
                               [&](const auto& range) { return range.mMinimum <= rate && rate <= range.mMaximum; });
}

bool HP_FormatList::SupportsVirtualFormat(const AudioStreamBasicDescription& format) const
{
    return AFL_SupportsFormat(mVirtualFormats, format);
}

bool HP_FormatList::SupportsPhysicalFormat(const AudioStreamBasicDescription& format) const
{
    return AFL_SupportsFormat(mPhysicalFormats, format);
}

bool HP_FormatList::SanityCheckVirtualFormat(const AudioStreamBasicDescription& format) const
{
    if (format.mSampleRate != 0 && !SupportsNominalSampleRate(format.mSampleRate)) return false;
    if (!HasSaneFields(mVirtualFormats, format)) return false;
    if (!IsLPCM(format)) return true;
    return (format.mFormatFlags == 0 || format.mFormatFlags == kVirtualFlags) &&
           (format.mBitsPerChannel == 0 || format.mBitsPerChannel == kVirtualBits);
}

bool HP_FormatList::SanityCheckPhysicalFormat(const AudioStreamBasicDescription& format) const
{
    if (format.mSampleRate != 0 && !SupportsNominalSampleRate(format.mSampleRate)) return false;
    if (!HasSaneFields(mPhysicalFormats, format)) return false;
    if (!IsLPCM(format)) return true;
    return SupportsPhysicalFormat({.mFormatID = format.mFormatID,
                                   .mFormatFlags = format.mFormatFlags,
                                   .mBitsPerChannel = format.mBitsPerChannel});
}

bool HP_FormatList::HasSaneFields(const AvailableFormatList& list, const AudioStreamBasicDescription& format)
{
    return (format.mFormatID == 0 || AFL_SupportsFormat(list, {.mFormatID = format.mFormatID})) &&
           (format.mChannelsPerFrame == 0 || AFL_SupportsFormat(list, {.mChannelsPerFrame = format.mChannelsPerFrame}));
}

void HP_FormatList::BestMatchForVirtualFormat(AudioStreamBasicDescription& format) const
{
    AFL_BestMatchForFormat(mVirtualFormats, Normalized(mCurrentPhysicalFormat), format);
}

void HP_FormatList::BestMatchForPhysicalFormat(AudioStreamBasicDescription& format) const
{
    AFL_BestMatchForFormat(mPhysicalFormats, mCurrentPhysicalFormat, format);
}

bool HP_FormatList::ConvertVirtualFormatToPhysicalFormat(AudioStreamBasicDescription& format) const
{
    if (!IsLPCM(format) || (format.mFormatFlags & kVirtualFlags) != kVirtualFlags) return true;
    format.mBitsPerChannel = kVirtualBits;
    AudioStreamBasicDescription match = format;
    match.mFormatFlags = match.mBytesPerPacket = match.mBytesPerFrame = match.mBitsPerChannel = 0;
    match.mFramesPerPacket = 1;
    BestMatchForPhysicalFormat(match);
    if (match.mFormatID != format.mFormatID || match.mSampleRate != format.mSampleRate ||
        match.mChannelsPerFrame != format.mChannelsPerFrame)
        return false;
    format = match;
    return true;
}

CAAudioValueRangeList HP_FormatList::GatherNominalSampleRateRanges() const
{
    CAAudioValueRangeList all, merged;
    for (const AvailableFormat& format : mPhysicalFormats) {
        for (const CAAudioValueRange& range : format.mRates) {
            CAAudioValueRange_ComputeUnion(range, all, merged);
            all.swap(merged);
        }
    }
    return all;
}

UInt32 HP_FormatList::GetNumberAvailableNominalSampleRateRanges() const
{
    return static_cast<UInt32>(GatherNominalSampleRateRanges().size());
}

void HP_FormatList::AddPhysicalFormat(const AudioStreamRangedDescription& format)
{
    if (format.mFormat.mChannelsPerFrame == 0) return;
    AFL_AddFormat(mPhysicalFormats, format);
    AFL_AddFormat(mVirtualFormats, {Normalized(format.mFormat), format.mSampleRateRange});
}

void HP_FormatList::RemoveAllFormats()
{
    mPhysicalFormats.clear();
    mVirtualFormats.clear();
}

UInt32 HP_FormatList::CalculateIOBufferByteSize(UInt32 frames) const
{
    return CalculateIOBufferByteSize(Normalized(mCurrentPhysicalFormat), frames);
}

UInt32 HP_FormatList::CalculateIOBufferFrameSize(UInt32 bytes) const
{
    return CalculateIOBufferFrameSize(Normalized(mCurrentPhysicalFormat), bytes);
}

UInt32 HP_FormatList::CalculateIOBufferByteSize(const AudioStreamBasicDescription& format, UInt32 frames)
{
    switch (format.mFormatID) {
        case kAudioFormat60958AC3:
            return frames * kBytesPerWiredAC3Frame;
        case kAudioFormatLinearPCM:
            return frames * format.mBytesPerFrame;
        default:
            return format.mBytesPerPacket;
    }
}

UInt32 HP_FormatList::CalculateIOBufferFrameSize(const AudioStreamBasicDescription& format, UInt32 bytes)
{
    switch (format.mFormatID) {
        case kAudioFormat60958AC3:
            return bytes / kBytesPerWiredAC3Frame;
        case kAudioFormatLinearPCM:
            return format.mBytesPerFrame != 0 ? bytes / format.mBytesPerFrame : 0;
        default:
            return format.mFramesPerPacket;
    }
}
