#include "platform/vector/Resampler.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "platform/vector/ResamplerLoops.h"

namespace platform::vector {

namespace {

using loops::kLanes;

constexpr unsigned kMostChannels = 64;
constexpr unsigned kMostFrames = 1 << 16;
constexpr double kHighestRatio = 16;
constexpr double kTolerance = 0.05;  // how far a ratio may lie from the nominal
constexpr double kHighestInterpolating = 1.05;

constexpr double kHalfWidthFrames = 31;  // 62 taps and two that stay zero: the window ends at what was consumed
constexpr double kKaiserBeta = 13.0;

// Positions count 2^-60 frames, ratios 2^-59: every double from 1/17 to 17 is one of them, so that sums of
// ratio x frames are exact, and half the sum of two ratios is exact as well.
constexpr unsigned kPositionBits = 60;
constexpr unsigned kRatioBits = kPositionBits - 1;
constexpr unsigned kPhaseShift = kPositionBits - 32;
constexpr uint64_t kOneFrame = uint64_t{1} << kPositionBits;
// A position is kept half a step of the phase too high, so that cutting it to 2^-32 frames rounds it.
constexpr uint64_t kRounding = uint64_t{1} << (kPhaseShift - 1);

__extension__ using Wide = unsigned __int128;

uint64_t RatioUnits(double ratio) noexcept
{
    return static_cast<uint64_t>(std::ldexp(ratio, kRatioBits));
}

double Kaiser(double x) noexcept
{
    static const double sMiddle = std::cyl_bessel_i(0.0, kKaiserBeta);
    return std::abs(x) < 1 ? std::cyl_bessel_i(0.0, kKaiserBeta * std::sqrt(1 - x * x)) / sMiddle : 0;
}

/// The kernel `frames` from its middle, `scale` times as wide as the interpolating one. Exactly 0 at whole
/// numbers: sin(pi n) is not zero in floating point.
double Kernel(double frames, double scale) noexcept
{
    const double x = frames / scale;
    if (x == 0) return 1 / scale;
    if (x == std::round(x)) return 0;
    return std::sin(std::numbers::pi * x) / (std::numbers::pi * x * scale) * Kaiser(x / kHalfWidthFrames);
}

/// What the kernel looks like for one nominal ratio: `mTaps` of them, of which the last weighs the newest
/// frame, `mDelay` frames before it the middle.
struct Shape {
    explicit Shape(double nominalRatio) noexcept
        : mScale(nominalRatio > kHighestInterpolating ? nominalRatio : 1),
          mDelay(static_cast<unsigned>(std::ceil(kHalfWidthFrames * mScale)) + 1),
          mTaps((2 * (mDelay - 1) + kLanes - 1) / kLanes * kLanes)
    {
    }

    double mScale;
    unsigned mDelay;
    unsigned mTaps;
};

std::vector<loops::TapGroup> MakeTaps(const Shape& shape)
{
    constexpr unsigned kPhases = 1u << loops::kPhaseBits;
    constexpr unsigned kSteps = 2 * kPhases;  // a frame: the phases and the middles between them

    std::vector<double> kernel(size_t{shape.mTaps} * kSteps + 1);
    const double first = static_cast<double>(shape.mDelay) - shape.mTaps - 1;
    for (size_t i = 0; i < kernel.size(); ++i)
        kernel[i] = Kernel(first + static_cast<double>(i) / kSteps, shape.mScale);

    const unsigned groups = shape.mTaps / kLanes;
    std::vector<loops::TapGroup> taps(size_t{kPhases} * groups);
    for (unsigned phase = 0; phase < kPhases; ++phase) {
        for (unsigned index = 0; index < shape.mTaps; ++index) {
            const double* here = &kernel[(index + 1) * kSteps - 2 * phase];
            loops::TapGroup& group = taps[phase * groups + index / kLanes];
            group.mValue[index % kLanes] = static_cast<float>(here[0]);
            group.mSlope[index % kLanes] = static_cast<float>(4 * here[-1] - 3 * here[0] - here[-2]);
            group.mBend[index % kLanes] = static_cast<float>(2 * (here[0] + here[-2]) - 4 * here[-1]);
        }
    }
    return taps;
}

}  // namespace

// The history of a channel is `mTaps` old frames, then the frames of the block. Output at position p needs
// the frames before its whole part and none after: that is why no block ever asks for more than it passes.
struct Resampler::State {
    State(unsigned channels, double ratio, unsigned maxOutputFrames)
        : mShape(ratio),
          mChannels(channels),
          mNominalRatio(ratio),
          mTapTable(MakeTaps(mShape)),
          mPoints(maxOutputFrames),
          mHistoryFrames(mShape.mTaps + MostFor(maxOutputFrames)),
          mHistory(size_t{mHistoryFrames} * channels)
    {
        Reset();
    }

    void Reset() noexcept
    {
        mPosition = kRounding;
        mRatioUnits = RatioUnits(mNominalRatio);
        std::ranges::fill(mHistory, 0.0f);
    }

    /// A ratio outside the promised range, not a number included, is taken as the nearest inside it.
    uint64_t UnitsOf(double ratio) const noexcept
    {
        return RatioUnits(
            std::fmin(std::fmax(ratio, mNominalRatio * (1 - kTolerance)), mNominalRatio * (1 + kTolerance)));
    }

    /// The position after a block whose ratio goes evenly from where it is to `units`.
    Wide PositionAfter(unsigned frames, uint64_t units) const noexcept
    {
        return mPosition + Wide{frames} * (Wide{mRatioUnits} + units);
    }

