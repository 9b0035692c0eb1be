#include "cli/RecordingReport.h"

#include "cli/Levels.h"
#include "cli/Messages.h"
#include "cli/Output.h"
#include "platform/process/PlainText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace cli {

using nlohmann::json;
using platform::process::PlainText;
using record::FileSettings;
using record::RecordingEvent;
using record::RecordingResult;
using record::RecordingState;
using record::SilenceCause;
using record::SourceState;
using record::TrackState;

namespace {

constexpr uint64_t kResultWaitNanos = 1'000'000'000;  // for a reader that stalls; the file is complete by then

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

const char* NameOf(record::FileType type)
{
    switch (type) {
        case record::FileType::Wav:
            return "wav";
        case record::FileType::Flac:
            return "flac";
        case record::FileType::Raw:
            return "raw";
    }
    return "";
}

const char* ForPerson(SilenceCause cause)
{
    switch (cause) {
        case SilenceCause::NotPlaying:
            return "not playing";
        case SilenceCause::NotDelivered:
            return "not delivered";
        case SilenceCause::ServerAway:
            return "audio server away";
        case SilenceCause::Stopped:
            return "recorder stopped";
        case SilenceCause::TooSlow:
            return "disk or machine too slow";
    }
    return "";
}

std::string Seconds(uint64_t frames, const FileSettings& file)
{
    return fmt::format("{:.3f} s", double(frames) / file.mRateHz);
}

uint64_t SilentFrames(const SourceState& source)
{
    return std::accumulate(source.mSilentFrames.begin(), source.mSilentFrames.end(), uint64_t(0));
}

uint64_t SilentFrames(const SourceState& source, SilenceCause cause)
{
    return source.mSilentFrames[size_t(cause)];
}

// What one cause took from one source, or the same from all of them.
struct Loss {
    uint64_t mFrames;
    SilenceCause mCause;
    std::string mSource;
};

std::vector<Loss> LossesOf(const RecordingState& state)
{
    std::vector<Loss> losses;
    for (const SilenceCause cause : record::kSilenceCauses) {
        if (!IsLoss(cause) || state.mSources.empty()) continue;
        const uint64_t first = SilentFrames(state.mSources.front(), cause);
        const bool isShared = state.mSources.size() > 1 && std::ranges::all_of(state.mSources, [&](const auto& source) {
                                  return SilentFrames(source, cause) == first;
                              });
        if (isShared) {
            if (first > 0) losses.push_back({first, cause, "every source"});
            continue;
        }
        for (const SourceState& source : state.mSources)
            if (const uint64_t frames = SilentFrames(source, cause)) losses.push_back({frames, cause, source.mName});
    }
    std::ranges::stable_sort(losses, std::ranges::greater(), &Loss::mFrames);
    return losses;
}

// Losses of several sources overlap: their sum means nothing, and the number of frames stands before them.
std::string FormatLosses(const FileSettings& file, const RecordingState& state)
{
    constexpr size_t kMostShown = 4;
    const std::vector<Loss> losses = LossesOf(state);
    if (losses.empty() && state.mFramesLost == 0) return "nothing";
    std::string text;
    for (size_t i = 0; i < std::min(losses.size(), kMostShown); ++i)
        text += fmt::format("{}{} of {} ({})", i ? ", " : "", Seconds(losses[i].mFrames, file),
                            PlainText(losses[i].mSource), ForPerson(losses[i].mCause));
    if (losses.size() > kMostShown) text += fmt::format(" and {} more", losses.size() - kMostShown);
    if (losses.size() == 1 && losses[0].mFrames == state.mFramesLost) return text;
    return Seconds(state.mFramesLost, file) + (text.empty() ? "" : " in all: " + text);
}

std::string FormatPlace(const FileSettings& file, const RecordingResult& result)
{
    if (file.mPath == "-") return "standard output";
    if (result.mPaths.empty()) return PlainText(file.mPath);
    if (result.mPaths.size() == 1) return PlainText(result.mPaths.front());
    return fmt::format("{} to {} ({} files)", PlainText(result.mPaths.front()), PlainText(result.mPaths.back()),
                       result.mPaths.size());
}

std::string FormatPeaks(const std::vector<float>& peaks)
{
    constexpr size_t kMostShown = 8;
    std::string text;
    for (size_t channel = 0; channel < std::min(peaks.size(), kMostShown); ++channel)
        text += (channel ? " / " : "") + LevelText(peaks[channel]);
    return text + (peaks.size() > kMostShown ? " ..." : "");
}

bool IsSilent(const RecordingState& state, const TrackState& track)
{
    const size_t end = std::min(state.mPeaks.size(), size_t(track.mFirstChannel) + track.mChannels);
    for (size_t channel = track.mFirstChannel; channel < end; ++channel)
        if (state.mPeaks[channel] > 0) return false;
    return true;
}

bool BroughtNothing(const RecordingState& state, const SourceState& source)
{
    return state.mFrames > 0 && SilentFrames(source) >= state.mFrames;
}

std::string SilenceHint(const std::string& source)
{
    if (source.starts_with("input:")) return "Is it the right input? See: corvane list inputs";
    return source == "system" ? "Did anything play? See: corvane list apps" : "Does it play? See: corvane list apps";
}

void NoteSource(const FileSettings& file, const RecordingState& state, const SourceState& source,
                std::vector<std::string>& notes)
{
    const std::string name = PlainText(source.mName);
    const uint64_t idle = SilentFrames(source, SilenceCause::NotPlaying);
    if (BroughtNothing(state, source))
        notes.push_back(fmt::format("{} was silent throughout. {}", name, SilenceHint(source.mName)));
    else if (idle > 0)
        notes.push_back(fmt::format("{} played nothing for {}", name, Seconds(idle, file)));
    if (!source.mDelivers && !BroughtNothing(state, source))
        notes.push_back(fmt::format("{} brought nothing at the end", name));
}

// The sound of a source came and held nothing but zeros.
void NoteSilentTracks(const RecordingState& state, std::vector<std::string>& notes)
{
    const bool allDelivered =
        std::ranges::none_of(state.mSources, [&](const auto& source) { return BroughtNothing(state, source); });
    if (state.mFrames == 0) return;
    for (const TrackState& track : state.mTracks) {
        const auto named = std::ranges::find(state.mSources, track.mName, &SourceState::mName);
        const bool delivered = named == state.mSources.end() ? allDelivered : !BroughtNothing(state, *named);
        if (delivered && IsSilent(state, track))
            notes.push_back(fmt::format("{} was silent throughout. Is it muted, or does it play silence?",
                                        state.mTracks.size() == 1 ? "The recording" : PlainText(track.mName)));
    }
}

std::string DescribeClipping(const FileSettings& file, uint64_t samples)
{
    const std::string text = fmt::format("{} samples lay beyond full scale and were clipped", samples);
    if (file.mFormat == record::SampleFormat::Float32) return text + "; -c 0 keeps sources apart and below it";
    return text +
           (file.mType == record::FileType::Flac ? "; -f f32 keeps them, in a .wav file" : "; -f f32 keeps them");
}

json TracksToJSON(const RecordingState& state)
{
    json list = json::array();
    for (const TrackState& track : state.mTracks)
        list.push_back({{"name", track.mName}, {"first_channel", track.mFirstChannel}, {"channels", track.mChannels}});
    return list;
}

json SourcesToJSON(const RecordingState& state)
{
    json list = json::array();
    for (const SourceState& source : state.mSources) {
        json silent = json::object();
        for (const SilenceCause cause : record::kSilenceCauses)
            silent[std::string(record::NameOf(cause))] = SilentFrames(source, cause);
        list.push_back({{"source", source.mName}, {"delivers", source.mDelivers}, {"silent", silent}});
    }
    return list;
}

json SilencesToJSON(const RecordingResult& result, unsigned rateHz)
{
    const auto& sources = result.mState.mSources;
    json list = json::array();
    for (const record::Silence& silence : result.mSilences)
        list.push_back({{"source", silence.mSource < sources.size() ? sources[silence.mSource].mName : ""},
                        {"cause", record::NameOf(silence.mCause)},
                        {"start", silence.mStart},
                        {"frames", silence.mFrames},
                        {"start_seconds", double(silence.mStart) / rateHz}});
    return list;
}

json EventsToJSON(const RecordingResult& result, unsigned rateHz)
{
    json list = json::array();
    for (const RecordingEvent& event : result.mEvents) list.push_back(EventToJSON(event, rateHz));
    return list;
}

}  // namespace

