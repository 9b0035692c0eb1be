#include "platform/machine/simulated/Signal.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform::machine::simulated {

Signal Tone(double frequencyHz, double amplitude, double rateHz)
{
    return [=](uint64_t frame, unsigned, std::span<float> samples) {
        for (float& sample : samples) {
            const double cycles = frequencyHz * static_cast<double>(frame++) / rateHz;
            sample = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * std::fmod(cycles, 1.0)));
        }
    };
}

Signal Counter()
{
    return [](uint64_t frame, unsigned channel, std::span<float> samples) {
        for (float& sample : samples) {
            const auto count = static_cast<float>(frame++ % kCounterPeriodFrames);
            sample = channel % 2 == 0 ? count : -count;
        }
    };
}

Signal Silence()
{
    return [](uint64_t, unsigned, std::span<float> samples) { std::ranges::fill(samples, 0.0f); };
}

}  // namespace platform::machine::simulated
