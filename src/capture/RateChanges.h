// RateChanges: the rate scalars that a source had, by how far its sound had come when each began to hold.
// Why: a silent cycle plays nothing. What is played after it is played that much later, and so has to run at the speeds
// that were meant for it, or what a clock pays back during the silence is never played.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace capture {

class RateChanges {
public:
    /// Notes the scalar as of the buffer that ends at `sampleTime`. @thread the writer, one at a time @realtime yes
    void Note(double sampleTime, double scalar) noexcept
    {
        const size_t count = mCount.load(std::memory_order_relaxed);
        if (count != 0 && EntryOf(count - 1).mScalar.load(std::memory_order_relaxed) == scalar) return;
        EntryOf(count).mSampleTime.store(sampleTime, std::memory_order_relaxed);
        EntryOf(count).mScalar.store(scalar, std::memory_order_relaxed);
        mCount.store(count + 1, std::memory_order_release);
    }

    /// The scalar that held when the sound had come to `sampleTime`; beyond what is remembered the oldest; `otherwise`
    /// where none was noted. @thread any @realtime yes
    double At(double sampleTime, double otherwise) const noexcept
    {
        const size_t count = mCount.load(std::memory_order_acquire);
        double scalar = otherwise;
        for (size_t back = 1; back <= count && back <= kReadable; ++back) {
            const Entry& entry = EntryOf(count - back);
            scalar = entry.mScalar.load(std::memory_order_relaxed);
            if (entry.mSampleTime.load(std::memory_order_relaxed) <= sampleTime) break;
        }
        return scalar;
    }

private:
    // A clock changes its rate about once a second, and rings hold less than three.
    static constexpr size_t kEntries = 32;
    static constexpr size_t kReadable = 16;  // the writer is that many changes away from what a reader looks at

    // Stored by the writer, loaded by readers (relaxed: the count orders them).
    struct Entry {
        std::atomic<double> mSampleTime{0};
        std::atomic<double> mScalar{0};
    };
    Entry& EntryOf(size_t index) noexcept { return mEntries[index % kEntries]; }
    const Entry& EntryOf(size_t index) const noexcept { return mEntries[index % kEntries]; }

    std::array<Entry, kEntries> mEntries;
    std::atomic<size_t> mCount{0};  // stored by the writer (release), loaded by readers (acquire)
};

}  // namespace capture