std::string FormatResult(const FileSettings& file, const RecordingResult& result)
{
    const RecordingState& state = result.mState;
    return fmt::format("{}: {}, {} frames at {} Hz, {}, peak {} dB, lost: {}", FormatPlace(file, result),
                       Seconds(state.mFrames, file), state.mFrames, file.mRateHz, NameOf(file.mFormat),
                       FormatPeaks(state.mPeaks), FormatLosses(file, state));
}

std::vector<std::string> FormatNotes(const FileSettings& file, const RecordingResult& result)
{
    const RecordingState& state = result.mState;
    std::vector<std::string> notes;
    for (const SourceState& source : state.mSources) NoteSource(file, state, source, notes);
    NoteSilentTracks(state, notes);
    if (state.mClippedSamples > 0) notes.push_back(DescribeClipping(file, state.mClippedSamples));
    return notes;
}

json PeaksToJSON(const std::vector<float>& peaks)
{
    json list = json::array();
    for (const float peak : peaks)
        list.push_back(peak > 0 ? json(std::round(DecibelsOf(peak) * 100) / 100 + 0.0) : json());
    return list;
}

json EventToJSON(const RecordingEvent& event, unsigned rateHz)
{
    return {{"frame", event.mFrame},
            {"seconds", double(event.mFrame) / rateHz},
            {"kind", event.mKind},
            {"source", event.mSource},
            {"text", event.mText}};
}

