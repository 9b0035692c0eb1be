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

std::string ReadChannels(const std::string& text, RecordingWish& wish)
{
    if (!ReadNumber(text, wish.mChannels) || wish.mChannels > kMostChannels)
        return fmt::format(
            "'{}' is not a number of channels from 1 to {}, or 0 for every source's own; for example -c 2", text,
            kMostChannels);
    wish.mKeepsChannels = wish.mChannels == 0;
    return {};
}

std::string CheckSeconds(const std::string& text)
{
    double seconds = 0;
    if (text.empty() || (ReadNumber(text, seconds) && seconds > 0 && seconds <= kLongestSeconds)) return {};
    return fmt::format("'{}' is not a time in seconds; for example -d 10 or -d 2.5", text);
}

}  // namespace

std::string ReadRate(const std::string& text, unsigned& rateHz)
{
    if (text.empty()) return {};
    if (ReadNumber(text, rateHz) && rateHz >= kMinimumRateHz && rateHz <= kMaximumRateHz) return {};
    return fmt::format("'{}' is not a sample rate in hertz from {} to {}; for example -r 48000", text, kMinimumRateHz,
                       kMaximumRateHz);
}

std::string ReadWords(const RecordOptions& options, RecordingWish& wish, std::vector<Source>& sources)
{
    wish.mRateHz = 0;
    wish.mPath = options.mFile;
    wish.mReplace = options.mReplace;
    if (options.mFile.empty()) return "a file is missing; for example corvane record talk.wav";
    if (auto wrong = ReadRate(options.mRate, wish.mRateHz); !wrong.empty()) return wrong;
    if (auto wrong = ReadChannels(options.mChannels, wish); !wrong.empty()) return wrong;
    if (auto wrong = ReadFormat(options.mFormat, wish.mFormat); !wrong.empty()) return wrong;
    if (auto wrong = CheckSeconds(options.mSeconds); !wrong.empty()) return wrong;
    for (const std::string& text : options.mSources) {
        Source source;
        if (auto wrong = ParseSource(text, source); !wrong.empty()) return wrong;
        sources.push_back(source);
    }
    return {};
}

std::string CountKeptChannels(RecordingWish& wish)
{
    if (!wish.mKeepsChannels) return {};
    wish.mChannels = 0;
    for (const Track& track : wish.mTracks) wish.mChannels += track.mChannels;
    if (wish.mChannels <= kMostChannels) return {};
    return fmt::format(
        "the sources have {} channels together, and a file takes {}; leave some out, or mix them, "
        "for example with -c 2",
        wish.mChannels, kMostChannels);
}

void FixFrames(const RecordOptions& options, RecordingWish& wish)
{
    double seconds = 0;
    if (ReadNumber(options.mSeconds, seconds))
        wish.mFrames = uint64_t(std::max(1.0, std::round(seconds * wish.mRateHz)));
}

}  // namespace cli
