// GapQueue: the gaps in a source's sample times, from the source's thread to the I/O thread.
// Why: a gap in the ring reads as silence, and a recording says which of its frames no source played.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace capture {

struct Gap {
    double mStart = 0;   // sample time of the first frame that did not come
    double mFrames = 0;  // of the source
};

class GapQueue {
public:
    /// Appends a gap; where there is no room it is forgotten. @thread the source's @realtime yes
    void Push(const Gap& gap) noexcept
    {
        const uint64_t written = mWritten.load(std::memory_order_relaxed);
        if (written - mRead.load(std::memory_order_acquire) >= kCapacity) return;
        mGaps[written % kCapacity] = gap;
        mWritten.store(written + 1, std::memory_order_release);
    }

    /// Takes the oldest gap out. @return whether there was one @thread the I/O thread @realtime yes
    bool Pop(Gap& gap) noexcept
    {
        const uint64_t read = mRead.load(std::memory_order_relaxed);
        if (mWritten.load(std::memory_order_acquire) == read) return false;
        gap = mGaps[read % kCapacity];
        mRead.store(read + 1, std::memory_order_release);
        return true;
    }

private:
    static constexpr size_t kCapacity = 256;
    std::array<Gap, kCapacity> mGaps{};
    std::atomic<uint64_t> mWritten{0};  // stored by the source's thread (release), loaded by the I/O thread (acquire)
    std::atomic<uint64_t> mRead{0};     // stored by the I/O thread (release), loaded by the source's thread (acquire)
};

}  // namespace capture
