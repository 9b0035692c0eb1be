// CaptureRecorder: keeps what a capture brings, until a test looks.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace desktop {

using platform::machine::CaptureCycle;
using platform::machine::ChannelPosition;

class CaptureRecorder final : public platform::machine::CaptureClient {
public:
    struct Stamp {
        uint64_t mHostNanos;
        int64_t mSampleTime;
        uint32_t mRateHz, mFrames, mClockID;
    };

    // The real thing may not lock here; a test that misses a cycle by that would only fail itself.
    void Render(const CaptureCycle& cycle) noexcept override
    {
        const platform::kernel::RealtimeExemption exemption("a test keeps what it hears");
        const std::lock_guard guard(mMutex);
        mStamps.push_back({cycle.mHostNanos, cycle.mSampleTime, cycle.mRateHz, cycle.mFrames, cycle.mClockID});
        for (const auto& channel : cycle.mChannels) {
            auto& samples = mSamples[channel.mPosition];
            samples.insert(samples.end(), channel.mSamples, channel.mSamples + cycle.mFrames);
        }
        mCondition.notify_all();
    }

    /// Forgets what came; whether that many frames come at `position` within ten seconds.
    bool Records(size_t frames, ChannelPosition position = ChannelPosition::FrontLeft)
    {
        std::unique_lock guard(mMutex);
        mSamples.clear();
        mStamps.clear();
        return WaitFor(guard, [&] { return mSamples[position].size() >= frames; });
    }

    /// Whether that many frames have come since the last Records, or come within ten seconds.
    bool HasRecorded(size_t frames, ChannelPosition position = ChannelPosition::FrontLeft)
    {
        std::unique_lock guard(mMutex);
        return WaitFor(guard, [&] { return mSamples[position].size() >= frames; });
    }

    /// Whether sound, or silence, comes at `position` within ten seconds.
    bool Hears(ChannelPosition position, bool sound)
    {
        std::unique_lock guard(mMutex);
        const auto& samples = mSamples[position];
        return WaitFor(guard, [&] { return !samples.empty() && (samples.back() != 0) == sound; });
    }

    /// Whether a cycle comes of which `condition` holds, within ten seconds.
    template <typename Condition>
    bool Meets(Condition condition)
    {
        std::unique_lock guard(mMutex);
        return WaitFor(guard, [&] { return !mStamps.empty() && condition(mStamps.back()); });
    }

    std::vector<float> Samples(ChannelPosition position)
    {
        const std::lock_guard guard(mMutex);
        return mSamples[position];
    }

    std::vector<Stamp> Stamps()
    {
        const std::lock_guard guard(mMutex);
        return mStamps;
    }

private:
    template <typename Condition>
    bool WaitFor(std::unique_lock<std::mutex>& guard, Condition condition)
    {
        return mCondition.wait_for(guard, std::chrono::seconds(10), condition);
    }

    std::mutex mMutex;
    std::condition_variable mCondition;
    std::map<ChannelPosition, std::vector<float>> mSamples;
    std::vector<Stamp> mStamps;
};

}  // namespace desktop
