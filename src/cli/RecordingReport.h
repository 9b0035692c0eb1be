// RecordingReport: what a person and a program learn of a recording that has ended, and of its events.
// Why: both are made from one account, so that the numbers of a sentence are those of the JSON.
// Start at TellResult. docs/formats/recording-json.md describes the JSON.
#pragma once

#include "record/FileSettings.h"
#include "record/RecordingState.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

class Messages;

/// The line of result: "talk.wav: 60.000 s, ..., lost: 0.900 s of app:Firefox (recorder stopped)".
///
/// @param result  mState.mPeaks are those of the whole recording
std::string FormatResult(const record::FileSettings& file, const record::RecordingResult& result);

/// What else a person should know, a sentence each: silence of sources that did not play, sources and tracks that were
/// silent throughout, and clipping.
std::vector<std::string> FormatNotes(const record::FileSettings& file, const record::RecordingResult& result);

nlohmann::json ResultToJSON(const record::FileSettings& file, const record::RecordingResult& result);
nlohmann::json EventToJSON(const record::RecordingEvent& event, unsigned rateHz);
/// Decibels, a number a channel; null for silence, since JSON has no infinity.
nlohmann::json PeaksToJSON(const std::vector<float>& peaks);

/// Shows the result as a line, or as one JSON object, on standard output (on standard error where the sound went to
/// standard output), and the notes on standard error. Adds {"type": "result", ...} to messages in JSON lines.
///
/// @param result  as for FormatResult
void TellResult(const record::FileSettings& file, const record::RecordingResult& result, bool asJSON,
                Messages& messages);

/// Shows an event as it happens: its sentence, or {"type": "event", ...}.
void TellEvent(const record::RecordingEvent& event, unsigned rateHz, Messages& messages) noexcept;

/// "Sound from 0.084 s after the command was started."
std::string DescribeStart(uint64_t nanos);

}  // namespace cli
