// CommandRun: one run of the command, with what it printed and how it ended.
#pragma once

#include "support/Recording.h"

#include <sys/types.h>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace support {

class CommandRun {
public:
    /// Starts "corvane" with these arguments.
    /// @param before  words of a shell that run first, as in "ulimit -f 100"
    explicit CommandRun(const std::vector<std::string>& arguments, const std::string& before = {});
    ~CommandRun();
    CommandRun(const CommandRun&) = delete;
    CommandRun& operator=(const CommandRun&) = delete;

    pid_t ID() const { return mID; }
    void Signal(int number);

    /// Waits for the end. @return the exit code, or 128 + the signal that ended it
    int Wait();
    /// What came on standard output and on standard error; whole after Wait.
    const std::string& Output() const { return mOutput; }
    const std::string& Errors() const { return mErrors; }

    /// Reads standard error until `text` has come; throws after twenty seconds.
    void WaitForError(const std::string& text);

private:
    bool ReadSome(int millis);

    pid_t mID = 0;
    int mOutputEnd = -1;
    int mErrorsEnd = -1;
    std::string mOutput;
    std::string mErrors;
};

/// Returns when the file holds `bytes` or more; throws after twenty seconds.
void WaitForSize(const std::filesystem::path& file, uintmax_t bytes);

}  // namespace support
