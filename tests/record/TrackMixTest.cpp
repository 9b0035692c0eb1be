#include "record/TrackMix.h"

#include <gtest/gtest.h>

#include <vector>

namespace record {
namespace {

TEST(TrackMix, ChannelsGoWhereTheTrackHasThem)
{
    struct Row {
        std::vector<float> mSource;  // a frame
        unsigned mTrackChannels;
        std::vector<float> mTrack;
    };
    const Row rows[] = {
        {{0.5f}, 1, {0.5f}},
        {{0.5f}, 2, {0.5f, 0.5f}},
        {{0.5f}, 3, {0.5f, 0.5f, 0}},
        {{1, -0.5f}, 1, {0.25f}},
        {{1, -0.5f}, 2, {1, -0.5f}},
        {{1, -0.5f}, 3, {1, -0.5f, 0}},
        {{1, 2, 4, 8, 16, 32}, 2, {21, 42}},
        {{1, 2, 4, 8, 16, 32}, 4, {17, 34, 4, 8}},
        {{1, 2, 3, 6}, 1, {3}},
    };
    constexpr unsigned kFirst = 2, kFrames = 3;
    for (const Row& row : rows) {
        const auto sourceChannels = unsigned(row.mSource.size()), fileChannels = kFirst + row.mTrackChannels + 1;
        std::vector<float> source, file(kFrames * fileChannels, 100), expected = file;
        for (unsigned f = 0; f < kFrames; ++f) {
            for (const float sample : row.mSource) source.push_back(sample * float(1 << f));
            for (unsigned c = 0; c < row.mTrackChannels; ++c)
                expected[f * fileChannels + kFirst + c] += row.mTrack[c] * float(1 << f);
        }
        TrackMix(sourceChannels, row.mTrackChannels, kFirst, fileChannels).Add(source.data(), kFrames, file.data());
        EXPECT_EQ(file, expected) << sourceChannels << " into " << row.mTrackChannels;
    }
}

}  // namespace
}  // namespace record
