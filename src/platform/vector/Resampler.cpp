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

// Positions count 2^-60 frames, ratios 2^-59: every double from 1/17 to 17 is one of them, so that sums of
// ratio x frames are exact, and half the sum of two ratios is exact as well.
constexpr unsigned kPositionBits = 60;
constexpr unsigned kRatioBits = kPositionBits - 1;
constexpr unsigned kPhaseShift = kPositionBits - 32;
constexpr double kPhaseSteps = 0x1p32;
constexpr uint64_t kOneFrame = uint64_t{1} << kPositionBits;
// A position is kept half a step of the phase too high, so that cutting it to 2^-32 frames rounds it.
constexpr uint64_t kRounding = uint64_t{1} << (kPhaseShift - 1);

__extension__ using Wide = unsigned __int128;
__extension__ using SignedWide = __int128;

uint64_t RatioUnits(double ratio) noexcept
{
    return static_cast<uint64_t>(std::ldexp(ratio, kRatioBits));
}

/// The modified function of order 0, by its series: many times faster than the library's, which does any order.
double Bessel(double x)
{
    double sum = 1, term = 1;
    for (double k = 1; term > sum * 1e-17; ++k) {
        const double factor = x / (2 * k);
        sum += term *= factor * factor;
    }
    return sum;
}

/// A Kaiser window: 1 in the middle, 0 from 1 on to either side.
struct Window {
    explicit Window(double beta) : mBeta(beta), mMiddle(Bessel(beta)) {}
    double operator()(double x) const { return std::abs(x) < 1 ? Bessel(mBeta * std::sqrt(1 - x * x)) / mMiddle : 0; }

    double mBeta;
    double mMiddle;
};

/// What the kernel looks like for one stage and nominal ratio: `mTaps` of them, of which the last weighs the
/// newest frame, `mDelay` frames before it the middle. Two of the taps stay zero near ratio 1: the window ends
/// at what was consumed.
struct Shape {
    Shape(ResamplerStage stage, double nominalRatio) noexcept
        : mStage(stage),
          mHalfWidth(stage == ResamplerStage::High ? 47 : 31),
          mKaiserBeta(stage == ResamplerStage::High ? 15 : 13),
          mScale(nominalRatio > kHighestInterpolating ? nominalRatio : 1),
          mDelay(static_cast<unsigned>(std::ceil(mHalfWidth * mScale)) + 1),
          mTaps((2 * (mDelay - 1) + kLanes - 1) / kLanes * kLanes)
    {
    }

    ResamplerStage mStage;
    double mHalfWidth;  // frames, of the interpolating kernel
    double mKaiserBeta;
    double mScale;  // how many times wider than that one
    unsigned mDelay;
    unsigned mTaps;
};

/// The kernel `frames` from its middle. Exactly 0 at whole numbers: sin(pi n) is not zero in floating point.
double Kernel(const Shape& shape, const Window& window, double frames)
{
    const double x = frames / shape.mScale;
    if (x == 0) return 1 / shape.mScale;
    if (x == std::round(x)) return 0;
    return std::sin(std::numbers::pi * x) / (std::numbers::pi * x * shape.mScale) * window(x / shape.mHalfWidth);
}

using Taps = std::vector<loops::TapGroup>;

Taps MakeTaps(const Shape& shape)
{
    constexpr unsigned kPhases = 1u << loops::kPhaseBits;
    constexpr unsigned kSteps = 2 * kPhases;  // a frame: the phases and the middles between them

    std::vector<double> kernel(size_t{shape.mTaps} * kSteps + 1);
    const Window window(shape.mKaiserBeta);
    const double first = static_cast<double>(shape.mDelay) - shape.mTaps - 1;
    for (size_t i = 0; i < kernel.size(); ++i)
        kernel[i] = Kernel(shape, window, first + static_cast<double>(i) / kSteps);

    const unsigned groups = shape.mTaps / kLanes;
    Taps taps(size_t{kPhases} * groups);
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

/// The interpolating kernels are one for all: a render with many sources keeps them in the processor's cache.
std::shared_ptr<const Taps> TapsOf(const Shape& shape)
{
    if (shape.mScale != 1) return std::make_shared<const Taps>(MakeTaps(shape));
    if (shape.mStage == ResamplerStage::High) {
        static const auto sHigh = std::make_shared<const Taps>(MakeTaps(shape));
        return sHigh;
    }
    static const auto sLow = std::make_shared<const Taps>(MakeTaps(shape));
    return sLow;
}

}  // namespace

