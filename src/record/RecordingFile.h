// RecordingFile: the file or files of one recording, readable whatever ends the program.
// Why: a recording is worth more than the program that makes it, and so is the file that it replaces: an older file
// of the same name stays untouched until a second of new sound is on the disk.
// Start at Check, Open and Write. WavFile, FlacFile and RawFile lay out the bytes, OutputTarget keeps the path safe.
#pragma once

#include "record/FileSettings.h"
#include "record/OutputTarget.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace record {

class SoundFile;

/// Error numbers are the system's. After the first error each later call returns it again.
///
/// @thread one at a time, but for Interrupt
class RecordingFile {
public:
    explicit RecordingFile(FileSettings settings);
    ~RecordingFile();  // closes
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Finds out whether the file can be written, without touching what is there.
    ///
    /// @return 0; EEXIST; ELOOP: the path is a link, or has too many; EISDIR; EACCES; ENAMETOOLONG; ENOTTY: standard
    ///         output is a terminal; ENOTSUP: neither file, pipe nor device; EINVAL: see DescribeWrongSettings; or
    ///         another error of the system
    int Check() const;

    /// Creates the file. Where an older file is to be replaced, creates a new file beside it, which takes the name once
    /// a second of sound is in it.
    ///
    /// @return as Check; after an error nothing is left behind
    int Open();

    /// Appends frames. Integer formats round to the nearest value and clip at full scale.
    ///
    /// @param samples  interleaved, full scale 1.0
    /// @return         0, or the error number; the file then ends with its last whole frame (FLAC: block)
    int Write(const float* samples, size_t frames);

    /// Brings the header up to what was written. @return 0 or the error number
    int UpdateHeader();

    /// Completes and closes the file. A file of less than a second replaces the older one now if it has a frame and no
    /// write failed, and is removed otherwise.
    ///
    /// @return the first error there was, 0 for none
    int Close();

    /// Closes the file that is being written and removes it, so that an older file is as it was. A file that has
    /// already replaced an older one stays, as do completed ones.
    void Abandon();

    /// Makes a Write that waits for the reader of a pipe return EINTR within 100 ms, and each later one that would
    /// wait.
    ///
    /// @thread any, and signal handlers
    void Interrupt() noexcept { mTarget.Interrupt(); }

    /// Frames that were written; after an error or Close, those that are whole in the files.
    uint64_t Frames() const;
    /// Samples beyond full scale that an integer format clipped.
    uint64_t ClippedSamples() const;
    /// Where the sound lies: the files so far, in order.
    std::vector<std::string> Paths() const;

private:
    std::string PathOf(unsigned number) const;
    int OpenTarget(const std::string& path);
    int OpenNext();
    int WritePiece(const float* samples, size_t frames);
    int FinishFile();

    const FileSettings mSettings;
    OutputTarget mTarget;
    std::unique_ptr<SoundFile> mFile;  // the one being written
    unsigned mNumber = 0;              // of the file being written, from 1
    int mError = 0;
    bool mTriedToTakeName = false;
    uint64_t mFinishedFrames = 0, mFinishedClipped = 0;  // of the files before
    std::vector<std::string> mFinishedPaths;
};

}  // namespace record