json ResultToJSON(const FileSettings& file, const RecordingResult& result)
{
    const RecordingState& state = result.mState;
    return {{"file", file.mPath},
            {"files", result.mPaths},
            {"file_type", NameOf(file.mType)},
            {"format", NameOf(file.mFormat)},
            {"rate", file.mRateHz},
            {"channels", file.mChannels},
            {"frames", state.mFrames},
            {"seconds", double(state.mFrames) / file.mRateHz},
            {"frames_lost", state.mFramesLost},
            {"clipped_samples", state.mClippedSamples},
            {"peak_db", PeaksToJSON(state.mPeaks)},
            {"tracks", TracksToJSON(state)},
            {"sources", SourcesToJSON(state)},
            {"silences", SilencesToJSON(result, file.mRateHz)},
            {"silences_cut", result.mSilencesCut},
            {"events", EventsToJSON(result, file.mRateHz)}};
}

void TellResult(const FileSettings& file, const RecordingResult& result, bool asJSON, Messages& messages)
{
    const bool soundIsOnOutput = file.mPath == "-";
    const json object = ResultToJSON(file, result);
    const std::string text = asJSON ? ToText(object) : FormatResult(file, result);
    if (soundIsOnOutput)
        messages.TellLine(text, kResultWaitNanos);
    else
        PrintText(text + '\n');
    for (const std::string& note : FormatNotes(file, result)) messages.Tell(note);
    json line = object;
    line["type"] = "result";
    line["messages_dropped"] = messages.Dropped();
    messages.TellJSON(line, kResultWaitNanos);
}

void TellEvent(const RecordingEvent& event, unsigned rateHz, Messages& messages) noexcept
{
    if (messages.GetStyle() == Messages::Style::Text) return messages.Tell(event.mText);
    try {
        json line = EventToJSON(event, rateHz);
        line["type"] = "event";
        messages.TellJSON(line);
    } catch (...) {  // out of memory: the recording matters more
    }
}

std::string DescribeStart(uint64_t nanos)
{
    return fmt::format("Sound from {:.3f} s after the command was started.", double(nanos) / 1e9);
}

}  // namespace cli
