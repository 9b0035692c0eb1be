// RecordCommand: "corvane record": from the words of a command line to a finished file.
#pragma once

#include <string>
#include <vector>

namespace cli {

/// The words as they were written; RunRecord reads them and says what is wrong with one.
struct RecordOptions {
    std::vector<std::string> mSources;
    std::vector<std::string> mFrom;
    std::string mChannels = "2";  // of the mix; "0": every source keeps its own
    std::string mRate;            // empty: that of the device
    std::string mFormat = "f32";
    std::string mSeconds;  // empty: until stopped
    std::string mFile;
    bool mReplace = false;
    bool mJSON = false;
    bool mVerbose = false;
};

/// Records until the time is over or SIGINT or SIGTERM comes. @return an exit code
int RunRecord(const RecordOptions& options);

}  // namespace cli
