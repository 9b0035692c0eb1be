#include "cli/Progress.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include <unistd.h>

namespace cli {

namespace {

constexpr double kMeterFloorDB = -60;
constexpr int kMeterCells = 24;

std::string Bar(float peak)
{
    const double filled = (DecibelsOf(peak) - kMeterFloorDB) / -kMeterFloorDB * kMeterCells;
    const int cells = std::clamp(int(std::lround(std::max(filled, 0.0))), 0, kMeterCells);
    return std::string(size_t(cells), '#') + std::string(size_t(kMeterCells - cells), '.');
}

std::string Clock(uint64_t frames, unsigned rateHz)
{
    const uint64_t tenths = frames * 10 / rateHz;
    return fmt::format("{:d}:{:02d}:{:02d}.{:d}", tenths / 36000, tenths / 600 % 60, tenths / 10 % 60, tenths % 10);
}

std::string Level(float peak)
{
    return peak > 0 ? fmt::format("{:.1f}", DecibelsOf(peak)) : "-inf";
}

// Bars for as many channels as a line has room for, then levels alone.
std::string Meters(const std::vector<float>& peaks)
{
    if (peaks.size() == 1) return fmt::format("{} {:>6}", Bar(peaks[0]), Level(peaks[0]));
    if (peaks.size() == 2)
        return fmt::format("L {} {:>6}  R {} {:>6}", Bar(peaks[0]), Level(peaks[0]), Bar(peaks[1]), Level(peaks[1]));
    constexpr size_t kMostLevels = 8;
    std::string text;
    for (size_t c = 0; c < std::min(peaks.size(), kMostLevels); ++c) text += fmt::format("{:>6} ", Level(peaks[c]));
    return text + (peaks.size() > kMostLevels ? "..." : "");
}

std::string Levels(const std::vector<float>& peaks)
{
    std::string text;
    for (const float peak : peaks) text += (text.empty() ? "" : " / ") + Level(peak);
    return text;
}

nlohmann::json LevelsForJSON(const std::vector<float>& peaks)
{
    nlohmann::json list = nlohmann::json::array();
    // JSON has no infinity: silence has no level.
    for (const float peak : peaks) list.push_back(peak > 0 ? nlohmann::json(DecibelsOf(peak)) : nlohmann::json());
    return list;
}

const char* NameOf(record::SampleFormat format)
{
    switch (format) {
        case record::SampleFormat::Float32:
            return "f32";
        case record::SampleFormat::Signed24:
            return "s24";
        case record::SampleFormat::Signed16:
            return "s16";
    }
    return "";
}

}  // namespace

double DecibelsOf(float level)
{
    return level > 0 ? 20 * std::log10(double(level)) : -std::numeric_limits<double>::infinity();
}

Progress::Progress(const RecordingWish& wish)
    : mRateHz(wish.mRateHz), mPeaks(wish.mChannels), mIsTerminal(isatty(STDERR_FILENO) == 1)
{
}

void Progress::Note(const RecordingState& state)
{
    for (size_t c = 0; c < mPeaks.size(); ++c) mPeaks[c] = std::max(mPeaks[c], state.mPeaks[c]);
}

void Progress::ClearLine()
{
    if (!mLineShown) return;
    fmt::print(stderr, "\r\033[K");
    std::fflush(stderr);  // a library may have given it a buffer
    mLineShown = false;
}

void Progress::Show(const RecordingState& state, bool serverThere)
{
    Note(state);
    if (serverThere != mServerThere) {
        mServerThere = serverThere;
        ClearLine();
        fmt::print(stderr, "corvane: the audio server is {}\n",
                   serverThere ? "back; recording goes on" : "away; recording silence until it is back");
    }
    TellWhoIsSilent(state.mFeed.mWaitingFor);
    if (!mIsTerminal) return;
    ClearLine();
    fmt::print(stderr, "{}  {} dB", Clock(state.mFrames, mRateHz), Meters(state.mPeaks));
    if (const uint64_t lost = state.FramesWithoutSound()) fmt::print(stderr, "  lost {}", lost);
    std::fflush(stderr);
    mLineShown = true;
}

void Progress::TellWhoIsSilent(const std::vector<std::string>& waitingFor)
{
    if (waitingFor == mWaitingFor) return;
    ClearLine();
    for (const std::string& words : waitingFor)
        if (std::ranges::count(mWaitingFor, words) == 0)
            fmt::print(stderr, "corvane: nothing comes from {}; the recording is silent until it does\n", words);
    for (const std::string& words : mWaitingFor)
        if (std::ranges::count(waitingFor, words) == 0) fmt::print(stderr, "corvane: {} is there\n", words);
    mWaitingFor = waitingFor;
}

void Progress::Finish(const RecordingState& state)
{
    Note(state);
    ClearLine();
}

void TellResult(const RecordingWish& wish, const RecordOptions& options, const RecordingState& state,
                const Progress& progress)
{
    std::FILE* const to = wish.mPath == "-" ? stderr : stdout;
    const double seconds = double(state.mFrames) / wish.mRateHz;
    if (options.mJSON) {
        const nlohmann::json result = {{"file", wish.mPath},
                                       {"format", NameOf(wish.mFormat)},
                                       {"rate", wish.mRateHz},
                                       {"channels", wish.mChannels},
                                       {"frames", state.mFrames},
                                       {"seconds", seconds},
                                       {"frames_lost", state.mFeed.mFramesLost},
                                       {"frames_dropped", state.mFramesDropped},
                                       {"frames_missed", state.mFeed.mFramesMissed},
                                       {"frames_silent", state.mFeed.mFramesSilent},
                                       {"clipped_samples", state.mClippedSamples},
                                       {"peak_db", LevelsForJSON(progress.Peaks())}};
        fmt::print(to, "{}\n", result.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
        return;
    }
    fmt::print(to, "{}: {:.3f} s, {} frames at {} Hz, {}, peak {} dB, frames lost: {}\n",
               wish.mPath == "-" ? "standard output" : wish.mPath, seconds, state.mFrames, wish.mRateHz,
               NameOf(wish.mFormat), Levels(progress.Peaks()), state.FramesWithoutSound());
    if (state.mFeed.mFramesMissed > 0)
        fmt::print(stderr, "corvane: the audio server was late with {} frames; silence stands in their place\n",
                   state.mFeed.mFramesMissed);
    if (state.mFramesDropped > 0)
        fmt::print(stderr, "corvane: the disk was too slow for {} frames; silence stands in their place\n",
                   state.mFramesDropped);
    if (state.mFeed.mFramesSilent > 0)
        fmt::print(stderr, "corvane: {:.2f} s are silent, until every source had begun or while one brought nothing\n",
                   double(state.mFeed.mFramesSilent) / wish.mRateHz);
    if (state.mClippedSamples > 0)
        fmt::print(stderr, "corvane: {} samples lay beyond full scale and were cut; -f f32 keeps them\n",
                   state.mClippedSamples);
}

}  // namespace cli
