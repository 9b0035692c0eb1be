#include "platform/vector/Resampler.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/vector/ResamplerLoops.h"
#include "support/AllocationFaults.h"

namespace platform::vector {
namespace {

constexpr double kRateHz = 48000;
constexpr ResamplerStage kStages[] = {ResamplerStage::Low, ResamplerStage::High};

using Signal = std::function<float(unsigned channel, int64_t frame)>;

double Sine(double hz, double frame)
{
    return 0.5 * std::sin(2 * std::numbers::pi * std::fmod(hz / kRateHz * frame, 1));
}

float Noise(unsigned channel, int64_t frame)
{
    auto bits = static_cast<uint32_t>(frame * 2654435761u + channel * 40503u);
    bits = (bits ^ bits >> 15) * 2246822519u;
    return static_cast<float>(static_cast<int32_t>(bits ^ bits >> 13)) * 0x1p-31f;
}

/// Pulls a signal through a resampler and keeps what came out, and where each frame had to lie.
struct Stream {
    Stream(unsigned channels, double nominal, unsigned most, Signal source, ResamplerStage stage = ResamplerStage::Low,
           double delayFrames = 0)
        : mRatio(nominal), mSignal(std::move(source)), mOutput(channels)
    {
        EXPECT_TRUE(mResampler.Configure(channels, nominal, most, stage, delayFrames));
    }

    void Pull(unsigned frames, double nextRatio)
    {
        const unsigned needed = mResampler.InputFramesFor(frames, nextRatio);
        EXPECT_LE(needed, mResampler.MaxInputFramesFor(frames));
        std::vector<std::vector<float>> input(mOutput.size(), std::vector<float>(needed));
        std::vector<const float*> from;
        std::vector<float*> to;
        for (unsigned channel = 0; channel < mOutput.size(); ++channel) {
            for (unsigned i = 0; i < needed; ++i) input[channel][i] = mSignal(channel, mConsumed + i);
            from.push_back(input[channel].data());
            mOutput[channel].resize(mOutput[channel].size() + frames);
            to.push_back(mOutput[channel].data() + mOutput[channel].size() - frames);
        }
        mResampler.Process(from.data(), to.data(), frames, nextRatio);
        for (unsigned i = 0; i < frames; ++i)
            mLies.push_back(static_cast<double>(mPosition + i * (mRatio + (nextRatio - mRatio) * i / (2.0L * frames))) -
                            mResampler.DelayFrames());
        mPosition += frames * (static_cast<long double>(mRatio) + nextRatio) / 2;
        mRatio = nextRatio;
        mConsumed += needed;
    }

    /// Everything that is not the sine at its very place, in frames [first, end), below the sine.
    double ErrorDB(double hz, size_t first, size_t end) const
    {
        double error = 0, power = 0;
        for (size_t i = first; i < end; ++i) {
            const double ideal = Sine(hz, mLies[i]);
            error += (mOutput[0][i] - ideal) * (mOutput[0][i] - ideal);
            power += ideal * ideal;
        }
        return 10 * std::log10(error / power + 1e-30);
    }

