// PublishedReading: the latest reading of a clock, from one thread to any, with no lock on either side.
// Why more than one place: whoever reads on a thread that must not wait always finds a whole reading, also where the
// writer was interrupted amid the next one.
#pragma once

#include "platform/audio/DeviceClock.h"

#include <array>
#include <atomic>

namespace platform::audio {

class PublishedReading {
public:
    /// @thread one at a time, as Withdraw @realtime yes
    void Publish(const ClockReading& reading) noexcept
    {
        const uint64_t number = mNewest.load(std::memory_order_relaxed) + 1;
        mPlaces[number % kPlaces].Store(reading);
        mNewest.store(number, std::memory_order_release);
    }

    /// There is no reading until the next is published.
    void Withdraw() noexcept { Publish({}); }

    /// @thread any @realtime yes: tries again only where several readings were published meanwhile
    std::optional<ClockReading> Read() const noexcept
    {
        for (;;) {
            const uint64_t number = mNewest.load(std::memory_order_acquire);
            const ClockReading reading = mPlaces[number % kPlaces].Load();
            // The place is written anew only after the last number before number + kPlaces was published.
            if (mNewest.load(std::memory_order_relaxed) - number >= kPlaces - 1) continue;
            return reading.mFramesANano > 0 ? std::optional(reading) : std::nullopt;
        }
    }

private:
    static constexpr uint64_t kPlaces = 4;

    // Stored by the publisher (release), loaded by readers (acquire): who sees a value also sees the number that was
    // published before it.
    struct Place {
        std::atomic<double> mSampleTime, mFramesANano, mRateScalar;
        std::atomic<uint64_t> mHostNanos;

        void Store(const ClockReading& reading) noexcept
        {
            mSampleTime.store(reading.mSampleTime, std::memory_order_release);
            mHostNanos.store(reading.mHostNanos, std::memory_order_release);
            mFramesANano.store(reading.mFramesANano, std::memory_order_release);
            mRateScalar.store(reading.mRateScalar, std::memory_order_release);
        }
        ClockReading Load() const noexcept
        {
            return {mSampleTime.load(std::memory_order_acquire), mHostNanos.load(std::memory_order_acquire),
                    mFramesANano.load(std::memory_order_acquire), mRateScalar.load(std::memory_order_acquire)};
        }
    };

    std::array<Place, kPlaces> mPlaces{};
    std::atomic<uint64_t> mNewest{0};  // stored by Publish (release), loaded by Read (acquire)
};

}  // namespace platform::audio
