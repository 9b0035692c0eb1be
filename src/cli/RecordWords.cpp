#include "cli/RecordWords.h"

#include "cli/ReadNumber.h"

#include <fmt/format.h>

#include <cmath>

namespace cli {

namespace {

constexpr double kLongestSeconds = 366.0 * 86400;

std::string ReadFormat(const std::string& text, record::SampleFormat& format)
{
    using record::SampleFormat;
    if (text == "f32")
        format = SampleFormat::Float32;
    else if (text == "s24")
        format = SampleFormat::Signed24;
    else if (text == "s16")
        format = SampleFormat::Signed16;
    else
        return fmt::format("'{}' is not a sample format; use f32, s24 or s16, for example -f s24", text);
    return {};
}

std::string ReadChannels(const std::string& text, RecordWish& wish)
{
    if (!ReadNumber(text, wish.mChannels) || wish.mChannels > kMostChannels)
        return fmt::format(
            "'{}' is not a number of channels from 1 to {}, or 0 for every source's own; for example -c 2", text,
            kMostChannels);
    return {};
}

std::string ReadTime(const std::optional<std::string>& text, std::optional<double>& seconds)
{
    if (!text) return {};
    double value = 0;
    auto wrong = ReadDuration(*text, value);
    if (wrong.empty()) seconds = value;
    return wrong;
}

std::string ReadFileWords(const RecordOptions& options, record::FileSettings& file)
{
    using record::FileType;
    if (options.mFile.empty()) return "a file is missing; for example corvane record talk.wav";
    file.mPath = options.mFile;
    file.mReplace = options.mReplace;
    if (!options.mFileType) {
        if (auto wrong = record::ReadFileType(file.mPath, file.mType, file.mFormat); !wrong.empty()) return wrong;
    } else if (*options.mFileType == "wav") {
        file.mType = FileType::Wav;
    } else if (*options.mFileType == "flac") {
        file.mType = FileType::Flac;
        file.mFormat = record::SampleFormat::Signed24;
    } else if (*options.mFileType == "raw") {
        file.mType = FileType::Raw;
    } else {
        return fmt::format("'{}' is not a type of file; use wav, flac or raw, for example -t flac", *options.mFileType);
    }
    return options.mFormat ? ReadFormat(*options.mFormat, file.mFormat) : std::string();
}

std::string ReadSources(const RecordOptions& options, RecordWish& wish)
{
    for (const std::string& text : options.mSources)
        if (auto wrong = ParseSource(text, wish.mSources.emplace_back()); !wrong.empty()) return wrong;
    for (const std::string& text : options.mTracks)
        if (auto wrong = ReadTrack(text, wish.mTracks.emplace_back()); !wrong.empty()) return wrong;
    if (wish.mSources.empty() && wish.mTracks.empty()) wish.mSources.emplace_back();  // everything
    return {};
}

// The parts between commas; a backslash takes the character behind it as it is.
std::vector<std::string> SplitAtCommas(const std::string& text)
{
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ',')
            parts.emplace_back();
        else
            parts.back() += text[i] == '\\' && i + 1 < text.size() ? text[++i] : text[i];
    }
    return parts;
}

// "1:30:00" or "10:00": all but the first below 60, and only the last with a fraction.
bool ReadClock(const std::string& text, double& seconds)
{
    size_t begin = 0;
    seconds = 0;
    for (int part = 0; part < 3; ++part) {
        const size_t colon = text.find(':', begin);
        const std::string number = text.substr(begin, colon == text.npos ? text.npos : colon - begin);
        unsigned whole = 0;
        double value = 0;
        if (colon != text.npos ? !ReadNumber(number, whole) : !ReadNumber(number, value)) return false;
        if (colon != text.npos) value = whole;
        if (value < 0 || (part > 0 && value >= 60)) return false;
        seconds = seconds * 60 + value;
        if (colon == text.npos) return true;
        begin = colon + 1;
    }
    return false;
}

// "1h30m", "5m", "250ms": each unit once, the larger first.
bool ReadUnits(const std::string& text, double& seconds)
{
    constexpr std::pair<const char*, double> kUnits[] = {{"h", 3600}, {"m", 60}, {"s", 1}, {"ms", 0.001}};
    size_t next = 0, begin = 0;
    seconds = 0;
    while (begin < text.size()) {
        const size_t unit = text.find_first_not_of("0123456789.", begin);
        if (unit == text.npos) return false;
        const size_t end = std::min(text.find_first_of("0123456789.", unit), text.size());
        const std::string name = text.substr(unit, end - unit);
        while (next < std::size(kUnits) && name != kUnits[next].first) ++next;
        double value = 0;
        if (next == std::size(kUnits) || !ReadNumber(text.substr(begin, unit - begin), value)) return false;
        seconds += value * kUnits[next++].second;
        begin = end;
    }
    return !text.empty();
}

}  // namespace

std::string ReadRate(const std::string& text, unsigned& rateHz)
{
    double rate = 0;
    const bool isInThousands = text.ends_with('k') || text.ends_with('K');
    if (ReadNumber(std::string_view(text).substr(0, text.size() - isInThousands), rate)) {
        rate = std::round(rate * (isInThousands ? 1e6 : 1e3)) / 1e3;
        if (rate >= kMinimumRateHz && rate <= kMaximumRateHz && rate == std::floor(rate)) {
            rateHz = unsigned(rate);
            return {};
        }
    }
    return fmt::format("'{}' is not a sample rate in hertz from {} to {}; for example -r 48000 or -r 44.1k", text,
                       kMinimumRateHz, kMaximumRateHz);
}

std::string ReadDuration(const std::string& text, double& seconds)
{
    if ((ReadClock(text, seconds) || ReadUnits(text, seconds)) && seconds > 0 && seconds <= kLongestSeconds) return {};
    return fmt::format("'{}' is not a time; for example 90 (seconds), 2.5, 10:00, 1:30:00, 250ms, 5m or 1h30m", text);
}

std::string ReadTrack(const std::string& text, TrackWish& track)
{
    const size_t equals = text.find('=');
    if (equals == 0 || equals == text.npos)
        return fmt::format("'{}' is not a track; for example --track 'voices=app:discord,input:default'", text);
    track = {text.substr(0, equals), {}};
    for (const std::string& part : SplitAtCommas(text.substr(equals + 1)))
        if (auto wrong = ParseSource(part, track.mSources.emplace_back()); !wrong.empty()) return wrong;
    return {};
}

std::string ReadWords(const RecordOptions& options, RecordWish& wish)
{
    wish.mFile.mRateHz = 0;
    if (auto wrong = ReadFileWords(options, wish.mFile); !wrong.empty()) return wrong;
    if (options.mRate)
        if (auto wrong = ReadRate(*options.mRate, wish.mFile.mRateHz); !wrong.empty()) return wrong;
    if (auto wrong = ReadChannels(options.mChannels, wish); !wrong.empty()) return wrong;
    if (auto wrong = ReadTime(options.mTime, wish.mSeconds); !wrong.empty()) return wrong;
    if (auto wrong = ReadTime(options.mMaxFileTime, wish.mMaxSeconds); !wrong.empty()) return wrong;
    if (wish.mMaxSeconds && *wish.mMaxSeconds < 1)
        return fmt::format("'{}' is too short for one file; for example --max-file-time 1h", *options.mMaxFileTime);
    if (options.mProgress && *options.mProgress != "json")
        return fmt::format("'{}' is not a kind of progress; use --progress json", *options.mProgress);
    wish.mReportsLevels = options.mProgress.has_value();
    return ReadSources(options, wish);
}

}  // namespace cli
