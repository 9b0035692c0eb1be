#include "capture/buffers/AI.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(AI, WeavesAndSplitsAndScales)
{
    const float left[] = {1, 2, 3}, right[] = {4, 5, 6};
    std::vector<float> woven(6), a(4, 9), b(4, 9);
    EXPECT_EQ(AI_InterleaveFloat(left, right, 12, woven.data()), 0);
    EXPECT_EQ(woven, (std::vector<float>{1, 4, 2, 5, 3, 6}));
    EXPECT_EQ(AI_DeinterleaveFloat(woven.data(), 24, a.data(), b.data()), 0);
    EXPECT_EQ(a, (std::vector<float>{1, 2, 3, 9}));
    EXPECT_EQ(AI_DeinterleaveFloatAndLamify(woven.data(), 16, a.data(), b.data()), 0);
    EXPECT_EQ(b, (std::vector<float>{131072, 163840, 6, 9}));
    EXPECT_EQ(AI_DeinterleaveFloat(woven.data(), 23, a.data(), b.data()), 1);
    EXPECT_EQ(AI_DeinterleaveFloatAndLamify(woven.data(), 23, a.data(), b.data()), 1);
    EXPECT_EQ(a[0], 32768);
}

TEST(AI, LimitsWholeSamplesOnly)
{
    std::vector<float> samples = {2, -2, 0.25F};
    EXPECT_EQ(AI_LimitFloat(samples.data(), 6, 1), 1);
    EXPECT_EQ(AI_LimitFloat(samples.data(), 0, 1), 0);
    EXPECT_EQ(samples[0], 2);
    EXPECT_EQ(AI_LimitFloat(samples.data(), 12, 0.5F), 0);
    EXPECT_EQ(samples, (std::vector<float>{0.5F, -0.5F, 0.25F}));
}

TEST(AI, ChoosesRatesByUpperEndsAndCloserOnesFromAboveOnly)
{
    const AudioValueRange ranges[] = {{32000, 32000}, {44100, 44100}, {8000, 96000}, {48000, 48000}};
    EXPECT_EQ(capture::BestRate(ranges), 96000);
    EXPECT_EQ(capture::BestRate({}), 0);
    EXPECT_EQ(capture::ClosestRate(ranges, 44000), 44100);
    EXPECT_EQ(capture::ClosestRate(ranges, 44200), 48000) << "44,100 is closer, but below";
    EXPECT_EQ(capture::ClosestRate(ranges, 38050), 32000) << "as far as 44,100, and the first";
    EXPECT_EQ(capture::ClosestRate(ranges, 200000), 32000);
    EXPECT_EQ(capture::ClosestRate({}, 44100), 0);
}

}  // namespace
