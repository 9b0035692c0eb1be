// RecordWords: the words of "corvane record", read and checked before anything is touched.
#pragma once

#include "cli/RecordCommand.h"
#include "cli/Recorder.h"
#include "cli/Sources.h"

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

/// Reads rate, channels, format, file and sources into the wish. A rate that was not given stays 0.
/// @return an empty string, or what is wrong: the word quoted, and an example of a right one
std::string ReadWords(const RecordOptions& options, RecordingWish& wish, std::vector<Source>& sources);

/// Gives a recording that keeps channels as many as its tracks have together.
/// @return an empty string, or what is wrong: they are more than a mix takes
std::string CountKeptChannels(RecordingWish& wish);

/// The count of frames that the time asked for means, once the rate is known.
void FixFrames(const RecordOptions& options, RecordingWish& wish);

}  // namespace cli
