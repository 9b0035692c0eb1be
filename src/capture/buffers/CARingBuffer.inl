// The ring's code, over any memory. Included by CARingBuffer.cpp, and by the tests that explore weak memory.
#pragma once

#include "capture/buffers/CARingBuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

template <class Memory>
void BasicRingBuffer<Memory>::Allocate(int channels, uint32_t bytesPerFrame, uint32_t frames)
{
    Deallocate();
    const unsigned power = frames == 1 ? 0 : (32u - static_cast<unsigned>(std::countl_zero(frames - 1))) & 31u;
    const uint32_t capacityBytes = bytesPerFrame << power;
    const auto count = static_cast<size_t>(channels);
    const size_t blockBytes = (capacityBytes + sizeof(std::byte*)) * count;
    auto* const block = static_cast<std::byte*>(::operator new(blockBytes));
    std::memset(block, 0, blockBytes);
    mChannelPointers = reinterpret_cast<std::byte**>(block);
    std::byte* const samples = block + sizeof(std::byte*) * count;
    for (size_t channel = 0; channel < count; ++channel) mChannelPointers[channel] = samples + channel * capacityBytes;
    mNumberChannels = channels;
    mBytesPerFrame = bytesPerFrame;
    mCapacityFrames = uint32_t{1} << power;
    mCapacityFramesMask = mCapacityFrames - 1;
    mCapacityBytes = capacityBytes;
    mSilenceFrames =
        static_cast<uint32_t>(std::max<size_t>(1, kSilenceBytes / std::max<size_t>(1, count * bytesPerFrame)));
    mGap = {};
    Reset();
}

template <class Memory>
void BasicRingBuffer<Memory>::Deallocate()
{
    ::operator delete(mChannelPointers);
    mChannelPointers = nullptr;
    mNumberChannels = 0;
    mBytesPerFrame = mCapacityFrames = mCapacityFramesMask = mCapacityBytes = 0;
}

template <class Memory>
void BasicRingBuffer<Memory>::Reset() noexcept
{
    for (TimeBounds& bounds : mTimeBoundsQueue) {
        bounds.mUpdateCounter.store(0, std::memory_order_relaxed);
        bounds.mStartTime.store(0, std::memory_order_release);
        bounds.mEndTime.store(0, std::memory_order_release);
    }
    mTimeBoundsQueuePtr.store(0, std::memory_order_release);
}

template <class Memory>
void BasicRingBuffer<Memory>::SetTimeBounds(int64_t start, int64_t end) noexcept
{
    const uint32_t next = mTimeBoundsQueuePtr.load(std::memory_order_relaxed) + 1;
    TimeBounds& bounds = mTimeBoundsQueue[next & kQueueMask];
    bounds.mUpdateCounter.store(next, std::memory_order_relaxed);
    bounds.mStartTime.store(start, std::memory_order_release);
    bounds.mEndTime.store(end, std::memory_order_release);
    mTimeBoundsQueuePtr.store(next, std::memory_order_release);
}

template <class Memory>
int BasicRingBuffer<Memory>::GetTimeBounds(int64_t& start, int64_t& end) const noexcept
{
    const uint32_t current = mTimeBoundsQueuePtr.load(std::memory_order_acquire);
    const TimeBounds& bounds = mTimeBoundsQueue[current & kQueueMask];
    for (int tries = 0; tries < kReadTries; ++tries) {
        start = bounds.mStartTime.load(std::memory_order_acquire);
        end = bounds.mEndTime.load(std::memory_order_acquire);
        if (bounds.mUpdateCounter.load(std::memory_order_relaxed) == current) return RingOK;
    }
    return RingCPUOverload;
}

template <class Memory>
int BasicRingBuffer<Memory>::CheckTimeBounds(int64_t startRead, int64_t endRead) const noexcept
{
    int64_t start, end;
    if (const int status = GetTimeBounds(start, end)) return status;
    if (startRead >= start) {
        if (endRead <= end) return RingOK;
        return startRead <= end ? RingSlightlyAhead : RingWayAhead;
    }
    if (endRead > end) return RingTooMuch;
    return endRead >= start ? RingSlightlyBehind : RingWayBehind;
}

template <class Memory>
int BasicRingBuffer<Memory>::Store(const AudioBufferList* list, uint32_t frames, int64_t startWrite) noexcept
{
    if (frames > mCapacityFrames) return RingTooMuch;
    const int64_t endWrite = startWrite + frames;
    const bool goesOn = HasOpenGap() && startWrite == mGap.mStoredEnd;
    if (HasOpenGap() && startWrite > mGap.mStoredEnd) CloseGap();
    if (HasOpenGap() && startWrite < mGap.mStoredEnd) SetTimeBounds(startWrite, startWrite);
    GiveUpWhatIsOverwritten(startWrite, endWrite);
    const int64_t gapEnd = goesOn ? mGap.mEnd : startWrite;
    if (IsEmpty() && gapEnd - mSilenceFrames > WritersBounds().mEndTime.load(std::memory_order_relaxed))
        SetTimeBounds(gapEnd - mSilenceFrames, gapEnd - mSilenceFrames);
    const int64_t silenced = SilenceUpTo(gapEnd, mSilenceFrames);
    if (frames != 0) CopyIn(*list, PiecesOf(startWrite, endWrite));
    const int64_t end = silenced < gapEnd ? silenced : endWrite;
    mGap = {end, gapEnd, endWrite};
    SetTimeBounds(WritersBounds().mStartTime.load(std::memory_order_relaxed), end);
    return RingOK;
}

