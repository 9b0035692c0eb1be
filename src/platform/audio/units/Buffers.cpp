#include "platform/audio/units/Buffers.h"

#include "platform/audio/units/StreamFormat.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace platform::audio::units {

Buffers::Buffers(const AudioStreamBasicDescription& format, UInt32 frames)
    : mFloatsAFrame(format.mBytesPerFrame / UInt32(sizeof(float))), mPointers(BufferCount(format))
{
    // A cache line between two channels: at multiples of 2 KiB from each other few of them fit the processor's cache.
    constexpr size_t kLine = 64 / sizeof(float);
    const size_t stride = (size_t{frames} * mFloatsAFrame + kLine - 1) / kLine * kLine + kLine;
    mSamples.resize(stride * mPointers.size());
    for (size_t i = 0; i < mPointers.size(); ++i) mPointers[i] = mSamples.data() + i * stride;

    mList.resize((offsetof(AudioBufferList, mBuffers) + mPointers.size() * sizeof(AudioBuffer)) / sizeof(uint64_t));
    auto* const list = new (mList.data()) AudioBufferList;
    list->mNumberBuffers = UInt32(mPointers.size());
}

AudioBufferList* Buffers::List(UInt32 first, UInt32 frames) noexcept
{
    auto* const list = reinterpret_cast<AudioBufferList*>(mList.data());
    for (size_t i = 0; i < mPointers.size(); ++i) {
        list->mBuffers[i] = {mFloatsAFrame, frames * mFloatsAFrame * UInt32(sizeof(float)),
                             mPointers[i] + size_t{first} * mFloatsAFrame};
    }
    return list;
}

void PointAt(const AudioBufferList& list, std::vector<float*>& channels) noexcept
{
    std::transform(list.mBuffers, list.mBuffers + channels.size(), channels.begin(),
                   [](const AudioBuffer& buffer) { return static_cast<float*>(buffer.mData); });
}

}  // namespace platform::audio::units
