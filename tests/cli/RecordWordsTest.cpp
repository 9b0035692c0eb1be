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

TEST(RecordWords, TimesAndRatesAreReadAsPeopleWriteThem)
{
    const std::pair<const char*, double> times[] = {
        {"90", 90},  {"2.5", 2.5},    {"10:00", 600},  {"1:30:00", 5400}, {"0:00:01.5", 1.5},  {"5m", 300},
        {"10s", 10}, {"1h30m", 5400}, {"250ms", 0.25}, {"1.5h", 5400},    {"1m250ms", 60.25},  {"90:00", 5400},
        {"", 0},     {"1:60", 0},     {"1:2:3:4", 0},  {"1:-1", 0},       {"30m1h", 0},        {"5m5m", 0},
        {"5", 5},    {"m", 0},        {"5 m", 0},      {"1:", 0},         {":5", 0},           {"1.5:00", 0},
        {"5m3", 0},  {"0ms", 0},      {"nan", 0},      {"inf", 0},        {"99999999999h", 0},
    };
    for (const auto& [text, expected] : times) {
        double seconds = 0;
        const std::string wrong = ReadDuration(text, seconds);
        EXPECT_EQ(wrong.empty() ? seconds : 0, expected) << text;
        EXPECT_EQ(wrong.empty(), wrong.find("'" + std::string(text) + "'") == wrong.npos) << text;
    }
    const std::pair<const char*, unsigned> rates[] = {{"48000", 48000},  {"48k", 48000},   {"44.1k", 44100},
                                                      {"22.05K", 22050}, {"384k", 384000}, {"385k", 0},
                                                      {"k", 0},          {"", 0},          {"44.10001k", 0}};
    for (const auto& [text, expected] : rates) {
        unsigned rateHz = 0;
        EXPECT_EQ(ReadRate(text, rateHz).empty(), expected != 0) << text;
        EXPECT_EQ(rateHz, expected) << text;
    }
}

TEST(RecordWords, TracksAreANameAndSourcesBetweenCommas)
{
    TrackWish track;
    EXPECT_EQ(ReadTrack(R"(my voices=app:a\,b=c\\,input:default)", track), "");
    EXPECT_EQ(track.mName, "my voices");
    ASSERT_EQ(track.mSources.size(), 2u);
    EXPECT_EQ(track.mSources[0].mValue, R"(a,b=c\)");
    EXPECT_EQ(Written(track.mSources[1]), "input:default");
    for (const char* text : {"app:a", "=app:a", "x=", "x=app:a,", "x=nobody"})
        EXPECT_NE(ReadTrack(text, track), "") << text;
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
