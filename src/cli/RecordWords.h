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

/// Reads a sample rate; nothing written leaves it alone. @return an empty string, or what is wrong
std::string ReadRate(const std::string& text, unsigned& rateHz);

/// Reads rate, channels, format, file and sources into the wish. A rate that was not given stays 0.
/// @return an empty string, or what is wrong: the word quoted, and an example of a right one
std::string ReadWords(const RecordOptions& options, RecordingWish& wish, std::vector<Source>& sources);

/// Gives a recording that keeps channels as many as its tracks have together.
/// @return an empty string, or what is wrong: they are more than a mix takes
std::string CountKeptChannels(RecordingWish& wish);

/// The count of frames that the time asked for means, once the rate is known.
void FixFrames(const RecordOptions& options, RecordingWish& wish);

}  // namespace cli
