// CAHostTimeBase: between host ticks and nanoseconds.
// Why: the host clock's unit belongs to the platform; nothing above takes it for nanoseconds.
// Conversions go through double precision: exact to 2^53 ns (104 days), 2^-53 relative beyond.
#pragma once

#include <atomic>
#include <cstdint>

class CAHostTimeBase {
public:
    /// Host time in ticks. @realtime yes, as all below
    static uint64_t GetCurrentTime() noexcept;
    static uint64_t GetCurrentTimeInNanos() noexcept;

    /// A result that 64 bits cannot hold becomes the greatest that they do.
    static uint64_t ConvertToNanos(uint64_t ticks) noexcept;
    static uint64_t ConvertFromNanos(uint64_t nanos) noexcept;

    /// Ticks a second.
    static double GetFrequency() noexcept;
    /// Seconds a tick.
    static double GetInverseFrequency() noexcept;
    /// The least number of ticks by which two readings differ.
    static uint32_t GetMinimumDelta() noexcept;

private:
    static void InitializeOnce() noexcept;
    static void Initialize() noexcept;

    // Stored by Initialize; two threads may run it at once, and then store the same values. sIsInited is stored last
    // (release) and loaded by all (acquire); the others are relaxed behind it.
    static std::atomic<bool> sIsInited;
    static std::atomic<bool> sUseMicroseconds;
    static std::atomic<double> sFrequency;
    static std::atomic<double> sInverseFrequency;
    static std::atomic<uint32_t> sMinDelta;
    static std::atomic<uint32_t> sToNanosNumerator;
    static std::atomic<uint32_t> sToNanosDenominator;
    static std::atomic<uint32_t> sFromNanosNumerator;
    static std::atomic<uint32_t> sFromNanosDenominator;
};
