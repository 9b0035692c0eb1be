// Signal: what a simulated application plays, or an input hears, as a function of the frame or of its moment.
// Why: what is a function of host time is the same sound in every source at once, whatever their clocks; one
// oracle then compares them all.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace platform::machine::simulated {

/// Frames that follow on each other, as they truly happen: late stamps do not show here, the crystal does.
struct Stretch {
    uint64_t mFirstFrame = 0;  // counted by the source
    double mSeconds = 0;       // moment of that frame, in host time since the scenario's start
    double mFrameSeconds = 0;  // from one frame to the next
};

/// Fills `samples` with the frames of `stretch` of one channel. Called on the data thread.
using Signal = std::function<void(const Stretch& stretch, unsigned channel, std::span<float> samples)>;

/// What `signal` gives for `stretch`, `frames` long, in each of so many channels.
void Fill(std::vector<std::vector<float>>& samples, const Signal& signal, const Stretch& stretch, size_t channels,
          unsigned frames);

/// The same sine in every channel, by the frame.
Signal Tone(double frequencyHz, double amplitude = 0.5, double rateHz = 48'000);

/// A cosine of host time; in odd channels the sine. Two channels together tell the moment of each of their frames.
Signal HostTone(double frequencyHz, double amplitude = 0.5);

/// A click a millisecond wide around each whole multiple of `periodSeconds` of host time.
Signal HostClicks(double periodSeconds = 1, double amplitude = 0.5);

/// The frame's index modulo 2^23, exact in a float; negated in odd channels. What was lost, doubled or swapped
/// on the way is found by subtraction.
Signal Counter();
constexpr uint64_t kCounterPeriodFrames = uint64_t{1} << 23;

Signal Silence();

}  // namespace platform::machine::simulated
