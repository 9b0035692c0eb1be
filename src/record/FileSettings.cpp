#include "record/FileSettings.h"

#include "utility/Printable.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace record {

namespace {

constexpr unsigned kMostFlacChannels = 8;
constexpr unsigned kMostFlacRateHz = 655350;

struct TypeRow {
    const char* mEnding;
    FileType mType;
    SampleFormat mFormat;
};

constexpr TypeRow kTypes[] = {
    {".wav", FileType::Wav, SampleFormat::Float32},    {".wave", FileType::Wav, SampleFormat::Float32},
    {".flac", FileType::Flac, SampleFormat::Signed24}, {".raw", FileType::Raw, SampleFormat::Float32},
    {".pcm", FileType::Raw, SampleFormat::Float32},
};

std::string EndingOf(const std::string& path)
{
    const size_t dot = path.rfind('.');
    const size_t name = path.rfind('/') + 1;  // 0 where there is no slash
    if (dot == std::string::npos || dot <= name) return {};
    std::string ending = path.substr(dot);
    std::ranges::transform(ending, ending.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    return ending;
}

// What a symbolic link holds; "" for anything else.
std::string LinkTarget(const std::string& path)
{
    char target[4096];
    const ssize_t bytes = ::readlink(path.c_str(), target, sizeof target);
    return bytes > 0 ? std::string(target, size_t(bytes)) : std::string();
}

std::string DescribeLoop(const std::string& path, const std::string& shown)
{
    const std::string target = LinkTarget(path);
    if (target.empty())
        return fmt::format("The folder of '{}' is a link that leads to itself. Use another path.", shown);
    return fmt::format("'{}' is a link to '{}', and recordings do not follow links. Give the path of the file itself.",
                       shown, utility::Printable(target));
}

}  // namespace

std::string ReadFileType(const std::string& path, FileType& type, SampleFormat& format)
{
    const std::string ending = path == "-" ? ".wav" : EndingOf(path);
    const auto row = std::ranges::find(kTypes, ending, &TypeRow::mEnding);
    if (row != std::end(kTypes)) {
        type = row->mType;
        format = row->mFormat;
        return {};
    }
    return fmt::format("'{}' does not end in .wav, .flac, .raw or .pcm, for example talk.wav",
                       utility::Printable(path));
}

std::string DescribeWrongSettings(const FileSettings& settings)
{
    if (settings.mPath == "-" && settings.mMostFrames != 0)
        return "standard output is one file; give a path to begin a new file from time to time, for example talk.wav";
    if (settings.mType != FileType::Flac) return {};
    if (settings.mFormat == SampleFormat::Float32)
        return "a FLAC file cannot hold f32 samples; use -f s24 or -f s16, or a path that ends in .wav";
    if (settings.mChannels > kMostFlacChannels)
        return fmt::format("a FLAC file holds up to {} channels, not {}; use a path that ends in .wav",
                           kMostFlacChannels, settings.mChannels);
    if (settings.mRateHz > kMostFlacRateHz)
        return fmt::format("a FLAC file holds up to {} Hz, not {}; use a path that ends in .wav", kMostFlacRateHz,
                           settings.mRateHz);
    return {};
}

std::string DescribeFileError(const std::string& path, int error)
{
    const std::string shown = utility::Printable(path);
    switch (error) {
        case EEXIST:
            return fmt::format("'{}' exists. Give another name, or use --force to replace it.", shown);
        case ELOOP:
            return DescribeLoop(path, shown);
        case EISDIR:
            return fmt::format("'{}' is a folder. Give the name of a file, for example '{}{}talk.wav'.", shown, shown,
                               shown.ends_with('/') ? "" : "/");
        case ENOENT:
            return fmt::format("The folder of '{}' does not exist. Create it, or use another path.", shown);
        case ENOTTY:
            return "Standard output is a terminal. Send it to a file or a program: corvane record - > talk.wav";
        case ENAMETOOLONG:
            return fmt::format("The name '{}' is too long. Use a shorter one.", shown);
        case ENOTSUP:
            return fmt::format("'{}' is neither a file nor a pipe. Give another name.", shown);
        case ENXIO:
            return fmt::format("No program reads from '{}'. Start the reader first.", shown);
        case EPIPE:
            return fmt::format("The program that reads '{}' has ended. The recording ends there.", shown);
        case EINTR:
            return fmt::format("The program that reads '{}' does not read. The recording ends there.", shown);
        case ENOSPC:
        case EDQUOT:
            return fmt::format("No room is left for '{}': {}. Free some, or use another disk.", shown,
                               std::strerror(error));
        case EFBIG:
            return fmt::format(
                "'{}' would be larger than the limit allows. Raise it (ulimit -f), or begin new files "
                "with --max-file-time.",
                shown);
        case EACCES:
        case EPERM:
        case EROFS:
            return fmt::format("'{}' cannot be written: {}. Use a folder that you may write to.", shown,
                               std::strerror(error));
        default:
            return fmt::format("'{}' cannot be written: {}. Use another path.", shown, std::strerror(error));
    }
}

}  // namespace record