template <class Memory>
bool BasicRingBuffer<Memory>::IsEmpty() const noexcept
{
    const TimeBounds& bounds = WritersBounds();
    return bounds.mStartTime.load(std::memory_order_relaxed) == bounds.mEndTime.load(std::memory_order_relaxed);
}

template <class Memory>
bool BasicRingBuffer<Memory>::HasOpenGap() const noexcept
{
    return mGap.mSilencedEnd < mGap.mEnd &&
           mGap.mSilencedEnd == WritersBounds().mEndTime.load(std::memory_order_relaxed);
}

/// Silences at once what is left, for one gap is all that is remembered.
template <class Memory>
void BasicRingBuffer<Memory>::CloseGap() noexcept
{
    SilenceUpTo(mGap.mEnd, mCapacityFrames);
    SetTimeBounds(WritersBounds().mStartTime.load(std::memory_order_relaxed), mGap.mStoredEnd);
}

/// Silences from the end of the span on. @return how far that came, `end` where all is silenced
template <class Memory>
int64_t BasicRingBuffer<Memory>::SilenceUpTo(int64_t end, int64_t mostFrames) noexcept
{
    const int64_t from = WritersBounds().mEndTime.load(std::memory_order_relaxed);
    if (from >= end) return end;
    const int64_t to = std::min(end, from + mostFrames);
    Silence(from, to);
    return to;
}

template <class Memory>
int BasicRingBuffer<Memory>::Fetch(AudioBufferList* list, uint32_t frames, int64_t startRead, bool) noexcept
{
    const int64_t endRead = startRead + frames;
    if (const int status = CheckTimeBounds(startRead, endRead)) return status;
    if (frames != 0) CopyOut(*list, PiecesOf(startRead, endRead));
    Memory::Fence(std::memory_order_acquire);  // partner: the release fence in GiveUpWhatIsOverwritten
    return CheckTimeBounds(startRead, endRead);
}

// Publishes the span without what the coming store overwrites, before any byte of it is touched.
template <class Memory>
void BasicRingBuffer<Memory>::GiveUpWhatIsOverwritten(int64_t startWrite, int64_t endWrite) noexcept
{
    const TimeBounds& bounds = WritersBounds();
    const int64_t start = bounds.mStartTime.load(std::memory_order_relaxed);
    const int64_t end = bounds.mEndTime.load(std::memory_order_relaxed);
    if (startWrite < end) {
        SetTimeBounds(startWrite, startWrite);
    } else if (endWrite - start > mCapacityFrames) {
        const int64_t newStart = endWrite - mCapacityFrames;
        SetTimeBounds(newStart, std::max(newStart, end));
    }
    Memory::Fence(std::memory_order_release);  // partner: the acquire fence in Fetch
}

template <class Memory>
const typename BasicRingBuffer<Memory>::TimeBounds& BasicRingBuffer<Memory>::WritersBounds() const noexcept
{
    return mTimeBoundsQueue[mTimeBoundsQueuePtr.load(std::memory_order_relaxed) & kQueueMask];
}

template <class Memory>
uint32_t BasicRingBuffer<Memory>::OffsetOf(int64_t time) const noexcept
{
    return (static_cast<uint32_t>(time) & mCapacityFramesMask) * mBytesPerFrame;
}

// A span that is not empty. Equal offsets at both ends are the whole ring.
template <class Memory>
typename BasicRingBuffer<Memory>::Pieces BasicRingBuffer<Memory>::PiecesOf(int64_t start, int64_t end) const noexcept
{
    const uint32_t from = OffsetOf(start);
    const uint32_t to = OffsetOf(end);
    if (from < to) return {{from, to - from}, {0, 0}};
    return {{from, mCapacityBytes - from}, {0, to}};
}

template <class Memory>
void BasicRingBuffer<Memory>::Silence(int64_t start, int64_t end) noexcept
{
    const auto [first, second] = PiecesOf(start, end);
    for (int channel = 0; channel < mNumberChannels; ++channel) {
        Memory::Silence(mChannelPointers[channel] + first.mOffset, first.mBytes);
        if (second.mBytes) Memory::Silence(mChannelPointers[channel], second.mBytes);
    }
}

template <class Memory>
void BasicRingBuffer<Memory>::CopyIn(const AudioBufferList& list, const Pieces& pieces) noexcept
{
    const auto [first, second] = pieces;
    const AudioBuffer* const buffers = list.mBuffers;
    for (uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
        const auto* const from = static_cast<const std::byte*>(buffers[channel].mData);
        Memory::CopyIn(mChannelPointers[channel] + first.mOffset, from, first.mBytes);
        if (second.mBytes) Memory::CopyIn(mChannelPointers[channel], from + first.mBytes, second.mBytes);
    }
}

template <class Memory>
void BasicRingBuffer<Memory>::CopyOut(AudioBufferList& list, const Pieces& pieces) const noexcept
{
    const auto [first, second] = pieces;
    const AudioBuffer* const buffers = list.mBuffers;
    for (uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
        auto* const to = static_cast<std::byte*>(buffers[channel].mData);
        Memory::CopyOut(to, mChannelPointers[channel] + first.mOffset, first.mBytes);
        if (second.mBytes) Memory::CopyOut(to + first.mBytes, mChannelPointers[channel], second.mBytes);
    }
}
