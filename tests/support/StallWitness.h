// StallWitness: whether the machine stood still for longer than a server's cycle, as a thread of its own sees it.
// Why: what a server and its applications make of such a moment is no reference for what a recorder should have.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace support {

class StallWitness {
public:
    ~StallWitness()
    {
        mStop.store(true, std::memory_order_relaxed);
        mThread.join();
    }
    /// Since it was made.
    bool MachineStoodStill() const { return mStoodStill.load(std::memory_order_relaxed); }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kLook{5}, kCycle{20};

    void Look()
    {
        while (!mStop.load(std::memory_order_relaxed)) {
            const auto before = Clock::now();
            std::this_thread::sleep_for(kLook);
            if (Clock::now() - before > kLook + kCycle) mStoodStill.store(true, std::memory_order_relaxed);
        }
    }

    std::atomic<bool> mStop{false}, mStoodStill{false};
    std::thread mThread{[this] { Look(); }};
};

}  // namespace support
