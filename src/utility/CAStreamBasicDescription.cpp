// Construction, filling and comparison. How formats are written out is in CAStreamBasicDescriptionNames.cpp.
#include "utility/CAStreamBasicDescription.h"

#include <cstring>

namespace {

using Format = AudioStreamBasicDescription;

template <typename T>
bool Differ(T a, T b) noexcept
{
    return a != T{0} && b != T{0} && a != b;
}

template <typename T>
void FillOut(T& target, T source) noexcept
{
    if (target == T{0}) target = source;
}

constexpr bool BothHave(UInt32 a, UInt32 b, UInt32 flag) noexcept
{
    return (a & b & flag) != 0;
}

// Endianness says nothing of samples that fit a byte.
UInt32 WithoutIdleEndian(UInt32 flags, UInt32 bits) noexcept
{
    const bool idle = bits <= 8 && (flags & kAudioFormatFlagIsPacked) != 0;
    return idle ? flags & ~kAudioFormatFlagIsBigEndian : flags;
}

// Flags that change nothing of the samples, given what both sides are, take no part.
bool LinearPCMFlagsDiffer(const Format& a, const Format& b) noexcept
{
    UInt32 idle = kAudioFormatFlagsAreAllClear;
    if (BothHave(a.mFormatFlags, b.mFormatFlags, kAudioFormatFlagIsPacked)) idle |= kAudioFormatFlagIsAlignedHigh;
    if (BothHave(a.mFormatFlags, b.mFormatFlags, kAudioFormatFlagIsFloat)) idle |= kAudioFormatFlagIsSignedInteger;
    if (a.mChannelsPerFrame <= 1 && b.mChannelsPerFrame <= 1) idle |= kAudioFormatFlagIsNonInterleaved;
    return (WithoutIdleEndian(a.mFormatFlags, a.mBitsPerChannel) & ~idle) !=
           (WithoutIdleEndian(b.mFormatFlags, b.mBitsPerChannel) & ~idle);
}

bool FlagsDiffer(const Format& a, const Format& b) noexcept
{
    if (a.mFormatID == 0 || b.mFormatID == 0 || a.mFormatFlags == 0 || b.mFormatFlags == 0) return false;
    return a.mFormatID == kAudioFormatLinearPCM ? LinearPCMFlagsDiffer(a, b) : a.mFormatFlags != b.mFormatFlags;
}

}  // namespace

CAStreamBasicDescription::CAStreamBasicDescription(Float64 sampleRate, UInt32 formatID, UInt32 bytesPerPacket,
                                                   UInt32 framesPerPacket, UInt32 bytesPerFrame,
                                                   UInt32 channelsPerFrame, UInt32 bitsPerChannel,
                                                   UInt32 formatFlags) noexcept
    : AudioStreamBasicDescription{sampleRate,       formatID,        formatFlags,
                                  bytesPerPacket,   framesPerPacket, bytesPerFrame,
                                  channelsPerFrame, bitsPerChannel,  0}
{
}

void CAStreamBasicDescription::ResetFormat(AudioStreamBasicDescription& format) noexcept
{
    format = {};
}

void CAStreamBasicDescription::NormalizeLinearPCMFormat(AudioStreamBasicDescription& format) noexcept
{
    if (format.mFormatID != kAudioFormatLinearPCM || (format.mFormatFlags & kAudioFormatFlagIsNonMixable)) return;
    format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    format.mFramesPerPacket = 1;
    format.mBitsPerChannel = 32;
    format.mBytesPerFrame = format.mBytesPerPacket = 4 * format.mChannelsPerFrame;
}

void CAStreamBasicDescription::FillOutFormat(AudioStreamBasicDescription& target,
                                             const AudioStreamBasicDescription& source) noexcept
{
    FillOut(target.mSampleRate, source.mSampleRate);
    FillOut(target.mFormatID, source.mFormatID);
    FillOut(target.mFormatFlags, source.mFormatFlags);
    FillOut(target.mBytesPerPacket, source.mBytesPerPacket);
    FillOut(target.mFramesPerPacket, source.mFramesPerPacket);
    FillOut(target.mBytesPerFrame, source.mBytesPerFrame);
    FillOut(target.mChannelsPerFrame, source.mChannelsPerFrame);
    FillOut(target.mBitsPerChannel, source.mBitsPerChannel);
}

bool CAStreamBasicDescription::IsEqual(const AudioStreamBasicDescription& other, bool wildcards) const noexcept
{
    if (wildcards) return static_cast<const AudioStreamBasicDescription&>(*this) == other;
    const AudioStreamBasicDescription& self = *this;
    return std::memcmp(&self, &other, offsetof(AudioStreamBasicDescription, mReserved)) == 0;
}

bool operator==(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept
{
    return !Differ(a.mSampleRate, b.mSampleRate) && !Differ(a.mFormatID, b.mFormatID) && !FlagsDiffer(a, b) &&
           !Differ(a.mBytesPerPacket, b.mBytesPerPacket) && !Differ(a.mFramesPerPacket, b.mFramesPerPacket) &&
           !Differ(a.mBytesPerFrame, b.mBytesPerFrame) && !Differ(a.mChannelsPerFrame, b.mChannelsPerFrame) &&
           !Differ(a.mBitsPerChannel, b.mBitsPerChannel);
}

bool operator<(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept
{
    if (Differ(a.mFormatID, b.mFormatID)) {
        if (a.mFormatID == kAudioFormatLinearPCM) return true;
        return b.mFormatID != kAudioFormatLinearPCM && a.mFormatID < b.mFormatID;
    }
    if (a.mFormatID == kAudioFormatLinearPCM && b.mFormatID == kAudioFormatLinearPCM) {
        const UInt32 differing = a.mFormatFlags ^ b.mFormatFlags;
        if (differing & kAudioFormatFlagIsNonMixable) return (b.mFormatFlags & kAudioFormatFlagIsNonMixable) != 0;
        if (differing & kAudioFormatFlagIsFloat) return (b.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    }
    if (Differ(a.mBitsPerChannel, b.mBitsPerChannel)) return a.mBitsPerChannel < b.mBitsPerChannel;
    if (Differ(a.mSampleRate, b.mSampleRate)) return a.mSampleRate < b.mSampleRate;
    return Differ(a.mChannelsPerFrame, b.mChannelsPerFrame) && a.mChannelsPerFrame < b.mChannelsPerFrame;
}

bool SanityCheck(const AudioStreamBasicDescription& format) noexcept
{
    constexpr UInt32 kMaxBytesOrFrames = 999'999;
    constexpr UInt32 kMaxChannelsOrBits = 1024;
    const bool plausible =
        format.mSampleRate >= 0 && format.mFormatID != 0 && format.mBytesPerPacket <= kMaxBytesOrFrames &&
        format.mFramesPerPacket <= kMaxBytesOrFrames && format.mBytesPerFrame <= kMaxBytesOrFrames &&
        format.mChannelsPerFrame <= kMaxChannelsOrBits && format.mBitsPerChannel <= kMaxChannelsOrBits;
    if (!plausible || format.mFormatID != kAudioFormatLinearPCM) return plausible;
    return format.mFramesPerPacket == 1 && format.mBytesPerPacket == format.mBytesPerFrame;
}
