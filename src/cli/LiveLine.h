// LiveLine: a recording as it stands, five times a second: time, meters, lost time and size in one line of a terminal,
// or levels as JSON lines.
// Start at Show; FormatLiveLine makes the line.
#pragma once

#include "record/RecordingState.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cli {

class Messages;

struct LiveLineSettings {
    unsigned mRateHz = 48000;
    unsigned mBytesPerFrame = 0;  // in the file; 0: not constant, and no size is shown
};

/// The live line for a terminal of this many columns: it takes at most one less, since a character in the last column
/// makes some terminals begin another line.
///
/// A meter for each track, or for each channel of a single track of one or two. Meters take the room that the rest
/// leaves; where room is short, the size goes first, then bars, then meters, then lost time.
std::string FormatLiveLine(const record::RecordingState& state, const LiveLineSettings& settings, size_t columns);

/// @thread that of its Messages
class LiveLine {
public:
    LiveLine(Messages& messages, const LiveLineSettings& settings) : mMessages(messages), mSettings(settings) {}
    ~LiveLine() { Clear(); }
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;

    /// Shows how the recording stands and takes note of its peaks. On a terminal that takes no escape sequences: a line
    /// every ten seconds of the recording. No effect where standard error is no terminal, and in the background of one.
    void Show(const record::RecordingState& state) noexcept;

    /// Takes note of the peaks without showing anything: for the last state.
    void Note(const record::RecordingState& state) noexcept;

    void Clear() noexcept;

    /// Greatest level so far, a channel each, full scale 1.0.
    const std::vector<float>& Peaks() const { return mPeaks; }

private:
    void ShowOnTerminal(const record::RecordingState& state);

    Messages& mMessages;
    const LiveLineSettings mSettings;
    std::vector<float> mPeaks;
    std::vector<float> mUnshownPeaks;  // since the last plain line
    uint64_t mPlainLines = 0;
};

}  // namespace cli
