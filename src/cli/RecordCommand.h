// RecordCommand: "corvane record": from the words of a command line to a finished file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// The words as they were written; RunRecord reads them and says what is wrong with one.
struct RecordOptions {
    std::vector<std::string> mSources;
    std::vector<std::string> mFrom;
    std::string mChannels = "2";              // of the mix; "0": every source keeps its own
    std::vector<std::string> mTracks;         // NAME=SOURCE,SOURCE; read by ReadTrack
    std::optional<std::string> mRate;         // none: that of the device
    std::optional<std::string> mFormat;       // f32, s24 or s16; none: by the type of the file
    std::optional<std::string> mFileType;     // wav, flac or raw; none: by the name of the file
    std::optional<std::string> mTime;         // none: until stopped
    std::optional<std::string> mMaxFileTime;  // none: one file; read by ReadDuration
    std::optional<std::string> mProgress;     // json: levels as JSON lines while it records
    std::string mFile;
    bool mWait = false;  // for applications that do not play yet
    bool mReplace = false;
    bool mJSON = false;
    bool mVerbose = false;
    uint64_t mStartNanos = 0;  // host time at which the command was started
};

/// Records until the time is over or SIGINT or SIGTERM comes. @return an exit code
int RunRecord(const RecordOptions& options);

}  // namespace cli
