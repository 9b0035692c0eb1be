#include "cli/RecordingReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace cli {
namespace {

using record::RecordingResult;
using testing::ElementsAre;

const record::FileSettings kFile{.mPath = "talk.wav", .mFormat = record::SampleFormat::Signed16, .mChannels = 2};
constexpr size_t kFrames = 480'000;

// Silent frames of a source stand in the order of the causes.
RecordingResult ResultOf(std::vector<record::SourceState> sources, uint64_t lost, std::vector<float> peaks = {0.5f, 1})
{
    return {.mState = {.mFrames = kFrames,
                       .mFramesLost = lost,
                       .mPeaks = std::move(peaks),
                       .mTracks = {{"mic", 0, 1}, {"app:a", 1, 1}},
                       .mSources = std::move(sources)},
            .mPaths = {"talk.wav"}};
}

TEST(RecordingReport, TheLineNamesWhatWasLostBySourceAndCause)
{
    const std::string start = "talk.wav: 10.000 s, 480000 frames at 48000 Hz, s16, peak -6.0 / 0.0 dB, lost: ";
    const std::pair<RecordingResult, const char*> cases[] = {
        {ResultOf({{"app:a", {9600}}}, 0), "nothing"},
        {ResultOf({{"app:a", {0, 0, 0, 43200}}, {"mic"}}, 43200), "0.900 s of app:a (recorder stopped)"},
        {ResultOf({{"app:a", {0, 480}}, {"mic", {0, 0, 0, 0, 4800}}}, 5000),
         "0.104 s in all: 0.100 s of mic (disk or machine too slow), 0.010 s of app:a (not delivered)"},
        {ResultOf({{"app:a", {0, 0, 960}}, {"b", {0, 0, 960}}, {"c", {0, 0, 960}}}, 960),
         "0.020 s of every source (audio server away)"},
        {ResultOf({{"a", {0, 480}}, {"b", {0, 480}}, {"c", {0, 480}}, {"d\033", {0, 480}}, {"e", {0, 480}}, {"f"}},
                  600),
         "0.013 s in all: 0.010 s of a (not delivered), 0.010 s of b (not delivered), 0.010 s of c (not delivered), "
         "0.010 s of d\uFFFD (not delivered) and 1 more"},
    };
    for (const auto& [result, lost] : cases) EXPECT_EQ(FormatResult(kFile, result), start + lost);
}

TEST(RecordingReport, NotesNameSilenceAndTrueAdvice)
{
    RecordingResult result = ResultOf({{"app:a", {4800}, false}, {"input:m", {kFrames - 10, 0, 10}}}, 10);
    EXPECT_THAT(FormatNotes(kFile, result),
                ElementsAre("app:a played nothing for 0.100 s", "app:a brought nothing at the end",
                            "input:m was silent throughout. Is it the right input? See: corvane list inputs"));
    result = ResultOf({{"app:a"}, {"mic"}}, 0, {0, 0.5f});
    result.mState.mClippedSamples = 7;
    const std::string clipped = "7 samples lay beyond full scale and were clipped; ";
    EXPECT_THAT(
        FormatNotes(kFile, result),
        ElementsAre("mic was silent throughout. Is it muted, or does it play silence?", clipped + "-f f32 keeps them"));
    record::FileSettings flac = kFile;
    flac.mType = record::FileType::Flac;
    EXPECT_EQ(FormatNotes(flac, result).back(), clipped + "-f f32 keeps them, in a .wav file");
}

TEST(RecordingReport, JSONHoldsTheAccountOfEachSource)
{
    RecordingResult result = ResultOf({{"app:a", {1, 2, 3, 4, 5}, false}}, 14, {0.5f, 0});
    result.mSilences = {{0, record::SilenceCause::ServerAway, 24000, 3}};
    result.mEvents = {{24000, "moved", "app:a", "it moved"}};
    EXPECT_EQ(ResultToJSON(kFile, result), nlohmann::json::parse(R"({
        "file": "talk.wav", "files": ["talk.wav"], "file_type": "wav", "format": "s16", "rate": 48000, "channels": 2,
        "frames": 480000, "seconds": 10.0, "frames_lost": 14, "clipped_samples": 0, "peak_db": [-6.02, null],
        "tracks": [{"name": "mic", "first_channel": 0, "channels": 1},
                   {"name": "app:a", "first_channel": 1, "channels": 1}],
        "sources": [{"source": "app:a", "delivers": false, "silent": {"not_playing": 1, "not_delivered": 2,
                     "server_away": 3, "stopped": 4, "too_slow": 5}}],
        "silences": [{"source": "app:a", "cause": "server_away", "start": 24000, "frames": 3, "start_seconds": 0.5}],
        "silences_cut": false,
        "events": [{"frame": 24000, "seconds": 0.5, "kind": "moved", "source": "app:a", "text": "it moved"}]})"));
}

}  // namespace
}  // namespace cli
