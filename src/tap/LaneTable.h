// LaneTable: a tap's lanes. The control thread adds lanes while the pacer goes through them.
// Why: an output device that appears while a tap runs gets a lane of its own, and the pacer takes no lock.
#pragma once

#include "tap/Lane.h"

#include <array>
#include <atomic>
#include <memory>
#include <span>

namespace tap {

class LaneTable {
public:
    static constexpr size_t kMostLanes = 64;

    /// Appends a lane, which stays until the table goes. There must be room. @thread control, one at a time
    Lane& Add(std::unique_ptr<Lane> lane)
    {
        const size_t count = mCount.load(std::memory_order_relaxed);
        mLanes.at(count) = std::move(lane);
        mCount.store(count + 1, std::memory_order_release);
        return *mLanes[count];
    }

    bool HasRoom() const noexcept { return mCount.load(std::memory_order_relaxed) < kMostLanes; }

    /// The lanes there are now, in the order of adding. @thread any @realtime yes
    std::span<const std::unique_ptr<Lane>> All() const noexcept
    {
        return std::span(mLanes).first(mCount.load(std::memory_order_acquire));
    }

private:
    std::array<std::unique_ptr<Lane>, kMostLanes> mLanes;
    std::atomic<size_t> mCount{0};  // stored by control (release), loaded by the pacer (acquire)
};

}  // namespace tap
