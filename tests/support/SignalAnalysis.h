// SignalAnalysis: what a recording holds, by properties one could hear or count.
// Start at FitSine for purity, CheckCounter for loss.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace support {

/// A sine of known frequency, fitted by least squares.
struct SineFit {
    double mAmplitude = 0;
    double mPhase = 0;       // of the first sample, in radians
    double mResidualDB = 0;  // all that is not the sine, below the sine
};
SineFit FitSine(std::span<const float> samples, double frequencyHz, double rateHz);

/// A counter signal has value = frame / 2^20 modulo 1, exact in a float; `sign` is -1 where it is negated.
constexpr uint32_t kCounterModulus = 1u << 20;
struct CounterReport {
    size_t mLeadingSilence = 0;  // frames before the counter begins
    size_t mFrames = 0;          // frames that follow each other without a break, from there on
    size_t mBreaks = 0;          // frames that are not the successor of the one before
    size_t mFirstBreak = 0;      // where, in frames of the span
    // What the breaks are made of:
    size_t mSilent = 0;   // frames of silence
    size_t mSkipped = 0;  // counts that are missing, silence or not
    size_t mBent = 0;     // frames that are almost the next count: resampled to pay a step of the clock back
    size_t mForeign = 0;  // all other frames
};
CounterReport CheckCounter(std::span<const float> samples, int sign = 1);

/// Frames [mStart, mStart + mFrames) of a recording.
struct Piece {
    uint64_t mStart = 0;
    uint64_t mFrames = 0;
};
/// A recording of a count of the host clock, which is value = count / mModulus modulo 1.
struct Timeline {
    std::vector<Piece> mSilences;  // as the recorder listed them
    double mFirstCount = 0;        // of the first frame
    double mModulus = kCounterModulus;
    double mMostOff = 1;  // frames that a count may be off
    size_t mEdge = 1;     // frames on each side of where sound begins or ends, which a filter blurs
};
/// What is neither the count of its moment nor silent where silence is listed.
std::vector<Piece> FindWrongPieces(std::span<const float> samples, const Timeline& timeline);

/// Frames at which a click is heard: the greatest sample of each stretch above half of full scale.
std::vector<size_t> Clicks(std::span<const float> samples);
/// By how many frames the nearest click of `second` lags each of `first`; the outermost two may have no partner.
std::vector<double> Lags(std::span<const size_t> first, std::span<const size_t> second);

/// One channel of interleaved samples.
std::vector<float> Channel(std::span<const float> interleaved, unsigned channels, unsigned which);

}  // namespace support
