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

const char* NameOf(SampleFormat format)
{
    switch (format) {
        case SampleFormat::Float32:
            return "f32";
        case SampleFormat::Signed24:
            return "s24";
        case SampleFormat::Signed16:
            return "s16";
    }
    return "";
}

uint64_t FramesWithoutSound(const RecordingState& state)
{
    return state.mFramesLost + state.mFramesDropped + state.mFramesMissed;
}

// JSON has no infinity: silence has no level.
nlohmann::json LevelOrNull(float peak)
{
    return peak > 0 ? nlohmann::json(DecibelsOf(peak)) : nlohmann::json();
}

}  // namespace

double DecibelsOf(float level)
{
    return level > 0 ? 20 * std::log10(double(level)) : -std::numeric_limits<double>::infinity();
}

Progress::Progress(unsigned rateHz) : mRateHz(rateHz), mIsTerminal(isatty(STDERR_FILENO) == 1) {}

void Progress::Note(const RecordingState& state)
{
    for (unsigned c = 0; c < Recorder::kChannels; ++c) mPeak[c] = std::max(mPeak[c], state.mPeak[c]);
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
    if (!mIsTerminal) return;
    ClearLine();
    fmt::print(stderr, "{}  L {} {:>6}  R {} {:>6} dB", Clock(state.mFrames, mRateHz), Bar(state.mPeak[0]),
               Level(state.mPeak[0]), Bar(state.mPeak[1]), Level(state.mPeak[1]));
    if (const uint64_t lost = FramesWithoutSound(state)) fmt::print(stderr, "  lost {}", lost);
    std::fflush(stderr);
    mLineShown = true;
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
                                       {"channels", Recorder::kChannels},
                                       {"frames", state.mFrames},
                                       {"seconds", seconds},
                                       {"frames_lost", state.mFramesLost},
                                       {"frames_dropped", state.mFramesDropped},
                                       {"frames_missed", state.mFramesMissed},
                                       {"clipped_samples", state.mClippedSamples},
                                       {"peak_db", {LevelOrNull(progress.Peak(0)), LevelOrNull(progress.Peak(1))}}};
        fmt::print(to, "{}\n", result.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
        return;
    }
    fmt::print(to, "{}: {:.3f} s, {} frames at {} Hz, {}, peak {} / {} dB, frames lost: {}\n",
               wish.mPath == "-" ? "standard output" : wish.mPath, seconds, state.mFrames, wish.mRateHz,
               NameOf(wish.mFormat), Level(progress.Peak(0)), Level(progress.Peak(1)), FramesWithoutSound(state));
    if (state.mFramesMissed > 0)
        fmt::print(stderr, "corvane: the audio server was late with {} frames; silence stands in their place\n",
                   state.mFramesMissed);
    if (state.mFramesDropped > 0)
        fmt::print(stderr, "corvane: the disk was too slow for {} frames; silence stands in their place\n",
                   state.mFramesDropped);
    if (state.mClippedSamples > 0)
        fmt::print(stderr, "corvane: {} samples lay beyond full scale and were cut; -f f32 keeps them\n",
                   state.mClippedSamples);
}

}  // namespace cli
