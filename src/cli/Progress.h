// Progress: what a person sees of a recording: a live line on a terminal, a line of result, or JSON.
#pragma once

#include "cli/RecordCommand.h"
#include "cli/Recorder.h"

namespace cli {

class Progress {
public:
    explicit Progress(const RecordingWish& wish);

    /// Shows the live line where standard error is a terminal, and tells once when the server goes or comes.
    void Show(const RecordingState& state, bool serverThere);
    /// Ends the live line.
    void Finish(const RecordingState& state);

    /// Greatest level so far, a channel each, full scale 1.0.
    const std::vector<float>& Peaks() const { return mPeaks; }

private:
    void Note(const RecordingState& state);
    void ClearLine();
    void TellWhoIsSilent(const std::vector<std::string>& waitingFor);

    const unsigned mRateHz;
    std::vector<float> mPeaks;
    const bool mIsTerminal;
    bool mLineShown = false;
    bool mServerThere = true;
    std::vector<std::string> mWaitingFor;
};

/// One line of result, or one JSON object, on standard output (on standard error where the sound went there).
void TellResult(const RecordingWish& wish, const RecordOptions& options, const RecordingState& state,
                const Progress& progress);

/// Decibels below full scale; silence is -inf.
double DecibelsOf(float level);

}  // namespace cli