    unsigned MostFor(unsigned frames) const noexcept
    {
        return static_cast<unsigned>((kOneFrame + Wide{frames} * 2 * RatioUnits(mNominalRatio * (1 + kTolerance))) >>
                                     kPositionBits);
    }

    bool PassesThrough(uint64_t units) const noexcept
    {
        constexpr uint64_t kUnity = uint64_t{1} << kRatioBits;
        return mShape.mScale == 1 && units == kUnity && mRatioUnits == kUnity && mPosition >> kPhaseShift == 0;
    }

    float* History(unsigned channel) noexcept { return mHistory.data() + size_t{channel} * mHistoryFrames; }

    void Locate(unsigned frames, uint64_t units) noexcept;
    void Convolve(float* const* output, unsigned frames) noexcept;

    const Shape mShape;
    const unsigned mChannels;
    const double mNominalRatio;
    const std::vector<loops::TapGroup> mTapTable;
    std::vector<loops::Point> mPoints;
    const unsigned mHistoryFrames;  // a channel
    std::vector<float> mHistory;

    uint64_t mPosition = 0;    // of the next output frame, below one frame, in 2^-60 frames
    uint64_t mRatioUnits = 0;  // where the last block left the ratio, in 2^-59
};

/// Where each frame of the block lies. In double precision, from the block's beginning: 2^-36 frames at worst,
/// and nothing of it is left at the block's end, where the exact position takes over.
void Resampler::State::Locate(unsigned frames, uint64_t units) noexcept
{
    const double start = static_cast<double>(mPosition >> kPhaseShift);  // in 2^-32 frames
    const double first = std::ldexp(static_cast<double>(mRatioUnits), 32 - static_cast<int>(kRatioBits));
    const double last = std::ldexp(static_cast<double>(units), 32 - static_cast<int>(kRatioBits));
    const double bend = (last - first) / (2.0 * frames);
    for (unsigned frame = 0; frame < frames; ++frame) {
        const auto place = static_cast<uint64_t>(static_cast<int64_t>(start + frame * (first + frame * bend)));
        mPoints[frame] = {static_cast<uint32_t>(place >> 32), static_cast<uint32_t>(place)};
    }
}

void Resampler::State::Convolve(float* const* output, unsigned frames) noexcept
{
    const loops::Loops& best = loops::Best();
    const loops::Bank bank{mTapTable.data(), mShape.mTaps / kLanes};
    for (unsigned channel = 0; channel < mChannels; channel += 2) {
        const float* from[] = {History(channel), History(std::min(channel + 1, mChannels - 1))};
        const loops::Loop loop = channel + 1 < mChannels ? best.mStereo : best.mMono;
        loop(bank, mPoints.data(), frames, from, output + channel);
    }
}

Resampler::Resampler() = default;
Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;
Resampler& Resampler::operator=(Resampler&&) noexcept = default;

bool Resampler::Configure(unsigned channels, double nominalRatio, unsigned maxOutputFrames, ResamplerStage)
{
    mState.reset();
    const bool inRange = nominalRatio >= 1 / kHighestRatio && nominalRatio <= kHighestRatio;
    if (channels < 1 || channels > kMostChannels || !inRange || maxOutputFrames < 1 || maxOutputFrames > kMostFrames)
        return false;
    try {
        mState = std::make_unique<State>(channels, nominalRatio, maxOutputFrames);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void Resampler::Reset() noexcept
{
    mState->Reset();
}

unsigned Resampler::DelayFrames() const noexcept
{
    return mState->mShape.mDelay;
}

unsigned Resampler::InputFramesFor(unsigned outputFrames, double ratio) const noexcept
{
    return static_cast<unsigned>(mState->PositionAfter(outputFrames, mState->UnitsOf(ratio)) >> kPositionBits);
}

unsigned Resampler::MaxInputFramesFor(unsigned outputFrames) const noexcept
{
    return mState->MostFor(outputFrames);
}

void Resampler::Process(const float* const* input, float* const* output, unsigned outputFrames, double ratio) noexcept
{
    State& state = *mState;
    assert(outputFrames <= state.mPoints.size());
    if (outputFrames == 0) return;

    const uint64_t units = state.UnitsOf(ratio);
    const Wide after = state.PositionAfter(outputFrames, units);
    const auto consumed = static_cast<unsigned>(after >> kPositionBits);
    for (unsigned channel = 0; channel < state.mChannels; ++channel)
        std::copy_n(input[channel], consumed, state.History(channel) + state.mShape.mTaps);

    if (state.PassesThrough(units)) {
        for (unsigned channel = 0; channel < state.mChannels; ++channel)
            std::copy_n(state.History(channel) + state.mShape.mTaps - state.mShape.mDelay, outputFrames,
                        output[channel]);
    } else {
        state.Locate(outputFrames, units);
        state.Convolve(output, outputFrames);
    }

    for (unsigned channel = 0; channel < state.mChannels; ++channel)
        std::copy_n(state.History(channel) + consumed, state.mShape.mTaps, state.History(channel));
    state.mPosition = static_cast<uint64_t>(after) & (kOneFrame - 1);
    state.mRatioUnits = units;
}

double Resampler::Phase() const noexcept
{
    if (mState->mPosition >> kPhaseShift == 0) return 0;
    return std::ldexp(static_cast<double>(mState->mPosition - kRounding), -static_cast<int>(kPositionBits));
}

}  // namespace platform::vector
