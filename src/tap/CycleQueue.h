// CycleQueue: the stamps of the cycles whose frames lie in a lane's queue, from the server's data thread to the
// pacer, first in, first out.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tap {

/// What a cycle said of itself; see platform::machine::CaptureCycle.
struct CycleStamp {
    uint64_t mHostNanos;
    int64_t mSampleTime;
    uint32_t mRateHz;
    uint32_t mFrames;
    uint32_t mClockID;
    bool mResumed;

    int64_t EndTime() const noexcept { return mSampleTime + mFrames; }
};

class CycleQueue {
public:
    /// @thread the writer @realtime yes
    bool HasRoom() const noexcept
    {
        return mWritten.load(std::memory_order_relaxed) - mRead.load(std::memory_order_acquire) < kCapacity;
    }

    /// Appends one; there must be room. What was written before is seen by whoever takes the stamp.
    void Push(const CycleStamp& stamp) noexcept
    {
        const uint64_t written = mWritten.load(std::memory_order_relaxed);
        mStamps[written % kCapacity] = stamp;
        mWritten.store(written + 1, std::memory_order_release);
    }

    /// The oldest, or null; it stays until Pop. @thread the reader @realtime yes
    const CycleStamp* Front() const noexcept { return At(0); }
    /// The one after it, or null.
    const CycleStamp* Second() const noexcept { return At(1); }

    void Pop() noexcept { mRead.store(mRead.load(std::memory_order_relaxed) + 1, std::memory_order_release); }

private:
    const CycleStamp* At(uint64_t index) const noexcept
    {
        const uint64_t read = mRead.load(std::memory_order_relaxed);
        const bool there = mWritten.load(std::memory_order_acquire) - read > index;
        return there ? &mStamps[(read + index) % kCapacity] : nullptr;
    }

    static constexpr size_t kCapacity = 4096;  // 2.7 s of the shortest cycles that servers run, 32 frames at 48 kHz
    std::array<CycleStamp, kCapacity> mStamps{};
    alignas(64) std::atomic<uint64_t> mWritten{0};  // stored by the writer (release), loaded by the reader (acquire)
    alignas(64) std::atomic<uint64_t> mRead{0};     // stored by the reader (release), loaded by the writer (acquire)
};

}  // namespace tap
