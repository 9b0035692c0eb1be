#include "platform/machine/simulated/Signal.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace platform::machine::simulated {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

/// Vectors that turn together, each by eight samples at a time: one alone would wait for itself at every sample.
class Turning {
public:
    static constexpr size_t kTogether = 8;

    Turning(std::complex<double> vector, std::complex<double> turn)
    {
        for (size_t i = 0; i < kTogether; ++i, vector *= turn) mReal[i] = vector.real(), mImaginary[i] = vector.imag();
        for (size_t once = 1; once < kTogether; once *= 2) turn *= turn;
        mCosine = turn.real(), mSine = turn.imag();
    }

    /// Their real parts, one after the other, and on.
    void Next(float* samples)
    {
        for (size_t i = 0; i < kTogether; ++i) {
            samples[i] = static_cast<float>(mReal[i]);
            const double turned = mReal[i] * mCosine - mImaginary[i] * mSine;
            mImaginary[i] = mReal[i] * mSine + mImaginary[i] * mCosine;
            mReal[i] = turned;
        }
    }

private:
    double mReal[kTogether], mImaginary[kTogether];
    double mCosine, mSine;
};

}  // namespace

void Fill(std::vector<std::vector<float>>& samples, const Signal& signal, const Stretch& stretch, size_t channels,
          unsigned frames)
{
    samples.resize(channels);
    for (unsigned channel = 0; channel < channels; ++channel) {
        samples[channel].resize(frames);
        signal(stretch, channel, samples[channel]);
    }
}

Signal Tone(double frequencyHz, double amplitude, double rateHz)
{
    return [=](const Stretch& stretch, unsigned, std::span<float> samples) {
        uint64_t frame = stretch.mFirstFrame;
        for (float& sample : samples) {
            const double cycles = frequencyHz * static_cast<double>(frame++) / rateHz;
            sample = static_cast<float>(amplitude * std::sin(kTurn * std::fmod(cycles, 1.0)));
        }
    };
}

Signal HostTone(double frequencyHz, double amplitude)
{
    return [=](const Stretch& stretch, unsigned channel, std::span<float> samples) {
        const double quarters = channel % 2 == 0 ? 0 : -0.25;
        const double cycles = std::fmod(frequencyHz * stretch.mSeconds + quarters, 1.0);
        Turning vectors(std::polar(amplitude, kTurn * cycles),
                        std::polar(1.0, kTurn * frequencyHz * stretch.mFrameSeconds));
        const size_t whole = samples.size() - samples.size() % Turning::kTogether;
        for (size_t i = 0; i < whole; i += Turning::kTogether) vectors.Next(&samples[i]);
        float last[Turning::kTogether];
        vectors.Next(last);
        std::copy_n(last, samples.size() - whole, samples.begin() + static_cast<std::ptrdiff_t>(whole));
    };
}

Signal HostClicks(double periodSeconds, double amplitude)
{
    return [=](const Stretch& stretch, unsigned, std::span<float> samples) {
        for (size_t i = 0; i < samples.size(); ++i) {
            const double seconds = stretch.mSeconds + static_cast<double>(i) * stretch.mFrameSeconds;
            const double away = std::abs(std::remainder(seconds, periodSeconds)) / 0.5e-3;
            const double height = away < 1 ? 0.5 * (1 + std::cos(std::numbers::pi * away)) : 0;
            samples[i] = static_cast<float>(amplitude * height);
        }
    };
}

Signal Counter()
{
    return [](const Stretch& stretch, unsigned channel, std::span<float> samples) {
        uint64_t frame = stretch.mFirstFrame;
        for (float& sample : samples) {
            const auto count = static_cast<float>(frame++ % kCounterPeriodFrames);
            sample = channel % 2 == 0 ? count : -count;
        }
    };
}

Signal Silence()
{
    return [](const Stretch&, unsigned, std::span<float> samples) { std::ranges::fill(samples, 0.0f); };
}

}  // namespace platform::machine::simulated