// The history of a channel is `mOldFrames` old frames, then the frames of the block. Output at position p needs
// the frames before its whole part and none after: that is why no block ever asks for more than it passes. A
// longer delay than the kernel's is that many more old frames, and its fraction where the position starts.
struct Resampler::State {
    State(const Shape& shape, unsigned channels, double ratio, unsigned maxOutputFrames, double delayFrames)
        : mShape(shape),
          mChannels(channels),
          mNominalRatio(ratio),
          mDelayFrames(delayFrames),
          mWholeDelay(static_cast<unsigned>(std::ceil(delayFrames))),
          mTaps(TapsOf(shape)),
          mPoints(maxOutputFrames + kLanes),
          mOldFrames(shape.mTaps + mWholeDelay - shape.mDelay),
          mHistoryFrames(mOldFrames + MostFor(maxOutputFrames) + kLanes),
          mHistory(size_t{mHistoryFrames} * channels)
    {
        Reset();
    }

    void Reset() noexcept
    {
        mPosition = kRounding + static_cast<uint64_t>(std::ldexp(mWholeDelay - mDelayFrames, kPositionBits));
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
    const double mDelayFrames;
    const unsigned mWholeDelay;  // rounded up
    const std::shared_ptr<const Taps> mTaps;
    std::vector<loops::Point> mPoints;
    const unsigned mOldFrames;
    const unsigned mHistoryFrames;  // a channel, old and new, and what the loops read beyond
    std::vector<float> mHistory;

    uint64_t mPosition = 0;    // of the next output frame, below one frame, in 2^-60 frames
    uint64_t mRatioUnits = 0;  // where the last block left the ratio, in 2^-59
};

/// Where each frame of the block lies: at position + frame x first + frame^2 x bend, by differences, in 2^-96 frames,
/// so that half of a number is what a Point holds. Rounded is the bend alone, to 2^-64 frames at a block's end.
void Resampler::State::Locate(unsigned frames, uint64_t units) noexcept
{
    constexpr unsigned kMoreBits = 96 - kPositionBits;
    const Wide one = Wide{1} << kMoreBits;
    const auto moved = static_cast<SignedWide>(units) - static_cast<SignedWide>(mRatioUnits);
    const auto bend = static_cast<Wide>(moved * static_cast<SignedWide>(one) / static_cast<SignedWide>(frames));
    Wide place = one * mPosition;
    Wide step = one * mRatioUnits * 2 + bend;
    for (unsigned frame = 0; frame < frames; ++frame) {
        const auto here = static_cast<uint64_t>(place >> 64);
        mPoints[frame] = {static_cast<uint32_t>(here >> 32), static_cast<uint32_t>(here)};
        place += step;
        step += 2 * bend;
    }
}

void Resampler::State::Convolve(float* const* output, unsigned frames) noexcept
{
    const loops::Loops& best = loops::Best();
    const loops::Bank bank{mTaps->data(), mShape.mTaps / kLanes};
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

bool Resampler::Configure(unsigned channels, double nominalRatio, unsigned maxOutputFrames, ResamplerStage stage,
                          double delayFrames)
{
    mState.reset();
    const bool inRange = nominalRatio >= 1 / kHighestRatio && nominalRatio <= kHighestRatio;
    if (channels < 1 || channels > kMostChannels || !inRange || maxOutputFrames < 1 || maxOutputFrames > kMostFrames)
        return false;
    if (!(delayFrames >= 0 && delayFrames <= kMostFrames)) return false;
    try {
        const Shape shape(stage, nominalRatio);
        const double delay = std::max<double>(std::round(delayFrames * kPhaseSteps) / kPhaseSteps, shape.mDelay);
        mState = std::make_unique<State>(shape, channels, nominalRatio, maxOutputFrames, delay);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

unsigned Resampler::LeastDelayFrames(double nominalRatio, ResamplerStage stage) noexcept
{
    return Shape(stage, nominalRatio).mDelay;
}

void Resampler::Reset() noexcept
{
    mState->Reset();
}

double Resampler::DelayFrames() const noexcept
{
    return mState->mDelayFrames;
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
    assert(outputFrames + kLanes <= state.mPoints.size());
    if (outputFrames == 0) return;

    const uint64_t units = state.UnitsOf(ratio);
    const Wide after = state.PositionAfter(outputFrames, units);
    const auto consumed = static_cast<unsigned>(after >> kPositionBits);
    for (unsigned channel = 0; channel < state.mChannels; ++channel)
        std::copy_n(input[channel], consumed, state.History(channel) + state.mOldFrames);

    if (state.PassesThrough(units)) {
        for (unsigned channel = 0; channel < state.mChannels; ++channel)
            std::copy_n(state.History(channel) + state.mOldFrames - state.mWholeDelay, outputFrames, output[channel]);
    } else {
        state.Locate(outputFrames, units);
        state.Convolve(output, outputFrames);
    }

    for (unsigned channel = 0; channel < state.mChannels; ++channel)
        std::copy_n(state.History(channel) + consumed, state.mOldFrames, state.History(channel));
    state.mPosition = static_cast<uint64_t>(after) & (kOneFrame - 1);
    state.mRatioUnits = units;
}

double Resampler::Phase() const noexcept
{
    if (mState->mPosition >> kPhaseShift == 0) return 0;
    return std::ldexp(static_cast<double>(mState->mPosition - kRounding), -static_cast<int>(kPositionBits));
}

}  // namespace platform::vector
