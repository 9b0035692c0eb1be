// PublishedStamp: one time stamp, handed once from the thread that has it to the thread that waits for it.
// Why: a source's thread takes no lock, and whoever aligns sources must never see half a stamp.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <atomic>

namespace capture {

class PublishedStamp {
public:
    /// Publishes `stamp`, unless one stands. @thread the writer @realtime yes
    void PublishOnce(const AudioTimeStamp& stamp) noexcept
    {
        if (mPublished.load(std::memory_order_acquire)) return;
        mStamp = stamp;
        mPublished.store(true, std::memory_order_release);
    }

    /// What was published; all zero where nothing is. @thread the reader, or the writer @realtime yes
    AudioTimeStamp Get() const noexcept
    {
        return mPublished.load(std::memory_order_acquire) ? mStamp : AudioTimeStamp{};
    }

    /// Lets the writer publish anew. @thread the reader @realtime yes
    void Withdraw() noexcept { mPublished.store(false, std::memory_order_release); }

private:
    AudioTimeStamp mStamp{};  // written by the writer while mPublished is false, read by the reader while it is true
    // Stored true by the writer, false by the reader (release); loaded by both (acquire).
    std::atomic<bool> mPublished{false};
};

}  // namespace capture
