#include "cli/RecordWords.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

std::string Read(RecordOptions options, RecordingWish& wish)
{
    std::vector<Source> sources;
    if (options.mFile.empty()) options.mFile = "a.wav";
    const std::string wrong = ReadWords(options, wish, sources);
    if (wrong.empty() && wish.mRateHz == 0) wish.mRateHz = 48000;
    FixFrames(options, wish);
    return wrong;
}

TEST(RecordWords, RightWordsBecomeAWish)
{
    RecordingWish wish;
    EXPECT_EQ(Read({.mRate = "44100", .mFormat = "s24", .mTime = "2.5"}, wish), "");
    EXPECT_EQ(wish.mRateHz, 44100u);
    EXPECT_EQ(wish.mFormat, record::SampleFormat::Signed24);
    EXPECT_EQ(wish.mFrames, 110250u);
    EXPECT_EQ(Read({}, wish), "");
    EXPECT_EQ(wish.mFormat, record::SampleFormat::Float32);
}

TEST(RecordWords, AWrongWordIsQuotedWithAnExampleOfARightOne)
{
    const std::pair<RecordOptions, const char*> cases[] = {
        {{.mRate = "fast"}, "'fast'"}, {{.mRate = "48000.5"}, "'48000.5'"}, {{.mRate = "-1"}, "'-1'"},
        {{.mRate = "0"}, "'0'"},       {{.mRate = "4000000"}, "'4000000'"}, {{.mFormat = "u8"}, "'u8'"},
        {{.mChannels = "65"}, "'65'"}, {{.mChannels = "both"}, "'both'"},   {{.mTime = "soon"}, "'soon'"},
        {{.mTime = "0"}, "'0'"},       {{.mTime = "nan"}, "'nan'"},         {{.mTime = "inf"}, "'inf'"},
        {{.mTime = "-3"}, "'-3'"},     {{.mTime = "10q"}, "'10q'"},         {{.mSources = {"nobody"}}, "'nobody'"},
    };
    for (const auto& [options, quoted] : cases) {
        RecordingWish wish;
        const std::string wrong = Read(options, wish);
        EXPECT_NE(wrong.find(quoted), std::string::npos) << quoted << ": " << wrong;
        EXPECT_NE(wrong.find("for example"), std::string::npos) << wrong;
    }
}

TEST(RecordWords, KeptChannelsAreCountedTogetherUpToWhatAMixTakes)
{
    RecordingWish wish;
    wish.mTracks = {{.mChannels = 62}, {.mChannels = 2}};
    wish.mChannels = 2;
    EXPECT_EQ(CountKeptChannels(wish), "");
    EXPECT_EQ(wish.mChannels, 2u) << "which are mixed";
    wish.mKeepsChannels = true;
    EXPECT_EQ(CountKeptChannels(wish), "");
    EXPECT_EQ(wish.mChannels, 64u);
    wish.mTracks.push_back({.mChannels = 1});
    EXPECT_NE(CountKeptChannels(wish).find("65 channels"), std::string::npos);
}

}  // namespace
}  // namespace cli
