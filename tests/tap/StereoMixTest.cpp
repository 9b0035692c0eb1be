#include "tap/StereoMix.h"

#include <gtest/gtest.h>

#include <vector>

using platform::machine::ChannelPosition;
using tap::StereoMix;

namespace {

constexpr ChannelPosition Unpositioned(unsigned number)
{
    return ChannelPosition(unsigned(ChannelPosition::Auxiliary0) + number);
}

}  // namespace

TEST(StereoMix, ASurroundFilmKeepsEveryVoiceOnItsSide)
{
    struct Row {
        ChannelPosition mPosition;
        float mLeft, mRight;
    };
    constexpr float h = 0.70710678f;
    const Row rows[] = {{ChannelPosition::FrontLeft, 1, 0},
                        {ChannelPosition::FrontRight, 0, 1},
                        {ChannelPosition::FrontCenter, h, h},
                        {ChannelPosition::LowFrequency, 0, 0},
                        {ChannelPosition::SideLeft, h, 0},
                        {ChannelPosition::RearRight, 0, h},
                        {ChannelPosition::RearCenter, .5, .5},
                        {ChannelPosition::TopRearLeft, h, 0},
                        {ChannelPosition::Mono, 1, 1},
                        {Unpositioned(4), 1, 0},
                        {Unpositioned(7), 0, 1},
                        {Unpositioned(0), h, 0},
                        {Unpositioned(1), 0, h}};
    for (const Row& row : rows) {
        const float one[] = {1, 1, 1};
        const StereoMix::Channel channels[] = {{row.mPosition, one}};
        float stereo[4] = {9, 9, 9, 9}, mono[2] = {9, 9};
        StereoMix(2, 4, 7).Mix(channels, 1, 2, stereo);
        StereoMix(1, 4, 7).Mix(channels, 1, 2, mono);
        EXPECT_EQ(stereo[2], row.mLeft) << unsigned(row.mPosition);
        EXPECT_EQ(stereo[3], row.mRight) << unsigned(row.mPosition);
        EXPECT_FLOAT_EQ(mono[1], (row.mLeft + row.mRight) / 2) << unsigned(row.mPosition);
    }
}

TEST(StereoMix, StereoPassesBitExactAndChannelsAdd)
{
    std::vector<float> left(64), right(64);
    for (int i = 0; i < 64; ++i) left[size_t(i)] = 1.0f / float(i + 3), right[size_t(i)] = -7.3f * float(i);
    const StereoMix::Channel channels[] = {{ChannelPosition::FrontRight, right.data()},
                                           {ChannelPosition::FrontLeft, left.data()}};
    float output[128];
    StereoMix(2).Mix(channels, 0, 64, output);
    for (size_t i = 0; i < 64; ++i) {
        ASSERT_EQ(output[2 * i], left[i]);
        ASSERT_EQ(output[2 * i + 1], right[i]);
    }
    StereoMix(2).Mix({}, 0, 64, output);
    EXPECT_EQ(std::count(output, output + 128, 0.0f), 128) << "nothing linked is silence";
}
