// What writes samples: clearing, copying, summing, clipping and weaving.
#include "capture/buffers/CAAudioBufferList.h"
#include "platform/vector/VectorKernels.h"

#include <algorithm>
#include <cstring>

namespace vector = platform::vector;

namespace {

UInt32 SamplesOf(const AudioBuffer& buffer) noexcept
{
    return buffer.mDataByteSize / UInt32(sizeof(float));
}

UInt32 FramesOf(const AudioBuffer& buffer) noexcept
{
    return buffer.mNumberChannels ? SamplesOf(buffer) / buffer.mNumberChannels : 0;
}

float* Samples(const AudioBuffer& buffer) noexcept
{
    return static_cast<float*>(buffer.mData);
}

UInt32 FramesOf(const AudioBufferList& list) noexcept
{
    const UInt32 channels = CAAudioBufferList::GetTotalNumberChannels(list);
    if (channels == 0) return 0;
    UInt32 samples = 0;
    const AudioBuffer* const all = list.mBuffers;
    for (UInt32 index = 0; index < list.mNumberBuffers; ++index) samples += SamplesOf(all[index]);
    return samples / channels;
}

// `frames` frames of a buffer, from its frame `first` on.
AudioBuffer Part(const AudioBuffer& buffer, UInt32 first, UInt32 frames) noexcept
{
    const UInt32 channels = buffer.mNumberChannels;
    return {channels, frames * channels * UInt32(sizeof(float)), Samples(buffer) + size_t{first} * channels};
}

bool HaveOneLayout(const AudioBufferList& a, const AudioBufferList& b) noexcept
{
    const AudioBuffer* const left = a.mBuffers;
    const AudioBuffer* const right = b.mBuffers;
    return std::equal(left, left + a.mNumberBuffers, right, right + b.mNumberBuffers,
                      [](const auto& x, const auto& y) { return x.mNumberChannels == y.mNumberChannels; });
}

// The work on one channel of both lists at a time, as many as both have.
template <typename Work>
void ForEachChannel(const AudioBufferList& from, const AudioBufferList& to, Work work) noexcept
{
    const AudioBuffer* const sources = from.mBuffers;
    const AudioBuffer* const targets = to.mBuffers;
    UInt32 source = 0, sourceChannel = 0, target = 0, targetChannel = 0;
    for (UInt32 channel = 0; CAAudioBufferList::GetBufferForChannel(from, channel, source, sourceChannel) &&
                             CAAudioBufferList::GetBufferForChannel(to, channel, target, targetChannel);
         ++channel)
        work(sources[source], sourceChannel, targets[target], targetChannel);
}

// The work on a few mono buffers at a time, with the number of the first.
template <typename Pointer, typename Work>
void ForEachGroup(const AudioBufferList& mono, Work work) noexcept
{
    const AudioBuffer* const all = mono.mBuffers;
    Pointer group[vector::kWeaveChannels];
    for (UInt32 first = 0; first < mono.mNumberBuffers; first += vector::kWeaveChannels) {
        const UInt32 count = std::min(mono.mNumberBuffers - first, vector::kWeaveChannels);
        for (UInt32 index = 0; index < count; ++index) group[index] = Samples(all[first + index]);
        work(group, count, first);
    }
}

}  // namespace

void CAAudioBufferList::Clear(AudioBufferList& list) noexcept
{
    AudioBuffer* const all = list.mBuffers;
    for (UInt32 index = 0; index < list.mNumberBuffers; ++index)
        if (all[index].mData) std::memset(all[index].mData, 0, all[index].mDataByteSize);
}

void CAAudioBufferList::CopyChannel(const AudioBuffer& from, UInt32 fromChannel, AudioBuffer& to,
                                    UInt32 toChannel) noexcept
{
    const UInt32 frames = std::min(FramesOf(from), FramesOf(to));
    const float* source = Samples(from) + fromChannel;
    float* target = Samples(to) + toChannel;
    for (UInt32 frame = 0; frame < frames; ++frame)
        target[size_t{frame} * to.mNumberChannels] = source[size_t{frame} * from.mNumberChannels];
}

