#include "cli/LiveLine.h"

#include "cli/Levels.h"
#include "cli/Messages.h"
#include "cli/RecordingReport.h"
#include "cli/Terminal.h"
#include "platform/process/PlainText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace cli {

using record::RecordingState;
using record::TrackState;

namespace {

constexpr size_t kLevelColumns = 5;
constexpr size_t kBarColumns = 8;  // of a bar that is worth the loss of something else
constexpr size_t kLeastBarColumns = 3;
constexpr size_t kGapColumns = 2;     // between the parts of the line
constexpr size_t kLabelColumns = 12;  // as before
constexpr size_t kLeastLabelColumns = 4;
constexpr uint64_t kPlainLineSeconds = 10;

struct Meter {
    std::string mLabel;
    size_t mLabelColumns = 0;
    float mPeak = 0;
};

std::string Clock(uint64_t frames, unsigned rateHz, bool withTenths)
{
    const uint64_t seconds = frames / rateHz, tenth = frames % rateHz * 10 / rateHz;
    const std::string text = fmt::format("{:d}:{:02d}:{:02d}", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return withTenths ? text + fmt::format(".{:d}", tenth) : text;
}

std::string Lost(uint64_t frames, unsigned rateHz)
{
    if (frames == 0) return {};
    const double seconds = std::max(double(frames) / rateHz, 0.01);
    return seconds < 10 ? fmt::format("lost {:.2f} s", seconds) : fmt::format("lost {:.0f} s", seconds);
}

std::string Size(uint64_t bytes)
{
    constexpr std::array kUnits{"kB", "MB", "GB", "TB", "PB"};
    double size = double(bytes) / 1000;
    size_t unit = 0;
    for (; size >= 999.5 && unit + 1 < kUnits.size(); ++unit) size /= 1000;
    return fmt::format(fmt::runtime(size < 99.95 ? "{:.1f} {}" : "{:.0f} {}"), size, kUnits[unit]);
}

Meter MakeMeter(std::string_view name, float peak)
{
    std::string label = platform::process::PlainText(name);
    const size_t columns = DisplayColumns(label);
    return {std::move(label), columns, peak};
}

float PeakOf(const RecordingState& state, const TrackState& track)
{
    const size_t end = std::min(state.mPeaks.size(), size_t(track.mFirstChannel) + track.mChannels);
    float peak = 0;
    for (size_t channel = track.mFirstChannel; channel < end; ++channel) peak = std::max(peak, state.mPeaks[channel]);
    return peak;
}

float GreatestPeak(const std::vector<float>& peaks)
{
    return peaks.empty() ? 0 : std::ranges::max(peaks);
}

std::vector<Meter> MetersOf(const RecordingState& state)
{
    std::vector<Meter> meters;
    if (state.mTracks.size() > 1) {
        for (const TrackState& track : state.mTracks) meters.push_back(MakeMeter(track.mName, PeakOf(state, track)));
    } else if (state.mPeaks.size() == 2) {
        meters = {MakeMeter("L", state.mPeaks[0]), MakeMeter("R", state.mPeaks[1])};
    } else {
        meters = {MakeMeter("", GreatestPeak(state.mPeaks))};
    }
    return meters;
}

size_t LabelRoom(const Meter& meter, size_t most)
{
    const size_t columns = std::min(meter.mLabelColumns, most);
    return columns == 0 ? 0 : columns + 1;
}

// Columns of all meters with these labels and bars.
size_t ColumnsOf(const std::vector<Meter>& meters, size_t label, size_t bar)
{
    size_t columns = 0;
    for (const Meter& meter : meters)
        columns += LabelRoom(meter, label) + (bar ? bar + 1 : 0) + kLevelColumns + kGapColumns;
    return columns - kGapColumns;
}

// A label that is too long loses its kind first: of "app:Firefox ESR" "Firef…" is left.
std::string CutLabel(const Meter& meter, size_t columns)
{
    std::string_view label = meter.mLabel;
    if (meter.mLabelColumns > columns) label.remove_prefix(label.find(':') + 1);
    return CutToColumns(label, columns);
}

// "mic ####.... -12.3", or without the bar, in exactly `columns`.
std::string FormatMeter(const Meter& meter, size_t columns)
{
    const size_t rest = columns - kLevelColumns;
    size_t label = LabelRoom(meter, std::max(rest / 2, kLeastLabelColumns));
    size_t bar = rest > label ? rest - label - 1 : 0;
    if (bar < kLeastBarColumns) {
        bar = 0;
        label = rest;
    }
    std::string text = label > 1 ? CutLabel(meter, label - 1) : "";
    text.append(label - std::min(label, DisplayColumns(text)), ' ');
    if (bar) text += LevelBar(meter.mPeak, bar) + ' ';
    return text + fmt::format("{:>{}}", LevelText(meter.mPeak), kLevelColumns);
}

// As many of the meters as there is room for, and the number of the others; one for all where there is none for a part.
std::string FormatMeters(const std::vector<Meter>& meters, size_t room)
{
    std::vector<Meter> shown = meters;
    std::string others;
    while (shown.size() > 1 && ColumnsOf(shown, kLeastLabelColumns, 0) + others.size() > room) {
        shown.pop_back();
        others = fmt::format("  +{}", meters.size() - shown.size());
    }
    const bool areChannels = meters.size() == 2 && meters[0].mLabelColumns == 1;
    if (ColumnsOf(shown, kLeastLabelColumns, 0) + others.size() > room || (areChannels && !others.empty())) {
        const auto loudest = std::ranges::max_element(meters, {}, &Meter::mPeak);
        return FormatMeter({.mPeak = loudest->mPeak}, room);
    }
    std::string text;
    size_t left = room - others.size();
    for (size_t i = 0; i < shown.size(); ++i) {
        const size_t share = (left - kGapColumns * (shown.size() - 1 - i)) / (shown.size() - i);
        text += (i ? std::string(kGapColumns, ' ') : "") + FormatMeter(shown[i], share);
        left -= share + (i + 1 < shown.size() ? kGapColumns : 0);
    }
    return text + others;
}

struct Layout {
    std::string mClock;
    size_t mLeastMeterColumns;  // 0: no meters
    bool mUnit;
    std::string mTail;
};

std::string Fill(const Layout& layout, const std::vector<Meter>& meters, size_t room)
{
    const std::string unit = layout.mUnit ? " dB" : "";
    const size_t taken = layout.mClock.size() + unit.size() + layout.mTail.size() + kGapColumns;
    const std::string gap(kGapColumns, ' ');
    if (layout.mLeastMeterColumns == 0) return layout.mClock + layout.mTail;
    return layout.mClock + gap + FormatMeters(meters, room - taken) + unit + layout.mTail;
}

bool Fits(const Layout& layout, size_t room)
{
    const size_t meters = layout.mLeastMeterColumns ? layout.mLeastMeterColumns + kGapColumns : 0;
    return layout.mClock.size() + meters + (layout.mUnit ? 3 : 0) + layout.mTail.size() <= room;
}

nlohmann::json LevelsToJSON(const RecordingState& state, unsigned rateHz)
{
    return {{"type", "levels"},
            {"seconds", double(state.mFrames) / rateHz},
            {"frames", state.mFrames},
            {"peak_db", PeaksToJSON(state.mPeaks)},
            {"frames_lost", state.mFramesLost}};
}

}  // namespace

std::string FormatLiveLine(const RecordingState& state, const LiveLineSettings& settings, size_t columns)
{
    constexpr size_t kMostRich = 48, kMostPlain = 24;  // of many tracks some are shown
    const std::vector<Meter> meters = MetersOf(state);
    const size_t rich = std::min(ColumnsOf(meters, kLabelColumns, kBarColumns), kMostRich);
    const size_t plain = std::min(ColumnsOf(meters, kLeastLabelColumns, 0), kMostPlain);
    const auto part = [](const std::string& text) {
        return text.empty() ? text : std::string(kGapColumns, ' ') + text;
    };
    const std::string lost = part(Lost(state.mFramesLost, settings.mRateHz));
    const std::string size = part(settings.mBytesPerFrame ? Size(state.mFrames * settings.mBytesPerFrame) : "");
    const std::string closeLost = lost.empty() ? "" : lost.substr(1);
    const std::string tenths = Clock(state.mFrames, settings.mRateHz, true);
    const std::string seconds = Clock(state.mFrames, settings.mRateHz, false);
    const Layout layouts[] = {{tenths, rich, true, lost + size},
                              {tenths, rich, true, lost},
                              {tenths, plain, false, lost},
                              {seconds, plain, false, lost},
                              {seconds, kLevelColumns, false, lost},
                              {tenths, 0, false, lost},
                              {seconds, 0, false, closeLost},
                              {tenths, 0, false, ""},
                              {seconds, 0, false, ""}};
    const size_t room = columns > 0 ? columns - 1 : 0;
    const auto layout = std::ranges::find_if(layouts, [&](const Layout& each) { return Fits(each, room); });
    return layout == std::end(layouts) ? "" : Fill(*layout, meters, room);
}

void LiveLine::Show(const RecordingState& state) noexcept
{
    Note(state);
    try {
        if (mMessages.GetStyle() == Messages::Style::JSONLines)
            return mMessages.TellJSON(LevelsToJSON(state, mSettings.mRateHz));
        ShowOnTerminal(state);
    } catch (...) {  // out of memory: the next line may find some
    }
}

void LiveLine::ShowOnTerminal(const RecordingState& state)
{
    const int descriptor = mMessages.Descriptor();
    const TerminalKind kind = FindTerminal(descriptor);
    if (kind == TerminalKind::None) return;
    if (!IsInForeground(descriptor)) return mMessages.ForgetLine();
    if (kind == TerminalKind::Complete)
        return mMessages.ShowLine(FormatLiveLine(state, mSettings, TerminalColumns(descriptor)));
    const uint64_t due = state.mFrames / (kPlainLineSeconds * mSettings.mRateHz);
    if (due <= mPlainLines) return;
    mPlainLines = due;
    RecordingState sinceLast = state;
    sinceLast.mPeaks = std::exchange(mUnshownPeaks, {});
    mMessages.TellLine(FormatLiveLine(sinceLast, mSettings, TerminalColumns(descriptor)));
}

void LiveLine::Note(const RecordingState& state) noexcept
{
    try {
        RaisePeaks(mPeaks, state.mPeaks);
        RaisePeaks(mUnshownPeaks, state.mPeaks);
    } catch (...) {  // as above
    }
}

void LiveLine::Clear() noexcept
{
    mMessages.ShowLine("");
}

}  // namespace cli
