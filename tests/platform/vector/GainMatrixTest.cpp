#include "platform/vector/GainMatrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <utility>

namespace platform::vector {
namespace {

constexpr unsigned kAll = GainMatrix::kAll;

/// Four inputs of constant level into two outputs, input c into output c mod 2, as a mixer is set up.
struct Mixer {
    Mixer()
    {
        EXPECT_TRUE(mMatrix.Configure(4, 2));
        for (unsigned input = 0; input < 4; ++input) {
            EXPECT_TRUE(mMatrix.SetGain(input, input % 2, 1));
            mInputs[input].assign(512, float(1 << input));
        }
    }
    void Mix(size_t frames)
    {
        const float* from[4];
        for (size_t input = 0; input < 4; ++input) from[input] = mInputs[input].data();
        for (auto& output : mOutputs) output.assign(frames, NAN);
        float* to[] = {mOutputs[0].data(), mOutputs[1].data()};
        mMatrix.Mix(from, to, frames);
    }
    std::vector<float> Flat(float level) const { return std::vector<float>(mOutputs[0].size(), level); }

    GainMatrix mMatrix;
    std::vector<float> mInputs[4], mOutputs[2];
};

TEST(GainMatrix, IsHeardAsSetAtFirstAndThenMovesWithinOneBlockToWhatAFactorStandsFor)
{
    constexpr struct {
        unsigned input, output;
        float gain, left, right;
    } kSteps[] = {
        {2, 0, 0, 1, 10}, {0, kAll, .5, .5, 10}, {kAll, 1, .5, .5, 5}, {kAll, kAll, 2, 1, 10}, {3, 0, 1, 17, 10}};
    Mixer mixer;
    mixer.Mix(127);
    EXPECT_EQ(mixer.mOutputs[0], mixer.Flat(1 + 4));
    for (const auto& step : kSteps) {
        const float before = mixer.mOutputs[0].back();
        ASSERT_TRUE(mixer.mMatrix.SetGain(step.input, step.output, step.gain));
        mixer.Mix(127);
        const auto& left = mixer.mOutputs[0];
        EXPECT_EQ(left.front(), before);
        for (size_t i = 0; i + 1 < left.size(); ++i)
            ASSERT_NEAR(left[i + 1] - left[i], (step.left - before) / 127, 1e-5);
        mixer.Mix(127);
        EXPECT_EQ(mixer.mOutputs[0], mixer.Flat(step.left));
        EXPECT_EQ(mixer.mOutputs[1], mixer.Flat(step.right));
    }
}

TEST(GainMatrix, NoStepIsHeardWhileAnotherThreadSetsGains)
{
    Mixer mixer;
    std::atomic<bool> done{false};
    std::atomic<unsigned> turn{0};
    std::thread setter([&] {
        for (; !done; ++turn) mixer.mMatrix.SetGain(turn % 4, kAll, float(turn % 3) / 2);
    });
    mixer.Mix(512);  // the first is heard as it is set
    float last = mixer.mOutputs[0].back(), most = 0;
    for (int block = 0; block < 500 || turn < 5000; ++block) {
        mixer.Mix(512);
        for (const float sample : mixer.mOutputs[0])
            most = std::max(most, std::abs(sample - std::exchange(last, sample)));
    }
    done = true;
    setter.join();
    EXPECT_LE(most, 5.1f / 512);
}

}  // namespace
}  // namespace platform::vector
