// FrameQueue: interleaved float frames from one writer thread to one reader thread, first in, first out.
// Why: a server's data thread and a tap's consumer must never wait for whoever takes their frames on.
// What does not fit is refused, never overwritten; the writer counts it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::vector {

class FrameQueue {
public:
    /// Room for at least `frames` frames of `channels` floats. Allocates.
    ///
    /// A queue that is read empty begins at its first frame again, so that one that is seldom full uses little memory.
    ///
    /// @param touchedFrames  of the first ones the memory is touched, so that no page of them is missing in a cycle
    FrameQueue(unsigned channels, size_t frames, size_t touchedFrames = SIZE_MAX);

    unsigned Channels() const noexcept { return mChannels; }
    size_t Capacity() const noexcept { return mMask + 1; }

    /// Appends all of `frames`, or nothing where they do not fit.
    ///
    /// @param samples  interleaved; null appends silence
    /// @return         whether they fitted
    /// @thread         the writer
    /// @realtime       yes
    bool Write(const float* samples, size_t frames) noexcept;

    /// Frames ready to be read. @thread any; exact for the reader as a lower bound, for the writer as an upper
    size_t Available() const noexcept;

    /// Takes up to `frames` out. @return how many @thread the reader @realtime yes
    size_t Read(float* samples, size_t frames) noexcept;

    /// Drops up to `frames` at the reader's side. @return how many
    size_t Skip(size_t frames) noexcept;

private:
    size_t Ready(uint64_t read, size_t frames) const noexcept;
    void PutAt(size_t start, const float* samples, size_t frames) noexcept;

    unsigned mChannels;
    uint64_t mMask;
    std::unique_ptr<float[]> mFrames;
    // The count whose frame is the first of the memory. Stored by the writer while the queue is empty, before the count
    // that the reader then sees; loaded by the reader after it.
    std::atomic<uint64_t> mBase{0};
    alignas(64) std::atomic<uint64_t> mWritten{0};  // stored by the writer (release), loaded by the reader (acquire)
    alignas(64) std::atomic<uint64_t> mRead{0};     // stored by the reader (release), loaded by the writer (acquire)
};

}  // namespace platform::vector
