#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace support {

SineFit FitSine(std::span<const float> samples, double frequencyHz, double rateHz)
{
    const double step = 2 * std::numbers::pi * frequencyHz / rateHz;
    double ss = 0, cc = 0, sc = 0, sx = 0, cx = 0;
    for (size_t n = 0; n < samples.size(); ++n) {
        const double s = std::sin(step * double(n)), c = std::cos(step * double(n)), x = samples[n];
        ss += s * s, cc += c * c, sc += s * c, sx += s * x, cx += c * x;
    }
    const double determinant = ss * cc - sc * sc;
    const double in = (sx * cc - cx * sc) / determinant, quadrature = (cx * ss - sx * sc) / determinant;
    double rest = 0, power = 0;
    for (size_t n = 0; n < samples.size(); ++n) {
        const double sine = in * std::sin(step * double(n)) + quadrature * std::cos(step * double(n));
        rest += std::pow(samples[n] - sine, 2);
        power += sine * sine;
    }
    return {std::hypot(in, quadrature), std::atan2(quadrature, in), 10 * std::log10(rest / power + 1e-30)};
}

CounterReport CheckCounter(std::span<const float> samples, int sign)
{
    const auto valueAt = [&](size_t n) { return double(samples[n]) * sign * kCounterModulus; };
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
        else if (std::fabs(step - 1) < 0.1)  // a float near 1 tells counts apart by 1/16
            ++report.mBent;
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

std::vector<Piece> FindWrongPieces(std::span<const float> samples, const Timeline& timeline)
{
    enum : char { kSound, kSilence, kEdge };
    std::vector<char> kinds(samples.size(), kSound);
    const auto fill = [&](uint64_t from, uint64_t to, char kind) {
        for (uint64_t n = from; n < std::min<uint64_t>(to, kinds.size()); ++n) kinds[n] = kind;
    };
    for (const Piece& silence : timeline.mSilences) fill(silence.mStart, silence.mStart + silence.mFrames, kSilence);
    std::vector<uint64_t> edges = {0, samples.size()};
    for (const Piece& silence : timeline.mSilences)
        edges.insert(edges.end(), {silence.mStart, silence.mStart + silence.mFrames});
    for (const uint64_t edge : edges)
        fill(edge - std::min<uint64_t>(edge, timeline.mEdge), edge + timeline.mEdge, kEdge);

    std::vector<Piece> wrong;
    for (size_t n = 0; n < samples.size(); ++n) {
        const double count = timeline.mFirstCount + double(n);
        const double off = std::remainder(samples[n] * timeline.mModulus - count, timeline.mModulus);
        if (kinds[n] == kEdge || (kinds[n] == kSilence ? samples[n] == 0 : std::fabs(off) <= timeline.mMostOff))
            continue;
        if (wrong.empty() || wrong.back().mStart + wrong.back().mFrames < n) wrong.push_back({n, 0});
        ++wrong.back().mFrames;
    }
    return wrong;
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
