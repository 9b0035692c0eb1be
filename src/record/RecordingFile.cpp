#include "record/RecordingFile.h"

#include "record/FlacFile.h"
#include "record/RawFile.h"
#include "record/WavFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace record {

namespace {

// The positions of WAVE_FORMAT_EXTENSIBLE, in the order in which FLAC puts as many channels.
uint32_t UsualChannelMask(unsigned channels)
{
    constexpr uint32_t kMasks[] = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};
    return channels < std::size(kMasks) ? kMasks[channels] : 0;
}

uint32_t ChannelMaskOf(const FileSettings& settings)
{
    if (settings.mTracksAreApart) return 0;
    return settings.mChannelMask != 0 ? settings.mChannelMask : UsualChannelMask(settings.mChannels);
}

FlacLayout FlacLayoutOf(const FileSettings& settings)
{
    FlacLayout layout{8 * BytesPerSample(settings.mFormat), settings.mChannels, settings.mRateHz};
    const uint32_t mask = ChannelMaskOf(settings);
    if (mask != UsualChannelMask(settings.mChannels)) layout.mChannelMask = mask;
    return layout;
}

std::unique_ptr<SoundFile> MakeSoundFile(const FileSettings& settings, OutputTarget& target)
{
    if (settings.mType == FileType::Raw) return std::make_unique<RawFile>(target, settings.mFormat, settings.mChannels);
    if (settings.mType == FileType::Flac) return std::make_unique<FlacFile>(target, FlacLayoutOf(settings));
    return std::make_unique<WavFile>(
        target, WavLayout{settings.mFormat, settings.mChannels, settings.mRateHz, ChannelMaskOf(settings)});
}

// Names that another number may still have free.
bool IsTaken(int error)
{
    return error == EEXIST || error == ELOOP || error == EISDIR || error == ENOTSUP;
}

}  // namespace

RecordingFile::RecordingFile(FileSettings settings) : mSettings(std::move(settings)) {}

RecordingFile::~RecordingFile()
{
    Close();
}

std::string RecordingFile::PathOf(unsigned number) const
{
    if (number <= 1) return mSettings.mPath;
    const size_t name = mSettings.mPath.rfind('/') + 1;  // 0 where there is no slash
    size_t ending = mSettings.mPath.rfind('.');
    if (ending == std::string::npos || ending <= name) ending = mSettings.mPath.size();
    return fmt::format("{}-{:03}{}", mSettings.mPath.substr(0, ending), number, mSettings.mPath.substr(ending));
}

int RecordingFile::Check() const
{
    if (!DescribeWrongSettings(mSettings).empty()) return EINVAL;
    const int error = OutputTarget::Check(mSettings.mPath, mSettings.mReplace);
    if (error != 0 || mSettings.mMostFrames == 0) return error;
    return OutputTarget::Check(PathOf(2), true) == ENAMETOOLONG ? ENAMETOOLONG : 0;
}

int RecordingFile::Open()
{
    mError = DescribeWrongSettings(mSettings).empty() ? OpenTarget(PathOf(1)) : EINVAL;
    if (mError == 0) mNumber = 1;
    return mError;
}

int RecordingFile::OpenTarget(const std::string& path)
{
    if (const int error = mTarget.Open(path, mSettings.mReplace)) return error;
    mFile = MakeSoundFile(mSettings, mTarget);
    mTriedToTakeName = false;
    const int error = mFile->Begin();
    if (error == 0) return 0;
    mFile.reset();
    mTarget.Remove();
    return error;
}

int RecordingFile::OpenNext()
{
    if (const int error = FinishFile()) return error;
    int error = EEXIST;
    while (IsTaken(error)) error = OpenTarget(PathOf(++mNumber));
    return error;
}

int RecordingFile::Write(const float* samples, size_t frames)
{
    if (!mFile) return mError != 0 ? mError : EBADF;
    while (frames > 0 && mError == 0) {
        size_t piece = frames;
        if (mSettings.mMostFrames != 0) {
            if (mFile->Frames() >= mSettings.mMostFrames) mError = OpenNext();
            if (mError != 0) break;
            piece = size_t(std::min<uint64_t>(frames, mSettings.mMostFrames - mFile->Frames()));
        }
        mError = WritePiece(samples, piece);
        samples += piece * mSettings.mChannels;
        frames -= piece;
    }
    return mError;
}

int RecordingFile::WritePiece(const float* samples, size_t frames)
{
    const int error = mFile->Write(samples, frames);
    if (error != 0 || !mTarget.WaitsForName() || mFile->FramesInFile() < mSettings.mRateHz) return error;
    // A refusal here costs no sound: the file goes on beside the older one, and Close tries again.
    if (!std::exchange(mTriedToTakeName, true) && mFile->Update() == 0) mTarget.TakeName();
    return 0;
}

int RecordingFile::UpdateHeader()
{
    return mFile ? mFile->Update() : mError;
}

// Completes the file being written, whatever went wrong before. @return the first error of its own
int RecordingFile::FinishFile()
{
    int error = mFile->End();
    const bool isWorthIt = mFile->Frames() >= mSettings.mRateHz || (mFile->Frames() > 0 && error == 0 && mError == 0);
    const std::unique_ptr<SoundFile> file = std::move(mFile);
    if (mTarget.WaitsForName() && !isWorthIt) {
        mTarget.Remove();
        return error;
    }
    mFinishedFrames += file->Frames();
    mFinishedClipped += file->ClippedSamples();
    const int nameError = mTarget.TakeName();
    mFinishedPaths.push_back(mTarget.Path());
    const int closeError = mTarget.Close();
    for (const int later : {nameError, closeError})
        if (error == 0) error = later;
    return error;
}

int RecordingFile::Close()
{
    if (!mFile) return mError;
    const int error = FinishFile();
    if (mError == 0) mError = error;
    return mError;
}

void RecordingFile::Abandon()
{
    if (!mFile) return;
    if (mTarget.HasReplaced()) {
        Close();
        return;
    }
    mFile.reset();
    mTarget.Remove();
}

uint64_t RecordingFile::Frames() const
{
    return mFinishedFrames + (mFile ? mFile->Frames() : 0);
}

uint64_t RecordingFile::ClippedSamples() const
{
    return mFinishedClipped + (mFile ? mFile->ClippedSamples() : 0);
}

std::vector<std::string> RecordingFile::Paths() const
{
    std::vector<std::string> paths = mFinishedPaths;
    if (mFile) paths.push_back(PathOf(mNumber));
    return paths;
}

}  // namespace record
