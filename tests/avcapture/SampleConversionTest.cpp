#include "avcapture/SampleConversion.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <vector>

using namespace avcapture;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Convert(uint32_t type, const float* ring, size_t count, bool swapped = false)
{
    Bytes bytes(count * OutputSampleBytes(type) + 1, 0xEE);
    ConvertSamples(type, ring, swapped, bytes.data(), count);
    EXPECT_EQ(bytes.back(), 0xEE) << "wrote beyond its end";
    bytes.pop_back();
    return bytes;
}

int16_t AsInt16(float sample)
{
    const Bytes bytes = Convert(kOutputInt16Little, &sample, 1);
    return int16_t(bytes[0] | bytes[1] << 8);
}

TEST(SampleConversion, IntegersAreTruncatedTowardsZeroAndWrapBeyondFullScale)
{
    EXPECT_EQ(AsInt16(1.0f), 32767);
    EXPECT_EQ(AsInt16(-1.0f), -32767);
    EXPECT_EQ(AsInt16(0.99999f / 32767), 0);
    EXPECT_EQ(AsInt16(-1.99f / 32767), -1);
    EXPECT_EQ(AsInt16(1.5f), int16_t(49150));
    EXPECT_EQ(AsInt16(-1.5f), int16_t(-49150));
    EXPECT_EQ(AsInt16(3.0f), int16_t(98301));
    const float infinity = std::numeric_limits<float>::infinity();
    for (const float beyond : {1e10f, -1e10f, infinity, -infinity, std::nanf("")}) EXPECT_EQ(AsInt16(beyond), 0);
}

// Every length and start against a plain rendering, so that heads, tails and pieces are all met.
TEST(SampleConversion, EveryLengthAndAlignmentComesOutInTheTypesByteOrder)
{
    std::vector<float> ring(3000), swapped(3000);
    for (size_t i = 0; i < ring.size(); ++i) {
        ring[i] = float(std::sin(double(i)) * 1.2);
        swapped[i] = std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(ring[i])));
    }
    for (const size_t count : {0, 1, 2, 3, 7, 64, 127, 1023, 1024, 1025, 2999}) {
        for (const size_t start : {0, 1}) {
            const auto* bytes = reinterpret_cast<const uint8_t*>(&ring[start]);
            const Bytes plain(bytes, bytes + count * sizeof(float));
            Bytes little, big;
            for (size_t i = start; i < start + count; ++i) {
                const auto value = uint16_t(int32_t(ring[i] * 32767.0f));
                little.insert(little.end(), {uint8_t(value), uint8_t(value >> 8)});
                big.insert(big.end(), {uint8_t(value >> 8), uint8_t(value)});
            }
            EXPECT_EQ(Convert(kOutputFloat, &ring[start], count), plain);
            EXPECT_EQ(Convert(kOutputFloat, &swapped[start], count, true), plain);
            EXPECT_EQ(Convert(kOutputInt16Little, &ring[start], count), little);
            EXPECT_EQ(Convert(kOutputInt16Big, &ring[start], count), big);
            EXPECT_EQ(Convert(kOutputInt16Big, &swapped[start], count, true), big);
            EXPECT_TRUE(Convert(kOutputNone, &ring[start], count).empty());
        }
    }
}

}  // namespace
