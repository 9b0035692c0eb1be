#include "support/SignalAnalysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace support {

namespace {

using Matrix = std::array<std::array<double, 4>, 3>;

// Gauss with pivots; the last column is the right side.
std::array<double, 3> Solve(Matrix m)
{
    for (int column = 0; column < 3; ++column) {
        int pivot = column;
        for (int row = column + 1; row < 3; ++row)
            if (std::fabs(m[row][column]) > std::fabs(m[pivot][column])) pivot = row;
        std::swap(m[column], m[pivot]);
        for (int row = 0; row < 3; ++row) {
            if (row == column) continue;
            const double factor = m[row][column] / m[column][column];
            for (int k = column; k < 4; ++k) m[row][k] -= factor * m[column][k];
        }
    }
    return {m[0][3] / m[0][0], m[1][3] / m[1][1], m[2][3] / m[2][2]};
}

}  // namespace

SineFit FitSine(std::span<const float> samples, double frequencyHz, double rateHz)
{
    const double step = 2 * std::numbers::pi * frequencyHz / rateHz;
    const auto basis = [step](size_t n) { return std::array<double, 3>{std::sin(step * n), std::cos(step * n), 1.0}; };
    Matrix normal{};
    for (size_t n = 0; n < samples.size(); ++n) {
        const auto b = basis(n);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) normal[i][j] += b[i] * b[j];
            normal[i][3] += b[i] * double(samples[n]);
        }
    }
    const auto x = Solve(normal);
    double residual = 0;
    for (size_t n = 0; n < samples.size(); ++n) {
        const auto b = basis(n);
        const double error = double(samples[n]) - x[0] * b[0] - x[1] * b[1] - x[2] * b[2];
        residual += error * error;
    }
    const double amplitude = std::hypot(x[0], x[1]);
    const double rms = std::sqrt(residual / double(samples.size()));
    return {amplitude, 20 * std::log10(rms / (amplitude / std::numbers::sqrt2))};
}

double LevelDB(std::span<const float> samples, double frequencyHz, double rateHz)
{
    const double step = 2 * std::numbers::pi * frequencyHz / rateHz;
    double real = 0, imaginary = 0, window = 0;
    for (size_t n = 0; n < samples.size(); ++n) {
        const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(n) / double(samples.size()));
        real += hann * double(samples[n]) * std::cos(step * double(n));
        imaginary += hann * double(samples[n]) * std::sin(step * double(n));
        window += hann;
    }
    return 20 * std::log10(2 * std::hypot(real, imaginary) / window + 1e-12);
}

CounterReport CheckCounter(std::span<const float> samples)
{
    const auto valueAt = [&](size_t n) { return double(samples[n]) * kCounterModulus; };
    CounterReport report;
    while (report.mLeadingSilence < samples.size() && samples[report.mLeadingSilence] == 0) ++report.mLeadingSilence;
    report.mFrames = samples.size() - report.mLeadingSilence;
    if (report.mFrames == 0) return report;
    double last = valueAt(report.mLeadingSilence);  // of the frames that are not silent
    for (size_t n = report.mLeadingSilence + 1; n < samples.size(); ++n) {
        const double value = valueAt(n);
        const double step = std::fmod(value - last + kCounterModulus, kCounterModulus);
        const bool silent = value == 0 && step != 1;
        if (silent)
            ++report.mSilent;
        else if (step >= 1 && step < kCounterModulus / 2 && step == std::floor(step))
            report.mSkipped += size_t(step) - 1;
        else
            ++report.mForeign;
        const bool follows = value == std::fmod(valueAt(n - 1) + 1, kCounterModulus);
        if (!silent) last = value;
        if (follows || report.mBreaks++ > 0) continue;
        report.mFirstBreak = n;
        report.mFrames = n - report.mLeadingSilence;
    }
    return report;
}

std::vector<size_t> Clicks(std::span<const float> samples)
{
    constexpr size_t kLongest = 64;  // a resampled click rings
    const auto quieter = [](float a, float b) { return std::fabs(a) < std::fabs(b); };
    std::vector<size_t> clicks;
    for (size_t n = 0; n < samples.size(); ++n) {
        if (std::fabs(samples[n]) < 0.45) continue;
        const auto piece = samples.subspan(n, std::min(kLongest, samples.size() - n));
        clicks.push_back(n + size_t(std::ranges::max_element(piece, quieter) - piece.begin()));
        n = clicks.back() + kLongest;
    }
    return clicks;
}

std::vector<double> Lags(std::span<const size_t> first, std::span<const size_t> second)
{
    std::vector<double> lags;
    if (second.empty() || first.size() < 3) return lags;
    for (const size_t click : first.subspan(1, first.size() - 2)) {
        const auto distance = [click](size_t other) { return std::fabs(double(other) - double(click)); };
        lags.push_back(double(*std::ranges::min_element(second, {}, distance)) - double(click));
    }
    return lags;
}

std::vector<float> Channel(std::span<const float> interleaved, unsigned channels, unsigned which)
{
    std::vector<float> samples(interleaved.size() / channels);
    for (size_t n = 0; n < samples.size(); ++n) samples[n] = interleaved[n * channels + which];
    return samples;
}

}  // namespace support
