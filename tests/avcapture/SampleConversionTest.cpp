#include "avcapture/SampleConversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

using namespace avcapture;

namespace {

std::vector<uint8_t> Convert(uint32_t type, const std::vector<float>& samples, bool swapped = false)
{
    std::vector<uint8_t> bytes(samples.size() * OutputSampleBytes(type) + 4, 0xEE);
    ConvertSamples(type, samples.data(), swapped, bytes.data(), samples.size());
    EXPECT_EQ(std::vector(bytes.end() - 4, bytes.end()), std::vector<uint8_t>(4, 0xEE)) << "wrote beyond its end";
    return {bytes.begin(), bytes.end() - 4};
}

int16_t AsInt16(float sample)
{
    int16_t value;
    std::memcpy(&value, Convert(kOutputInt16Little, {sample}).data(), 2);
    return value;
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
    std::vector<float> ring(3000);
    for (size_t i = 0; i < ring.size(); ++i) ring[i] = float(std::sin(double(i)) * 1.2);
    std::vector<uint32_t> words(ring.size());
    std::memcpy(words.data(), ring.data(), ring.size() * 4);
    for (auto& word : words) word = __builtin_bswap32(word);
    std::vector<float> swapped(ring.size());
    std::memcpy(swapped.data(), words.data(), words.size() * 4);

    for (const size_t count : {0, 1, 2, 3, 7, 64, 127, 1023, 1024, 1025, 2999}) {
        for (const size_t start : {0, 1}) {
            const std::vector<float> samples(ring.begin() + start, ring.begin() + start + count);
            const auto* const bytes = reinterpret_cast<const uint8_t*>(samples.data());
            const std::vector<uint8_t> plain(bytes, bytes + count * 4);
            std::vector<uint8_t> little, big;
            for (const float sample : samples) {
                const auto value = uint16_t(int32_t(sample * 32767.0f));
                little.insert(little.end(), {uint8_t(value), uint8_t(value >> 8)});
                big.insert(big.end(), {uint8_t(value >> 8), uint8_t(value)});
            }
            const auto convert = [&](uint32_t type, const std::vector<float>& from, bool isSwapped) {
                std::vector<uint8_t> out(count * OutputSampleBytes(type));
                ConvertSamples(type, from.data() + start, isSwapped, out.data(), count);
                return out;
            };
            EXPECT_EQ(convert(kOutputFloat, ring, false), plain);
            EXPECT_EQ(convert(kOutputFloat, swapped, true), plain);
            EXPECT_EQ(convert(kOutputInt16Little, ring, false), little);
            EXPECT_EQ(convert(kOutputInt16Big, ring, false), big);
            EXPECT_EQ(convert(kOutputInt16Big, swapped, true), big);
        }
    }
    EXPECT_TRUE(Convert(kOutputNone, ring).empty());
}

}  // namespace
