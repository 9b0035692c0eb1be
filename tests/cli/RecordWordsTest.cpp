#include "cli/RecordWords.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

using record::FileType;
using record::SampleFormat;

std::string Read(RecordOptions options, RecordWish& wish)
{
    if (options.mFile.empty()) options.mFile = "a.wav";
    return ReadWords(options, wish);
}

TEST(RecordWords, RightWordsBecomeAWish)
{
    RecordWish wish;
    EXPECT_EQ(
        Read({.mChannels = "0", .mRate = "44.1k", .mFormat = "s24", .mTime = "2.5", .mMaxFileTime = "1:00"}, wish), "");
    EXPECT_EQ(std::tuple(wish.mFile.mRateHz, wish.mChannels, wish.mSeconds, wish.mMaxSeconds),
              std::tuple(44100u, 0u, 2.5, 60.0));
    struct Row {
        RecordOptions mOptions;
        FileType mType;
        SampleFormat mFormat;
    };
    for (const Row& row : {
             Row{{}, FileType::Wav, SampleFormat::Float32},
             Row{{.mFormat = "s24"}, FileType::Wav, SampleFormat::Signed24},
             Row{{.mFile = "a.FLAC"}, FileType::Flac, SampleFormat::Signed24},
             Row{{.mFormat = "s16", .mFile = "a.flac"}, FileType::Flac, SampleFormat::Signed16},
             Row{{.mFileType = "flac", .mFile = "a.wav"}, FileType::Flac, SampleFormat::Signed24},
             Row{{.mFileType = "raw", .mFile = "a.mp3"}, FileType::Raw, SampleFormat::Float32},
             Row{{.mFileType = "wav", .mFile = "a.flac"}, FileType::Wav, SampleFormat::Float32},
         }) {
        RecordWish read;
        EXPECT_EQ(Read(row.mOptions, read), "");
        EXPECT_EQ(std::pair(read.mFile.mType, read.mFile.mFormat), std::pair(row.mType, row.mFormat))
            << row.mOptions.mFile << row.mOptions.mFileType.value_or("");
        EXPECT_EQ(read.mFile.mRateHz, 0u) << "that of the device";
        EXPECT_EQ(read.mSources.size(), 1u) << "everything";
    }
    RecordWish track;
    EXPECT_EQ(Read({.mTracks = {"a=app:b"}}, track), "");
    EXPECT_EQ(std::pair(track.mSources.size(), track.mTracks.size()), std::pair(size_t(0), size_t(1)));
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
        {{.mTime = ""}, "''"},
        {{.mRate = ""}, "''"},
        {{.mMaxFileTime = "-3"}, "'-3'"},
        {{.mFileType = "mp3"}, "'mp3'"},
        {{.mSources = {"nobody"}}, "'nobody'"},
        {{.mTracks = {"app:a"}}, "'app:a'"},
    };
    for (const auto& [options, quoted] : cases) {
        RecordWish wish;
        const std::string wrong = Read(options, wish);
        EXPECT_NE(wrong.find(quoted), std::string::npos) << quoted << ": " << wrong;
        EXPECT_NE(wrong.find("for example"), std::string::npos) << wrong;
    }
    RecordWish wish;
    EXPECT_NE(Read({.mFile = "a.mp3"}, wish).find(".mp3"), std::string::npos);
    EXPECT_NE(Read({.mProgress = "xml"}, wish).find("'xml'"), std::string::npos);
    EXPECT_NE(ReadWords({}, wish), "");
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
