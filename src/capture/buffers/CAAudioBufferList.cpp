// Making and reading lists. What writes samples is in CAAudioBufferListSamples.cpp.
#include "capture/buffers/CAAudioBufferList.h"

#include "platform/kernel/Memory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Touched here, so that no real-time thread meets a fresh page.
void* AllocateSilence(size_t bytes)
{
    const size_t page = platform::kernel::vm_page_size();
    const size_t pages = std::max<size_t>(1, (bytes + page - 1) / page);
    void* const data = std::aligned_alloc(page, pages * page);
    if (data) std::memset(data, 0, pages * page);
    return data;
}

}  // namespace

const AudioBufferList CAAudioBufferList::sEmptyBufferList{};

UInt32 CAAudioBufferList::CalculateByteSize(UInt32 buffers) noexcept
{
    return static_cast<UInt32>(offsetof(AudioBufferList, mBuffers) + buffers * sizeof(AudioBuffer));
}

AudioBufferList* CAAudioBufferList::Create(UInt32 buffers)
{
    void* const memory = AllocateSilence(offsetof(AudioBufferList, mBuffers) + size_t{buffers} * sizeof(AudioBuffer));
    auto* const list = static_cast<AudioBufferList*>(memory);
    if (list) list->mNumberBuffers = buffers;
    return list;
}

AudioBufferList* CAAudioBufferList::Create(UInt32 buffers, UInt32 bytes)
{
    AudioBufferList* const list = Create(buffers);
    if (!list) return nullptr;
    AudioBuffer* const all = list->mBuffers;
    for (UInt32 index = 0; index < buffers; ++index) {
        all[index].mDataByteSize = bytes;
        all[index].mData = AllocateSilence(bytes);
    }
    return list;
}

AudioBufferList* CAAudioBufferList::Create(const AudioStreamBasicDescription* format, UInt32 frames)
{
    const bool split =
        format->mFormatID == kAudioFormatLinearPCM && (format->mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    const UInt32 buffers = split ? format->mChannelsPerFrame : 1;
    AudioBufferList* const list = frames == 0 ? Create(buffers) : Create(buffers, frames * format->mBytesPerFrame);
    if (!list) return nullptr;
    AudioBuffer* const all = list->mBuffers;
    for (UInt32 index = 0; index < buffers; ++index) all[index].mNumberChannels = split ? 1 : format->mChannelsPerFrame;
    return list;
}

void CAAudioBufferList::Destroy(AudioBufferList* list)
{
    std::free(list);
}

void CAAudioBufferList::Deallocate(AudioBufferList* list)
{
    if (!list) return;
    AudioBuffer* const all = list->mBuffers;
    for (UInt32 index = 0; index < list->mNumberBuffers; ++index) std::free(all[index].mData);
    Destroy(list);
}

UInt32 CAAudioBufferList::GetTotalNumberChannels(const AudioBufferList& list) noexcept
{
    UInt32 channels = 0;
    const AudioBuffer* const all = list.mBuffers;
    for (UInt32 index = 0; index < list.mNumberBuffers; ++index) channels += all[index].mNumberChannels;
    return channels;
}

bool CAAudioBufferList::GetBufferForChannel(const AudioBufferList& list, UInt32 channel, UInt32& bufferIndex,
                                            UInt32& channelInBuffer) noexcept
{
    const AudioBuffer* const all = list.mBuffers;
    for (UInt32 index = 0; index < list.mNumberBuffers; ++index) {
        if (channel < all[index].mNumberChannels) {
            bufferIndex = index;
            channelInBuffer = channel;
            return true;
        }
        channel -= all[index].mNumberChannels;
    }
    return false;
}

bool CAAudioBufferList::HasData(const AudioBufferList& list) noexcept
{
    const AudioBuffer* const all = list.mBuffers;
    for (UInt32 index = 0; index < list.mNumberBuffers; ++index) {
        const auto* const words = static_cast<const UInt32*>(all[index].mData);
        const UInt32 count = all[index].mDataByteSize / sizeof(UInt32);
        if (words && std::any_of(words, words + count, [](UInt32 word) { return word != 0; })) return true;
    }
    return false;
}

void CAAudioBufferList::DumpFloatSamples(const AudioBufferList* list, UInt32 first, UInt32 count)
{
    const AudioBuffer* const all = list->mBuffers;
    for (UInt32 index = 0; index < list->mNumberBuffers; ++index) {
        const auto* const samples = static_cast<const float*>(all[index].mData);
        const UInt32 held = samples ? all[index].mDataByteSize / UInt32(sizeof(float)) : 0;
        std::printf("buffer %u:", index);
        for (UInt32 at = first; at < held && at - first < count; ++at) std::printf(" %g", double(samples[at]));
        std::printf("\n");
    }
}