    Resampler mResampler;
    double mRatio;
    Signal mSignal;
    std::vector<std::vector<float>> mOutput;
    std::vector<double> mLies;  // input position of each output frame
    long double mPosition = 0;
    int64_t mConsumed = 0;
};

Signal SineSource(double hz)
{
    return [hz](unsigned, int64_t frame) { return static_cast<float>(Sine(hz, static_cast<double>(frame))); };
}

TEST(Resampler, UnityIsBitExactAndDelaysByAWholeNumberOfFramesAtEveryBlockSize)
{
    for (const auto& [stage, asked, delay] :
         {std::tuple{ResamplerStage::Low, 0, 32u}, {ResamplerStage::High, 0, 48u}, {ResamplerStage::Low, 200, 200u}}) {
        for (const unsigned frames : {1u, 64u, 127u, 512u}) {
            Stream stream(3, 1.0, frames, Noise, stage, asked);
            for (unsigned done = 0; done < 2000; done += frames) stream.Pull(frames, 1.0);
            EXPECT_EQ(stream.mResampler.DelayFrames(), delay);
            for (unsigned channel = 0; channel < 3; ++channel)
                for (unsigned i = 0; i < 2000; ++i)
                    ASSERT_EQ(stream.mOutput[channel][i], i < delay ? 0 : Noise(channel, i - delay))
                        << frames << ' ' << i;
        }
    }
}

TEST(Resampler, UnityIsBitExactAgainAfterARatioThatLandsOnAWholeFrame)
{
    std::mt19937 random(7);
    Stream stream(2, 1.0, 512, Noise);
    for (int visit = 0; visit < 200; ++visit) {
        for (unsigned block = 0; block < 5; ++block)
            stream.Pull(1 + random() % 512, 1 + std::ldexp(static_cast<double>(random()) - 0x1p31, -42));
        const double phase = stream.mResampler.Phase();
        const double advance =
            std::ceil(phase + 512) - phase;  // of a block that goes on, and half of one that ends at 1
        stream.Pull(512, (advance + 512 - 256 * (stream.mRatio + 1)) / 512);
        stream.Pull(512, 1.0);
        ASSERT_EQ(stream.mResampler.Phase(), 0) << visit;

        const size_t from = stream.mOutput[0].size();
        const int64_t consumed = stream.mConsumed;
        stream.Pull(300, 1.0);
        for (unsigned i = 0; i < 300; ++i)
            ASSERT_EQ(stream.mOutput[1][from + i], Noise(1, consumed - stream.mResampler.DelayFrames() + i)) << visit;
    }
}

TEST(Resampler, ConsumesTheIntegralOfItsRatioForEver)
{
    std::mt19937 random(3);
    for (const double nominal : {1.0, 48000.0 / 44100, 0.5}) {
        Resampler resampler;
        ASSERT_TRUE(resampler.Configure(1, nominal, 8192, ResamplerStage::Low, 76.25));
        ASSERT_EQ(resampler.Phase(), 0.75);
        const std::vector<float> input(resampler.MaxInputFramesFor(8192));
        std::vector<float> output(8192);
        const float* from[] = {input.data()};
        float* to[] = {output.data()};
        long double integral = resampler.Phase();
        double consumed = 0, last = nominal;
        for (long frames = 0; frames < 4'000'000;) {
            const unsigned block = 1 + random() % 8192;
            const double ratio = nominal * (1 + std::ldexp(static_cast<double>(random()) - 0x1p31, -36));
            consumed += resampler.InputFramesFor(block, ratio);
            resampler.Process(from, to, block, ratio);
            integral += block * (static_cast<long double>(last) + ratio) / 2;
            last = ratio;
            frames += block;
            ASSERT_LT(std::abs(static_cast<double>(integral) - consumed - resampler.Phase()), 1e-6) << frames;
        }
    }
}

TEST(Resampler, ASineComesOutInItsPlaceAtItsLevelAndClean)
{
    const struct {
        double nominal, hz, lowDB;
    } cases[] = {{1.0002, 1000, -138},
                 {1.0002, 15000, -132},
                 {1.0002, 20000, -120},
                 {0.9998, 15000, -132},
                 {44100 / kRateHz, 997, -138},
                 {44100 / kRateHz, 15000, -130},
                 {kRateHz / 44100, 997, -135},
                 {kRateHz / 44100, 15000, -130},
                 {2, 10000, -120},
                 {96000 / 44100.0, 9000, -120},
                 {0.25, 15000, -130}};
    for (const ResamplerStage stage : kStages) {
        for (const auto& test : cases) {
            Stream stream(1, test.nominal, 512, SineSource(test.hz), stage);
            for (int block = 0; block < 60; ++block) stream.Pull(512, test.nominal);
            EXPECT_LT(stream.ErrorDB(test.hz, 512, stream.mLies.size()),
                      stage == ResamplerStage::High ? -138 : test.lowDB)
                << test.nominal << ' ' << test.hz;
        }
    }
}

TEST(Resampler, ChainsOfAnyRatioAndStageDelayByTheTimeThatTheyAreAskedFor)
{
    constexpr double kSeconds = 0.003;
    for (const ResamplerStage stage : kStages) {
        for (const double rateHz : {32000.0, 44100.0, 48000.0, 96000.0}) {
            const double asked = kSeconds * rateHz;
            ASSERT_GT(asked, Resampler::LeastDelayFrames(rateHz / 48000, stage));
            Stream stream(1, rateHz / 48000, 500, SineSource(997), stage, asked);
            for (int block = 0; block < 20; ++block) stream.Pull(500, stream.mRatio);
            EXPECT_NEAR(stream.mResampler.DelayFrames(), asked, 1e-9);
            EXPECT_LT(stream.ErrorDB(997, 500, stream.mLies.size()), -134) << rateHz;
        }
    }
}

TEST(Resampler, WhatTheOutputCannotHoldIsKeptOut)
{
    for (const double hz : {14000.0, 20000.0}) {  // both above half the output's 24 kHz
        Stream stream(1, 2, 512, SineSource(hz));
        for (int block = 0; block < 20; ++block) stream.Pull(512, 2);
        float most = 0;
        for (size_t i = 512; i < stream.mOutput[0].size(); ++i) most = std::max(most, std::abs(stream.mOutput[0][i]));
        EXPECT_LT(20 * std::log10(most / 0.5), -115) << hz;
    }
}

TEST(Resampler, AMovingRatioMakesNoProducts)
{
    for (const ResamplerStage stage : kStages) {
        Stream stream(1, 1.0, 512, SineSource(15000), stage);
        std::vector<double> errors;
        for (int block = 0; block < 600; ++block) {
            stream.Pull(512, stream.mRatio + (block % 200 < 100 ? 1e-6 : -1e-6));
            if (block > 0) errors.push_back(stream.ErrorDB(15000, block * 512, (block + 1) * 512));
        }
        std::ranges::sort(errors);
        EXPECT_LT(errors[errors.size() / 2], -130);
        EXPECT_LT(errors.back(), -120);
    }
}

TEST(Resampler, ResetMakesItNewAndNothingIsAllocatedAfterConfigure)
{
    Resampler resampler;
    ASSERT_TRUE(resampler.Configure(5, 0.9, 512, ResamplerStage::Low));
    std::vector<float> input(resampler.MaxInputFramesFor(512));
    for (size_t i = 0; i < input.size(); ++i) input[i] = Noise(0, static_cast<int64_t>(i));
    std::vector<std::vector<float>> first(5, std::vector<float>(512)), second = first;
    const float* from[5] = {input.data(), input.data(), input.data(), input.data(), input.data()};
    const auto pull = [&](std::vector<std::vector<float>>& output) {
        float* to[5] = {output[0].data(), output[1].data(), output[2].data(), output[3].data(), output[4].data()};
        resampler.Process(from, to, 512, 0.91);
    };

    support::Faults counted;
    support::sAllocationFaults = &counted;
    pull(first);
    pull(second);
    const bool goesOn = first != second;
    resampler.Reset();
    pull(second);
    support::sAllocationFaults = nullptr;
    EXPECT_EQ(counted.mCalls, 0);
    EXPECT_TRUE(goesOn);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first[0], first[4]) << "one channel alone differs from one of a pair";
}

TEST(Resampler, AllInstructionSetsAgreeWithinRounding)
{
    std::vector<const loops::Loops*> sets{&loops::kBaseline};
    if (&loops::Best() != &loops::kBaseline) sets.push_back(&loops::kWide);
    if (&loops::Best() == &loops::kWidest) sets.push_back(&loops::kWidest);
    std::vector<loops::TapGroup> taps(8 << loops::kPhaseBits);
    std::vector<float> left(300), right(300);
    int64_t seed = 0;
    for (auto& group : taps)
        for (unsigned lane = 0; lane < loops::kLanes; ++lane)
            group.mValue[lane] = Noise(1, ++seed), group.mSlope[lane] = Noise(2, seed),
            group.mBend[lane] = Noise(3, seed);
    for (auto* side : {&left, &right}) std::ranges::generate(*side, [&] { return Noise(4, ++seed); });
    std::vector<loops::Point> points(100 + loops::kLanes);

    const float* from[] = {left.data(), right.data()};
    const auto compare = [&](unsigned groups) {
        std::vector<std::array<std::vector<float>, 3>> outputs(sets.size());
        for (size_t set = 0; set < sets.size(); ++set) {
            auto& [one, other, single] = outputs[set];
            for (auto* output : {&one, &other, &single}) output->resize(100);
            float* pair[] = {one.data(), other.data()};
            float* alone[] = {single.data()};
            sets[set]->mStereo({taps.data(), groups}, points.data(), 100, from, pair);
            sets[set]->mMono({taps.data(), groups}, points.data(), 100, from, alone);
            for (unsigned which = 0; which < 3; ++which)
                for (unsigned i = 0; i < 100; ++i)
                    ASSERT_NEAR(outputs[0][which][i], outputs[set][which][i], groups * 8e-6) << groups << ' ' << i;
            EXPECT_EQ(one, single);
        }
    };
    for (const uint32_t advance : {2654435761u, 1000000u}) {  // a phase of its own for each frame; for many the same
        for (uint32_t i = 0; i < 100; ++i) points[i] = {i, i * advance};
        for (const unsigned groups : {3u, 4u, 6u, 8u}) compare(groups);
    }
}

TEST(Resampler, RefusesWhatItCannotDo)
{
    Resampler resampler;
    const struct {
        unsigned channels;
        double nominal;
        unsigned most;
        double delay;
    } cases[] = {{0, 1, 512, 0}, {65, 1, 512, 0}, {2, 17, 512, 0}, {2, NAN, 512, 0}, {2, 1, 0, 0}, {2, 1, 512, NAN}};
    for (const auto& [channels, nominal, most, delay] : cases)
        EXPECT_FALSE(resampler.Configure(channels, nominal, most, ResamplerStage::Low, delay));
    ASSERT_TRUE(resampler.Configure(2, 1, 512, ResamplerStage::Low));
    EXPECT_EQ(resampler.InputFramesFor(512, std::nan("")), resampler.InputFramesFor(512, 0.95));
    EXPECT_EQ(resampler.InputFramesFor(512, 7), resampler.InputFramesFor(512, 1.05));
}

}  // namespace
}  // namespace platform::vector
