// FileSettings: what a recording's file is to be, and the sentences for a person about it.
// Why: a wrong path or type is reported before anything is touched.
#pragma once

#include "record/SampleFormat.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace record {

enum class FileType { Wav, Flac, Raw };

/// So many frames are converted and written at once.
constexpr size_t kPieceFrames = 4096;

struct FileSettings {
    std::string mPath;  // "-": standard output
    FileType mType = FileType::Wav;
    SampleFormat mFormat = SampleFormat::Float32;
    unsigned mChannels = 2;
    unsigned mRateHz = 48000;
    bool mReplace = false;
    /// Frames in one file; 0: no limit. Then the next file begins, without a lost frame: talk.wav, talk-002.wav ...
    /// A number whose name is taken, and may not be replaced, is passed over.
    uint64_t mMostFrames = 0;
    /// Speaker positions as in WAVE_FORMAT_EXTENSIBLE; 0: the usual ones for the number of channels.
    uint32_t mChannelMask = 0;
    bool mTracksAreApart = false;  // channels are tracks and not speakers: the file gives them no positions
};

/// Finds the type of a file by the ending of its path; "-" is WAV.
///
/// @param type, format  set to the type and its default sample format
/// @return              an empty string, or a sentence for a person: the ending means no type
std::string ReadFileType(const std::string& path, FileType& type, SampleFormat& format);

/// @return an empty string, or a sentence for a person: the type cannot hold what the settings ask for
std::string DescribeWrongSettings(const FileSettings& settings);

/// One sentence for a person, with what to do next.
///
/// @param error  an error number of RecordingFile
std::string DescribeFileError(const std::string& path, int error);

}  // namespace record
