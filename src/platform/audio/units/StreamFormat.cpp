#include "platform/audio/units/StreamFormat.h"

#include <algorithm>
#include <cmath>

namespace platform::audio::units {

bool IsFloat(const AudioStreamBasicDescription& format) noexcept
{
    constexpr UInt32 kFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    constexpr UInt32 kMostChannels = 1 << 16;  // more would let the bytes of a frame wrap around
    const bool apart = format.mFormatFlags & kAudioFormatFlagIsNonInterleaved;
    return format.mFormatID == kAudioFormatLinearPCM &&
           (format.mFormatFlags & ~kAudioFormatFlagIsNonInterleaved) == kFloat && format.mBitsPerChannel == 32 &&
           std::isfinite(format.mSampleRate) && format.mSampleRate > 0 && format.mChannelsPerFrame >= 1 &&
           format.mChannelsPerFrame < kMostChannels && format.mFramesPerPacket == 1 &&
           format.mBytesPerFrame == sizeof(float) * (apart ? 1 : format.mChannelsPerFrame) &&
           format.mBytesPerPacket == format.mBytesPerFrame;
}

bool IsInterleaved(const AudioStreamBasicDescription& format) noexcept
{
    return format.mChannelsPerFrame > 1 && !(format.mFormatFlags & kAudioFormatFlagIsNonInterleaved);
}

UInt32 BufferCount(const AudioStreamBasicDescription& format) noexcept
{
    return IsInterleaved(format) ? 1 : format.mChannelsPerFrame;
}

bool IsSameSound(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept
{
    return a.mSampleRate == b.mSampleRate && a.mChannelsPerFrame == b.mChannelsPerFrame &&
           IsInterleaved(a) == IsInterleaved(b);
}

bool HasRoom(const AudioBufferList& list, const AudioStreamBasicDescription& format, UInt32 frames) noexcept
{
    const UInt32 bytes = frames * format.mBytesPerFrame;
    return list.mNumberBuffers == BufferCount(format) &&
           std::all_of(list.mBuffers, list.mBuffers + list.mNumberBuffers,
                       [&](const AudioBuffer& buffer) { return buffer.mData && buffer.mDataByteSize >= bytes; });
}

}  // namespace platform::audio::units
