// RecordWords: the words of "corvane record", read and checked before anything is touched.
#pragma once

#include "cli/RecordCommand.h"
#include "cli/Sources.h"
#include "record/FileSettings.h"

#include <optional>
#include <string>
#include <vector>

namespace cli {

constexpr unsigned kMinimumRateHz = 8000;
constexpr unsigned kMaximumRateHz = 384000;
constexpr unsigned kMostChannels = 64;

/// One "--track NAME=SOURCE,SOURCE".
struct TrackWish {
    std::string mName;
    std::vector<Source> mSources;  // at least one
};

/// Reads a sample rate: "48000", "48k", "44.1k". @return an empty string, or what is wrong
std::string ReadRate(const std::string& text, unsigned& rateHz);

/// Reads a time above 0: "90", "2.5", "10:00", "1:30:00", "250ms", "5m", "1h30m". @return as ReadRate
std::string ReadDuration(const std::string& text, double& seconds);

/// Reads "NAME=SOURCE,SOURCE"; "\," is a comma in a source. @return as ReadRate
std::string ReadTrack(const std::string& text, TrackWish& track);

/// The words of a recording, read.
struct RecordWish {
    record::FileSettings mFile;         // a rate of 0: that of the device; its channels are not known yet
    unsigned mChannels = 2;             // of the mix; 0: every source keeps its own
    std::vector<Source> mSources;       // of the mix, or a track each where every source keeps its own
    std::vector<TrackWish> mTracks;     // as they were named; then the sources above are one more track, if any
    std::optional<double> mSeconds;     // none: until stopped
    std::optional<double> mMaxSeconds;  // of one file
    bool mReportsLevels = false;        // as JSON lines, while it records
};

/// Reads and checks all words but those that only the server can judge.
/// @return an empty string, or what is wrong: the word quoted, and an example of a right one
std::string ReadWords(const RecordOptions& options, RecordWish& wish);

}  // namespace cli
