#include "platform/vector/FrameQueue.h"

#include <algorithm>
#include <bit>

namespace platform::vector {

FrameQueue::FrameQueue(unsigned channels, size_t frames, size_t touchedFrames)
    : mChannels(channels),
      mMask(std::bit_ceil(std::max<size_t>(frames, 1)) - 1),
      mFrames(new float[(mMask + 1) * channels])
{
    std::fill_n(mFrames.get(), std::min(Capacity(), touchedFrames) * channels, 0.0F);
}

bool FrameQueue::Write(const float* samples, size_t frames) noexcept
{
    const uint64_t written = mWritten.load(std::memory_order_relaxed);  // our own
    const uint64_t read = mRead.load(std::memory_order_acquire);
    if (frames > Capacity() - (written - read)) return false;
    if (read == written) mBase.store(written, std::memory_order_relaxed);  // ordered by the release of mWritten below

    const size_t start = (written - mBase.load(std::memory_order_relaxed)) & mMask;
    const size_t first = std::min(frames, Capacity() - start);
    PutAt(start, samples, first);
    PutAt(0, samples ? samples + first * mChannels : nullptr, frames - first);
    mWritten.store(written + frames, std::memory_order_release);  // partner: the acquire in Ready
    return true;
}

size_t FrameQueue::Available() const noexcept
{
    // The reader's index first: whatever the other side does in between only makes the answer grow.
    const uint64_t read = mRead.load(std::memory_order_acquire);
    return std::min<uint64_t>(mWritten.load(std::memory_order_acquire) - read, Capacity());
}

size_t FrameQueue::Read(float* samples, size_t frames) noexcept
{
    const uint64_t read = mRead.load(std::memory_order_relaxed);  // our own
    frames = Ready(read, frames);

    const size_t start = (read - mBase.load(std::memory_order_relaxed)) & mMask;
    const size_t first = std::min(frames, Capacity() - start);
    const size_t rest = frames - first;
    std::copy_n(&mFrames[start * mChannels], first * mChannels, samples);
    std::copy_n(mFrames.get(), rest * mChannels, samples + first * mChannels);
    mRead.store(read + frames, std::memory_order_release);  // partner: the acquire in Write
    return frames;
}

size_t FrameQueue::Skip(size_t frames) noexcept
{
    const uint64_t read = mRead.load(std::memory_order_relaxed);  // our own
    frames = Ready(read, frames);
    mRead.store(read + frames, std::memory_order_release);  // partner: the acquire in Write
    return frames;
}

size_t FrameQueue::Ready(uint64_t read, size_t frames) const noexcept
{
    return std::min<uint64_t>(frames, mWritten.load(std::memory_order_acquire) - read);
}

void FrameQueue::PutAt(size_t start, const float* samples, size_t frames) noexcept
{
    float* place = mFrames.get() + start * mChannels;
    if (samples)
        std::copy_n(samples, frames * mChannels, place);
    else
        std::fill_n(place, frames * mChannels, 0.0f);
}

}  // namespace platform::vector
