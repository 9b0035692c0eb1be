#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorLoops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using platform::vector::Crosspoint;
using platform::vector::loops::VectorLoops;

// The bytes that every loop of a set makes of the same samples, at lengths with and without a remainder.
std::vector<uint8_t> Output(const VectorLoops& set)
{
    std::vector<float> in(2048), out(2048);
    for (size_t i = 0; i < in.size(); ++i) in[i] = float(std::sin(double(i)) * 3);
    in[5] = std::numeric_limits<float>::quiet_NaN(), in[6] = 1e10f, in[7] = -65538.0f;
    std::vector<uint8_t> all;
    const auto keep = [&] {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(out.data());
        all.insert(all.end(), bytes, bytes + out.size() * sizeof(float));
    };
    auto* const integers = reinterpret_cast<uint16_t*>(out.data());
    for (const size_t count : {1, 31, 127}) {
        set.add(&in[0], &in[1], out.data(), count), keep();
        set.scaleAndAdd(&in[0], 0.1f, &in[1], out.data(), count), keep();
        set.clip(&in[0], -1, 1, out.data(), count), keep();
        set.toInt16(&in[0], 32767, integers, count), keep();
        set.toSwappedInt16(&in[0], 32767, integers, count), keep();
        for (unsigned channels = 1; channels <= platform::vector::kWeaveChannels; ++channels) {
            const float* from[platform::vector::kWeaveChannels];
            float* to[platform::vector::kWeaveChannels];
            for (unsigned i = 0; i < channels; ++i) from[i] = &in[128 * i], to[i] = &out[128 * i];
            set.interleave(from, channels, out.data(), channels + 1, count), keep();
            set.deinterleave(in.data(), channels + 1, to, channels, count), keep();
        }
    }
    const Crosspoint points[] = {{0, 0, 0.7f, 0.7f}, {2, 0, 0.1f, -0.4f}, {1, 1, 1, 1}};
    const float* from[] = {&in[0], &in[128], &in[256]};
    float* to[] = {&out[0], &out[128], &out[256]};
    for (const size_t crosspoints : {1, 3}) set.mix(points, crosspoints, from, to, 3, 127), keep();
    return all;
}

TEST(VectorKernels, BothInstructionSetsMakeTheSameBits)
{
    using namespace platform::vector::loops;
    if (&BestVectorLoops() == &kBaselineVectorLoops) return;  // there is only one here
    EXPECT_EQ(Output(kWideVectorLoops), Output(kBaselineVectorLoops));
}

TEST(VectorKernels, AMixIsTheSumOfItsCrosspointsAndWhatPassesAloneIsBitExact)
{
    const Crosspoint points[] = {{1, 0, 1, 1}, {0, 2, 0.5f, 0.5f}, {2, 2, -2, -2}};
    for (const size_t frames : {1, 7, 64, 127, 512}) {
        std::vector<float> in[3], out(3 * frames + 1, 9.0f);
        for (size_t i = 0; i < 3 * frames; ++i) in[i / frames].push_back(float(std::sin(double(i))));
        in[1][0] = -0.0f;
        const float* const from[] = {in[0].data(), in[1].data(), in[2].data()};
        float* const to[] = {&out[0], &out[frames], &out[2 * frames]};
        platform::vector::MixMatrix(points, 3, from, to, 3, frames);
        EXPECT_EQ(std::memcmp(to[0], from[1], frames * sizeof(float)), 0) << frames;
        for (size_t i = 0; i < frames; ++i) {
            ASSERT_EQ(to[1][i], 0) << "no input is silence";
            ASSERT_EQ(to[2][i], 0.5f * in[0][i] - 2 * in[2][i]) << frames << ' ' << i;
        }
        EXPECT_EQ(out.back(), 9) << "written beyond the block";
    }
}

}  // namespace
