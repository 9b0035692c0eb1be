// Signal: what a simulated application plays, as a function of the frame.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace platform::machine::simulated {

/// Fills `samples` with the frames from `firstFrame` on of one channel. Called on the data thread.
using Signal = std::function<void(uint64_t firstFrame, unsigned channel, std::span<float> samples)>;

/// The same sine in every channel.
Signal Tone(double frequencyHz, double amplitude = 0.5, double rateHz = 48'000);

/// The frame's index modulo 2^23, exact in a float; negated in odd channels. What was lost, doubled or swapped
/// on the way is found by subtraction.
Signal Counter();
constexpr uint64_t kCounterPeriodFrames = uint64_t{1} << 23;

Signal Silence();

}  // namespace platform::machine::simulated
