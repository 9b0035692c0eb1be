#include "cli/RecordWords.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

std::string Read(RecordOptions options, RecordWish& wish)
{
    if (options.mFile.empty()) options.mFile = "a.wav";
    return ReadWords(options, wish);
}

TEST(RecordWords, RightWordsBecomeAWish)
{
    RecordWish wish;
    EXPECT_EQ(Read({.mRate = "44100", .mFormat = "s24", .mTime = "2.5"}, wish), "");
    EXPECT_EQ(wish.mFile.mRateHz, 44100u);
    EXPECT_EQ(wish.mFile.mFormat, record::SampleFormat::Signed24);
    EXPECT_EQ(wish.mSeconds, 2.5);
    EXPECT_EQ(Read({}, wish), "");
    EXPECT_EQ(wish.mFile.mFormat, record::SampleFormat::Float32);
}

TEST(RecordWords, AWrongWordIsQuotedWithAnExampleOfARightOne)
{
    const std::pair<RecordOptions, const char*> cases[] = {
        {{.mRate = "fast"}, "'fast'"},
        {{.mRate = "48000.5"}, "'48000.5'"},
        {{.mRate = "-1"}, "'-1'"},
        {{.mRate = "0"}, "'0'"},
        {{.mRate = "4000000"}, "'4000000'"},
        {{.mFormat = "u8"}, "'u8'"},
        {{.mChannels = "65"}, "'65'"},
        {{.mChannels = "both"}, "'both'"},
        {{.mTime = "soon"}, "'soon'"},
        {{.mTime = "0"}, "'0'"},
        {{.mTime = "nan"}, "'nan'"},
        {{.mTime = "inf"}, "'inf'"},
        {{.mTime = "-3"}, "'-3'"},
        {{.mTime = "10q"}, "'10q'"},
        {{.mTime = ""}, "''"},
        {{.mRate = ""}, "''"},
        {{.mSources = {"nobody"}}, "'nobody'"},
    };
    for (const auto& [options, quoted] : cases) {
        RecordWish wish;
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

}  // namespace
}  // namespace cli
