#include "utility/CAHostTimeBase.h"

#include "platform/kernel/HostTime.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr double kTwo63 = 9223372036854775808.0;
constexpr uint64_t kTopBit = uint64_t{1} << 63;

// The processor converts signed integers only, so the upper half of the range goes through an offset.
uint64_t ToUnsigned(double value) noexcept
{
    if (value < kTwo63) return static_cast<uint64_t>(static_cast<int64_t>(value));
    if (value >= 2 * kTwo63) return UINT64_MAX;
    return static_cast<uint64_t>(static_cast<int64_t>(value - kTwo63)) | kTopBit;
}

uint64_t Scale(uint64_t value, uint32_t numerator, uint32_t denominator) noexcept
{
    return ToUnsigned(static_cast<double>(value) / denominator * numerator);
}

}  // namespace

std::atomic<bool> CAHostTimeBase::sIsInited{false};
std::atomic<bool> CAHostTimeBase::sUseMicroseconds{false};
std::atomic<double> CAHostTimeBase::sFrequency{0};
std::atomic<double> CAHostTimeBase::sInverseFrequency{0};
std::atomic<uint32_t> CAHostTimeBase::sMinDelta{0};
std::atomic<uint32_t> CAHostTimeBase::sToNanosNumerator{0};
std::atomic<uint32_t> CAHostTimeBase::sToNanosDenominator{0};
std::atomic<uint32_t> CAHostTimeBase::sFromNanosNumerator{0};
std::atomic<uint32_t> CAHostTimeBase::sFromNanosDenominator{0};

uint64_t CAHostTimeBase::GetCurrentTime() noexcept
{
    return mach_absolute_time();
}

uint64_t CAHostTimeBase::GetCurrentTimeInNanos() noexcept
{
    return ConvertToNanos(mach_absolute_time());
}

uint64_t CAHostTimeBase::ConvertToNanos(uint64_t ticks) noexcept
{
    InitializeOnce();
    return Scale(ticks, sToNanosNumerator.load(kRelaxed), sToNanosDenominator.load(kRelaxed));
}

uint64_t CAHostTimeBase::ConvertFromNanos(uint64_t nanos) noexcept
{
    InitializeOnce();
    return Scale(nanos, sFromNanosNumerator.load(kRelaxed), sFromNanosDenominator.load(kRelaxed));
}

double CAHostTimeBase::GetFrequency() noexcept
{
    InitializeOnce();
    return sFrequency.load(kRelaxed);
}

double CAHostTimeBase::GetInverseFrequency() noexcept
{
    InitializeOnce();
    return sInverseFrequency.load(kRelaxed);
}

uint32_t CAHostTimeBase::GetMinimumDelta() noexcept
{
    InitializeOnce();
    return sMinDelta.load(kRelaxed);
}

void CAHostTimeBase::InitializeOnce() noexcept
{
    if (!sIsInited.load(std::memory_order_acquire)) Initialize();
}

void CAHostTimeBase::Initialize() noexcept
{
    mach_timebase_info_data_t info{};
    mach_timebase_info(&info);  // has no way to fail
    sToNanosNumerator.store(info.numer, kRelaxed);
    sToNanosDenominator.store(info.denom, kRelaxed);
    sFromNanosNumerator.store(info.denom, kRelaxed);
    sFromNanosDenominator.store(info.numer, kRelaxed);
    const double frequency = static_cast<double>(info.denom) / info.numer * 1'000'000'000.0;
    sFrequency.store(frequency, kRelaxed);
    sInverseFrequency.store(1.0 / frequency, kRelaxed);
    sMinDelta.store(1, kRelaxed);
    sIsInited.store(true, std::memory_order_release);
}