void CAAudioBufferList::Copy(const AudioBufferList& from, UInt32 fromFrame, AudioBufferList& to,
                             UInt32 toFrame) noexcept
{
    const UInt32 sourceFrames = FramesOf(from);
    const UInt32 targetFrames = FramesOf(to);
    if (fromFrame >= sourceFrames || toFrame >= targetFrames) return;
    const UInt32 frames = std::min(sourceFrames - fromFrame, targetFrames - toFrame);
    if (HaveOneLayout(from, to)) {
        const AudioBuffer* const sources = from.mBuffers;
        const AudioBuffer* const targets = to.mBuffers;
        for (UInt32 index = 0; index < from.mNumberBuffers; ++index) {
            const AudioBuffer source = Part(sources[index], fromFrame, frames);
            std::memmove(Part(targets[index], toFrame, frames).mData, source.mData, source.mDataByteSize);
        }
        return;
    }
    ForEachChannel(
        from, to,
        [=](const AudioBuffer& source, UInt32 sourceChannel, const AudioBuffer& target, UInt32 targetChannel) {
            AudioBuffer part = Part(target, toFrame, frames);
            CopyChannel(Part(source, fromFrame, frames), sourceChannel, part, targetChannel);
        });
}

void CAAudioBufferList::Sum(const AudioBufferList& a, const AudioBufferList& b, AudioBufferList& out) noexcept
{
    const AudioBuffer* const left = a.mBuffers;
    const AudioBuffer* const right = b.mBuffers;
    const AudioBuffer* const sums = out.mBuffers;
    for (UInt32 index = 0; index < out.mNumberBuffers; ++index)
        vDSP_vadd(Samples(left[index]), 1, Samples(right[index]), 1, Samples(sums[index]), 1, SamplesOf(sums[index]));
}

void CAAudioBufferList::Sum(const AudioBufferList& from, AudioBufferList& to) noexcept
{
    ForEachChannel(
        from, to, [](const AudioBuffer& source, UInt32 sourceChannel, const AudioBuffer& target, UInt32 targetChannel) {
            float* const sum = Samples(target) + targetChannel;
            vDSP_vadd(Samples(source) + sourceChannel, source.mNumberChannels, sum, target.mNumberChannels, sum,
                      target.mNumberChannels, std::min(FramesOf(source), FramesOf(target)));
        });
}

void CAAudioBufferList::MultipliedSum(float scale, const AudioBufferList& a, const AudioBufferList& b,
                                      AudioBufferList& out) noexcept
{
    const AudioBuffer* const left = a.mBuffers;
    const AudioBuffer* const right = b.mBuffers;
    const AudioBuffer* const sums = out.mBuffers;
    for (UInt32 index = 0; index < out.mNumberBuffers; ++index)
        vDSP_vsma(Samples(left[index]), 1, &scale, Samples(right[index]), 1, Samples(sums[index]), 1,
                  SamplesOf(sums[index]));
}

uint64_t CAAudioBufferList::Clip(float low, float high, const AudioBufferList& from, AudioBufferList& to) noexcept
{
    const AudioBuffer* const sources = from.mBuffers;
    const AudioBuffer* const targets = to.mBuffers;
    uint64_t cut = 0;
    for (UInt32 index = 0; index < to.mNumberBuffers; ++index)
        cut += vector::ClipCounting(Samples(sources[index]), low, high, Samples(targets[index]),
                                    SamplesOf(targets[index]));
    return cut;
}

void CAAudioBufferList::Interleave(const AudioBufferList* from, AudioBufferList* to) noexcept
{
    const UInt32 channels = from->mNumberBuffers;
    if (channels == 0) return;
    float* const woven = Samples(to->mBuffers[0]);
    const UInt32 frames = SamplesOf(from->mBuffers[0]);
    ForEachGroup<const float*>(*from, [=](const float* const* group, UInt32 count, UInt32 first) {
        vector::Interleave(group, count, woven + first, channels, frames);
    });
}

void CAAudioBufferList::Deinterleave(const AudioBufferList* from, AudioBufferList* to) noexcept
{
    const UInt32 channels = to->mNumberBuffers;
    if (channels == 0) return;
    const float* const woven = Samples(from->mBuffers[0]);
    const UInt32 frames = SamplesOf(to->mBuffers[0]);
    ForEachGroup<float*>(*to, [=](float* const* group, UInt32 count, UInt32 first) {
        vector::Deinterleave(woven + first, channels, group, count, frames);
    });
}
